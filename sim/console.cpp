// SPDX-License-Identifier: MIT
#include "sim/console.h"

#include "mup/runtime_dir.h"
#include "sim/inbound_sender.h"
#include "sim/xmos_console.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zor::sim
{

namespace
{

constexpr int kClientTimeoutMs = 60000;

bool makeAddress(const std::string& path, sockaddr_un* address)
{
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address->sun_path))
        return false;
    memcpy(address->sun_path, path.c_str(), path.size());
    return true;
}

void setTimeout(int fd, int milliseconds)
{
    timeval tv{milliseconds / 1000, (milliseconds % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
}

bool writeAll(int fd, const std::string& text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Reads up to the first line feed (which is dropped).
bool readLine(int fd, std::string* line)
{
    line->clear();
    char c = 0;
    for (;;) {
        const ssize_t n = recv(fd, &c, 1, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return !line->empty();
        if (c == '\n')
            return true;
        if (line->size() > 4096)
            return false;
        *line += c;
    }
}

std::string trimmed(const std::string& line)
{
    const size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos)
        return {};
    return line.substr(start, line.find_last_not_of(" \t\r") - start + 1);
}

std::string joined(const std::vector<std::string>& words)
{
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

} // namespace

void addConsoleOptions(CLI::App& app, ConsoleOptions& options)
{
    app.add_flag("--console", options.console,
                 "Read commands from stdin even when it is not a terminal");
    app.add_option("--app", options.app, "Application that commands go to: avs, ga or iot")
        ->check(CLI::IsMember({"avs", "ga", "iot"}));
    options.ctl = app.add_subcommand("ctl", "Send one command to the running tvsim and print "
                                            "its answer (try: tvsim ctl help)");
    // Everything after `ctl` is the command, negative numbers included.
    options.ctl->prefix_command();
}

bool isControlClient(const ConsoleOptions& options)
{
    return options.ctl && options.ctl->parsed();
}

std::string controlSocketPath()
{
    const std::string dir = mup::runtimeDirectory();
    return dir.empty() ? std::string() : dir + "/tvsim.control";
}

std::vector<std::string> consoleHelp()
{
    std::vector<std::string> lines = {
        "commands of the running tvsim (tvsim ctl <command>, or typed at its console); "
        "@avs, @ga or @iot first sends one to that application:"};
    for (const std::string& line : InboundSender::help())
        lines.push_back("  " + line);
    for (const std::string& line : xmosHelp())
        lines.push_back("  " + line);
    lines.push_back("  help");
    lines.push_back("  quit   (stops tvsim)");
    return lines;
}

int runControlClient(const ConsoleOptions& options)
{
    const std::vector<std::string> words = options.ctl->remaining();
    if (words.empty()) {
        fprintf(stderr, "tvsim ctl: which command? (tvsim ctl help)\n");
        return 2;
    }
    if (words.size() == 1 && (words[0] == "help" || words[0] == "--help" || words[0] == "-h")) {
        for (const std::string& line : consoleHelp())
            printf("%s\n", line.c_str());
        return 0;
    }
    const std::string path = controlSocketPath();
    sockaddr_un address;
    if (!makeAddress(path, &address)) {
        fprintf(stderr, "tvsim ctl: no usable runtime directory\n");
        return 2;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        fprintf(stderr, "tvsim ctl: cannot reach %s (is tvsim running?)\n", path.c_str());
        if (fd >= 0)
            close(fd);
        return 2;
    }
    setTimeout(fd, kClientTimeoutMs);
    std::string answer;
    const bool answered = writeAll(fd, joined(words) + "\n") && readLine(fd, &answer);
    close(fd);
    if (!answered) {
        fprintf(stderr, "tvsim ctl: no answer from tvsim\n");
        return 2;
    }
    printf("%s\n", answer.c_str());
    return answer.rfind("ok", 0) == 0 ? 0 : 1;
}

std::unique_ptr<Console> Console::start(const ConsoleOptions& options, CommandHook hook)
{
    Application target = Application::Avs;
    parseApplication(options.app, &target);

    std::unique_ptr<Console> console(new Console());
    console->m_sender = std::make_unique<InboundSender>(target);
    console->m_hook = std::move(hook);
    console->m_interactive = options.console || isatty(STDIN_FILENO);
    console->m_socketPath = controlSocketPath();

    sockaddr_un address;
    if (!makeAddress(console->m_socketPath, &address)) {
        fprintf(stderr, "tvsim: no usable path for the control socket\n");
        return nullptr;
    }
    console->m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(console->m_socketPath.c_str()); // left over by a tvsim that was killed
    // Commands from this user only (and root), whatever the umask: the mode
    // is set before bind() so that the file never has a wider one.
    if (console->m_listener < 0 || fchmod(console->m_listener, 0600) != 0 ||
        bind(console->m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        chmod(console->m_socketPath.c_str(), 0600) != 0 || listen(console->m_listener, 8) != 0) {
        fprintf(stderr, "tvsim: cannot serve %s: %s\n", console->m_socketPath.c_str(),
                strerror(errno));
        return nullptr;
    }
    console->m_wake = eventfd(0, EFD_CLOEXEC);
    if (console->m_wake < 0)
        return nullptr;
    if (console->m_interactive) {
        printf("tvsim: console ready; type help\n");
        fflush(stdout);
    }
    console->m_thread = std::thread([raw = console.get()] { raw->run(); });
    return console;
}

Console::~Console()
{
    if (m_thread.joinable()) {
        const uint64_t one = 1;
        if (write(m_wake, &one, sizeof(one)) < 0)
            perror("tvsim: console wake-up");
        m_thread.join();
    }
    if (m_listener >= 0) {
        close(m_listener);
        unlink(m_socketPath.c_str());
    }
    if (m_wake >= 0)
        close(m_wake);
}

std::string Console::execute(const std::string& line)
{
    const std::string command = trimmed(line);
    if (command.empty())
        return "error empty command";
    if (command == "help") {
        // One answer line: the commands joined.
        std::string answer = "ok";
        for (const std::string& entry : consoleHelp())
            answer +=
                (answer.size() > 2 ? " | " : " ") + entry.substr(entry.find_first_not_of(' '));
        return answer;
    }
    if (command == "quit") {
        kill(getpid(), SIGTERM);
        return "ok stopping";
    }
    std::string answer;
    if (m_hook && m_hook(command, &answer))
        return answer;
    return m_sender->execute(command);
}

void Console::run()
{
    for (;;) {
        pollfd fds[3] = {{m_wake, POLLIN, 0}, {m_listener, POLLIN, 0}, {-1, POLLIN, 0}};
        if (m_interactive)
            fds[2].fd = STDIN_FILENO;
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (fds[0].revents)
            return;
        if (fds[1].revents & POLLIN)
            serveControlClient();
        if (fds[2].revents & (POLLIN | POLLHUP))
            readConsole();
    }
}

void Console::serveControlClient()
{
    const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    setTimeout(fd, 2000);
    std::string line;
    if (readLine(fd, &line)) {
        setTimeout(fd, kClientTimeoutMs);
        const std::string answer = execute(line);
        printf("tvsim: ctl %s -> %s\n", line.c_str(), answer.c_str());
        fflush(stdout);
        writeAll(fd, answer + "\n");
    }
    close(fd);
}

void Console::readConsole()
{
    char buffer[1024];
    const ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (n <= 0) {
        // End of input: the console is done, the control socket goes on.
        m_interactive = false;
        return;
    }
    m_pendingInput.append(buffer, static_cast<size_t>(n));
    size_t end;
    while ((end = m_pendingInput.find('\n')) != std::string::npos) {
        const std::string line = m_pendingInput.substr(0, end);
        m_pendingInput.erase(0, end + 1);
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        if (trimmed(line) == "help") {
            for (const std::string& text : consoleHelp())
                printf("tvsim> %s\n", text.c_str());
        } else {
            printf("tvsim> %s\n", execute(line).c_str());
        }
        fflush(stdout);
    }
}

} // namespace zor::sim
