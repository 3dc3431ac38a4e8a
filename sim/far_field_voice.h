// SPDX-License-Identifier: MIT
// What the dashboard's far-field panel needs from the simulated far-field
// device: say something through it, and learn what it played.
#ifndef ZOR_SIM_FAR_FIELD_VOICE_H
#define ZOR_SIM_FAR_FIELD_VOICE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zor::sim
{

// One utterance as the device played it. Marks are sample indexes into
// `samples`, -1 when the device reported no such moment.
struct FarFieldUtterance {
    std::string what; // the sentence, or the file's name
    unsigned int rate = 16000;
    std::vector<int16_t> samples; // mono
    int64_t keywordBegin = -1;
    int64_t keywordEnd = -1;
    int64_t keyPress = -1;
};

class FarFieldVoice
{
public:
    using Observer = std::function<void(const FarFieldUtterance&)>;

    virtual ~FarFieldVoice() = default;

    // Both block until the device has taken the whole utterance. False with
    // `error` set when nothing was played (no espeak-ng, not a usable WAV
    // file, the device is busy...).
    virtual bool sayText(const std::string& sentence, FarFieldUtterance* played,
                         std::string* error) = 0;
    virtual bool sayWav(const std::string& path, FarFieldUtterance* played, std::string* error) = 0;
};

} // namespace zor::sim

#endif
