// SPDX-License-Identifier: MIT
// Audio class: each function sends one 32-bit word. The queries send zero and
// return the word from the reply; the status is not looked at.
#include "base/log.h"
#include "zor/zor_api.h"
#include "zor/zor_transport.h"

#include <cstdint>

using namespace OXAPC;

namespace
{

int sendWord(OXA_TV_CMD_ID id, uint32_t word)
{
    return forwardCommand(id, &word);
}

int queryWord(OXA_TV_CMD_ID id)
{
    uint32_t word = 0;
    forwardCommand(id, &word);
    return static_cast<int>(word);
}

} // namespace

int ZOR_App_SetMute(unsigned char mute)
{
    ZOR_TRACE("<===\n");
    int result = sendWord(OXA_TV_CMD_ID_AUDIO_SetMute, mute);
    ZOR_TRACE("===>\n");
    return result;
}

int ZOR_App_GetMute(void)
{
    ZOR_TRACE("<===\n");
    int value = queryWord(OXA_TV_CMD_ID_AUDIO_GetMute);
    ZOR_TRACE("===>\n");
    return value;
}

int ZOR_App_SetVolume(unsigned char volume)
{
    ZOR_TRACE("<===\n");
    int result = sendWord(OXA_TV_CMD_ID_AUDIO_SetVolume, volume);
    ZOR_TRACE("===>\n");
    return result;
}

int ZOR_App_GetVolume(void)
{
    ZOR_TRACE("===>\n\n");
    int value = queryWord(OXA_TV_CMD_ID_AUDIO_GetVolume);
    ZOR_TRACE("===>\n\n");
    return value;
}

int ZOR_App_GetMaxVolume(void)
{
    ZOR_TRACE("<===\n");
    int value = queryWord(OXA_TV_CMD_ID_AUDIO_GetMaxVolume);
    ZOR_TRACE("===>\n");
    return value;
}

int ZOR_App_SetMainAudioGain(int gain)
{
    ZOR_TRACE("<===\n");
    int result = sendWord(OXA_TV_CMD_ID_AUDIO_SetMainAudioGain, static_cast<uint32_t>(gain));
    ZOR_TRACE("===>\n");
    return result;
}

int ZOR_App_SetSoundStyle(EN_VOICECTRL_SOUND_MODE_T style)
{
    ZOR_TRACE("<===\n");
    int result = sendWord(OXA_TV_CMD_ID_AUDIO_SetSoundStyle, static_cast<uint32_t>(style));
    ZOR_TRACE("===>\n");
    return result;
}
