// SPDX-License-Identifier: MIT
#include "sim/capture_option.h"

#include "mup/capture.h"

namespace zor::sim
{

void addCaptureOption([[maybe_unused]] CLI::App& app, [[maybe_unused]] CaptureOptions& options)
{
#ifdef ZOR_MUP_CAPTURE
    app.add_option("--capture", options.path,
                   "Write every frame to FILE as pcapng (a new file, mode 0600; it holds "
                   "tokens and certificates)")
        ->type_name("FILE");
#endif
}

CaptureSession::~CaptureSession()
{
#ifdef ZOR_MUP_CAPTURE
    mup::capture::stop();
#endif
}

std::unique_ptr<CaptureSession> startCapture(const CaptureOptions& options, std::string* error)
{
    error->clear();
    if (options.path.empty())
        return nullptr;
#ifdef ZOR_MUP_CAPTURE
    if (!mup::capture::start(options.path, error))
        return nullptr;
    return std::make_unique<CaptureSession>();
#else
    *error = "this build has no frame capture";
    return nullptr;
#endif
}

} // namespace zor::sim
