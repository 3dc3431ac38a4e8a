// SPDX-License-Identifier: MIT
// A private ALSA world for one test: ALSA_CONFIG_PATH points at the project's
// sim/alsa/asound.conf and ZOR_ALSA_DIR at a fresh directory, so "hw:0,6"
// reads <dir>/pcm0,6.in and "hw:0,3" writes <dir>/pcm0,3.out. useCard()
// puts the simulated sound card (sim/alsa/zor_card.cpp) behind the same
// names instead.
#ifndef ZOR_TESTS_AUDIO_ALSA_SIM_H
#define ZOR_TESTS_AUDIO_ALSA_SIM_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zor::test
{

using Bytes = std::vector<uint8_t>;

// One device of the simulated sound card: "hw:<card>" (e.g. "1,0") reads
// <dir>/pcm<card>.in and writes <dir>/pcm<card>.out; `keys` are the card's
// other configuration keys (constraints, faults, at_end, trace) as ALSA
// configuration text, e.g. "rates [ 48000 ] faults [ { frame 640 type overrun } ]".
struct CardDevice {
    std::string card;
    std::string keys;
};

class AlsaSim
{
public:
    AlsaSim();  // sets the environment; no ALSA call may run on another thread
    ~AlsaSim(); // removes the directory and restores the environment

    const std::string& dir() const { return m_dir; }
    std::string captureInput() const { return m_dir + "/pcm0,6.in"; }
    std::string playbackOutput() const { return m_dir + "/pcm0,3.out"; }
    // Where capture dump files go (ends in '/').
    std::string dumpDir() const { return m_dir + "/dumps/"; }

    // Replaces the ALSA configuration with `text` for this process.
    void useConfig(const std::string& text);
    void useSimConfig();
    // The simulated sound card behind exactly these devices; any other "hw"
    // device is missing.
    void useCard(const std::vector<CardDevice>& devices);
    // A trace file for a device's `trace` key, and its lines so far.
    std::string tracePath(const std::string& card) const;
    std::vector<std::string> traceLines(const std::string& card) const;

    static std::string simConfigPath();
    static std::string cardPluginPath();

private:
    std::string m_dir;
};

// Little-endian 16-bit samples first, first+1, ... (wrapping), as bytes.
Bytes ramp(size_t samples, uint16_t first = 0);

Bytes readFile(const std::string& path);
void writeFile(const std::string& path, const Bytes& bytes);
std::vector<std::string> listDir(const std::string& dir);

std::vector<std::string> splitLines(const std::string& text);

// Polls `condition` until it holds; false after `timeoutMs`.
bool waitFor(const std::function<bool()>& condition, int timeoutMs = 5000);

// Captures stdout for a scope (gtest allows one capture at a time): take()
// ends it and returns the text; an assertion that leaves the scope early
// ends it too, so a failed test does not break the next one's capture.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    std::string take();
    std::vector<std::string> takeLines() { return splitLines(take()); }

private:
    bool m_active = true;
};

} // namespace zor::test

#endif
