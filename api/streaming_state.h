// SPDX-License-Identifier: MIT
// Library-wide state of microphone streaming and of the middleware-set
// options. Written on application threads and on the server thread, so each
// value is atomic (the far-field record, three bytes, is kept under a lock).
#ifndef ZOR_API_STREAMING_STATE_H
#define ZOR_API_STREAMING_STATE_H

#include "zor/zor_types.h"

#include <atomic>
#include <cstdint>

// The source streaming was last started from; 3 (none) after every stop.
// Both change together, under the lock of microphone_streaming.cpp, as each
// start or stop takes effect; anyone may read them.
extern std::atomic<int32_t> genSource;
// 1 from a start until the next stop.
extern std::atomic<uint8_t> gbCaptured;
// The remote-control button mode the middleware set last (initially 4).
extern std::atomic<_EN_AVS_TAPPED_TYPE> genTappedType;

namespace zor::options
{

// A consistent copy of gstFFMInfo.
_ST_FFM_INFO farFieldInfo();

} // namespace zor::options

#endif
