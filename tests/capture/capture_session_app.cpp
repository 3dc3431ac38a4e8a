// SPDX-License-Identifier: MIT
// An assistant application for the capture tests: it serves the middleware's
// commands for the AVS and Google Assistant applications, sends commands of
// every outbound class with known values, prints "ready" and goes on serving
// until its standard input closes. Run with ZOR_MUP_CAPTURE=FILE, it leaves
// what it sent and received in FILE.
#include "zor/zor.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace
{

// The statuses are the television's; the capture shows whether each command left.
void report(const char* what, int status)
{
    printf("%s: %d\n", what, status);
}

} // namespace

int main()
{
    // The GA server first: the last call leaves the client endpoint with the AVS service.
    if (ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_GA) != 0 ||
        ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS) != 0) {
        fprintf(stderr, "capture_session_app: cannot start the library\n");
        return 1;
    }

    // Class 1: a word and a record.
    report("informStates", ZOR_App_informStates(3));
    char url[] = "https://example.test/window?x=1";
    report("LoadURLInWindow", ZOR_App_LoadURLInWindow(7, 2, url, 1));
    // Class 2: the browser certificates.
    char data1[] = "cert-one";
    char data2[] = "cert-two";
    char data3[] = "cert-three";
    char subject[] = "subject-name";
    report("SetBrowserCertificates", ZOR_App_SetBrowserCertificates(data1, data2, data3, subject));
    // Class 3: a string record, and a list.
    report("TuneToInputSrc", ZOR_App_TuneToInputSrc("HDMI 2"));
    _VOICECTRL_SOURCE_INFO sources[4] = {};
    int sourceCount = 4;
    report("GetInputSouceList", ZOR_App_GetInputSouceList(sources, &sourceCount));
    // Class 4: the volume, set and read.
    report("SetVolume", ZOR_App_SetVolume(37));
    report("GetVolume", ZOR_App_GetVolume());
    // Class 5: a channel record, a counted string, a list.
    _VOICECTRL_CHANNEL_INFO channel = {};
    channel.u32Param1 = 101;
    channel.u16Param1 = 1;
    channel.u16Param2 = 2;
    channel.u16Param3 = 3;
    channel.u16Param4 = 4;
    channel.u32Param2 = 7;
    strcpy(channel.c8ChannelName, "BBC One");
    report("ChangeToChannel", ZOR_App_ChangeToChannel(&channel));
    char byName[] = "BBC Two";
    report("TuneToChannel_2", ZOR_App_TuneToChannel_2(byName));
    // The library fills as many channels as the television reports.
    static _VOICECTRL_CHANNEL_INFO channels[256] = {};
    unsigned long channelCount = 256;
    report("GetChannelList", ZOR_App_GetChannelList(channels, &channelCount));
    // Class 6: the token, and the firmware version.
    char token[] = "Atza|token-for-the-capture-test";
    report("SetAVSToken", ZOR_App_SetAVSToken(token, static_cast<int>(strlen(token))));
    char version[64] = {};
    report("GetFWversion", ZOR_App_GetFWversion(version));
    // Class 7: a nested record, and the option bytes.
    char app[] = "YouTube";
    char command[] = "play";
    report("StartSmartTVApp", ZOR_App_StartSmartTVApp(app, command, -5));
    char o0 = 0, o1 = 0, o2 = 0, o3 = 0;
    report("GetOptionBits", ZOR_App_GetOptionBits(&o0, &o1, &o2, &o3));

    printf("ready\n");
    fflush(stdout);
    char buffer[64];
    while (read(STDIN_FILENO, buffer, sizeof(buffer)) > 0) {
    }
    return 0;
}
