// Human-readable decoding of a command's request bytes, for the simulator's
// log and dashboard.
#ifndef ZOR_TRANSPORT_RECORD_FORMAT_H
#define ZOR_TRANSPORT_RECORD_FORMAT_H

#include "transport/command_table.h"

#include <cstddef>
#include <string>

namespace zor::wire
{

// "name field=value ..." for the request payload of `row`. Payloads shorter
// than the row's layout are decoded as far as they go and marked "(short)".
std::string describeRequest(const CommandRow& row, const unsigned char* payload, size_t size);

} // namespace zor::wire

#endif
