/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Microphone audio: remote-control capture, the far-field pipeline's control
 * surface and the soft-microphone output. All audio is 16 kHz signed 16-bit
 * little-endian; towards the application it is mono.
 */
#ifndef ZOR_ZOR_AUDIO_H
#define ZOR_ZOR_AUDIO_H

#include "zor/zor_callbacks.h"
#include "zor/zor_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Remote-control microphone capture ("hw:0,6") -------------------------- */

/**
 * @name Remote-control microphone capture
 * At most one capture thread reads 16 kHz mono S16_LE periods of 32 frames
 * (64 bytes) from "hw:0,6", hands each period to the PCM callback and appends
 * it to a raw dump file "/tmp/rec<UTC %Y%m%d%H%M%S>.pcm" (mode 0644; a second
 * capture in the same second truncates the file). The thread is detached and
 * owns the device, the period buffer and the dump file; it releases all three
 * before the capture state returns to "none". Device, dump-file and parameter
 * failures are reported on stdout only: the thread ends at once.
 * All four functions may be called from any thread.
 *
 * Devices that differ or fail:
 *  - The rate and the period are asked "near" 16000 Hz and 32 frames: the
 *    capture takes what the device grants without a line, and every callback
 *    and dump write is one granted period (frames x 2 bytes).
 *  - A device that refuses interleaved access, S16_LE or one channel fails
 *    the set-up at its parameter step ("unable to set hw parameters: ...",
 *    "Error: alsa capture initialize failed!") instead of capturing another
 *    layout.
 *  - Overrun: the device is prepared again and that period is not delivered;
 *    no line.
 *  - Short read: "short read, read N frames", and the whole period buffer is
 *    delivered; past the N new frames it still holds the period before.
 *  - Any other read error: "error from read: ...", and the capture goes on:
 *    a suspended device is resumed (prepared when it cannot resume), a
 *    stopped stream is prepared, and a device that has gone (-ENODEV) stays
 *    open and is read again until the capture is stopped (the next start
 *    opens it afresh).
 *  - A device that keeps failing: the first failure after a good read is
 *    retried at once, each further one a period later, so the thread never
 *    spins. Of a run of failures only the first line, a line for each change
 *    of error and one per 1000 failures are printed; the good read that ends
 *    such a run prints "read recovered after N failed reads".
 * @{
 */

/** Starts a capture when none exists and returns 0, or -1 when the thread
 * could not be created. When a capture exists (running or stopping) it is
 * asked to stop, nothing new starts and the result is 0: call again once it
 * has ended. */
ZOR_EXPORT int startAlsaCaptureThread(void);

/** Asks a running capture to stop; it ends after the period being read (a
 * blocking read). Returns 0; does nothing (and prints nothing) when no capture
 * runs or one is already stopping. */
ZOR_EXPORT int stopAlsaCaptureThread(void);

/** The capture lock is initialised statically and may be held by a running
 * capture, so initialising it again is not done: always returns 0. */
ZOR_EXPORT int initCaptureThreadMutex(void);

/** Stores the PCM callback (NULL removes it); takes effect from the next
 * period. The capture thread calls it once per period with the period buffer,
 * which the library owns and reuses after the return, and its length in
 * bytes; it must return quickly, the next read waits for it. It may call
 * stopAlsaCaptureThread(). Without a callback capture and dump go on. */
ZOR_EXPORT void alsaCaptureRegisterCallback(ZOR_PFN_PCM fn);
/** @} */

/* ---- Far-field control ----------------------------------------------------- */

/*
 * The far-field pipeline has two detached threads, started and stopped
 * together: "ffm_avs_cap" reads 20 ms periods of 16 kHz stereo from the XMOS
 * capture device "hw:C,D", keeps channel 0 in a 15-second ring and delivers
 * audio; "ffm_hid_det" waits for the board's KEY_F23 press, asks the board
 * (USB vendor transfer) where the keyword lies and cuts it out of the ring.
 * They run once both the application (KEL_AVS_FFM_Init) and the DSP
 * (KEL_AVS_FFM_NotifyAudDSPStatus(1)) are ready, in either order. Every
 * stop (DSP not ready while running, power mode 1, a trigger other than 1,
 * the board unplugged) leaves readiness "application ready", so the next
 * DSP-ready report starts them again. Stops are requests: the threads end at
 * their next loop test (at most one period) and release the device, buffers
 * and dump files themselves. The locks behind this are static and live as
 * long as the process.
 *
 * All functions may be called from any thread (application threads and the
 * server thread); readiness transitions run one at a time. None fails;
 * problems are printed on stdout with the "[AVS_FFM]" prefix.
 *
 * Callback threads: the PCM callback runs on "ffm_avs_cap"; the wake-word
 * and notify-UI callbacks run on "ffm_hid_det". The buffers they get belong
 * to the library. The PCM buffer is valid only during the call; the
 * wake-word callback's keyword stays valid for good and its metadata until
 * the next wake word (see ZOR_PFN_WAKEWORD). A callback may call
 * the functions of this section (a PCM callback typically calls
 * KEL_AVS_FFM_TrigSendPCMData(false)); it should return quickly: the next
 * period or poll waits for it.
 *
 * Choices of this implementation:
 *  - Device name: "hw:%d,%d" from the card and device numbers, so numbers
 *    outside 0..9 ("hw:12,3", "hw:-1,0") are written out in full.
 *  - After a detection the application receives the keyword block (8000
 *    samples of pre-roll, the keyword, the audio up to the detection), then
 *    continues exactly at the block's end: every sample arrives once, with
 *    no gap. The wake-word callback's begin (8000) and end (8000 + keyword
 *    length) are positions in that stream.
 *  - Board faults. A detection that is dropped calls no callback and hands
 *    nothing to the application; its line says why; the next key press is
 *    handled as usual, with no restart:
 *    - The board's "not ready" answer to the index query is retried at most
 *      50 times, 2 ms apart; then the detection is dropped ("device indexes
 *      not ready after 50 queries"). A stop request ends the retries once
 *      the transfer under way has returned (within its 500 ms timeout).
 *    - Keyword indexes that cannot lie in the ring drop the detection
 *      ("keyword indexes refused (<why>)"): begin after the board's current
 *      index, end before begin, or begin no longer in the ring (more than
 *      14.5 s back: current - begin + 8000 > 240000). A keyword that began
 *      exactly 14.5 s back still comes whole: its block is the whole ring.
 *    - A keyword whose block the capture overwrote while the detection was
 *      busy (more than 15 s of audio between the answer and the copy) is
 *      dropped ("keyword block overwritten before it was copied").
 *    - A failed index transfer (an I/O error, a stall, no answer within
 *      500 ms) leaves the answer as it was: on the first query that reads as
 *      ready with zero indexes, so the application gets an empty keyword at
 *      the current position with its pre-roll ("get paload error"); after a
 *      "not ready" the query is asked again, within the 50 (a board that
 *      stops answering then holds the detection for at most 50 x 500 ms,
 *      less when a stop comes).
 *    - A board unplugged in the middle of the query (the transfer reports
 *      no device) drops the detection ("HID device lost during the index
 *      query") and stops both threads, like any device loss; the next
 *      DSP-ready report starts them again once the board is back.
 *    - Only KEY_F23 going down (value 1) starts a detection. Its auto-repeat
 *      (value 2) and release, other keys and other event types are read and
 *      ignored, so a key held down is one detection.
 *  - Keyword metadata: the count in the file is clamped to 0..500 bytes.
 *  - The ring's 32-bit byte counter is folded back by whole rings before it
 *    would wrap, so after 2^32 bytes (37 h) it still follows the index.
 *  - The detection thread fills the block under a lock that the capture
 *    thread also takes to hand a block over, so a block is never rewritten
 *    while it is copied or delivered; its ready flag is published with
 *    release/acquire ordering.
 *  - A board whose event node reports it gone (-ENODEV) stops both
 *    threads, as a capture read that fails with -ENODEV or -ENXIO does. The
 *    error code decides, not its text, which the C library translates once
 *    the application sets a locale. Such a stop is a readiness transition
 *    like the others: it waits for one in progress.
 *  - A device that grants another rate or period than asked for (whatever
 *    direction ALSA reports) gets the adjustment line; the capture runs with
 *    the granted period, the soft-microphone output keeps the granted rate
 *    and period in g_alsa_write_handle.
 *  - Capture read failures: an overrun prints "overrun occurred ...", the
 *    stream is prepared again and the period is lost (the ring's indexes do
 *    not move). A short read prints its line and the whole period goes into
 *    the ring (past the new frames it still holds the period before). A
 *    device that has gone (-ENODEV, -ENXIO) stops both threads (above).
 *    Any other error prints "error from read: ..." and capture goes on: a
 *    suspended device is resumed (or prepared when it cannot resume), a
 *    stopped stream prepared. A device that keeps failing is read again
 *    once a period after its second failure in a row, and of such a run
 *    only the first line, one per change of error and one per 1000 failures
 *    are printed, then "read recovered after N failed reads".
 *  - Dump files (raw PCM, no header) "/tmp/PCM_rec<UTC stamp>.pcm",
 *    "/tmp/WW_rec<stamp>.pcm" and "/tmp/FFM_read_<stamp>.log" are created
 *    with mode 0644 per start; a start within the same second truncates the
 *    previous run's files.
 *  - Development builds only (CMake option ZOR_SIM_BOARD, off for the
 *    television): with ZOR_XMOS_DEVICE set to a Unix socket path, the board
 *    is the simulator listening there instead of "/dev/input/event0" and USB
 *    20B1:0018. The television's library has no such switch.
 */

/** The application is ready: sets the capture device "hw:<card>,<device>"
 * from `info` (u8Sup is not looked at) and starts the threads when the DSP
 * is ready already. */
ZOR_EXPORT void KEL_AVS_FFM_Init(_ST_FFM_INFO info);

/** The DSP's status: 1 ready (starts the threads when the application is
 * ready), 0 not ready (stops them when running); other values are only
 * printed. */
ZOR_EXPORT void KEL_AVS_FFM_NotifyAudDSPStatus(int status);

/** 1 starts the threads, any other value stops them, without a readiness
 * transition of its own. Returns 0, or -1 when a thread could not be
 * created; a start while either thread still exists is refused with a line
 * and returns 0. */
ZOR_EXPORT int KEL_AVS_FFM_TriggerCaptureData(int start);

/** The application wants far-field audio (true) or no more (false). After a
 * detection the PCM callback gets the keyword block, the backlog, then one
 * 640-byte call per period; after an action-button press live periods at
 * once. Ending a request writes a 512-byte separator record (32-bit 1, then
 * zeros) into the dump files. */
ZOR_EXPORT void KEL_AVS_FFM_TrigSendPCMData(bool send);

/** The assistant's action button: the next request streams live audio
 * without a keyword block. Ignored (with a line) while a press is pending or
 * its stream runs. */
ZOR_EXPORT void KEL_AVS_FFM_NotifyActionButtonPressed(void);

/** 1 opens the soft-microphone output and routes far-field audio to it while
 * no assistant request runs (wake words are then not reported to the
 * application, the notify-UI callback still is); other values stop it. */
ZOR_EXPORT void KEL_AVS_FFM_NotifyYTSoftMicStatus(int status);

/** Mode 1 (standby) stops the threads; other modes are only printed. */
ZOR_EXPORT void KEL_AVS_FFM_NotifyPowerStatus(int mode);

/** Store the callbacks (NULL removes one); they take effect from the next
 * period or detection. Wake word: called on "ffm_hid_det" with (8000,
 * 8000 + keyword length, "alexa", metadata length, metadata). */
ZOR_EXPORT void KEL_AVS_FFM_RegisterSendWakeWordDetectionSignalCallback(ZOR_PFN_WAKEWORD fn);
/** Notify-UI: called with no arguments on "ffm_hid_det" after each accepted
 * detection, the soft-microphone case included. */
ZOR_EXPORT void KEL_AVS_FFM_RegisterSendNotifyUIWakeWordDectCallback(ZOR_PFN_VOID fn);
/** PCM: called on "ffm_avs_cap" with 16 kHz mono S16_LE bytes. */
ZOR_EXPORT void KEL_AVS_FFM_RegisterffmsendAudioPCMDCallback(ZOR_PFN_PCM fn);

/* ---- Soft-microphone output ("hw:0,3") ------------------------------------- */

/**
 * @name Soft-microphone output
 * While the middleware reports the YouTube soft microphone active, the
 * far-field capture thread plays its mono periods into "hw:0,3". Set-up, start
 * and stop come from the server thread; they may be called from any thread and
 * are serialised against each other and against the capture thread's writes
 * (a stop or set-up waits for the period being written, at most one period).
 *
 * Failing writes drop their period. An underrun prepares the device again
 * without a line. Other errors print "short read, read <error> frames" (the
 * negative ALSA error) and are recovered where the device allows it (a
 * suspended device is resumed or prepared for the next period); a device
 * that keeps failing prints that line once, then one per change of error
 * and one per 1000 failures, and "write recovered after N failed writes"
 * once it takes a period again. A device that has gone stays open and fails
 * each period until the soft microphone is stopped. The writes are paced by
 * the capture thread's periods.
 * @{
 */

/** Parameters of the output, ALSA enumeration values. */
typedef struct {
    uint32_t u32Access;     /**< 3: interleaved read/write */
    uint32_t u32Format;     /**< 2: S16_LE */
    uint32_t u32Channels;   /**< 1 */
    uint32_t u32Rate;       /**< 16000; replaced by the rate the device gives */
    uint32_t u32PeriodSize; /**< 896 at load; every set-up sets 320 or what the device gives */
} _ST_ALSA_WRITE_PARAMS;

/** Read by each set-up and updated by it; change it only while no set-up runs. */
ZOR_EXPORT extern _ST_ALSA_WRITE_PARAMS g_alsa_write_handle;

/** Opens and configures "hw:0,3" for playback (period 320 frames, buffer 8
 * periods). An output that is already open is drained and closed first, then
 * opened afresh, so two set-ups in a row leave one open device. Returns 0, or
 * -1 after printing the failing step; a device that failed to configure is
 * closed again, so no audio is written until a later set-up succeeds. */
ZOR_EXPORT int youtube_softmic_alsa_write_init(void);

/** Routes far-field audio to the output (when it is open) and holds back
 * wake-word reports. Does not open anything. */
ZOR_EXPORT void youtube_softmic_alsa_write_start(void);

/** Stops the routing; an open output is drained (what is queued plays out) and
 * closed. With the output closed it only clears the routing. */
ZOR_EXPORT void youtube_softmic_alsa_write_stop(void);
/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
