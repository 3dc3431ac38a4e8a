/* SPDX-License-Identifier: MIT */
/* The exported headers are plain C: an application written in C includes them
 * and calls the library. */
#include "zor/zor_api.h"
#include "zor/zor_audio.h"
#include "zor/zor_callbacks.h"
#include "zor/zor_types.h"

#include <stdio.h>

int main(void)
{
    _VOICECTRL_STR_INFO info = {{0}, 0};
    int (*setVolume)(unsigned char) = ZOR_App_SetVolume;
    printf("%u %d\n", (unsigned)sizeof(info), setVolume != 0);
    return sizeof(info) == 72 ? 0 : 1;
}
