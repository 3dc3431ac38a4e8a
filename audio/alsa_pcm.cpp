// SPDX-License-Identifier: MIT
#include "audio/alsa_pcm.h"

namespace zor::audio
{

namespace
{

// One set-up in progress: the device, its parameter object, the path's lines
// and the first refusal that waits for the apply step.
class HwSetup
{
public:
    HwSetup(snd_pcm_t* pcm, snd_pcm_hw_params_t* hw, const PcmSetupLines& lines)
        : m_pcm(pcm), m_hw(hw), m_lines(lines)
    {
    }

    snd_pcm_t* pcm() const { return m_pcm; }
    snd_pcm_hw_params_t* hw() const { return m_hw; }
    const PcmSetupLines& lines() const { return m_lines; }
    int failure() const { return m_failure; }

    // Prints `text` under the path's prefix, unless the path has no such line.
    template <typename... Args> void say(int sourceLine, const char* text, Args... args) const
    {
        if (text != nullptr)
            log::line(m_lines.family, m_lines.function, sourceLine, text, args...);
    }

    // A step's ALSA result. False ends the set-up: the step failed and has a
    // line of its own. A refusal without a line is kept for the apply step.
    bool check(int result, const char* failedText, int sourceLine)
    {
        if (result >= 0)
            return true;
        if (failedText == nullptr) {
            if (m_deferred == 0)
                m_deferred = result;
            return true;
        }
        say(sourceLine, failedText, snd_strerror(result));
        m_failure = result;
        return false;
    }

    // Applies the parameters, unless a step without a line refused already.
    bool apply(int sourceLine)
    {
        const int result = m_deferred != 0 ? m_deferred : snd_pcm_hw_params(m_pcm, m_hw);
        if (result >= 0)
            return true;
        say(sourceLine, m_lines.applyFailed, snd_strerror(result));
        m_failure = result;
        return false;
    }

private:
    snd_pcm_t* m_pcm;
    snd_pcm_hw_params_t* m_hw;
    const PcmSetupLines& m_lines;
    int m_failure = 0;
    int m_deferred = 0;
};

int firstNumber(FirstNumber which, unsigned long asked, unsigned long granted)
{
    return static_cast<int>(which == FirstNumber::Asked ? asked : granted);
}

bool setLayout(HwSetup& s, const PcmRequest& request)
{
    const PcmSetupLines& lines = s.lines();
    return s.check(snd_pcm_hw_params_any(s.pcm(), s.hw()), lines.anyFailed, __LINE__) &&
           s.check(snd_pcm_hw_params_set_access(s.pcm(), s.hw(), request.access),
                   lines.accessFailed, __LINE__) &&
           s.check(snd_pcm_hw_params_set_format(s.pcm(), s.hw(), request.format),
                   lines.formatFailed, __LINE__) &&
           s.check(snd_pcm_hw_params_set_channels(s.pcm(), s.hw(), request.channels),
                   lines.channelsFailed, __LINE__);
}

// Drivers mostly report a whole-value change with direction 0: a value other
// than the one asked for is an adjustment too. The direction is reset for the
// next near setter.
bool setRate(HwSetup& s, const PcmRequest& request, PcmGranted& granted, int& dir)
{
    const PcmSetupLines& lines = s.lines();
    unsigned rate = request.rate;
    dir = 0;
    if (!s.check(snd_pcm_hw_params_set_rate_near(s.pcm(), s.hw(), &rate, &dir), lines.rateFailed,
                 __LINE__))
        return false;
    granted.rate = rate;
    if (dir != 0 || rate != request.rate) {
        s.say(__LINE__, lines.rateAdjusted, lines.function,
              firstNumber(lines.adjustedFirst, request.rate, rate), static_cast<int>(rate));
        dir = 0;
    }
    unsigned bufferTime = 0;
    if (lines.bufferTimeMax != nullptr) {
        snd_pcm_hw_params_get_buffer_time_max(s.hw(), &bufferTime, nullptr);
        s.say(__LINE__, lines.bufferTimeMax, bufferTime);
    }
    return true;
}

bool setPeriod(HwSetup& s, const PcmRequest& request, PcmGranted& granted, int& dir)
{
    const PcmSetupLines& lines = s.lines();
    snd_pcm_uframes_t period = request.periodFrames;
    s.say(__LINE__, lines.periodAsked, lines.function, static_cast<int>(period));
    if (!s.check(snd_pcm_hw_params_set_period_size_near(s.pcm(), s.hw(), &period, &dir),
                 lines.periodFailed, __LINE__))
        return false;
    granted.periodFrames = period;
    if (dir != 0 || period != request.periodFrames) {
        s.say(__LINE__, lines.periodAdjusted, lines.function,
              firstNumber(lines.adjustedFirst, request.periodFrames, period),
              static_cast<int>(period));
        dir = 0;
    }
    if (request.periodsPerBuffer == 0)
        return true;
    granted.bufferFrames = request.periodsPerBuffer * period;
    snd_pcm_uframes_t buffer = granted.bufferFrames;
    return s.check(snd_pcm_hw_params_set_buffer_size_near(s.pcm(), s.hw(), &buffer),
                   lines.bufferFailed, __LINE__);
}

// What the applied configuration holds, and the block that shows it beside
// what was asked.
void readBack(const HwSetup& s, const PcmRequest& request, PcmGranted& granted)
{
    snd_pcm_hw_params_t* hw = s.hw();
    snd_pcm_access_t access = request.access;
    snd_pcm_format_t format = request.format;
    unsigned channels = 0;
    int rateDir = 0;
    int periodDir = 0;
    int timeDir = 0;
    snd_pcm_uframes_t buffer = 0;
    snd_pcm_hw_params_get_access(hw, &access);
    snd_pcm_hw_params_get_format(hw, &format);
    snd_pcm_hw_params_get_channels(hw, &channels);
    snd_pcm_hw_params_get_rate(hw, &granted.appliedRate, &rateDir);
    snd_pcm_hw_params_get_period_size(hw, &granted.appliedPeriodFrames, &periodDir);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);
    snd_pcm_hw_params_get_period_time(hw, &granted.periodTimeUs, &timeDir);

    const PcmSetupLines& lines = s.lines();
    const char* end = lines.settingsEnd;
    if (end == nullptr)
        return;
    const int period = static_cast<int>(granted.periodFrames);
    s.say(__LINE__, "***********%s************%s", lines.function, end);
    s.say(__LINE__, "%d access_mode=%d%s", static_cast<int>(request.access),
          static_cast<int>(access), end);
    s.say(__LINE__, "%d sample_format=%d%s", static_cast<int>(request.format),
          static_cast<int>(format), end);
    s.say(__LINE__, "%d channels=%d%s", static_cast<int>(request.channels),
          static_cast<int>(channels), end);
    s.say(__LINE__, "%d sampling_rate=%d, dir=%d%s",
          firstNumber(lines.settingsRate, request.rate, granted.rate),
          static_cast<int>(granted.appliedRate), rateDir, end);
    s.say(__LINE__, "%d period=%d, dir=%d%s", period, static_cast<int>(granted.appliedPeriodFrames),
          periodDir, end);
    s.say(__LINE__, "%d buffer=%d, dir=%d%s", period, static_cast<int>(buffer), periodDir, end);
    s.say(__LINE__, "************************%s", end);
}

} // namespace

int setUpPcmHardware(snd_pcm_t* pcm, const PcmRequest& request, const PcmSetupLines& lines,
                     PcmGranted& granted)
{
    snd_pcm_hw_params_t* raw = nullptr;
    const int allocated = snd_pcm_hw_params_malloc(&raw);
    const HwParams hw(raw);
    if (allocated < 0) {
        // Nothing can go on without the object, whatever the path's lines.
        const char* text = lines.allocFailed != nullptr ? lines.allocFailed : lines.applyFailed;
        if (text != nullptr)
            log::line(lines.family, lines.function, __LINE__, text, snd_strerror(allocated));
        return allocated;
    }

    HwSetup setup(pcm, hw.get(), lines);
    int dir = 0;
    if (setLayout(setup, request) && setRate(setup, request, granted, dir) &&
        setPeriod(setup, request, granted, dir) && setup.apply(__LINE__))
        readBack(setup, request, granted);
    return setup.failure();
}

} // namespace zor::audio
