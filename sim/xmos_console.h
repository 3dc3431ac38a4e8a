// SPDX-License-Identifier: MIT
// The simulated XMOS far-field board in tvsim: its command-line options and
// the console commands that make it speak ("say", "say-text").
#ifndef ZOR_SIM_XMOS_CONSOLE_H
#define ZOR_SIM_XMOS_CONSOLE_H

#include "sim/console.h"
#include "sim/xmos_simulator.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace zor::sim
{

// --xmos, --xmos-socket, --xmos-fifo. Without --xmos there is no board.
void addXmosOptions(CLI::App& app, ConsoleOptions& options);

// Starts the board when --xmos was given: it serves the device socket
// (default "<runtime dir>/xmos.sock", the path an application finds in
// ZOR_XMOS_DEVICE) and feeds the capture FIFO (default
// "$ZOR_ALSA_DIR/pcm1,2.in", the device of card 1, device 2). Null without
// --xmos; null with `error` set when it cannot start.
std::unique_ptr<XmosSimulator> startXmos(const ConsoleOptions& options, std::string* error);

// Console commands for the board:
//   say <file.wav> [<keyword begin> <keyword end>]   (16 kHz sample positions)
//   say-text <sentence>                              (espeak-ng; a leading "alexa" is the keyword)
// Each answers once the board has played the utterance. The board is
// borrowed and must outlive the hook.
CommandHook xmosCommands(XmosSimulator& board);

// One line per board command, for "help".
std::vector<std::string> xmosHelp();

} // namespace zor::sim

#endif
