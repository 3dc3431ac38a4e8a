// SPDX-License-Identifier: MIT
// The commands that the middleware sends to the applications, as they look on
// the wire: id, name and request fields, class by class. The server reads its
// requests in this order; `zorctl decode` and the Wireshark dissector decode
// them from this table.
#ifndef ZOR_TRANSPORT_INBOUND_COMMAND_TABLE_H
#define ZOR_TRANSPORT_INBOUND_COMMAND_TABLE_H

#include "transport/record_layout.h"

#include <cstddef>
#include <cstdint>

namespace zor::wire
{

struct InboundField {
    const char* name;
    uint32_t size;
    FieldType type;
};

struct InboundCommand {
    uint32_t id;
    const char* name;
    const InboundField* fields;
    size_t fieldCount;
    // The fields are a sample count, then that many 16-bit samples.
    bool pcm;
};

struct InboundClass {
    unsigned number; // 1 to 3
    const char* name;
    const InboundCommand* commands;
    size_t commandCount;
};

// The class of an inbound id (bits 16 to 19), or null outside 1 to 3.
const InboundClass* inboundClassOf(uint32_t id);
// The command of an inbound id, or null.
const InboundCommand* findInboundCommand(uint32_t id);
// Every class, for the generators.
const InboundClass* const* allInboundClasses(size_t* count);

// Inbound ids carry 0x10 in their top byte, outbound ones 0x18.
constexpr bool isInboundId(uint32_t id)
{
    return (id >> 24) == 0x10;
}

} // namespace zor::wire

#endif
