// SPDX-License-Identifier: MIT
// Voice-control subcommands: initialisation and browser certificates.
#include "tools/subcommand.h"

#include "zor/zor.h"

namespace zorctl
{

void addVoiceControlCommands(CLI::App& app, Invocation& invocation)
{
    addAction(app, invocation, "voice-init", "Initialise the voice-control service",
              [] { return send("voice-init", [&] { return ZOR_Voice_Ctrl_Init(); }); });

    auto texts = std::make_shared<std::vector<std::string>>(4);
    CLI::App* certs =
        addAction(app, invocation, "browser-certs", "Send the browser certificates", [texts] {
            auto& t = *texts;
            return send("browser-certs", [&] {
                return ZOR_App_SetBrowserCertificates(&t[0][0], &t[1][0], &t[2][0], &t[3][0]);
            });
        });
    certs->add_option("data1", (*texts)[0], "First certificate text")->required();
    certs->add_option("data2", (*texts)[1], "Second certificate text")->required();
    certs->add_option("data3", (*texts)[2], "Third certificate text")->required();
    certs->add_option("subject", (*texts)[3], "Subject name")->required();
}

} // namespace zorctl
