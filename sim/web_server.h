// SPDX-License-Identifier: MIT
// tvsim's web dashboard: one page that shows the simulated television live
// (server-sent events) and sends the middleware's commands through the same
// command execution as the console.
//
// It listens on 127.0.0.1 unless --web-bind names another address; a page
// served on loopback only answers requests whose Host is a loopback name, and
// every POST from a page of another origin is refused, so that other web
// sites open in the same browser cannot drive the television.
#ifndef ZOR_SIM_WEB_SERVER_H
#define ZOR_SIM_WEB_SERVER_H

#include <CLI/CLI.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace zor::sim
{

class DashboardFeed;
class FarFieldVoice;

struct WebOptions {
    bool enabled = false; // --web
    int port = -1;        // --web-port; -1: not given
    std::string bind = "127.0.0.1";
};

constexpr int kDefaultWebPort = 8480;
// Uploaded WAV files larger than this are refused with a message; requests
// beyond kWebRequestLimit are cut off by the HTTP layer.
constexpr size_t kWebUploadLimit = 8 * 1024 * 1024;
constexpr size_t kWebRequestLimit = 32 * 1024 * 1024;

// Adds --web, --web-port and --web-bind.
void addWebOptions(CLI::App& app, WebOptions& options);

// True when the options ask for the dashboard: --web, or --web-port above 0.
bool webWanted(const WebOptions& options);

class WebServer
{
public:
    // Runs one command line as the console does: "ok ..." or "error ...".
    using Execute = std::function<std::string(const std::string& line)>;

    // Listens and serves on a thread of its own. `feed` and `voice` (null
    // when there is no far-field device) are borrowed and must outlive the
    // server; `execute` is called on the server's threads. Port 0 takes any
    // free port. Null with `error` set when it cannot listen.
    static std::unique_ptr<WebServer> start(const WebOptions& options, DashboardFeed& feed,
                                            Execute execute, FarFieldVoice* voice,
                                            std::string* error);
    ~WebServer(); // ends the event streams, stops listening, joins
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    int port() const;
    std::string address() const; // "http://127.0.0.1:8480/"

private:
    class Impl;
    explicit WebServer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

} // namespace zor::sim

#endif
