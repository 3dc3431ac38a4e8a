// SPDX-License-Identifier: MIT
// The process-wide debug level. Bit 1 turns error lines on, bit 8 trace lines.
#ifndef ZOR_TRANSPORT_DEBUG_LEVEL_H
#define ZOR_TRANSPORT_DEBUG_LEVEL_H

#include "zor/zor_transport.h"

#endif
