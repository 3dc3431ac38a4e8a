// SPDX-License-Identifier: MIT
// Frame capture: every frame that this process sends or receives, written to
// a pcapng file for Wireshark or `zorctl decode`. One interface per service
// name, microsecond time stamps, the direction of each frame, the process id
// in the section's comment and in each interface's description.
//
// The call path never waits for the disk: a frame is appended, already laid
// out as a pcapng block, to a bounded buffer that a writer thread empties
// every few milliseconds. A frame that finds the buffer full is dropped and
// counted; the count goes into the next packet of its interface (its drop
// count) and into an interface statistics block.
//
// Capture exists only in builds made with the ZOR_MUP_CAPTURE option; without
// it the hooks below do nothing and nothing of this unit is compiled in.
#ifndef MUP_CAPTURE_H
#define MUP_CAPTURE_H

#include "mup/frame.h"

#include <cstdint>
#include <string>

namespace mup::capture
{

enum class Direction : uint8_t {
    Received = 1, // the pcapng "inbound" direction
    Sent = 2,     // "outbound"
};

// Longest part of a frame that is kept (the rest is counted in the packet's
// original length): the largest packet Wireshark reads.
constexpr uint32_t kSnapLength = 256 * 1024;

#ifdef ZOR_MUP_CAPTURE

// The hook of the client and the server: records one frame of `service` when
// this process captures. Never blocks on the file, never throws.
void frame(const std::string& service, Direction direction, const FrameHeader& header,
           const unsigned char* payload);

// Starts this process's capture into `path`, a file that must not exist yet
// (created 0600, never through a link). Returns false with a reason in *error
// when the file can't be made or a capture already runs. Any thread.
bool start(const std::string& path, std::string* error);

// Writes what is queued, the statistics of every interface, and closes the
// file; frames after that are not recorded. Any thread but a hook's caller
// may call it; a second call does nothing.
void stop();

// Frames dropped so far because the buffer was full.
uint64_t dropped();

// For tests: while held, the writer takes nothing from the buffer, so that
// a test can fill it; stop() writes what is queued all the same.
void holdWriter(bool held);

// The environment variable that starts a capture when libmup is loaded.
constexpr const char* kEnvironmentVariable = "ZOR_MUP_CAPTURE";

#else

inline void frame(const std::string&, Direction, const FrameHeader&, const unsigned char*) {}

#endif

} // namespace mup::capture

#endif
