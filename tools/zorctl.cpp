// SPDX-License-Identifier: MIT
#include "tools/zorctl.h"

#include "mup/mup.h"
#include "tools/output.h"
#include "tools/suggest.h"
#include "zor/zor.h"
#include "zor/zor_version.h"

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zorctl
{

namespace
{

struct AppServices {
    EN_ZOR_COMMON_APP_TYPE_T type;
    const char* server; // the middleware calls the application here
    const char* client; // the application calls the middleware here
};

const std::map<std::string, AppServices> kAppTypes = {
    {"avs", {EN_ZOR_COMMON_APP_TYPE_AVS, "oxa.kel.idtv.client", "oxa.kel.avs.client"}},
    {"ga", {EN_ZOR_COMMON_APP_TYPE_GA, "oxa.kel.idtv.client3", "oxa.kel.ga.client"}},
    {"iot", {EN_ZOR_COMMON_APP_TYPE_IOT, "oxa.kel.idtv.client2", "oxa.kel.iot.client"}},
};

std::string gMiddlewarePath;

std::string socketPath(const char* service)
{
    char path[sizeof(sockaddr_un::sun_path)];
    if (OXA_TVC_SocketPath(service, path, sizeof(path)) < 0)
        return std::string("the socket of ") + service;
    return path;
}

// True when a live process accepts connections at `path`.
bool served(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const bool connected =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(fd);
    return connected;
}

// Opens what the subcommand needs; an exit status when that fails, else 0.
int startLibrary(Needs needs, const AppServices& services)
{
    if (needs == Needs::Nothing)
        return 0;
    gMiddlewarePath = socketPath(services.client);
    if (needs == Needs::Callbacks) {
        // The library logs a taken name in lines of its own and goes on
        // without its server; the television's commands would then go to
        // the other process.
        const std::string serverPath = socketPath(services.server);
        if (served(serverPath)) {
            complain("another application already serves %s at %s: the television's commands "
                     "would go to it, not here (stop it first)",
                     services.server, serverPath.c_str());
            return kExitRefused;
        }
        if (ZOR_Common_Init(services.type) != 0) {
            complain("cannot open the endpoint of %s", services.client);
            return kExitRefused;
        }
        return 0;
    }
    if (initClient(services.client) != 0) {
        complain("cannot open the endpoint of %s (zorctl -v tells why)", services.client);
        return kExitRefused;
    }
    return 0;
}

// The parser's error, or a better one for an unknown word.
int usageError(CLI::App& app, const CLI::ParseError& error)
{
    const std::string unknown = unknownSubcommand(app);
    if (!unknown.empty()) {
        complain("%s", unknown.c_str());
        return kExitUsage;
    }
    std::ostringstream out;
    std::ostringstream err;
    const int status = app.exit(error, out, err);
    printUsage(out.str(), true);
    // The parser's own complaint, in zorctl's words: one line, prefixed.
    const std::string complaint = err.str();
    if (!complaint.empty())
        complain("%s", complaint.substr(0, complaint.find('\n')).c_str());
    return status == 0 ? 0 : kExitUsage;
}

} // namespace

const std::string& middlewarePath()
{
    return gMiddlewarePath;
}

Exchange::Exchange()
{
    OXA_TVC_TransmitCounts(&m_calls, &m_unanswered);
}

bool Exchange::answered() const
{
    unsigned long unanswered = 0;
    OXA_TVC_TransmitCounts(nullptr, &unanswered);
    return unanswered == m_unanswered;
}

int Exchange::verdict(const char* what, int status) const
{
    unsigned long calls = 0;
    unsigned long unanswered = 0;
    OXA_TVC_TransmitCounts(&calls, &unanswered);
    if (unanswered != m_unanswered) {
        complain("%s: no answer from the middleware at %s (is tvsim running with the same "
                 "ZOR_RUNTIME_DIR?)",
                 what, middlewarePath().c_str());
        return kExitNoAnswer;
    }
    if (status >= 0)
        return 0;
    if (calls == m_calls)
        complain("%s: not sent: the library refused the arguments (zorctl -v shows its line)",
                 what);
    else
        complain("%s: the middleware refused it (status %d)", what, status);
    return kExitRefused;
}

int send(const char* what, const std::function<int()>& call)
{
    const Exchange exchange;
    const int status = call();
    const int verdict = exchange.verdict(what, status);
    if (verdict == 0)
        answer("%s: status %d", what, status);
    return verdict;
}

int query(const char* what, const std::function<int()>& call, const std::function<void()>& print)
{
    const Exchange exchange;
    const int verdict = exchange.verdict(what, call());
    if (verdict == 0)
        print();
    return verdict;
}

} // namespace zorctl

int main(int argc, char** argv)
{
    using namespace zorctl;
    CLI::App app{"Acts as an assistant application through libzor"};
    app.set_version_flag("--version", "zorctl (libzor) " ZOR_VERSION_STRING);
    app.require_subcommand(1);
    app.footer("Answers go to stdout, complaints to stderr. Exit status: 0 done; 1 refused (by the "
               "middleware, or by the library before sending) or a local failure; 2 a bad "
               "command line; 3 no answer from the middleware.");

    Invocation invocation;
    std::string appType = "avs";
    app.add_option("-a,--app", appType, "Application type: avs, ga or iot")
        ->check(CLI::IsMember({"avs", "ga", "iot"}));
    bool& verbose = invocation.verbose;
    app.add_flag("-v,--verbose", verbose,
                 "Show the library's own lines (on stderr) and every PCM callback of listen");

    addAssistantCommands(app, invocation);
    addAudioCommands(app, invocation);
    addVideoCommands(app, invocation);
    addChannelCommands(app, invocation);
    addSystemCommands(app, invocation);
    addMiscCommands(app, invocation);
    addVoiceControlCommands(app, invocation);
    addListenCommand(app, invocation);
    addRecordCommand(app, invocation);
    addDecodeCommand(app, invocation);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        routeLibraryLines(false);
        return usageError(app, error);
    }
    routeLibraryLines(verbose);

    invocation.appType = kAppTypes.at(appType).type;
    const int started = startLibrary(invocation.needs, kAppTypes.at(appType));
    if (started != 0)
        return started;
    return invocation.action ? invocation.action() : 0;
}
