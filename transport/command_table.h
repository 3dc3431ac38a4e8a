// SPDX-License-Identifier: MIT
// The outbound command tables: one per command class, read by the encoder to
// build requests and read replies, and by the simulator to decode them. A row
// says what the record is, what of it goes into the request and what comes
// back after the status word.
#ifndef ZOR_TRANSPORT_COMMAND_TABLE_H
#define ZOR_TRANSPORT_COMMAND_TABLE_H

#include "transport/record_kind.h"

#include <cstddef>
#include <cstdint>

namespace zor::wire
{

enum class RequestShape : uint8_t {
    NoRecord,      // the command has no record: empty request, the pointer is ignored
    Empty,         // a record is required, but nothing of it is sent
    Record,        // the whole record
    ListCount,     // the count word of a list holder
    CountedString, // the record is a string: its length (32 bits), then its bytes
    BrowserCerts,  // a 16-byte length header, then four strings with terminators
};

enum class ReplyShape : uint8_t {
    None,   // nothing after the status word
    Record, // the whole record
    List,   // count x element into the holder's array
};

// Unconditional: reply fields are read whatever the status. Guarded: only when
// the status is not -1.
enum class ReadRule : uint8_t { Unconditional, Guarded };

struct CommandRow {
    uint32_t id;
    const char* name;      // also the command's trace line
    const char* traceName; // when the trace line differs from the name, else null
    RecordKind record;
    RequestShape request;
    ReplyShape reply;
    ReadRule rule;

    const char* traceLine() const { return traceName ? traceName : name; }
    bool hasRecord() const { return request != RequestShape::NoRecord; }
};

struct CommandClass {
    unsigned number;         // 1 to 7
    const char* name;        // the router's trace line
    const char* encoderName; // prefix of the encoder's log lines
    uint32_t firstId;
    uint32_t lastId;
    bool logsUnknownId; // the video encoder rejects unknown ids silently
    const CommandRow* rows;
    size_t rowCount;
};

// The class whose number is (id >> 16) & 0xF, or null outside 1 to 7.
const CommandClass* commandClassOf(uint32_t id);
const CommandClass* commandClass(unsigned number);

// The row of `id` within its class's accepted range, or null.
const CommandRow* findCommand(const CommandClass& commandClass, uint32_t id);
const CommandRow* findCommand(uint32_t id);

extern const CommandClass kAssistantClass;
extern const CommandClass kVoiceControlClass;
extern const CommandClass kVideoClass;
extern const CommandClass kAudioClass;
extern const CommandClass kChannelClass;
extern const CommandClass kSystemClass;
extern const CommandClass kMiscClass;

} // namespace zor::wire

#endif
