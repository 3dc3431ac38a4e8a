// SPDX-License-Identifier: MIT
#include "tests/audio/alsa_sim.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace zor::test
{

std::string AlsaSim::simConfigPath()
{
    return ZOR_ALSA_SIM_CONF;
}

AlsaSim::AlsaSim()
{
    char pattern[] = "/tmp/zor-alsa-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    m_dir = pattern;
    mkdir(dumpDir().c_str(), 0755);
    setenv("ZOR_ALSA_DIR", m_dir.c_str(), 1);
    useSimConfig();
}

AlsaSim::~AlsaSim()
{
    useSimConfig();
    std::string command = "rm -rf '" + m_dir + "'";
    if (system(command.c_str()) != 0)
        ADD_FAILURE() << "could not remove " << m_dir;
}

void AlsaSim::useConfig(const std::string& text)
{
    const std::string path = m_dir + "/asound.conf";
    std::ofstream(path) << text;
    setenv("ALSA_CONFIG_PATH", path.c_str(), 1);
}

std::string AlsaSim::cardPluginPath()
{
    return ZOR_ALSA_CARD_PLUGIN;
}

void AlsaSim::useCard(const std::vector<CardDevice>& devices)
{
    // "hw:C,D" refers to the definition pcm.zor_card_C_D.
    std::string text = "pcm_type.zor_card { lib \"" + cardPluginPath() +
                       "\" }\n"
                       "pcm.hw {\n"
                       "  @args [ CARD DEV SUBDEV ]\n"
                       "  @args.CARD { type string default \"0\" }\n"
                       "  @args.DEV { type integer default 0 }\n"
                       "  @args.SUBDEV { type integer default -1 }\n"
                       "  @func refer\n"
                       "  name { @func concat strings [ \"pcm.zor_card_\" $CARD \"_\" $DEV ] }\n"
                       "}\n";
    for (const CardDevice& device : devices) {
        std::string name = device.card;
        std::replace(name.begin(), name.end(), ',', '_');
        const std::string files = m_dir + "/pcm" + device.card;
        text += "pcm.zor_card_" + name + " {\n  type zor_card\n  capture \"" + files +
                ".in\"\n  playback \"" + files + ".out\"\n  " + device.keys + "\n}\n";
    }
    useConfig(text);
}

std::string AlsaSim::tracePath(const std::string& card) const
{
    return m_dir + "/trace" + card + ".txt";
}

std::vector<std::string> AlsaSim::traceLines(const std::string& card) const
{
    const Bytes bytes = readFile(tracePath(card));
    return splitLines(std::string(bytes.begin(), bytes.end()));
}

void AlsaSim::useSimConfig()
{
    setenv("ALSA_CONFIG_PATH", simConfigPath().c_str(), 1);
}

Bytes ramp(size_t samples, uint16_t first)
{
    Bytes bytes;
    bytes.reserve(samples * 2);
    for (size_t i = 0; i < samples; ++i) {
        const uint16_t value = static_cast<uint16_t>(first + i);
        bytes.push_back(static_cast<uint8_t>(value & 0xff));
        bytes.push_back(static_cast<uint8_t>(value >> 8));
    }
    return bytes;
}

Bytes readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> listDir(const std::string& dir)
{
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(name);
        }
        closedir(d);
    }
    return names;
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

bool waitFor(const std::function<bool()>& condition, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

StdoutCapture::StdoutCapture()
{
    testing::internal::CaptureStdout();
}

StdoutCapture::~StdoutCapture()
{
    if (m_active)
        testing::internal::GetCapturedStdout();
}

std::string StdoutCapture::take()
{
    if (!m_active)
        return {};
    m_active = false;
    return testing::internal::GetCapturedStdout();
}

} // namespace zor::test
