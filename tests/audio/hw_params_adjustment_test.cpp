// Sound devices that grant another rate or period size than the one asked
// for. Real drivers mostly report such a whole-value change with direction
// 0; the capture and soft-microphone set-ups must notice it all the same,
// print their adjustment lines and go on with what was granted.
//
// The project's ALSA file devices take any rate and period, so this test
// plays the driver: it interposes ALSA's two "near" setters, asks the real
// ones for the value the driver would grant, and reports it with direction 0.
#include "audio/ffm_capture.h"
#include "tests/audio/alsa_sim.h"
#include "zor/zor_audio.h"

#include <alsa/asoundlib.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <regex>
#include <string>

namespace
{

// What the simulated driver grants; 0 grants what is asked.
std::atomic<unsigned> grantedRate{0};
std::atomic<unsigned long> grantedPeriod{0};

template <typename Fn> Fn realAlsa(const char* name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int snd_pcm_hw_params_set_rate_near(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                               unsigned int* val, int* dir)
{
    using Fn = int (*)(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned int*, int*);
    static const Fn real = realAlsa<Fn>("snd_pcm_hw_params_set_rate_near");
    const unsigned granted = grantedRate.load();
    if (granted != 0)
        *val = granted;
    const int result = real(pcm, params, val, dir);
    if (granted != 0 && dir != nullptr)
        *dir = 0;
    return result;
}

extern "C" int snd_pcm_hw_params_set_period_size_near(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                                      snd_pcm_uframes_t* val, int* dir)
{
    using Fn = int (*)(snd_pcm_t*, snd_pcm_hw_params_t*, snd_pcm_uframes_t*, int*);
    static const Fn real = realAlsa<Fn>("snd_pcm_hw_params_set_period_size_near");
    const unsigned long granted = grantedPeriod.load();
    if (granted != 0)
        *val = granted;
    const int result = real(pcm, params, val, dir);
    if (granted != 0 && dir != nullptr)
        *dir = 0;
    return result;
}

namespace
{

using namespace zor::test;
namespace ffm = zor::audio::ffm;

struct Adjustment {
    const char* what;
    unsigned rate;        // granted, 0: as asked
    unsigned long period; // granted, 0: as asked
};

void PrintTo(const Adjustment& adjustment, std::ostream* out)
{
    *out << adjustment.what;
}

const Adjustment kAdjustments[] = {
    {"nothing adjusted", 0, 0},
    {"rate", 22050, 0},
    {"period", 0, 256},
    {"rate and period", 48000, 960},
};

class HwParamsAdjustmentTest : public testing::TestWithParam<Adjustment>
{
protected:
    void SetUp() override
    {
        grantedRate = GetParam().rate;
        grantedPeriod = GetParam().period;
    }
    void TearDown() override
    {
        grantedRate = 0;
        grantedPeriod = 0;
    }

    // The messages of `function`'s far-field lines, prefixes removed.
    static std::string messagesOf(const std::string& output, const std::string& function)
    {
        const std::regex prefix("\\[AVS_FFM\\]\\[Line: [0-9]+\\]\\[" + function + "\\(\\)\\]");
        return std::regex_replace(output, prefix, "");
    }

    AlsaSim m_sim;
};

TEST_P(HwParamsAdjustmentTest, SoftMicrophoneKeepsAndPrintsWhatTheDeviceGranted)
{
    const Adjustment& a = GetParam();
    g_alsa_write_handle = {3, 2, 1, 16000, 896};
    testing::internal::CaptureStdout();
    ASSERT_EQ(youtube_softmic_alsa_write_init(), 0);
    youtube_softmic_alsa_write_stop();
    const std::string output =
        messagesOf(testing::internal::GetCapturedStdout(), "youtube_softmic_alsa_write_init");

    const unsigned rate = a.rate != 0 ? a.rate : 16000;
    const unsigned long period = a.period != 0 ? a.period : 320;
    EXPECT_EQ(g_alsa_write_handle.u32Rate, rate);
    EXPECT_EQ(g_alsa_write_handle.u32PeriodSize, period);
    const std::string rateLine = "youtube_softmic_alsa_write_init: hardware could not support "
                                 "sampling rate 16000 Hz, set " +
                                 std::to_string(rate) + " Hz\n";
    const std::string periodLine = "youtube_softmic_alsa_write_init: hardware could not support "
                                   "period size 320, set " +
                                   std::to_string(period) + "\n";
    EXPECT_EQ(output.find(rateLine) != std::string::npos, a.rate != 0) << output;
    EXPECT_EQ(output.find(periodLine) != std::string::npos, a.period != 0) << output;
    // The settings block shows what the device runs with; the buffer is
    // eight of the granted periods.
    EXPECT_NE(output.find(std::to_string(rate) + " sampling_rate=" + std::to_string(rate) + ","),
              std::string::npos)
        << output;
    EXPECT_NE(output.find(std::to_string(period) + " buffer=" + std::to_string(8 * period) + ","),
              std::string::npos)
        << output;
    g_alsa_write_handle = {3, 2, 1, 16000, 896};
}

TEST_P(HwParamsAdjustmentTest, FarFieldCaptureRunsWithTheGrantedPeriod)
{
    const Adjustment& a = GetParam();
    writeFile(m_sim.dir() + "/pcm1,0.in", Bytes(4096, 0));
    ffm::Params settings;
    settings.dumpDir = m_sim.dumpDir();
    settings.captureOpenAttempts = 1;
    ffm::_ST_FFM_CAPTURE_BUF_CFG cap;
    ffm::_ST_FFM_RING_BUF_CFG ring;
    testing::internal::CaptureStdout();
    const int result = ffm::kel_avs_ffm_alsa_capture_init(&cap, &ring, "hw:1,0", settings);
    const unsigned long frames = cap.frames;
    const uint32_t monoBytes = cap.u32MonoBufSize;
    ffm::kel_avs_ffm_alsa_capture_stop(&cap, &ring, "hw:1,0");
    const std::string output =
        messagesOf(testing::internal::GetCapturedStdout(), "kel_avs_ffm_alsa_capture_init");
    ASSERT_EQ(result, 0) << output;

    const unsigned long period = a.period != 0 ? a.period : 320;
    EXPECT_EQ(frames, period);
    EXPECT_EQ(monoBytes, 2 * period);
    const std::string rate = std::to_string(a.rate);
    EXPECT_EQ(output.find("kel_avs_ffm_alsa_capture_init: hardware could not support sampling "
                          "rate " +
                          rate + " Hz, set " + rate + " Hz\n") != std::string::npos,
              a.rate != 0)
        << output;
    const std::string size = std::to_string(period);
    EXPECT_EQ(output.find("kel_avs_ffm_alsa_capture_init: hardware could not support period "
                          "size " +
                          size + ", set " + size + "\n") != std::string::npos,
              a.period != 0)
        << output;
}

INSTANTIATE_TEST_SUITE_P(Devices, HwParamsAdjustmentTest, testing::ValuesIn(kAdjustments),
                         [](const testing::TestParamInfo<Adjustment>& info) {
                             std::string name = info.param.what;
                             for (char& c : name)
                                 if (c == ' ')
                                     c = '_';
                             return name;
                         });

} // namespace
