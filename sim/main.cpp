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

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Simulated television middleware for libzor applications"};
    app.set_version_flag("--version", "tvsim (libzor) " ZOR_VERSION_STRING);
    bool quiet = false;
    app.add_flag("-q,--quiet", quiet, "Do not print a line per command");
    bool printState = false;
    app.add_flag("--print-state", printState,
                 "Print the television's state as a state file (the built-in one, or --state's "
                 "over it) and exit");
    zor::sim::TelevisionOptions televisionOptions;
    zor::sim::addTelevisionOptions(app, televisionOptions);
    zor::sim::ConsoleOptions consoleOptions;
    zor::sim::addConsoleOptions(app, consoleOptions);
    zor::sim::addXmosOptions(app, consoleOptions);
    zor::sim::WebOptions webOptions;
    zor::sim::addWebOptions(app, webOptions);
    zor::sim::CaptureOptions captureOptions;
    zor::sim::addCaptureOption(app, captureOptions);
    CLI11_PARSE(app, argc, argv);
    if (zor::sim::isControlClient(consoleOptions))
        return zor::sim::runControlClient(consoleOptions);

    // Stop signals are taken synchronously by this thread; the server threads
    // never see them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // Stopped last, once the servers are gone: the file is then complete.
    std::string captureError;
    const auto capture = zor::sim::startCapture(captureOptions, &captureError);
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
        if (quiet)
            return;
        std::lock_guard<std::mutex> guard(outputLock);
        printf("tvsim: %s\n", line.c_str());
        fflush(stdout);
    };

    std::string televisionError;
    const auto television = zor::sim::makeTelevision(televisionOptions, televisionError);
    if (!television) {
        fprintf(stderr, "tvsim: %s\n", televisionError.c_str());
        return 1;
    }
    if (printState) {
        printf("%s\n", nlohmann::json(television->state()).dump(2).c_str());
        return 0;
    }
    feed = std::make_unique<zor::sim::DashboardFeed>(*television);
    std::vector<std::unique_ptr<zor::sim::MiddlewareHandler>> handlers;
    std::vector<std::unique_ptr<mup::Server>> servers;
    for (const char* service : kClientServices) {
        handlers.push_back(
            std::make_unique<zor::sim::MiddlewareHandler>(service, *television, sink));
        auto server = mup::Server::start(service, *handlers.back());
        if (!server) {
            fprintf(stderr, "tvsim: cannot serve %s\n", service);
            return 1;
        }
        servers.push_back(std::move(server));
    }
    printf("tvsim: serving %zu services; Ctrl-C stops\n", servers.size());
    fflush(stdout);
    // Sends the middleware's own commands to the applications.
    std::string xmosError;
    auto xmos = zor::sim::startXmos(consoleOptions, &xmosError);
    if (consoleOptions.xmos && !xmos) {
        fprintf(stderr, "tvsim: far-field board: %s\n", xmosError.c_str());
        return 1;
    }
    auto console = zor::sim::Console::start(consoleOptions, xmos ? zor::sim::xmosCommands(*xmos)
                                                                 : zor::sim::CommandHook{});
    if (!console)
        return 1;
    std::unique_ptr<zor::sim::WebServer> web;
    if (zor::sim::webWanted(webOptions)) {
        std::string webError;
        web = zor::sim::WebServer::start(
            webOptions, *feed,
            [&console](const std::string& line) { return console->execute(line); }, xmos.get(),
            &webError);
        if (!web) {
            fprintf(stderr, "tvsim: %s\n", webError.c_str());
            return 1;
        }
        printf("tvsim: dashboard at %s\n", web->address().c_str());
        fflush(stdout);
    }

    int signal = 0;
    sigwait(&stopSignals, &signal);

    web.reset(); // it runs commands through the console
    console.reset();
    xmos.reset();
    // Servers go first: they remove their sockets and stop calling the handlers.
    servers.clear();
    handlers.clear();
    printf("tvsim: stopped\n");
    return 0;
}
