#include "tools/zorctl.h"

#include "zor/zor.h"
#include "zor/zor_version.h"

#include <cstdio>
#include <map>
#include <string>

namespace zorctl
{

int reportStatus(const char* what, int status)
{
    if (status < 0) {
        fprintf(stderr, "zorctl: %s failed: status %d\n", what, status);
        return 1;
    }
    printf("%s: status %d\n", what, status);
    return 0;
}

} // namespace zorctl

int main(int argc, char** argv)
{
    CLI::App app{"Acts as an assistant application through libzor"};
    app.set_version_flag("--version", "zorctl (libzor) " ZOR_VERSION_STRING);
    app.require_subcommand(1);

    std::string appType = "avs";
    const std::map<std::string, EN_ZOR_COMMON_APP_TYPE_T> appTypes = {
        {"avs", EN_ZOR_COMMON_APP_TYPE_AVS},
        {"ga", EN_ZOR_COMMON_APP_TYPE_GA},
        {"iot", EN_ZOR_COMMON_APP_TYPE_IOT},
    };
    app.add_option("-a,--app", appType, "Application type: avs, ga or iot")
        ->check(CLI::IsMember({"avs", "ga", "iot"}));

    zorctl::Invocation invocation;
    zorctl::addAudioCommands(app, invocation);
    zorctl::addVideoCommands(app, invocation);
    zorctl::addChannelCommands(app, invocation);
    zorctl::addSystemCommands(app, invocation);
    zorctl::addMiscCommands(app, invocation);
    zorctl::addVoiceControlCommands(app, invocation);
    zorctl::addListenCommand(app, invocation);
    zorctl::addRecordCommand(app, invocation);
    CLI11_PARSE(app, argc, argv);

    if (invocation.needsTelevision && ZOR_Common_Init(appTypes.at(appType)) != 0) {
        fprintf(stderr, "zorctl: the television does not answer (is tvsim running?)\n");
        return 2;
    }
    return invocation.action ? invocation.action() : 0;
}
