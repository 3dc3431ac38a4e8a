#include "sim/television.h"

#include "zor/zor_transport.h"

#include <algorithm>
#include <cstring>

namespace zor::sim {

namespace {

std::vector<unsigned char> wordBytes(uint32_t value)
{
    std::vector<unsigned char> bytes(sizeof(value));
    memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

} // namespace

Answer Television::apply(const wire::CommandRow& row, const unsigned char* payload, size_t size)
{
    uint32_t word = 0;
    memcpy(&word, payload, std::min(size, sizeof(word)));

    std::lock_guard<std::mutex> guard(m_lock);
    switch (row.id >> 16 & 0xF) {
    case 4:
        return applyAudio(row, word);
    default:
        return {};
    }
}

Answer Television::applyAudio(const wire::CommandRow& row, uint32_t word)
{
    using namespace OXAPC;
    switch (row.id) {
    case OXA_TV_CMD_ID_AUDIO_SetMute:
        m_audio.mute = word != 0;
        return {};
    case OXA_TV_CMD_ID_AUDIO_GetMute:
        return {0, wordBytes(m_audio.mute)};
    case OXA_TV_CMD_ID_AUDIO_SetVolume:
        m_audio.volume = std::min(word, m_audio.maxVolume);
        return {};
    case OXA_TV_CMD_ID_AUDIO_GetVolume:
        return {0, wordBytes(m_audio.volume)};
    case OXA_TV_CMD_ID_AUDIO_GetMaxVolume:
        return {0, wordBytes(m_audio.maxVolume)};
    case OXA_TV_CMD_ID_AUDIO_SetMainAudioGain:
        m_audio.gain = static_cast<int32_t>(word);
        return {};
    case OXA_TV_CMD_ID_AUDIO_SetSoundStyle:
        m_audio.soundStyle = static_cast<int32_t>(word);
        return {};
    default:
        return {};
    }
}

AudioState Television::audio() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_audio;
}

} // namespace zor::sim
