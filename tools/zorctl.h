// SPDX-License-Identifier: MIT
// zorctl: acts as an assistant application through libzor, one command per
// invocation. Each command family registers its subcommands here.
//
// Output: zorctl's answers go to its standard output and its complaints to
// its standard error, one line each. The library prints lines of its own on
// the process's standard output; zorctl moves them aside (to its standard
// error with -v, else nowhere), so that `$(zorctl volume get)` is the answer.
//
// Exit status: 0 done; 1 the middleware refused (a negative status), the
// library refused the arguments, or a local failure; 2 a bad command line;
// 3 no answer from the middleware.
#ifndef ZOR_TOOLS_ZORCTL_H
#define ZOR_TOOLS_ZORCTL_H

#include "zor/zor_types.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <string>

namespace zorctl
{

constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoAnswer = 3;

// What a subcommand runs once the library has been started; returns the
// process exit status.
using Action = std::function<int()>;

// What a subcommand needs of the library before its action runs.
enum class Needs {
    Nothing,    // local devices only: no endpoint is opened
    Middleware, // the client endpoint towards the middleware
    Callbacks,  // that, and the inbound server that the middleware calls
};

// The action chosen on the command line; set by the subcommand's callback.
struct Invocation {
    Action action;
    Needs needs = Needs::Middleware;
    EN_ZOR_COMMON_APP_TYPE_T appType = EN_ZOR_COMMON_APP_TYPE_AVS; // from --app
    bool verbose = false;                                          // -v
};

// zorctl's own standard output.
FILE* answerStream();
// One line of answer on zorctl's standard output.
void answer(const char* format, ...) __attribute__((format(printf, 1, 2)));
// One line on zorctl's standard error, after "zorctl: ".
void complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The socket of the middleware service that this invocation talks to, for
// messages ("" before the endpoint is chosen).
const std::string& middlewarePath();

// Runs one library call (one or more commands) and says what became of it.
// The messaging layer's counts tell "no answer" (exit 3) from "the middleware
// answered a negative status" (exit 1) and from "the library refused before
// sending" (exit 1, its reason shows with -v).
class Exchange
{
public:
    Exchange();
    // 0 when the call was answered with a status of 0 or more; otherwise says
    // why on stderr and returns the exit status.
    int verdict(const char* what, int status) const;
    bool answered() const;

private:
    unsigned long m_calls = 0;
    unsigned long m_unanswered = 0;
};

// A command whose result is its status: "what: status N" on success.
int send(const char* what, const std::function<int()>& call);
// A query: `call` returns the status and fills what `print` shows, which
// runs only when the status is 0 or more.
int query(const char* what, const std::function<int()>& call, const std::function<void()>& print);

void addAssistantCommands(CLI::App& app, Invocation& invocation);
void addAudioCommands(CLI::App& app, Invocation& invocation);
void addVideoCommands(CLI::App& app, Invocation& invocation);
void addChannelCommands(CLI::App& app, Invocation& invocation);
void addSystemCommands(CLI::App& app, Invocation& invocation);
void addMiscCommands(CLI::App& app, Invocation& invocation);
void addVoiceControlCommands(CLI::App& app, Invocation& invocation);
void addRecordCommand(CLI::App& app, Invocation& invocation);
void addListenCommand(CLI::App& app, Invocation& invocation);
void addDecodeCommand(CLI::App& app, Invocation& invocation);

} // namespace zorctl

#endif
