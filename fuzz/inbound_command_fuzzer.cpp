// SPDX-License-Identifier: MIT
// Feeds the server object with whatever a peer process could send: any
// command id, any request bytes, with or without a reply buffer. Nothing may
// crash, hang, read past the request or hand the application an unterminated
// string.
#include "server/avs_server_backend.h"
#include "server/callback_table.h"
#include "zor/zor.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

volatile size_t gSink;

// The callbacks touch every byte they are given, so that a missing
// terminator or a short buffer shows up under AddressSanitizer.
int takeString(char* text)
{
    gSink = gSink + strlen(text);
    return 0;
}

int takePcm(void* data, unsigned int bytes)
{
    const auto* p = static_cast<const unsigned char*>(data);
    size_t sum = 0;
    for (unsigned int i = 0; i < bytes; ++i)
        sum += p[i];
    gSink = gSink + sum;
    return 0;
}

int nothing()
{
    return 0;
}

int withInt(int)
{
    return 0;
}

int withBool(bool)
{
    return 0;
}

int withStatus(int, unsigned int)
{
    return 0;
}

void registerEverything()
{
    ZOR_MicButtonTapped_register_callback(nothing);
    ZOR_MicButtonHold_register_callback(withBool);
    ZOR_SetPowerMode_register_callback(withInt);
    ZOR_SetTimeZone_register_callback(nothing);
    ZOR_ActivateApp_register_callback(nothing);
    ZOR_EnableDisableApp_register_callback(withInt);
    ZOR_ReportUIStatus_register_callback(withStatus);
    ZOR_UserChangedLanguage_register_callback(takeString);
    ZOR_UserChangedCountry_register_callback(takeString);
    ZOR_ResetApp_register_callback(withInt);
    ZOR_InformControlChanged_register_callback(withInt);
    ZOR_QueryForIOTCertificate_register_callback(nothing);
    ZOR_InformTevoraCertificate_register_callback(takeString);
    ZOR_SendAudioPCMData_register_callback(takePcm);
    ZOR_NotifyActionButtonPressed_register_callback(nothing);
    ZOR_SetFFmicStatus_register_callback(withBool);
    ZOR_FF_NotifyFWUpdateStatus_register_callback(withBool);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The server's lines would drown the fuzzer's own output.
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    registerEverything();
    // What initServer does, without a socket.
    g_stAVSServerBackend.RegisterCallbackFun(&g_stAVSP_CBHandle);
    return 0;
}

// Input: 4 bytes of id, 1 control byte, then the request. Bit 0 of the
// control byte folds the id onto the three served classes, so that most runs
// reach a dispatcher; bit 1 drops the reply buffer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5)
        return 0;
    uint32_t id = 0;
    memcpy(&id, data, 4);
    const uint8_t control = data[4];
    if (control & 1)
        id = 0x10000000u | (((id >> 16) % 4) << 16) | (id & 0x1F);
    // The debug level command would switch every trace line on.
    if ((id == 0x1001000B) && (control & 4) == 0)
        return 0;

    MUPParam in;
    in.write(data + 5, static_cast<unsigned int>(size - 5));
    MUPParam out;
    g_stAVSServerBackend.handleCommand(id, in, (control & 2) ? nullptr : &out, 0);
    // A reply is one word or nothing.
    if (out.size() != 0 && out.size() != 4)
        __builtin_trap();
    return 0;
}
