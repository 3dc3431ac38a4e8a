// SPDX-License-Identifier: MIT
// Assistant subcommands: initialisation complete, URL window, device
// settings, assistant state, set-up status, switch-on mode, chrome wall
// lighting, language, wake-word notice, microphone streaming.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <chrono>
#include <string>
#include <thread>

namespace zorctl
{

namespace
{

// The commands that send one 32-bit value, the middleware's own.
struct ValueCommand {
    const char* name;
    const char* help;
    const char* value;
    int (*send)(int32_t);
};

const ValueCommand kValueCommands[] = {
    {"inform-state", "Tell the television the assistant's state (4 also stops local capture)",
     "state", [](int32_t v) { return ZOR_App_informStates(v); }},
    {"setup-status", "Tell the television how far the assistant's set-up is", "state",
     [](int32_t v) { return ZOR_App_InformSetupStatus(v); }},
    {"switch-on-mode", "Set the switch-on mode", "mode",
     [](int32_t v) { return ZOR_App_SetSwitchOnMode(v); }},
    {"chrome-glow", "Report the user's chrome wall-lighting selection", "selection",
     [](int32_t v) { return ZOR_App_setUserSelectionChromeGlow(v); }},
};

_EN_AVS_AUDIO_SOURCE_TYPE sourceNamed(const std::string& name)
{
    if (name == "ffm")
        return EN_AVS_AUDIO_SOURCE_FFM;
    if (name == "rc")
        return EN_AVS_AUDIO_SOURCE_RC_MIC;
    return EN_AVS_AUDIO_SOURCE_MIDDLEWARE;
}

struct UrlWindowArgs {
    std::string url;
    unsigned int param = 0;
    int type = 0;
    bool background = false;
};

struct StreamArgs {
    std::string source = "middleware";
    double seconds = 3;
};

} // namespace

void addAssistantCommands(CLI::App& app, Invocation& invocation)
{
    addAction(app, invocation, "init-completed", "Tell the television the application is ready",
              [&invocation] {
                  return send("init-completed",
                              [&] { return ZOR_App_initCompleted(invocation.appType); });
              });

    auto window = arg<UrlWindowArgs>();
    CLI::App* url = addAction(app, invocation, "url-window", "Show a URL in a window", [window] {
        return send("url-window", [&] {
            return ZOR_App_LoadURLInWindow(window->param, window->type, window->url.c_str(),
                                           window->background ? 1 : 0);
        });
    });
    url->add_option("url", window->url, "The URL (at most 1024 characters)")->required();
    url->add_option("--param", window->param, "Window parameter, the television's own");
    url->add_option("--type", window->type, "Window type: 0, 1 or 3 (sent as 1), 2; others as 3");
    url->add_flag("--background", window->background, "Load it in the background");

    addAction(app, invocation, "device-setting", "Print the device-setting record (68 bytes)", [] {
        ST_ZOR_APP_DATA_SETTING_T setting = {};
        return query(
            "device-setting", [&] { return ZOR_App_GetDeviceSetting(&setting); },
            [&] {
                const auto* bytes = reinterpret_cast<const unsigned char*>(&setting);
                std::string hex;
                for (size_t i = 0; i < sizeof(setting); ++i) {
                    static const char digits[] = "0123456789abcdef";
                    hex += digits[bytes[i] >> 4];
                    hex += digits[bytes[i] & 15];
                }
                answer("device-setting: %s", hex.c_str());
            });
    });

    for (const ValueCommand& command : kValueCommands) {
        auto value = arg<int32_t>();
        addAction(
            app, invocation, command.name, command.help,
            [command, value] { return send(command.name, [&] { return command.send(*value); }); })
            ->add_option(command.value, *value, "The value, the television's own")
            ->required();
    }

    auto language = arg<std::string>();
    addAction(app, invocation, "language", "Tell the television the assistant's language",
              [language] {
                  return send("language",
                              [&] { return ZOR_App_SetAlexaLanguageSlection(&(*language)[0]); });
              })
        ->add_option("code", *language, "Language code; its first 6 characters are sent")
        ->required()
        ->check([](const std::string& code) {
            return code.size() > 6 ? "a language code has at most 6 characters" : "";
        });

    addAction(app, invocation, "wake-word", "Tell the television a wake word was detected",
              [] { return send("wake-word", [] { return ZOR_App_NotifyAVSWakeword(); }); });

    auto stream = arg<StreamArgs>();
    CLI::App* streaming = addAction(
        app, invocation, "stream",
        "Stream from a microphone for a while, then stop (zorctl listen shows the PCM)", [stream] {
            const int started = send("stream start", [&] {
                return ZOR_App_startStreamingMicrophoneData(sourceNamed(stream->source));
            });
            if (started != 0)
                return started;
            std::this_thread::sleep_for(std::chrono::duration<double>(stream->seconds));
            return send("stream stop", [] { return ZOR_App_stopStreamingMicrophoneData(); });
        });
    streaming->add_option("--source", stream->source, "ffm, rc or middleware")
        ->check(CLI::IsMember({"ffm", "rc", "middleware"}))
        ->capture_default_str();
    streaming->add_option("-s,--seconds", stream->seconds, "How long to stream")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
}

} // namespace zorctl
