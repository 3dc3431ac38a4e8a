// tvsim: a simulated television middleware. It serves the assistant
// applications' client services, answers their commands from a small
// television model and prints one decoded line per command.
#include "mup/server.h"
#include "sim/middleware_handler.h"
#include "sim/television.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace {

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
    bool quiet = false;
    app.add_flag("-q,--quiet", quiet, "Do not print a line per command");
    CLI11_PARSE(app, argc, argv);

    // Stop signals are taken synchronously by this thread; the server threads
    // never see them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    std::mutex outputLock;
    const zor::sim::MiddlewareHandler::LineSink sink = [&](const std::string& line) {
        if (quiet)
            return;
        std::lock_guard<std::mutex> guard(outputLock);
        printf("tvsim: %s\n", line.c_str());
        fflush(stdout);
    };

    zor::sim::Television television;
    std::vector<std::unique_ptr<zor::sim::MiddlewareHandler>> handlers;
    std::vector<std::unique_ptr<mup::Server>> servers;
    for (const char* service : kClientServices) {
        handlers.push_back(std::make_unique<zor::sim::MiddlewareHandler>(service, television, sink));
        auto server = mup::Server::start(service, *handlers.back());
        if (!server) {
            fprintf(stderr, "tvsim: cannot serve %s\n", service);
            return 1;
        }
        servers.push_back(std::move(server));
    }
    printf("tvsim: serving %zu services; Ctrl-C stops\n", servers.size());
    fflush(stdout);

    int signal = 0;
    sigwait(&stopSignals, &signal);

    // Servers go first: they remove their sockets and stop calling the handlers.
    servers.clear();
    handlers.clear();
    printf("tvsim: stopped\n");
    return 0;
}
