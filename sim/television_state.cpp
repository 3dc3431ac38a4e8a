// SPDX-License-Identifier: MIT
#include "sim/television_state.h"

#include <nlohmann/json.hpp>

#include <fstream>

namespace zor::sim
{

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(AudioState, mute, volume, maxVolume, gain,
                                                soundStyle)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Channel, number, serviceId, transportId, networkId,
                                                kind, frequency, name)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Source, name, label)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SmartTvApp, name, command, param)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(UiControl, name, subCommand)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(YoutubeVideo, id, param)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(BrowserCertificates, data1, data2, data3,
                                                subjectName)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(PortalApp, name, id)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(UrlWindow, param, type, url, background)

namespace
{

// One list of members for both directions.
template <typename Json, typename State, typename Visit>
void members(Json& json, State& s, Visit visit)
{
    visit(json, "audio", s.audio);
    visit(json, "channels", s.channels);
    visit(json, "currentChannel", s.currentChannel);
    visit(json, "lastTunedChannel", s.lastTunedChannel);
    visit(json, "sources", s.sources);
    visit(json, "currentSource", s.currentSource);
    visit(json, "playerStatus", s.playerStatus);
    visit(json, "pictureStyle", s.pictureStyle);
    visit(json, "wallglowOn", s.wallglowOn);
    visit(json, "wallglowFollow", s.wallglowFollow);
    visit(json, "powerOn", s.powerOn);
    visit(json, "usbSourceRequests", s.usbSourceRequests);
    visit(json, "iotCertificate", s.iotCertificate);
    visit(json, "environment", s.environment);
    visit(json, "firmwareVersion", s.firmwareVersion);
    visit(json, "lastFvpAction", s.lastFvpAction);
    visit(json, "controlMode", s.controlMode);
    visit(json, "avsToken", s.avsToken);
    visit(json, "avsTokenLength", s.avsTokenLength);
    visit(json, "timeZone", s.timeZone);
    visit(json, "ffmicOption", s.ffmicOption);
    visit(json, "portalApp", s.portalApp);
    visit(json, "lastPlaybackCommand", s.lastPlaybackCommand);
    visit(json, "certificate", s.certificate);
    visit(json, "optionBits", s.optionBits);
    visit(json, "activeApp", s.activeApp);
    visit(json, "injectedKeys", s.injectedKeys);
    visit(json, "smartTvApp", s.smartTvApp);
    visit(json, "uiControl", s.uiControl);
    visit(json, "youtubeVideo", s.youtubeVideo);
    visit(json, "voiceControlReady", s.voiceControlReady);
    visit(json, "browserCertificates", s.browserCertificates);
    visit(json, "urlWindow", s.urlWindow);
}

} // namespace

void to_json(nlohmann::json& json, const TelevisionState& state)
{
    json = nlohmann::json::object();
    members(json, state,
            [](nlohmann::json& j, const char* key, const auto& value) { j[key] = value; });
}

void from_json(const nlohmann::json& json, TelevisionState& state)
{
    members(json, state, [](const nlohmann::json& j, const char* key, auto& value) {
        auto found = j.find(key);
        if (found != j.end())
            found->get_to(value);
    });
}

TelevisionState defaultTelevision()
{
    TelevisionState tv;
    const char* const names[] = {"BBC One", "BBC Two", "ITV1",  "Channel 4", "Channel 5", "E4",
                                 "Film4",   "Dave",    "More4", "Quest",     "BBC News",  "CBBC"};
    uint32_t number = 1;
    for (const char* name : names) {
        Channel channel;
        channel.number = number;
        channel.serviceId = static_cast<uint16_t>(4000 + number);
        channel.transportId = static_cast<uint16_t>(100 + number % 4);
        channel.networkId = 9018;
        channel.kind = 1;
        channel.frequency = 474000 + 8000 * (number % 6);
        channel.name = name;
        tv.channels.push_back(channel);
        ++number;
    }
    tv.sources = {
        {"TV", "Antenna"}, {"HDMI1", "Game console"}, {"HDMI2", "Blu-ray"}, {"USB", "Media"}};
    tv.firmwareVersion = "ZORTV-2024.11.0";
    tv.timeZone = "Europe/London";
    tv.certificate = "-----BEGIN CERTIFICATE-----\nTUlJQlNpbXVsYXRlZA==\n"
                     "-----END CERTIFICATE-----\n";
    tv.optionBits = {1, 1, 0, 0, 1};
    tv.ffmicOption = 1;
    return tv;
}

namespace
{

// Every key path of the default television's JSON form, to compare against.
void knownPaths(const nlohmann::json& json, const std::string& prefix,
                std::vector<std::string>* paths)
{
    if (json.is_object()) {
        for (const auto& [key, value] : json.items()) {
            const std::string path = prefix.empty() ? key : prefix + "." + key;
            paths->push_back(path);
            knownPaths(value, path, paths);
        }
    } else if (json.is_array() && !json.empty()) {
        knownPaths(json.front(), prefix + "[]", paths);
    }
}

std::string lastKey(const std::string& path)
{
    const size_t dot = path.find_last_of('.');
    return dot == std::string::npos ? path : path.substr(dot + 1);
}

// Walks `json` beside `schema`; `pattern` is the path with "[]" for indexes,
// `path` the one shown.
void findUnknown(const nlohmann::json& json, const nlohmann::json& schema,
                 const std::string& pattern, const std::string& path,
                 const std::vector<std::string>& known, std::vector<std::string>* out)
{
    if (json.is_object() && schema.is_object()) {
        for (const auto& [key, value] : json.items()) {
            const std::string keyPattern = pattern.empty() ? key : pattern + "." + key;
            const std::string keyPath = path.empty() ? key : path + "." + key;
            const auto found = schema.find(key);
            if (found != schema.end()) {
                findUnknown(value, *found, keyPattern, keyPath, known, out);
                continue;
            }
            std::string line = keyPath;
            for (const std::string& candidate : known) {
                if (lastKey(candidate) == key) {
                    line += " (did you mean " + candidate + "?)";
                    break;
                }
            }
            out->push_back(line);
        }
    } else if (json.is_array() && schema.is_array() && !schema.empty()) {
        for (size_t i = 0; i < json.size(); ++i)
            findUnknown(json[i], schema.front(), pattern + "[]",
                        path + "[" + std::to_string(i) + "]", known, out);
    }
}

} // namespace

std::vector<std::string> unknownStateKeys(const nlohmann::json& json)
{
    const nlohmann::json schema = defaultTelevision();
    std::vector<std::string> known;
    knownPaths(schema, "", &known);
    std::vector<std::string> unknown;
    findUnknown(json, schema, "", "", known, &unknown);
    return unknown;
}

bool loadTelevisionState(const std::string& path, TelevisionState& state, std::string& error,
                         std::vector<std::string>* unknownKeys)
{
    std::ifstream file(path);
    if (!file) {
        error = "cannot open " + path;
        return false;
    }
    try {
        const nlohmann::json json = nlohmann::json::parse(file);
        if (!json.is_object()) {
            error = path + ": a state file holds one JSON object";
            return false;
        }
        json.get_to(state);
        if (unknownKeys)
            *unknownKeys = unknownStateKeys(json);
    } catch (const nlohmann::json::exception& e) {
        error = path + ": " + e.what();
        return false;
    }
    if (!state.channels.empty() && state.currentChannel >= state.channels.size())
        state.currentChannel = 0;
    if (state.lastTunedChannel >= state.channels.size())
        state.lastTunedChannel = state.currentChannel;
    if (!state.sources.empty() && state.currentSource >= state.sources.size())
        state.currentSource = 0;
    return true;
}

} // namespace zor::sim
