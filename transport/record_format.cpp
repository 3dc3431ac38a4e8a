// SPDX-License-Identifier: MIT
#include "transport/record_format.h"

#include "transport/inbound_command_table.h"
#include "transport/record_layout.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zor::wire
{

namespace
{

// Texts longer than this are shown cut in the simulator's log, with their length.
constexpr size_t kShownChars = 80;
// Opaque byte fields show this many bytes in hex.
constexpr size_t kShownBytes = 16;

uint32_t u32At(const unsigned char* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

// The value of a field whose bytes are all present.
std::string fieldValue(FieldType type, const unsigned char* p, size_t size, size_t textLimit)
{
    switch (type) {
    case FieldType::U8:
        return std::to_string(p[0]);
    case FieldType::I8:
        return std::to_string(static_cast<int8_t>(p[0]));
    case FieldType::U16:
        return std::to_string(static_cast<unsigned>(p[0] | p[1] << 8));
    case FieldType::U32:
        return std::to_string(u32At(p));
    case FieldType::I32:
        return std::to_string(static_cast<int32_t>(u32At(p)));
    case FieldType::Text:
        return quoteText(reinterpret_cast<const char*>(p), size, textLimit);
    case FieldType::Bytes: {
        std::string text = std::to_string(size) + " bytes";
        for (size_t i = 0; i < size && i < kShownBytes; ++i) {
            char hex[8];
            snprintf(hex, sizeof(hex), "%s%02x", i ? " " : ": ", p[i]);
            text += hex;
        }
        if (size > kShownBytes)
            text += " ...";
        return text;
    }
    }
    return {};
}

// Calls emit(field, bytes) for each field of the layout that lies wholly
// within `size`; returns false when the payload ends inside the layout.
template <typename Emit>
bool walkLayout(const RecordLayout& layout, const unsigned char* p, size_t size, Emit emit)
{
    for (size_t i = 0; i < layout.fieldCount; ++i) {
        const RecordField& field = layout.fields[i];
        if (field.offset + field.size > size)
            return false;
        emit(field, p + field.offset);
    }
    return size >= layout.size;
}

class Decoder
{
public:
    explicit Decoder(Decoding& out) : m_out(out) {}

    void add(const std::string& name, FieldType type, const unsigned char* p, size_t size)
    {
        m_out.fields.push_back({name, fieldValue(type, p, size, 0)});
    }

    void note(const std::string& text) { m_out.notes.push_back(text); }

    void shortBy(size_t have, size_t want)
    {
        note("short: " + std::to_string(have) + " of " + std::to_string(want) + " bytes");
    }

    void beyond(size_t extra)
    {
        if (extra)
            note(std::to_string(extra) + " bytes beyond the layout");
    }

    // One record at p; returns the bytes it covers.
    size_t record(const RecordLayout& layout, const std::string& prefix, const unsigned char* p,
                  size_t size)
    {
        const bool whole = walkLayout(layout, p, size, [&](const RecordField& f, const auto* at) {
            add(prefix + f.name, f.type, at, f.size);
        });
        if (!whole) {
            shortBy(size, layout.size);
            return size;
        }
        return layout.size;
    }

    // A 32-bit word named `name`; false (noted) when it is not all there.
    bool word(const char* name, FieldType type, const unsigned char* p, size_t size)
    {
        if (size < 4) {
            shortBy(size, 4);
            return false;
        }
        add(name, type, p, 4);
        return true;
    }

private:
    Decoding& m_out;
};

void decodeCountedString(Decoder& out, const unsigned char* p, size_t size)
{
    if (!out.word(kCountedStringFields[0], FieldType::U32, p, size))
        return;
    const uint32_t length = u32At(p);
    const size_t available = size - 4;
    if (length > available)
        out.shortBy(available, length);
    out.add(kCountedStringFields[1], FieldType::Text, p + 4,
            length < available ? length : available);
    out.beyond(length < available ? available - length : 0);
}

// Four lengths (terminators included), then the four strings.
void decodeBrowserCerts(Decoder& out, const unsigned char* p, size_t size)
{
    const char* const* names = kBrowserCertFields;
    if (size < 16) {
        out.shortBy(size, 16);
        return;
    }
    for (int i = 0; i < 4; ++i)
        out.add(std::string(names[i]) + "_len", FieldType::U32, p + 4 * i, 4);
    size_t offset = 16;
    for (int i = 0; i < 4; ++i) {
        const uint32_t length = u32At(p + 4 * i);
        const size_t available = size - offset;
        if (length > available) {
            out.add(names[i], FieldType::Text, p + offset, available);
            out.shortBy(available, length);
            return;
        }
        out.add(names[i], FieldType::Text, p + offset, length);
        offset += length;
    }
    out.beyond(size - offset);
}

void decodeOutboundRequest(Decoder& out, const CommandRow& row, const unsigned char* p, size_t size)
{
    const RecordLayout* layout = recordLayout(row.record);
    switch (row.request) {
    case RequestShape::NoRecord:
    case RequestShape::Empty:
        out.beyond(size);
        return;
    case RequestShape::Record:
        if (layout)
            out.beyond(size - out.record(*layout, "", p, size));
        return;
    case RequestShape::ListCount:
        if (layout && out.word(layout->countName, FieldType::U32, p, size))
            out.beyond(size - 4);
        return;
    case RequestShape::CountedString:
        decodeCountedString(out, p, size);
        return;
    case RequestShape::BrowserCerts:
        decodeBrowserCerts(out, p, size);
        return;
    }
}

void decodeOutboundReply(Decoder& out, const CommandRow& row, const unsigned char* p, size_t size)
{
    if (!out.word("status", FieldType::I32, p, size))
        return;
    const int32_t status = static_cast<int32_t>(u32At(p));
    p += 4;
    size -= 4;
    const RecordLayout* layout = recordLayout(row.record);
    if (row.reply == ReplyShape::None || !layout) {
        out.beyond(size);
        return;
    }
    if (row.rule == ReadRule::Guarded && status == -1)
        out.note("status -1: the library does not read the fields");
    if (row.reply == ReplyShape::Record) {
        out.beyond(size - out.record(*layout, "", p, size));
        return;
    }
    // A list: as many whole elements as the reply carries.
    size_t index = 0;
    size_t offset = 0;
    while (size - offset >= layout->size) {
        out.record(*layout, "[" + std::to_string(index++) + "].", p + offset, layout->size);
        offset += layout->size;
    }
    out.beyond(size - offset);
}

void decodeInboundRequest(Decoder& out, const InboundCommand& command, const unsigned char* p,
                          size_t size)
{
    size_t offset = 0;
    for (size_t i = 0; i < command.fieldCount; ++i) {
        const InboundField& field = command.fields[i];
        if (size - offset < field.size) {
            out.shortBy(size, offset + field.size);
            return;
        }
        out.add(field.name, field.type, p + offset, field.size);
        offset += field.size;
    }
    if (command.pcm) {
        const uint64_t bytes = uint64_t{u32At(p)} * 2;
        const size_t available = size - offset;
        if (bytes > available)
            out.shortBy(available, static_cast<size_t>(bytes));
        const size_t shown = bytes < available ? static_cast<size_t>(bytes) : available;
        out.add("pcm", FieldType::Bytes, p + offset, shown);
        offset += shown;
    }
    out.beyond(size - offset);
}

// " label=value" for each logged field of a whole record.
void appendLogFields(std::string& line, const RecordLayout& layout, const unsigned char* p)
{
    walkLayout(layout, p, layout.size, [&](const RecordField& f, const unsigned char* at) {
        if (!f.label)
            return;
        line += ' ';
        line += f.label;
        line += '=';
        // Opaque bytes are shown by their count in the log.
        line += f.type == FieldType::Bytes ? std::to_string(f.size)
                                           : fieldValue(f.type, at, f.size, kShownChars);
    });
}

} // namespace

std::string quoteText(const char* field, size_t size, size_t limit)
{
    const size_t length = strnlen(field, size);
    std::string text = "\"";
    for (size_t i = 0; i < length && (limit == 0 || i < limit); ++i) {
        const unsigned char c = static_cast<unsigned char>(field[i]);
        if (c == '"' || c == '\\') {
            text += '\\';
            text += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\x%02x", c);
            text += escaped;
        } else {
            text += static_cast<char>(c);
        }
    }
    text += '"';
    if (limit && length > limit)
        text += "...(" + std::to_string(length) + " chars)";
    return text;
}

std::string describeRequest(const CommandRow& row, const unsigned char* payload, size_t size)
{
    std::string line = row.name;
    const auto field = [&line](const char* label, const std::string& value) {
        line += ' ';
        line += label;
        line += '=';
        line += value;
    };
    const RecordLayout* layout = recordLayout(row.record);
    switch (row.request) {
    case RequestShape::NoRecord:
    case RequestShape::Empty:
        break;
    case RequestShape::Record:
        if (!layout || size < layout->size) {
            line += " (short)";
            break;
        }
        appendLogFields(line, *layout, payload);
        break;
    case RequestShape::ListCount:
        if (size < 4) {
            line += " (short)";
            break;
        }
        field("count", std::to_string(u32At(payload)));
        break;
    case RequestShape::CountedString: {
        if (size < 4) {
            field("short_bytes", std::to_string(size));
            break;
        }
        const uint32_t length = u32At(payload);
        const size_t available = size - 4;
        field("len", std::to_string(length));
        field("text", quoteText(reinterpret_cast<const char*>(payload + 4),
                                length < available ? length : available, kShownChars));
        break;
    }
    case RequestShape::BrowserCerts: {
        static const char* const labels[] = {"data1", "data2", "data3", "subject"};
        if (size < 16) {
            field("short_bytes", std::to_string(size));
            break;
        }
        // 64 bits: four lengths from another process can't wrap it round.
        uint64_t offset = 16;
        for (int i = 0; i < 4; ++i) {
            const uint32_t length = u32At(payload + 4 * i);
            const size_t available = offset < size ? size - static_cast<size_t>(offset) : 0;
            const char* text = reinterpret_cast<const char*>(payload) + (available ? offset : 0);
            field(labels[i], quoteText(text, length < available ? length : available, kShownChars));
            offset += length;
        }
        break;
    }
    }
    return line;
}

std::string describeReply(const CommandRow& row, const unsigned char* fields, size_t size)
{
    std::string line;
    const RecordLayout* layout = recordLayout(row.record);
    switch (row.reply) {
    case ReplyShape::None:
        break;
    case ReplyShape::Record:
        if (!layout || size < layout->size)
            line += " short_bytes=" + std::to_string(size);
        else
            appendLogFields(line, *layout, fields);
        break;
    case ReplyShape::List:
        line += " records=" + std::to_string(layout && layout->size ? size / layout->size : 0);
        break;
    }
    return line;
}

bool isBlankQuery(const CommandRow& row, const unsigned char* payload, size_t size)
{
    if (row.request != RequestShape::Record || row.reply != ReplyShape::Record)
        return false;
    for (size_t i = 0; i < size; ++i)
        if (payload[i] != 0)
            return false;
    return true;
}

Decoding decodePayload(uint32_t command, bool reply, const unsigned char* payload, size_t size)
{
    Decoding decoding;
    Decoder out(decoding);
    if (const CommandRow* row = findCommand(command)) {
        const CommandClass* owner = commandClassOf(command);
        decoding.command = row->name;
        decoding.commandClass = std::to_string(owner->number) + " " + owner->name;
        if (reply)
            decodeOutboundReply(out, *row, payload, size);
        else
            decodeOutboundRequest(out, *row, payload, size);
        return decoding;
    }
    if (const InboundCommand* inbound = findInboundCommand(command)) {
        const InboundClass* owner = inboundClassOf(command);
        decoding.command = inbound->name;
        decoding.commandClass = std::to_string(owner->number) + " " + owner->name;
        if (reply) {
            if (out.word("result", FieldType::I32, payload, size))
                out.beyond(size - 4);
        } else {
            decodeInboundRequest(out, *inbound, payload, size);
        }
        return decoding;
    }
    decoding.command = "unknown command";
    out.beyond(size);
    return decoding;
}

} // namespace zor::wire
