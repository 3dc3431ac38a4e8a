// SPDX-License-Identifier: MIT
// tvsim's command input: a console prompt on stdin, and a control socket
// ("<runtime dir>/tvsim.control") that `tvsim ctl <command...>` talks to, one
// text line per command and one line of answer.
#ifndef ZOR_SIM_CONSOLE_H
#define ZOR_SIM_CONSOLE_H

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zor::sim
{

class InboundSender;

struct ConsoleOptions {
    bool console = false;    // read commands from stdin even when it is no terminal
    std::string app = "avs"; // the application commands go to by default
    CLI::App* ctl = nullptr; // `tvsim ctl ...`: its words are the command to send
    // The simulated XMOS device (when this build has it).
    bool xmos = false;
    std::string xmosSocket;
    std::string xmosFifo;
};

// Adds --console, --app, the xmos options and the `ctl` subcommand.
void addConsoleOptions(CLI::App& app, ConsoleOptions& options);

// True when the command line asked for `tvsim ctl ...`.
bool isControlClient(const ConsoleOptions& options);

// `tvsim ctl`: sends the command to the running tvsim and prints its answer.
// Exit status 0 when the answer starts with "ok". `tvsim ctl help` needs no
// running tvsim: it prints the commands, one a line.
int runControlClient(const ConsoleOptions& options);

// Every console command with its arguments, one a line.
std::vector<std::string> consoleHelp();

std::string controlSocketPath();

// Extra console commands (the XMOS device's "say", for instance): returns
// true and sets the answer when it took the command.
using CommandHook = std::function<bool(const std::string& line, std::string* answer)>;

class Console
{
public:
    // Serves the control socket, and stdin when it is a terminal or
    // --console was given. Null (with a line on stderr) on failure.
    static std::unique_ptr<Console> start(const ConsoleOptions& options, CommandHook hook = {});
    ~Console(); // stops the thread and removes the socket
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // One command line, one answer line.
    std::string execute(const std::string& line);

private:
    Console() = default;
    void run();
    void serveControlClient();
    void readConsole();

    std::unique_ptr<InboundSender> m_sender;
    CommandHook m_hook;
    bool m_interactive = false;
    int m_listener = -1;
    int m_wake = -1;
    std::string m_socketPath;
    std::string m_pendingInput;
    std::thread m_thread;
};

} // namespace zor::sim

#endif
