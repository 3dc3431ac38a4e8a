// SPDX-License-Identifier: MIT
// Field by field layout of every command record on the wire: the one
// description that the simulator's log, `zorctl decode` and the Wireshark
// dissector all read, so that none of them can drift from the records.
#ifndef ZOR_TRANSPORT_RECORD_LAYOUT_H
#define ZOR_TRANSPORT_RECORD_LAYOUT_H

#include "transport/record_kind.h"

#include <cstddef>
#include <cstdint>

namespace zor::wire
{

enum class FieldType : uint8_t {
    U8,
    I8,
    U16,
    U32,
    I32,
    Text,  // characters, ending at the first NUL or at the field's end
    Bytes, // opaque bytes
};

struct RecordField {
    const char* name;  // the record's field name ("stAppName.c8Str" for nested records)
    const char* label; // the simulator's short name for its log line; null: not logged
    uint32_t offset;
    uint32_t size;
    FieldType type;
};

struct RecordLayout {
    const char* typeName; // the record's type ("_VOICECTRL_STR_INFO"), or a plain value's
    const char* key;      // lower-case identifier, unique among the layouts
    uint32_t size;        // bytes on the wire (of one element for the lists)
    const RecordField* fields;
    size_t fieldCount;
    const char* countName; // lists: the holder's count field, sent alone; else null
};

// The layout of `kind`, or null for the kinds without a fixed record (None,
// String, BrowserCerts).
const RecordLayout* recordLayout(RecordKind kind);

// Every layout, for the generators that describe them all.
const RecordLayout* const* allRecordLayouts(size_t* count);

// Field names of the two request shapes that are no fixed record: a counted
// string (its length word, then its bytes) and the browser certificates
// (four length words, then the four strings with their terminators).
constexpr const char* kCountedStringFields[] = {"length", "text"};
constexpr const char* kBrowserCertFields[] = {"pcData1", "pcData2", "pcData3", "pcSubjectName"};

// Bytes of one field type's numbers (0 for Text and Bytes).
size_t fieldTypeWidth(FieldType type);

} // namespace zor::wire

#endif
