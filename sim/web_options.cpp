// SPDX-License-Identifier: MIT
#include "sim/web_server.h"

namespace zor::sim
{

void addWebOptions(CLI::App& app, WebOptions& options)
{
    app.add_flag("--web", options.enabled,
                 "Serve the dashboard page (on 127.0.0.1:" + std::to_string(kDefaultWebPort) +
                     " unless --web-port says otherwise)");
    app.add_option("--web-port", options.port,
                   "Port of the dashboard page; 0 with --web takes any free port")
        ->check(CLI::Range(0, 65535));
    app.add_option("--web-bind", options.bind,
                   "Address the dashboard listens on (default 127.0.0.1: this machine only)");
}

bool webWanted(const WebOptions& options)
{
    return options.enabled || options.port > 0;
}

} // namespace zor::sim
