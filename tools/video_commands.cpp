// Video subcommands: wall lighting, input sources, player status, picture style.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstdint>
#include <cstdio>
#include <vector>

namespace zorctl
{

namespace
{

// Room for the sources the television reports now, and for a few that appear
// before the list call asks again.
constexpr uint32_t kSpareRecords = 64;

int listSources()
{
    uint32_t reported = 0;
    forwardCommand(OXAPC::OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen, &reported);
    std::vector<_VOICECTRL_SOURCE_INFO> sources(reported + kSpareRecords);
    int count = 0;
    const int status = ZOR_App_GetInputSouceList(sources.data(), &count);
    if (status < 0)
        return reportStatus("sources", status);
    printf("%-4s %-33s %s\n", "#", "source", "label");
    for (int i = 0; i < count && i < static_cast<int>(sources.size()); ++i)
        printf("%-4d %-33.33s %.33s\n", i + 1, sources[i].c8SourceText1, sources[i].c8SourceText2);
    printf("%d sources\n", count);
    return 0;
}

} // namespace

void addVideoCommands(CLI::App& app, Invocation& invocation)
{
    auto on = arg<std::string>();
    addAction(app, invocation, "wallglow", "Switch the wall lighting on or off",
              [on] { return reportStatus("wallglow", ZOR_App_SetWallglowState(*on == "on")); })
        ->add_option("state", *on, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    auto follow = arg<int>();
    addAction(app, invocation, "wallglow-follow", "Choose what the wall lighting follows",
              [follow] {
                  return reportStatus("wallglow-follow", ZOR_App_SetWallglowToFollow(
                                                             static_cast<unsigned char>(*follow)));
              })
        ->add_option("value", *follow, "The television's follow value")
        ->required()
        ->check(CLI::Range(0, 255));

    auto source = arg<std::string>();
    addAction(
        app, invocation, "tune-source", "Tune to an input source by name",
        [source] { return reportStatus("tune-source", ZOR_App_TuneToInputSrc(source->c_str())); })
        ->add_option("name", *source, "Source name (at most 64 characters)")
        ->required();

    addAction(app, invocation, "current-source", "Print the current input source", [] {
        char name[65] = {};
        const int status = ZOR_App_GetCurrentInputSource(name);
        if (status < 0)
            return reportStatus("current-source", status);
        printf("current-source: %s\n", name);
        return 0;
    });

    addAction(app, invocation, "sources", "List the input sources", listSources);

    addAction(app, invocation, "player-status", "Print the media player's status", [] {
        EN_VOICECTRL_PLAYBACK_STATUS value = 0;
        const int status = ZOR_App_GetPlayerStatus(&value);
        if (status < 0)
            return reportStatus("player-status", status);
        printf("player-status: %d\n", value);
        return 0;
    });

    auto style = arg<int>();
    addAction(app, invocation, "picture-style", "Set the picture style",
              [style] { return reportStatus("picture-style", ZOR_App_SetPictureStyle(*style)); })
        ->add_option("value", *style, "Style value, the television's own")
        ->required();
}

} // namespace zorctl
