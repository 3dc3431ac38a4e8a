// SPDX-License-Identifier: MIT
// System subcommands: power, USB source, certificates, environment, firmware,
// FVP actions, control mode, AVS token, time zone, options, portal application.
#include "tools/subcommand.h"

#include "zor/zor.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace zorctl
{

void addSystemCommands(CLI::App& app, Invocation& invocation)
{
    auto power = arg<std::string>();
    addAction(
        app, invocation, "power", "Switch the television on or off",
        [power] { return send("power", [&] { return ZOR_App_SetPowerControl(*power == "on"); }); })
        ->add_option("state", *power, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    addAction(app, invocation, "usb-source", "Switch to the USB source",
              [] { return send("usb-source", [&] { return ZOR_App_SetUSBSource(); }); });

    auto iot = arg<int>();
    addAction(app, invocation, "iot-certificate", "Send the IoT-certificate value",
              [iot] {
                  return send("iot-certificate", [&] {
                      return ZOR_App_SetIOTCertificate(static_cast<unsigned char>(*iot));
                  });
              })
        ->add_option("value", *iot, "0 to 255")
        ->required()
        ->check(CLI::Range(0, 255));

    addAction(app, invocation, "environment", "Print the environment byte", [] {
        unsigned char env = 0;
        return query(
            "environment", [&] { return ZOR_App_GetEnvironment(&env); },
            [&] { answer("environment: %u", env); });
    });

    addAction(app, invocation, "fw-version", "Print the firmware version", [] {
        char version[34] = {}; // 33 delivered, one more for printing
        return query(
            "fw-version", [&] { return ZOR_App_GetFWversion(version); },
            [&] { answer("fw-version: %s", version); });
    });

    auto path = arg<std::string>();
    addAction(app, invocation, "fvp-recommendation", "Show a Freeview Play recommendation",
              [path] {
                  return send("fvp-recommendation",
                              [&] { return ZOR_App_showFVPRecommendation(&(*path)[0]); });
              })
        ->add_option("path", *path, "Recommendation path")
        ->required();

    auto collection = arg<std::string>();
    addAction(app, invocation, "fvp-collection", "Show a Freeview Play collection",
              [collection] {
                  return send("fvp-collection",
                              [&] { return ZOR_App_showFVPCollection(&(*collection)[0]); });
              })
        ->add_option("crid", *collection, "Collection CRID")
        ->required();

    auto first = arg<std::string>();
    auto second = arg<std::string>();
    CLI::App* programme = addAction(
        app, invocation, "fvp-programme", "Tune to a Freeview Play programme", [first, second] {
            return send("fvp-programme",
                        [&] { return ZOR_App_TuneToFVPProgram(&(*first)[0], &(*second)[0]); });
        });
    programme->add_option("first", *first, "First text (at most 63 characters)")->required();
    programme->add_option("second", *second, "Second text (at most 1023 characters)")->required();

    addAction(app, invocation, "fvp-restart", "Restart the current Freeview Play programme", [] {
        return send("fvp-restart", [&] { return ZOR_App_restartCurrentFVPProgram(); });
    });

    auto mode = arg<int>();
    addAction(app, invocation, "control-mode", "Set the control mode",
              [mode] { return send("control-mode", [&] { return ZOR_App_SetModes(*mode); }); })
        ->add_option("mode", *mode, "Mode value, the television's own")
        ->required();

    CLI::App* token = app.add_subcommand("token", "Store or fetch the AVS token");
    token->require_subcommand(1);
    auto tokenText = arg<std::string>();
    auto tokenLength = arg<int>(-1);
    CLI::App* setToken =
        addAction(*token, invocation, "set", "Store a token", [tokenText, tokenLength] {
            const int length =
                *tokenLength >= 0 ? *tokenLength : static_cast<int>(tokenText->size());
            return send("token set", [&] { return ZOR_App_SetAVSToken(&(*tokenText)[0], length); });
        });
    setToken->add_option("token", *tokenText, "The token (at most 2048 bytes are sent)")
        ->required();
    setToken->add_option("--length", *tokenLength, "Length to send (default: the token's)");
    addAction(*token, invocation, "get", "Print the stored token", [] {
        std::vector<char> text(4097, '\0');
        int length = 0;
        return query(
            "token get", [&] { return ZOR_App_GetAVSToken(text.data(), &length); },
            [&] { answer("token (%d): %s", length, text.data()); });
    });

    addAction(app, invocation, "time-zone", "Print the time zone", [] {
        std::vector<char> zone(1025, '\0');
        return query(
            "time-zone", [&] { return ZOR_App_GetTimeZone(zone.data()); },
            [&] { answer("time-zone: %s", zone.data()); });
    });

    // Read from the board's file; nothing is sent.
    addAction(
        app, invocation, "ffmic-option", "Print the board's far-field option",
        [] {
            bool option = false;
            const int result = ZOR_App_GetFFmicOptionBit(&option);
            if (result != 1) {
                complain("ffmic-option: /mtd_rwarea/FFMOptionCode.txt holds no option (%s)",
                         result == -1 ? "the file is empty" : "no number, or no such file");
                return kExitRefused;
            }
            answer("ffmic-option: %s", option ? "on" : "off");
            return 0;
        },
        Needs::Nothing);

    auto portalName = arg<std::string>();
    auto portalId = arg<std::string>();
    CLI::App* portal =
        app.add_subcommand("portal-app", "Start the television's portal application");
    CLI::Option* nameOption = portal->add_option("--name", *portalName, "Application name");
    CLI::Option* idOption = portal->add_option("--id", *portalId, "Application id");
    portal->callback([&invocation, portalName, portalId, nameOption, idOption] {
        invocation.action = [portalName, portalId, nameOption, idOption] {
            return send("portal-app", [&] {
                return ZOR_App_LoadTevoraApp(optionalText(nameOption, *portalName),
                                             optionalText(idOption, *portalId));
            });
        };
    });
}

} // namespace zorctl
