// A private ALSA world for one test: ALSA_CONFIG_PATH points at the project's
// sim/alsa/asound.conf and ZOR_ALSA_DIR at a fresh directory, so "hw:0,6"
// reads <dir>/pcm0,6.in and "hw:0,3" writes <dir>/pcm0,3.out.
#ifndef ZOR_TESTS_AUDIO_ALSA_SIM_H
#define ZOR_TESTS_AUDIO_ALSA_SIM_H

#include <cstdint>
#include <string>
#include <vector>

namespace zor::test
{

using Bytes = std::vector<uint8_t>;

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

    static std::string simConfigPath();

private:
    std::string m_dir;
};

// Little-endian 16-bit samples first, first+1, ... (wrapping), as bytes.
Bytes ramp(size_t samples, uint16_t first = 0);

Bytes readFile(const std::string& path);
void writeFile(const std::string& path, const Bytes& bytes);
std::vector<std::string> listDir(const std::string& dir);

std::vector<std::string> splitLines(const std::string& text);

} // namespace zor::test

#endif
