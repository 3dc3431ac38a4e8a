// Audio subcommands: volume, mute, maximum volume, gain, sound style.
#include "tools/zorctl.h"

#include "zor/zor.h"

#include <cstdio>

namespace zorctl
{

namespace
{

void addGetSet(CLI::App& parent, Invocation& invocation, const char* name, const char* help,
               int (*get)(void), int (*set)(unsigned char), int maxValue)
{
    CLI::App* command = parent.add_subcommand(name, help);
    command->require_subcommand(1);

    command->add_subcommand("get", "Print the current value")->callback([&invocation, name, get] {
        invocation.action = [name, get] {
            printf("%s: %d\n", name, get());
            return 0;
        };
    });

    CLI::App* setCommand = command->add_subcommand("set", "Set a new value");
    auto value = std::make_shared<int>(0);
    setCommand->add_option("value", *value, "The new value")
        ->required()
        ->check(CLI::Range(0, maxValue));
    setCommand->callback([&invocation, name, set, value] {
        invocation.action = [name, set, value] {
            return reportStatus(name, set(static_cast<unsigned char>(*value)));
        };
    });
}

} // namespace

void addAudioCommands(CLI::App& app, Invocation& invocation)
{
    addGetSet(app, invocation, "volume", "Television volume", ZOR_App_GetVolume, ZOR_App_SetVolume,
              255);
    addGetSet(app, invocation, "mute", "Mute state (0 or 1)", ZOR_App_GetMute, ZOR_App_SetMute, 1);

    app.add_subcommand("max-volume", "Print the maximum volume")->callback([&invocation] {
        invocation.action = [] {
            printf("max-volume: %d\n", ZOR_App_GetMaxVolume());
            return 0;
        };
    });

    CLI::App* gain = app.add_subcommand("gain", "Set the main audio gain");
    auto gainValue = std::make_shared<int>(0);
    gain->add_option("value", *gainValue, "Gain, passed to the television unchanged")->required();
    gain->callback([&invocation, gainValue] {
        invocation.action = [gainValue] {
            return reportStatus("gain", ZOR_App_SetMainAudioGain(*gainValue));
        };
    });

    CLI::App* style = app.add_subcommand("sound-style", "Set the sound style");
    auto styleValue = std::make_shared<int>(0);
    style->add_option("value", *styleValue, "Style value, the television's own")->required();
    style->callback([&invocation, styleValue] {
        invocation.action = [styleValue] {
            return reportStatus("sound-style", ZOR_App_SetSoundStyle(*styleValue));
        };
    });
}

} // namespace zorctl
