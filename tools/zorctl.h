// zorctl: acts as an assistant application through libzor, one command per
// invocation. Each command family registers its subcommands here.
#ifndef ZOR_TOOLS_ZORCTL_H
#define ZOR_TOOLS_ZORCTL_H

#include <CLI/CLI.hpp>

#include <functional>

namespace zorctl
{

// What a subcommand runs once the library has been started; returns the
// process exit status.
using Action = std::function<int()>;

// The action chosen on the command line; set by the subcommand's callback.
struct Invocation {
    Action action;
    // False for commands that only use local devices: the library is then
    // not connected to the television first.
    bool needsTelevision = true;
};

// Prints a command's status; non-zero exit status for a negative one.
int reportStatus(const char* what, int status);

void addAudioCommands(CLI::App& app, Invocation& invocation);
void addVideoCommands(CLI::App& app, Invocation& invocation);
void addChannelCommands(CLI::App& app, Invocation& invocation);
void addSystemCommands(CLI::App& app, Invocation& invocation);
void addMiscCommands(CLI::App& app, Invocation& invocation);
void addVoiceControlCommands(CLI::App& app, Invocation& invocation);
void addRecordCommand(CLI::App& app, Invocation& invocation);
void addListenCommand(CLI::App& app, Invocation& invocation);

} // namespace zorctl

#endif
