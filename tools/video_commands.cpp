// SPDX-License-Identifier: MIT
// Video subcommands: wall lighting, input sources, player status, picture style.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstdint>
#include <vector>

namespace zorctl
{

namespace
{

// Room for the sources the television reports now, and for a few that appear
// before the list call asks again.
constexpr int kSpareRecords = 64;

int listSources()
{
    int reported = 0;
    const int counted = query(
        "sources", [&] { return ZOR_App_GetInputSourceNumber(&reported); }, [] {});
    if (counted != 0)
        return counted;
    std::vector<_VOICECTRL_SOURCE_INFO> sources(static_cast<size_t>(reported) + kSpareRecords);
    int count = 0;
    return query(
        "sources", [&] { return ZOR_App_GetInputSouceList(sources.data(), &count); },
        [&] {
            answer("%-4s %-33s %s", "#", "source", "label");
            for (int i = 0; i < count && i < static_cast<int>(sources.size()); ++i)
                answer("%-4d %-33.33s %.33s", i + 1, sources[i].c8SourceText1,
                       sources[i].c8SourceText2);
            answer("%d sources", count);
        });
}

} // namespace

void addVideoCommands(CLI::App& app, Invocation& invocation)
{
    auto on = arg<std::string>();
    addAction(
        app, invocation, "wallglow", "Switch the wall lighting on or off",
        [on] { return send("wallglow", [&] { return ZOR_App_SetWallglowState(*on == "on"); }); })
        ->add_option("state", *on, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    auto follow = arg<int>();
    addAction(app, invocation, "wallglow-follow", "Choose what the wall lighting follows",
              [follow] {
                  return send("wallglow-follow", [&] {
                      return ZOR_App_SetWallglowToFollow(static_cast<unsigned char>(*follow));
                  });
              })
        ->add_option("value", *follow, "The television's follow value")
        ->required()
        ->check(CLI::Range(0, 255));

    auto source = arg<std::string>();
    addAction(app, invocation, "tune-source", "Tune to an input source by name",
              [source] {
                  return send("tune-source",
                              [&] { return ZOR_App_TuneToInputSrc(source->c_str()); });
              })
        ->add_option("name", *source, "Source name (at most 64 characters)")
        ->required();

    addAction(app, invocation, "current-source", "Print the current input source", [] {
        char name[65] = {};
        return query(
            "current-source", [&] { return ZOR_App_GetCurrentInputSource(name); },
            [&] { answer("current-source: %s", name); });
    });

    addAction(app, invocation, "sources", "List the input sources", listSources);

    addAction(app, invocation, "player-status", "Print the media player's status", [] {
        EN_VOICECTRL_PLAYBACK_STATUS value = 0;
        return query(
            "player-status", [&] { return ZOR_App_GetPlayerStatus(&value); },
            [&] { answer("player-status: %d", value); });
    });

    auto style = arg<int>();
    addAction(
        app, invocation, "picture-style", "Set the picture style",
        [style] { return send("picture-style", [&] { return ZOR_App_SetPictureStyle(*style); }); })
        ->add_option("value", *style, "Style value, the television's own")
        ->required();
}

} // namespace zorctl
