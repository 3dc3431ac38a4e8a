// SPDX-License-Identifier: MIT
#include "sim/xmos_console.h"

#include "mup/runtime_dir.h"

#include <cstdlib>
#include <sstream>

namespace zor::sim
{

void addXmosOptions(CLI::App& app, ConsoleOptions& options)
{
    app.add_flag("--xmos", options.xmos, "Play a simulated XMOS far-field board");
    app.add_option("--xmos-socket", options.xmosSocket,
                   "Device socket of the board (default <runtime dir>/xmos.sock)");
    app.add_option("--xmos-fifo", options.xmosFifo,
                   "Far-field capture FIFO (default $ZOR_ALSA_DIR/pcm1,2.in)");
}

std::unique_ptr<XmosSimulator> startXmos(const ConsoleOptions& options, std::string* error)
{
    if (!options.xmos)
        return nullptr;

    std::string socketPath = options.xmosSocket;
    if (socketPath.empty())
        socketPath = mup::runtimeDirectory() + "/xmos.sock";
    std::string fifoPath = options.xmosFifo;
    if (fifoPath.empty()) {
        const char* alsaDir = getenv("ZOR_ALSA_DIR");
        fifoPath = std::string(alsaDir ? alsaDir : "/tmp/zor-alsa") + "/pcm1,2.in";
    }

    auto board = std::make_unique<XmosSimulator>();
    if (!board->start(socketPath, fifoPath, error))
        return nullptr;
    return board;
}

CommandHook xmosCommands(XmosSimulator& board)
{
    return [&board](const std::string& line, std::string* answer) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command != "say" && command != "say-text")
            return false;

        std::string rest;
        std::getline(words >> std::ws, rest);
        if (rest.empty()) {
            *answer =
                "error " + command + " needs " + (command == "say" ? "a WAV file" : "a sentence");
            return true;
        }

        FarFieldUtterance played;
        std::string error;
        bool ok = false;
        if (command == "say-text") {
            ok = board.sayText(rest, &played, &error);
        } else {
            std::istringstream args(rest);
            std::string path;
            long long begin = -1;
            long long end = -1;
            args >> path;
            if (args >> begin && !(args >> end)) {
                *answer = "error say: give both keyword positions or neither";
                return true;
            }
            ok = begin >= 0 ? board.sayWav(path, begin, end, &error) && board.waitUntilIdle(120000)
                            : board.sayWav(path, &played, &error);
        }
        if (!ok) {
            *answer = "error " + (error.empty() ? std::string("nothing was played") : error);
            return true;
        }
        std::ostringstream text;
        text << "ok played " << played.samples.size() << " samples";
        if (played.keywordBegin >= 0)
            text << ", keyword " << played.keywordBegin << ".." << played.keywordEnd;
        if (played.keyPress >= 0)
            text << ", key press at " << played.keyPress;
        *answer = text.str();
        return true;
    };
}

std::vector<std::string> xmosHelp()
{
    return {
        "say <file.wav> [<keyword begin> <keyword end>]   (tvsim --xmos: the far-field board)",
        "say-text <sentence>   (tvsim --xmos; espeak-ng speaks it, a leading \"alexa\" is the "
        "keyword)",
    };
}

} // namespace zor::sim
