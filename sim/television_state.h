// SPDX-License-Identifier: MIT
// Everything the simulated television knows, in one plain struct: what its
// answers come from, what the commands change, and what a dashboard shows.
// It loads from and saves to JSON; missing keys keep their defaults.
#ifndef ZOR_SIM_TELEVISION_STATE_H
#define ZOR_SIM_TELEVISION_STATE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace zor::sim
{

struct AudioState {
    uint32_t mute = 0;
    uint32_t volume = 20;
    uint32_t maxVolume = 100;
    int32_t gain = 0;
    int32_t soundStyle = 0;
};

// The six numbers are the middleware's; here `number` is what viewers dial.
struct Channel {
    uint32_t number = 0;
    uint16_t serviceId = 0;
    uint16_t transportId = 0;
    uint16_t networkId = 0;
    uint16_t kind = 0;
    uint32_t frequency = 0;
    std::string name;
};

struct Source {
    std::string name;  // first text, what the source is tuned by
    std::string label; // second text
};

struct SmartTvApp {
    std::string name;
    std::string command;
    int32_t param = 0;
};

struct UiControl {
    std::string name;
    std::string subCommand;
};

struct YoutubeVideo {
    std::string id;
    int32_t param = 0;
};

struct BrowserCertificates {
    std::string data1;
    std::string data2;
    std::string data3;
    std::string subjectName;
};

struct PortalApp {
    std::string name;
    std::string id;
};

// The last URL that an assistant asked to show in a window.
struct UrlWindow {
    uint32_t param = 0;
    uint32_t type = 0;
    std::string url;
    uint8_t background = 0;
};

struct TelevisionState {
    AudioState audio;

    std::vector<Channel> channels;
    uint32_t currentChannel = 0; // index into channels
    uint32_t lastTunedChannel = 0;

    std::vector<Source> sources;
    uint32_t currentSource = 0; // index into sources

    int32_t playerStatus = 0;
    int32_t pictureStyle = 0;
    bool wallglowOn = false;
    uint8_t wallglowFollow = 0;

    bool powerOn = true;
    uint32_t usbSourceRequests = 0;
    uint8_t iotCertificate = 0;
    uint8_t environment = 0;
    std::string firmwareVersion;
    std::string lastFvpAction;
    int32_t controlMode = 0;
    std::string avsToken;
    int32_t avsTokenLength = 0;
    std::string timeZone;
    uint8_t ffmicOption = 0;
    PortalApp portalApp;

    std::string lastPlaybackCommand;
    std::string certificate;
    std::array<int8_t, 5> optionBits{};
    int32_t activeApp = 0;
    std::vector<std::string> injectedKeys; // the most recent last
    SmartTvApp smartTvApp;
    UiControl uiControl;
    YoutubeVideo youtubeVideo;

    bool voiceControlReady = false;
    BrowserCertificates browserCertificates;
    UrlWindow urlWindow;
};

// A television with a dozen channels and four sources.
TelevisionState defaultTelevision();

void to_json(nlohmann::json& json, const TelevisionState& state);
// Keys that are missing keep the values already in `state`.
void from_json(const nlohmann::json& json, TelevisionState& state);

// Reads a state file over the default television. False with `error` set when
// the file can't be read or is not a valid state. Keys that are no part of the
// state are ignored; each is added to `unknownKeys` (when given) as a line
// naming its path ("volume (did you mean audio.volume?)", "channels[2].nmae").
bool loadTelevisionState(const std::string& path, TelevisionState& state, std::string& error,
                         std::vector<std::string>* unknownKeys = nullptr);

// The keys of `json` that a state does not have, as above.
std::vector<std::string> unknownStateKeys(const nlohmann::json& json);

} // namespace zor::sim

#endif
