// SPDX-License-Identifier: MIT
// What the audio paths do when a read or write fails: bring the stream back
// where the device allows it, retry at one attempt per period, and keep the
// log short while a device keeps failing.
#ifndef ZOR_AUDIO_PCM_FAILURES_H
#define ZOR_AUDIO_PCM_FAILURES_H

#include <alsa/asoundlib.h>

#include <cerrno>
#include <unistd.h>

namespace zor::audio
{

// Brings a stream back after a read or write failed with `error`: an overrun
// or underrun (-EPIPE) and a stream that was stopped are prepared again; a
// suspended one is resumed, or prepared when the device cannot resume (a
// device still waking up, -EAGAIN, is tried again at the next failure). A
// running stream and a device that has gone are left alone. Returns 0 or the
// ALSA error of the recovery.
inline int recoverPcm(snd_pcm_t* pcm, int error)
{
    const snd_pcm_state_t state = snd_pcm_state(pcm);
    if (state == SND_PCM_STATE_DISCONNECTED || error == -ENODEV || error == -ENXIO)
        return 0;
    if (state == SND_PCM_STATE_SUSPENDED || error == -ESTRPIPE) {
        const int resumed = snd_pcm_resume(pcm);
        if (resumed == 0 || resumed == -EAGAIN)
            return resumed;
        return snd_pcm_prepare(pcm);
    }
    if (error == -EPIPE || state == SND_PCM_STATE_XRUN || state == SND_PCM_STATE_SETUP)
        return snd_pcm_prepare(pcm);
    return 0;
}

// A run of failed transfers on one device, from the first failure to the
// next good transfer. The first failure after a good transfer is retried at
// once (after an overrun the next read waits for the device anyway); each
// further one first waits one period, so a device that keeps failing costs
// one attempt per period instead of a spinning thread. Of a run's lines, the
// first, one for each change of error and one per kLineEvery failures are
// printed; the run's end reports what was held back.
class FailureRun
{
public:
    static constexpr unsigned kLineEvery = 1000;

    // The pause between retries: one period of `frames` at `rate`, at most
    // one second (a stop request waits for it).
    void setPeriod(unsigned long frames, unsigned rate)
    {
        const unsigned long long us =
            rate != 0 ? static_cast<unsigned long long>(frames) * 1000000ULL / rate : 0;
        m_pauseUs = static_cast<useconds_t>(us < 1000000 ? us : 1000000);
    }

    // Counts a failure with `error`; true when its line is due.
    bool lineDue(int error)
    {
        const bool due =
            m_failures == 0 || error != m_lastError || (m_failures + 1) % kLineEvery == 0;
        count(error);
        m_heldBack += due ? 0 : 1;
        return due;
    }

    // Counts a failure that prints no line of its own.
    void count(int error)
    {
        ++m_failures;
        m_lastError = error;
    }

    // Waits one period before the next attempt, unless this failure was the
    // first of its run.
    void pace() const
    {
        if (m_failures > 1 && m_pauseUs != 0)
            usleep(m_pauseUs);
    }

    // A good transfer ends the run. Returns the run's failures when some of
    // its lines were held back (the caller says so in one line), else 0.
    unsigned succeeded()
    {
        const unsigned report = m_heldBack != 0 ? m_failures : 0;
        m_failures = 0;
        m_heldBack = 0;
        m_lastError = 0;
        return report;
    }

    unsigned failures() const { return m_failures; }

private:
    unsigned m_failures = 0;
    unsigned m_heldBack = 0;
    int m_lastError = 0;
    useconds_t m_pauseUs = 0;
};

} // namespace zor::audio

#endif
