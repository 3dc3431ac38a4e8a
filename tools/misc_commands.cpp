// SPDX-License-Identifier: MIT
// Miscellaneous subcommands: playback control, certificate, option bytes,
// smart-TV applications, UI control, active application, keys, YouTube.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstdio>
#include <vector>

namespace zorctl
{

void addMiscCommands(CLI::App& app, Invocation& invocation)
{
    auto playback = arg<std::string>();
    addAction(app, invocation, "playback", "Send a playback control command",
              [playback] {
                  return send("playback",
                              [&] { return ZOR_App_SendPlaybackCtrl(playback->c_str()); });
              })
        ->add_option("command", *playback, "e.g. play, pause, stop")
        ->required();

    auto bufferSize = arg<unsigned int>(MAX_LEN);
    addAction(app, invocation, "certificate", "Print the certificate the television holds",
              [bufferSize] {
                  std::vector<char> buffer(*bufferSize + 1, '\0');
                  unsigned int length = *bufferSize;
                  return query(
                      "certificate", [&] { return ZOR_App_GetCertificate(buffer.data(), &length); },
                      [&] {
                          answer("certificate (%u bytes):", length);
                          fwrite(buffer.data(), 1, length, answerStream());
                          answer("%s", "");
                      });
              })
        ->add_option("--buffer-size", *bufferSize, "Buffer offered for the certificate")
        ->check(CLI::Range(0u, static_cast<unsigned int>(MAX_LEN)));

    addAction(app, invocation, "option-bits", "Print the option bytes 0 to 3", [] {
        char options[4] = {};
        return query(
            "option-bits",
            [&] {
                return ZOR_App_GetOptionBits(&options[0], &options[1], &options[2], &options[3]);
            },
            [&] {
                answer("option-bits: %d %d %d %d", options[0], options[1], options[2], options[3]);
            });
    });

    addAction(app, invocation, "ga-option", "Print the Google Assistant option", [] {
        bool option = false;
        return query(
            "ga-option", [&] { return ZOR_App_GetOptionBit(&option); },
            [&] { answer("ga-option: %s", option ? "on" : "off"); });
    });

    addAction(app, invocation, "wallglow-option", "Print the wall-lighting option", [] {
        char option = 0;
        return query(
            "wallglow-option", [&] { return ZOR_App_GetWallglowOptionBit(&option); },
            [&] { answer("wallglow-option: %d", option); });
    });

    auto appName = arg<std::string>();
    auto appCommand = arg<std::string>();
    auto appParam = arg<int>();
    CLI::App* smartTv = app.add_subcommand("smart-tv-app", "Start a smart-TV application");
    smartTv->add_option("name", *appName, "Application name")->required();
    CLI::Option* commandOption = smartTv->add_option("--command", *appCommand, "Start command");
    smartTv->add_option("--param", *appParam, "Parameter, the television's own");
    smartTv->callback([&invocation, appName, appCommand, appParam, commandOption] {
        invocation.action = [appName, appCommand, appParam, commandOption] {
            return send("smart-tv-app", [&] {
                return ZOR_App_StartSmartTVApp(&(*appName)[0],
                                               optionalText(commandOption, *appCommand), *appParam);
            });
        };
    });

    auto uiName = arg<std::string>();
    auto uiSub = arg<std::string>();
    CLI::App* ui = app.add_subcommand("ui-control", "Start a UI control");
    ui->add_option("name", *uiName, "Control name")->required();
    CLI::Option* subOption = ui->add_option("sub-command", *uiSub, "Sub-command");
    ui->callback([&invocation, uiName, uiSub, subOption] {
        invocation.action = [uiName, uiSub, subOption] {
            return send("ui-control", [&] {
                return ZOR_App_StartUIControl(&(*uiName)[0], optionalText(subOption, *uiSub));
            });
        };
    });

    addAction(app, invocation, "active-app", "Print the active application", [] {
        EN_VOICECTRL_ACTIVE_APP value = 0;
        return query(
            "active-app", [&] { return ZOR_App_GetActiveApp(&value); },
            [&] { answer("active-app: %d", value); });
    });

    auto key = arg<std::string>();
    addAction(app, invocation, "rc-key", "Inject a remote-control key",
              [key] { return send("rc-key", [&] { return ZOR_App_Inject_RC_Key(key->c_str()); }); })
        ->add_option("key", *key, "Key name")
        ->required();

    auto videoId = arg<std::string>();
    auto videoParam = arg<int>();
    CLI::App* youtube =
        addAction(app, invocation, "youtube", "Start a YouTube video", [videoId, videoParam] {
            return send("youtube",
                        [&] { return ZOR_App_StartYoutubeVideo(&(*videoId)[0], *videoParam); });
        });
    youtube->add_option("video-id", *videoId, "Video id (cut at 1024 characters)")->required();
    youtube->add_option("--param", *videoParam, "Parameter, the television's own");
}

} // namespace zorctl
