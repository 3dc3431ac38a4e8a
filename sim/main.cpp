// SPDX-License-Identifier: MIT
// tvsim: a simulated television middleware. It serves the assistant
// applications' client services, answers their commands from a small
// television model and prints one decoded line per command.
#include "mup/server.h"
#include "sim/capture_option.h"
#include "sim/console.h"
#include "sim/dashboard_feed.h"
#include "sim/middleware_handler.h"
#include "sim/television.h"
#include "sim/television_options.h"
#include "sim/web_server.h"
#include "sim/xmos_console.h"
#include "zor/zor_version.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace
{

// The services that the applications' client endpoints connect to.
constexpr const char* kClientServices[] = {
    "oxa.kel.avs.client",
    "oxa.kel.ga.client",
    "oxa.kel.iot.client",
};

struct Options {
    bool quiet = false;
    bool printState = false;
    zor::sim::TelevisionOptions television;
    zor::sim::ConsoleOptions console;
    zor::sim::WebOptions web;
    zor::sim::CaptureOptions capture;
};

void addOptions(CLI::App& app, Options& options)
{
    app.set_version_flag("--version", "tvsim (libzor) " ZOR_VERSION_STRING);
    app.add_flag("-q,--quiet", options.quiet, "Do not print a line per command");
    app.add_flag("--print-state", options.printState,
                 "Print the television's state as a state file (the built-in one, or --state's "
                 "over it) and exit");
    zor::sim::addTelevisionOptions(app, options.television);
    zor::sim::addConsoleOptions(app, options.console);
    zor::sim::addXmosOptions(app, options.console);
    zor::sim::addWebOptions(app, options.web);
    zor::sim::addCaptureOption(app, options.capture);
}

// Stop signals are taken synchronously by the main thread; the server
// threads, started after this, never see them.
sigset_t blockStopSignals()
{
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    return stopSignals;
}

// One handler and one server per client service. The servers are stopped
// first: they remove their sockets and stop calling the handlers.
struct Services {
    std::vector<std::unique_ptr<zor::sim::MiddlewareHandler>> handlers;
    std::vector<std::unique_ptr<mup::Server>> servers;

    bool start(zor::sim::Television& television, const zor::sim::MiddlewareHandler::LineSink& sink)
    {
        for (const char* service : kClientServices) {
            handlers.push_back(
                std::make_unique<zor::sim::MiddlewareHandler>(service, television, sink));
            auto server = mup::Server::start(service, *handlers.back());
            if (!server) {
                fprintf(stderr, "tvsim: cannot serve %s\n", service);
                return false;
            }
            servers.push_back(std::move(server));
        }
        printf("tvsim: serving %zu services; Ctrl-C stops\n", servers.size());
        fflush(stdout);
        return true;
    }

    void stop()
    {
        servers.clear();
        handlers.clear();
    }
};

// The web dashboard, when the options ask for it; it runs commands through
// the console. False (with the reason printed) when it cannot listen.
bool startDashboard(const zor::sim::WebOptions& options, zor::sim::DashboardFeed& feed,
                    zor::sim::Console& console, zor::sim::FarFieldVoice* voice,
                    std::unique_ptr<zor::sim::WebServer>& web)
{
    if (!zor::sim::webWanted(options))
        return true;
    std::string webError;
    web = zor::sim::WebServer::start(
        options, feed, [&console](const std::string& line) { return console.execute(line); }, voice,
        &webError);
    if (!web) {
        fprintf(stderr, "tvsim: %s\n", webError.c_str());
        return false;
    }
    printf("tvsim: dashboard at %s\n", web->address().c_str());
    fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Simulated television middleware for libzor applications"};
    Options options;
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    if (zor::sim::isControlClient(options.console))
        return zor::sim::runControlClient(options.console);

    sigset_t stopSignals = blockStopSignals();
    // Stopped last, once the servers are gone: the file is then complete.
    std::string captureError;
    const auto capture = zor::sim::startCapture(options.capture, &captureError);
    if (!captureError.empty()) {
        fprintf(stderr, "tvsim: --capture: %s\n", captureError.c_str());
        return 1;
    }

    std::mutex outputLock;
    // Set before the services start; the web dashboard shows every line.
    std::unique_ptr<zor::sim::DashboardFeed> feed;
    const zor::sim::MiddlewareHandler::LineSink sink = [&](const std::string& line) {
        if (feed)
            feed->publishLine(line);
        if (options.quiet)
            return;
        std::lock_guard<std::mutex> guard(outputLock);
        printf("tvsim: %s\n", line.c_str());
        fflush(stdout);
    };

    std::string televisionError;
    const auto television = zor::sim::makeTelevision(options.television, televisionError);
    if (!television) {
        fprintf(stderr, "tvsim: %s\n", televisionError.c_str());
        return 1;
    }
    if (options.printState) {
        printf("%s\n", nlohmann::json(television->state()).dump(2).c_str());
        return 0;
    }
    feed = std::make_unique<zor::sim::DashboardFeed>(*television);
    Services services;
    if (!services.start(*television, sink))
        return 1;
    // Sends the middleware's own commands to the applications.
    std::string xmosError;
    auto xmos = zor::sim::startXmos(options.console, &xmosError);
    if (options.console.xmos && !xmos) {
        fprintf(stderr, "tvsim: far-field board: %s\n", xmosError.c_str());
        return 1;
    }
    auto console = zor::sim::Console::start(options.console, xmos ? zor::sim::xmosCommands(*xmos)
                                                                  : zor::sim::CommandHook{});
    if (!console)
        return 1;
    std::unique_ptr<zor::sim::WebServer> web;
    if (!startDashboard(options.web, *feed, *console, xmos.get(), web))
        return 1;

    int signal = 0;
    sigwait(&stopSignals, &signal);

    web.reset(); // it runs commands through the console
    console.reset();
    xmos.reset();
    services.stop();
    printf("tvsim: stopped\n");
    return 0;
}
