/* SPDX-License-Identifier: MIT */
/*
 * assistant: a small voice-assistant application on the installed libzor.
 *
 * It starts the library as the AVS application, registers for a few of the
 * television's commands, sets and reads back the volume, lists the channels
 * and shows the current one. With --listen it then waits for the television's
 * "activate" command. Start the television (tvsim) first, with the same
 * ZOR_RUNTIME_DIR.
 *
 * usage: assistant [--volume N] [--listen SECONDS]
 */
#define _POSIX_C_SOURCE 200809L /* nanosleep */

#include <zor/zor.h>
#include <zor/zor_version.h>

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* Set on the library's server thread, read by main. */
static atomic_int activated;

static int onActivate(void)
{
    printf("television: activate\n");
    fflush(stdout);
    atomic_store(&activated, 1);
    return 0;
}

static int onPowerMode(int mode)
{
    printf("television: power mode %d\n", mode);
    fflush(stdout);
    return 0;
}

static int onLanguageChanged(char* language)
{
    /* The string is the library's, valid during the call only. */
    printf("television: language %s\n", language);
    fflush(stdout);
    return 0;
}

static void sleepMs(long ms)
{
    struct timespec delay = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&delay, NULL);
}

static int showChannels(void)
{
    unsigned long count = 0;
    int status = ZOR_App_GetChannelNumber(&count);
    if (status < 0) {
        fprintf(stderr, "assistant: channel count failed: status %d\n", status);
        return -1;
    }
    printf("channels: %lu\n", count);
    if (count == 0)
        return 0;

    /* The list call asks for the count again and fills that many records. */
    _VOICECTRL_CHANNEL_INFO* channels = calloc(count, sizeof *channels);
    if (channels == NULL)
        return -1;
    unsigned long listed = 0;
    status = ZOR_App_GetChannelList(channels, &listed);
    if (status < 0) {
        fprintf(stderr, "assistant: channel list failed: status %d\n", status);
        free(channels);
        return -1;
    }
    for (unsigned long i = 0; i < listed && i < count; ++i)
        printf("channel %u: %.64s\n", (unsigned)channels[i].u32Param1, channels[i].c8ChannelName);
    free(channels);

    _VOICECTRL_CHANNEL_INFO current;
    memset(&current, 0, sizeof current);
    status = ZOR_App_GetCurrentChannel(&current);
    if (status < 0) {
        fprintf(stderr, "assistant: current channel failed: status %d\n", status);
        return -1;
    }
    printf("current channel: %u %.64s\n", (unsigned)current.u32Param1, current.c8ChannelName);
    return 0;
}

int main(int argc, char** argv)
{
    int volume = 20;
    int listenSeconds = 0;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--volume") == 0 && i + 1 < argc)
            volume = atoi(argv[++i]);
        else if (strcmp(argv[i], "--listen") == 0 && i + 1 < argc)
            listenSeconds = atoi(argv[++i]);
        else {
            fprintf(stderr, "usage: %s [--volume N] [--listen SECONDS]\n", argv[0]);
            return 2;
        }
    }

    printf("assistant on libzor %s\n", ZOR_VERSION_STRING);
    if (ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS) != 0) {
        fprintf(stderr, "assistant: the library did not start\n");
        return 1;
    }
    /* Callbacks may be registered at any time; they run on the library's
     * server thread. */
    ZOR_ActivateApp_register_callback(onActivate);
    ZOR_SetPowerMode_register_callback(onPowerMode);
    ZOR_UserChangedLanguage_register_callback(onLanguageChanged);

    int status = ZOR_App_SetVolume((unsigned char)volume);
    if (status < 0) {
        fprintf(stderr, "assistant: setting the volume failed: status %d (is tvsim running?)\n",
                status);
        return 1;
    }
    /* The audio queries return the value itself, not a status. */
    printf("volume: %d of %d\n", ZOR_App_GetVolume(), ZOR_App_GetMaxVolume());

    if (showChannels() != 0)
        return 1;

    if (listenSeconds > 0) {
        printf("listening for %d s\n", listenSeconds);
        fflush(stdout);
        for (long waited = 0; waited < listenSeconds * 1000L && !atomic_load(&activated);
             waited += 50)
            sleepMs(50);
        if (!atomic_load(&activated)) {
            fprintf(stderr, "assistant: no activate command from the television\n");
            return 1;
        }
    }
    return 0;
}
