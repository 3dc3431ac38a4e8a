// SPDX-License-Identifier: MIT
// Human-readable decoding of command payloads from the record layouts: the
// simulator's one-line log of a request, and the field-by-field decoding of
// any request or reply that `zorctl decode` prints. The Wireshark dissector
// is generated from the same tables and follows the same rules.
#ifndef ZOR_TRANSPORT_RECORD_FORMAT_H
#define ZOR_TRANSPORT_RECORD_FORMAT_H

#include "transport/command_table.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zor::wire
{

// "name field=value ..." for the request payload of `row`. Payloads shorter
// than the row's layout are decoded as far as they go and marked "(short)".
std::string describeRequest(const CommandRow& row, const unsigned char* payload, size_t size);

// " field=value ..." for the reply fields of `row` that follow the status word
// ("" for a command that answers none); a list is shown as its record count.
std::string describeReply(const CommandRow& row, const unsigned char* fields, size_t size);

// True for a query whose request is its reply record sent as zeros: such a
// request tells nothing and is not worth showing.
bool isBlankQuery(const CommandRow& row, const unsigned char* payload, size_t size);

struct DecodedField {
    std::string name;  // the record's field name; list elements "[i].name"
    std::string value; // a decimal number, a quoted text or "N bytes: hex..."
};

struct Decoding {
    std::string command;      // the command's name, or "unknown command"
    std::string commandClass; // "4 OXA_TV_CMD_CLASS_AUDIO", or empty when unknown
    std::vector<DecodedField> fields;
    // What did not fit the layout: a short payload, bytes beyond it, reply
    // fields that the library does not read.
    std::vector<std::string> notes;
};

// Decodes the payload of a frame carrying `command`: a request (or one-way
// command) when `reply` is false, else the reply to it. Never reads past
// `size`; bytes the layout does not explain are reported in the notes.
Decoding decodePayload(uint32_t command, bool reply, const unsigned char* payload, size_t size);

// A text field as the decoders show it: quoted, escaped, cut after `limit`
// characters (0: never cut).
std::string quoteText(const char* field, size_t size, size_t limit);

} // namespace zor::wire

#endif
