// SPDX-License-Identifier: MIT
// tvsim --capture FILE: every frame that the simulator sends or receives goes
// to FILE as pcapng (the messaging layer's capture), until tvsim stops. The
// option exists only in builds made with frame capture (ZOR_MUP_CAPTURE).
#ifndef ZOR_SIM_CAPTURE_OPTION_H
#define ZOR_SIM_CAPTURE_OPTION_H

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace zor::sim
{

struct CaptureOptions {
    std::string path;
};

void addCaptureOption(CLI::App& app, CaptureOptions& options);

// Stops the capture when destroyed: what is queued is written and the file
// is complete.
class CaptureSession
{
public:
    CaptureSession() = default;
    ~CaptureSession();
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;
};

// Starts the capture that the options ask for, from the calling thread (whose
// signal mask the writer thread inherits). Null with an empty *error when
// none was asked for; null with *error set when the file can't be made.
std::unique_ptr<CaptureSession> startCapture(const CaptureOptions& options, std::string* error);

} // namespace zor::sim

#endif
