// SPDX-License-Identifier: MIT
// Voice-control class: the two commands with an exported function of their
// own. The rest of the class is reached through forwardCommand.
#include "base/log.h"
#include "zor/zor_api.h"
#include "zor/zor_transport.h"

using namespace OXAPC;

int ZOR_Voice_Ctrl_Init(void)
{
    ZOR_TRACE("<===\n");
    const int status = forwardCommand(OXA_TV_CMD_ID__VOICE_CTRL_INIT, nullptr);
    ZOR_TRACE("===>\n");
    return status;
}

int ZOR_App_SetBrowserCertificates(char* data1, char* data2, char* data3, char* subjectName)
{
    ZOR_TRACE("<===\n");
    // The encoder refuses a missing string before it measures any.
    _VOICECTRL_BROWSER_CERT_INFO record = {data1, data2, data3, subjectName};
    const int status = forwardCommand(OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts, &record);
    ZOR_TRACE("===>\n");
    return status;
}
