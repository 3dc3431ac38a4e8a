#include "transport/record_format.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zor::wire {

namespace {

uint32_t word(const unsigned char* bytes)
{
    uint32_t value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

std::string describeFixed(const CommandRow& row, const unsigned char* payload, size_t size)
{
    char text[64];
    switch (row.record) {
    case RecordKind::Byte:
        snprintf(text, sizeof(text), " value=%u", payload[0]);
        return text;
    case RecordKind::Word:
        snprintf(text, sizeof(text), " value=%d", static_cast<int32_t>(word(payload)));
        return text;
    default:
        snprintf(text, sizeof(text), " (%zu bytes)", size);
        return text;
    }
}

} // namespace

std::string describeRequest(const CommandRow& row, const unsigned char* payload, size_t size)
{
    std::string line = row.name;
    switch (row.request) {
    case RequestShape::NoRecord:
    case RequestShape::Empty:
        break;
    case RequestShape::Record: {
        const size_t expected = recordSize(row.record);
        if (size < expected) {
            line += " (short)";
            break;
        }
        line += describeFixed(row, payload, size);
        break;
    }
    case RequestShape::ListCount:
        if (size < 4) {
            line += " (short)";
            break;
        }
        line += " count=" + std::to_string(word(payload));
        break;
    case RequestShape::CountedString:
    case RequestShape::BrowserCerts:
        line += " (" + std::to_string(size) + " bytes)";
        break;
    }
    return line;
}

} // namespace zor::wire
