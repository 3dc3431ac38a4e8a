#include "tests/audio/alsa_sim.h"

#include <gtest/gtest.h>

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

} // namespace zor::test
