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

// " field=value ..." for the reply fields of `row` that follow the status word
// ("" for a command that answers none); a list is shown as its record count.
std::string describeReply(const CommandRow& row, const unsigned char* fields, size_t size);

// True for a query whose request is its reply record sent as zeros: such a
// request tells nothing and is not worth showing.
bool isBlankQuery(const CommandRow& row, const unsigned char* payload, size_t size);

} // namespace zor::wire

#endif
