// SPDX-License-Identifier: MIT
// Audio subcommands: volume, mute, maximum volume, gain, sound style.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstdint>

namespace zorctl
{

namespace
{

// The library's query functions return the value and drop the status; the
// command itself carries both, so queries go through forwardCommand.
int queryWord(const char* what, OXAPC::OXA_TV_CMD_ID id)
{
    int32_t word = 0;
    return query(
        what, [id, &word] { return forwardCommand(id, &word); },
        [what, &word] { answer("%s: %d", what, word); });
}

void addGetSet(CLI::App& parent, Invocation& invocation, const char* name, const char* help,
               OXAPC::OXA_TV_CMD_ID getId, int (*set)(unsigned char), int maxValue)
{
    CLI::App* command = parent.add_subcommand(name, help);
    command->require_subcommand(1);
    addAction(*command, invocation, "get", "Print the current value",
              [name, getId] { return queryWord(name, getId); });
    auto value = arg<int>();
    addAction(*command, invocation, "set", "Set a new value",
              [name, set, value] {
                  return send(name, [&] { return set(static_cast<unsigned char>(*value)); });
              })
        ->add_option("value", *value, "The new value")
        ->required()
        ->check(CLI::Range(0, maxValue));
}

} // namespace

void addAudioCommands(CLI::App& app, Invocation& invocation)
{
    addGetSet(app, invocation, "volume", "Television volume", OXAPC::OXA_TV_CMD_ID_AUDIO_GetVolume,
              ZOR_App_SetVolume, 255);
    addGetSet(app, invocation, "mute", "Mute state (0 or 1)", OXAPC::OXA_TV_CMD_ID_AUDIO_GetMute,
              ZOR_App_SetMute, 1);
    addAction(app, invocation, "max-volume", "Print the maximum volume",
              [] { return queryWord("max-volume", OXAPC::OXA_TV_CMD_ID_AUDIO_GetMaxVolume); });

    auto gain = arg<int>();
    addAction(app, invocation, "gain", "Set the main audio gain",
              [gain] { return send("gain", [&] { return ZOR_App_SetMainAudioGain(*gain); }); })
        ->add_option("value", *gain, "Gain, passed to the television unchanged")
        ->required();

    auto style = arg<int>();
    addAction(
        app, invocation, "sound-style", "Set the sound style",
        [style] { return send("sound-style", [&] { return ZOR_App_SetSoundStyle(*style); }); })
        ->add_option("value", *style, "Style value, the television's own")
        ->required();
}

} // namespace zorctl
