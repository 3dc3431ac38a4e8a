// SPDX-License-Identifier: MIT
// Channel subcommands: count, list, current channel, tuning, FVP.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstring>
#include <vector>

namespace zorctl
{

namespace
{

// Room for channels that appear between the count and the list call.
constexpr unsigned long kSpareRecords = 64;

void printChannelHeader()
{
    answer("%-6s %-32s %7s %7s %7s %5s %10s", "number", "name", "service", "stream", "network",
           "kind", "frequency");
}

void printChannel(const _VOICECTRL_CHANNEL_INFO& channel)
{
    answer("%-6u %-32.65s %7u %7u %7u %5u %10u", channel.u32Param1, channel.c8ChannelName,
           channel.u16Param1, channel.u16Param2, channel.u16Param3, channel.u16Param4,
           channel.u32Param2);
}

int listChannels()
{
    unsigned long reported = 0;
    const int counted = query(
        "channels", [&] { return ZOR_App_GetChannelNumber(&reported); }, [] {});
    if (counted != 0)
        return counted;
    std::vector<_VOICECTRL_CHANNEL_INFO> channels(reported + kSpareRecords);
    unsigned long count = 0;
    return query(
        "channels", [&] { return ZOR_App_GetChannelList(channels.data(), &count); },
        [&] {
            printChannelHeader();
            for (unsigned long i = 0; i < count && i < channels.size(); ++i)
                printChannel(channels[i]);
            answer("%lu channels", count);
        });
}

} // namespace

void addChannelCommands(CLI::App& app, Invocation& invocation)
{
    addAction(app, invocation, "channel-count", "Print the number of channels", [] {
        unsigned long count = 0;
        return query(
            "channel-count", [&] { return ZOR_App_GetChannelNumber(&count); },
            [&] { answer("channel-count: %lu", count); });
    });

    addAction(app, invocation, "channels", "List the channels as a table", listChannels);

    addAction(app, invocation, "current-channel", "Print the current channel", [] {
        _VOICECTRL_CHANNEL_INFO channel;
        memset(&channel, 0, sizeof(channel));
        return query(
            "current-channel", [&] { return ZOR_App_GetCurrentChannel(&channel); },
            [&] {
                printChannelHeader();
                printChannel(channel);
            });
    });

    addAction(app, invocation, "next-channel", "Tune to the next channel",
              [] { return send("next-channel", [&] { return ZOR_App_TuneToNextChannel(); }); });
    addAction(app, invocation, "previous-channel", "Tune to the previous channel", [] {
        return send("previous-channel", [&] { return ZOR_App_TuneToPreviousChannel(); });
    });
    addAction(app, invocation, "last-channel", "Tune back to the last tuned channel", [] {
        return send("last-channel", [&] { return ZOR_App_TuneToLastTunedChannel(); });
    });

    auto number = arg<unsigned int>();
    addAction(
        app, invocation, "tune-channel", "Tune to a channel by number",
        [number] { return send("tune-channel", [&] { return ZOR_App_TuneToChannel(*number); }); })
        ->add_option("number", *number, "Channel number")
        ->required();

    auto text = arg<std::string>();
    addAction(app, invocation, "tune-channel-text", "Tune to a channel by name or number text",
              [text] {
                  return send("tune-channel-text",
                              [&] { return ZOR_App_TuneToChannel_2(&(*text)[0]); });
              })
        ->add_option("text", *text, "Channel name or number")
        ->required();

    auto changeName = arg<std::string>();
    auto changeNumber = arg<unsigned int>();
    CLI::App* change = addAction(
        app, invocation, "change-channel", "Tune to a channel given as a channel record",
        [changeName, changeNumber] {
            _VOICECTRL_CHANNEL_INFO channel;
            memset(&channel, 0, sizeof(channel));
            channel.u32Param1 = *changeNumber;
            if (changeName->size() >= sizeof(channel.c8ChannelName)) {
                complain("change-channel: a channel name has at most 64 characters");
                return kExitUsage;
            }
            memcpy(channel.c8ChannelName, changeName->data(), changeName->size());
            return send("change-channel", [&] { return ZOR_App_ChangeToChannel(&channel); });
        });
    change->add_option("--name", *changeName, "Channel name");
    change->add_option("--number", *changeNumber, "Channel number");

    auto url = arg<std::string>();
    auto appCrid = arg<std::string>();
    CLI::App* fvpApp =
        addAction(app, invocation, "fvp-app", "Start a Freeview Play application", [url, appCrid] {
            return send("fvp-app", [&] { return ZOR_App_StartFVPApp(&(*url)[0], &(*appCrid)[0]); });
        });
    fvpApp->add_option("ait-url", *url, "Application information table URL")->required();
    fvpApp->add_option("crid", *appCrid, "Content reference id")->required();

    auto crid = arg<std::string>();
    addAction(app, invocation, "fvp-channel", "Tune to a Freeview Play channel",
              [crid] {
                  return send("fvp-channel", [&] { return ZOR_App_TuneToFVPChannel(&(*crid)[0]); });
              })
        ->add_option("crid", *crid, "Content reference id")
        ->required();
}

} // namespace zorctl
