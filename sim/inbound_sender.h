// SPDX-License-Identifier: MIT
// The simulator's side of the inbound commands: turns a text command
// ("language en", "tap", "pcm hello.wav") into the middleware's command for
// an application and sends it through that application's server.
#ifndef ZOR_SIM_INBOUND_SENDER_H
#define ZOR_SIM_INBOUND_SENDER_H

#include <memory>
#include <string>
#include <vector>

namespace mup
{
class Client;
}

namespace zor::sim
{

enum class Application { Avs = 0, Ga = 1, Iot = 2 };

// "avs", "ga" or "iot"; false for anything else.
bool parseApplication(const std::string& name, Application* out);

class InboundSender
{
public:
    explicit InboundSender(Application defaultTarget);
    ~InboundSender();

    // Runs one command line and returns one line of answer: "ok <reply>" or
    // "error <why>". A leading "@avs", "@ga" or "@iot" picks the application
    // for this command only. Safe from several threads.
    std::string execute(const std::string& line);

    // One line per command with its arguments, for "help".
    static std::vector<std::string> help();

private:
    std::string send(Application target, unsigned int id,
                     const std::vector<unsigned char>& payload);
    std::string sendPcm(Application target, const std::string& path);

    Application m_default;
    std::vector<std::unique_ptr<mup::Client>> m_clients; // by Application
};

} // namespace zor::sim

#endif
