// SPDX-License-Identifier: MIT
// The exported functions. None lets an exception out: callers are C-minded
// and a throw across this boundary would end their process.
#include "mup/mup.h"

#include "base/no_destructor.h"
#include "mup/client.h"
#include "mup/log.h"
#include "mup/runtime_dir.h"
#include "mup/server.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace
{

// The endpoint used by OXA_TVC_TransmitCommand. Callers take their own
// reference for the length of a call, so that OXA_TVC_NewClient can replace
// it while calls on the old one finish.
struct ClientSlot {
    std::mutex lock;
    std::shared_ptr<mup::Client> client;
};

ClientSlot& clientSlot()
{
    static zor::NoDestructor<ClientSlot> slot;
    return *slot;
}

// The servers registered with initAVSServer. They serve until the process
// exits; the registry is never destroyed, so that a late caller never finds
// it gone.
struct ServerRegistry {
    std::mutex lock;
    std::vector<std::unique_ptr<mup::Server>> servers;
    bool exitHookRegistered = false;
    bool exiting = false;
};

ServerRegistry& serverRegistry()
{
    static zor::NoDestructor<ServerRegistry> registry;
    return *registry;
}

// Runs at exit(): the server threads are stopped and joined before the
// caller's static objects (its handlers among them) are destroyed. When exit()
// was called by a handler, its own thread is not waited for.
void stopServersAtExit()
{
    ServerRegistry& registry = serverRegistry();
    std::vector<mup::Server*> servers;
    {
        std::lock_guard<std::mutex> guard(registry.lock);
        registry.exiting = true;
        for (const auto& server : registry.servers)
            servers.push_back(server.get());
    }
    for (mup::Server* server : servers)
        server->stop();
}

// Each thread's transmissions, for OXA_TVC_TransmitCounts.
thread_local unsigned long tCalls = 0;
thread_local unsigned long tUnanswered = 0;

} // namespace

int OXA_TVC_NewClient(const char* name)
{
    try {
        if (!name || !mup::isValidServiceName(name)) {
            mup::logLine("OXA_TVC_NewClient: invalid service name '%s'", name ? name : "(null)");
            return -1;
        }
        // socketPathFor() says why it has none.
        if (mup::socketPathFor(name).empty())
            return -1;
        auto client = std::make_shared<mup::Client>(name);
        std::shared_ptr<mup::Client> previous;
        ClientSlot& slot = clientSlot();
        {
            std::lock_guard<std::mutex> guard(slot.lock);
            previous = std::move(slot.client);
            slot.client = std::move(client);
        }
        // The previous endpoint goes when its last caller is done, outside
        // the lock.
        return 0;
    } catch (const std::exception& error) {
        mup::logLine("OXA_TVC_NewClient: %s", error.what());
        return -1;
    }
}

namespace
{

int transmitOnSlot(unsigned int cmd, MUPParam& in, MUPParam* out)
{
    try {
        std::shared_ptr<mup::Client> client;
        {
            ClientSlot& slot = clientSlot();
            std::lock_guard<std::mutex> guard(slot.lock);
            client = slot.client;
        }
        if (!client) {
            mup::logLine("command 0x%08x not sent: no client endpoint (OXA_TVC_NewClient)", cmd);
            if (out)
                out->clear();
            return -1;
        }
        return client->transmit(cmd, in, out);
    } catch (...) {
        if (out)
            out->clear();
        return -1;
    }
}

} // namespace

int OXA_TVC_TransmitCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int)
{
    const int result = transmitOnSlot(cmd, in, out);
    ++tCalls;
    if (result != 0)
        ++tUnanswered;
    return result;
}

void OXA_TVC_TransmitCounts(unsigned long* calls, unsigned long* unanswered)
{
    if (calls)
        *calls = tCalls;
    if (unanswered)
        *unanswered = tUnanswered;
}

int OXA_TVC_SocketPath(const char* name, char* path, unsigned int size)
{
    try {
        if (path && size > 0)
            path[0] = '\0';
        if (!name || !path || !mup::isValidServiceName(name))
            return -1;
        const std::string resolved = mup::socketPathFor(name);
        if (resolved.empty() || resolved.size() >= size)
            return -1;
        memcpy(path, resolved.c_str(), resolved.size() + 1);
        return static_cast<int>(resolved.size());
    } catch (...) {
        return -1;
    }
}

int initAVSServer(const char* name, OXAPC::C_OXAAVSServerHandler* handler)
{
    try {
        if (!name || !handler) {
            mup::logLine("initAVSServer: %s", name ? "no handler" : "no service name");
            return -1;
        }
        ServerRegistry& registry = serverRegistry();
        std::lock_guard<std::mutex> guard(registry.lock);
        if (registry.exiting)
            return -1;
        // Room first, so that a started server is never dropped for lack of it.
        registry.servers.reserve(registry.servers.size() + 1);
        std::unique_ptr<mup::Server> server = mup::Server::start(name, *handler);
        if (!server)
            return -1;
        if (!registry.exitHookRegistered) {
            if (atexit(stopServersAtExit) != 0) {
                mup::logLine("initAVSServer: cannot register the exit hook");
                return -1;
            }
            registry.exitHookRegistered = true;
        }
        registry.servers.push_back(std::move(server));
        return 0;
    } catch (const std::exception& error) {
        mup::logLine("initAVSServer: %s", error.what());
        return -1;
    }
}
