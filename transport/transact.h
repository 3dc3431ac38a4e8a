// SPDX-License-Identifier: MIT
// The common frame of every class encoder: check the id and the record, write
// the request, transmit, read the status word and the reply fields.
#ifndef ZOR_TRANSPORT_TRANSACT_H
#define ZOR_TRANSPORT_TRANSACT_H

#include "transport/command_table.h"

namespace zor::transport
{

// Returns the middleware's status, or -1 when nothing was sent.
int transact(const wire::CommandClass& commandClass, unsigned int id, void* cmd_data);

} // namespace zor::transport

#endif
