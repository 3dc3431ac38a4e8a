// SPDX-License-Identifier: MIT
// The far-field readiness and action-button state machines from the state
// at load, with the messages each event prints. No transition here starts
// the threads.
#include "audio/ffm_capture.h"
#include "audio/ffm_pipeline.h"
#include "zor/zor_audio.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <functional>
#include <regex>
#include <string>

namespace ffm = zor::audio::ffm;

namespace
{

// The messages of the far-field lines, prefixes removed.
std::string messages(const std::function<void()>& action)
{
    testing::internal::CaptureStdout();
    action();
    const std::string output = testing::internal::GetCapturedStdout();
    static const std::regex prefix(R"(\[AVS_FFM\]\[Line: [0-9]+\]\[[A-Za-z_]+\(\)\])");
    return std::regex_replace(output, prefix, "");
}

TEST(FfmControlTest, ReadinessWithoutBothPartiesNeverStarts)
{
    struct Step {
        const char* what;
        std::function<void()> event;
        ffm::Readiness state;
        const char* output;
    };
    const Step steps[] = {
        {"DSP ready from idle", [] { KEL_AVS_FFM_NotifyAudDSPStatus(1); }, ffm::Readiness::DspReady,
         "Status = 1, enInitComplete = 0\n\n"
         "FFM xmos is ready, starting thread when AVS is ready!!!\n\n"},
        {"DSP ready again", [] { KEL_AVS_FFM_NotifyAudDSPStatus(1); }, ffm::Readiness::DspReady,
         "Status = 1, enInitComplete = 2\n\n"
         "FFM xmos was ready, status isn't change(2)!!!\n\n"},
        {"DSP gone before the application", [] { KEL_AVS_FFM_NotifyAudDSPStatus(0); },
         ffm::Readiness::Idle,
         "Status = 0, enInitComplete = 2\n\n"
         "old Status: enNotifyActionButtonPressed=0, gSendFFMPCMDataDirectly=0\n\n"
         "FFM xmos was ready, change status to idle!!!\n\n"},
        {"unknown status", [] { KEL_AVS_FFM_NotifyAudDSPStatus(7); }, ffm::Readiness::Idle,
         "Status = 7, enInitComplete = 0\n\nnot define Status value\n\n"},
        {"application ready",
         [] {
             KEL_AVS_FFM_Init({1, 1, 2});
         },
         ffm::Readiness::ApplicationReady,
         "c8CardID = 1 c8CardID = 2 FFM_CAP_DEVICE = hw:0,0\n"
         "FFM_CAP_DEVICE = hw:1,2\n"
         "FFM avs is ready, starting thread when xmos is ready!!!\n\n"},
        {"application ready again, two-digit card",
         [] {
             KEL_AVS_FFM_Init({1, 12, 3});
         },
         ffm::Readiness::ApplicationReady,
         "c8CardID = 12 c8CardID = 3 FFM_CAP_DEVICE = hw:1,2\n"
         "FFM_CAP_DEVICE = hw:12,3\n"
         "FFM avs is ready, status isn't change(1)!!!\n\n"},
        {"DSP not ready in state 1", [] { KEL_AVS_FFM_NotifyAudDSPStatus(0); },
         ffm::Readiness::ApplicationReady,
         "Status = 0, enInitComplete = 1\n\n"
         "old Status: enNotifyActionButtonPressed=0, gSendFFMPCMDataDirectly=0\n\n"
         "FFM xmos is not ready, status isn't change(1)!!!\n\n"},
        {"power mode 0", [] { KEL_AVS_FFM_NotifyPowerStatus(0); }, ffm::Readiness::ApplicationReady,
         "power mode 0\n\n"},
    };
    ASSERT_EQ(ffm::readinessState(), ffm::Readiness::Idle) << "must run first in its process";
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(messages(step.event), step.output);
        EXPECT_EQ(ffm::readinessState(), step.state);
        EXPECT_EQ(ffm::captureState(), zor::audio::ThreadState::None);
        EXPECT_EQ(ffm::detectionState(), zor::audio::ThreadState::None);
    }
}

TEST(FfmControlTest, ActionButtonStates)
{
    struct Step {
        const char* what;
        std::function<void()> event;
        ffm::ActionButton state;
        bool direct;
    };
    using Button = ffm::ActionButton;
    const Step steps[] = {
        {"request with the button idle", [] { KEL_AVS_FFM_TrigSendPCMData(true); }, Button::Idle,
         false},
        {"request ends", [] { KEL_AVS_FFM_TrigSendPCMData(false); }, Button::Idle, false},
        {"press", [] { KEL_AVS_FFM_NotifyActionButtonPressed(); }, Button::Pressed, false},
        {"press again", [] { KEL_AVS_FFM_NotifyActionButtonPressed(); }, Button::Pressed, false},
        {"request", [] { KEL_AVS_FFM_TrigSendPCMData(true); }, Button::Streaming, true},
        {"press while streaming", [] { KEL_AVS_FFM_NotifyActionButtonPressed(); },
         Button::Streaming, true},
        {"request ends", [] { KEL_AVS_FFM_TrigSendPCMData(false); }, Button::StreamEnded, false},
        {"press after the stream", [] { KEL_AVS_FFM_NotifyActionButtonPressed(); }, Button::Pressed,
         false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        const std::string output = messages(step.event);
        EXPECT_EQ(ffm::buttonState(), step.state);
        EXPECT_EQ(ffm::sendingDirectly(), step.direct);
        if (std::string(step.what) == "press again") {
            EXPECT_NE(output.find("Alexa Action isn't idle\n\n"), std::string::npos);
        }
    }
    // A stop resets the button.
    KEL_AVS_FFM_TriggerCaptureData(0);
    EXPECT_EQ(ffm::buttonState(), Button::Idle);
    EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
}

// A capture read that fails because the device went away stops both
// threads; other read errors only print their line. The error code decides:
// the texts are the C library's and change with the locale.
TEST(FfmControlTest, ReadErrorsOfAGoneDeviceStopBothThreadsWhateverTheLocale)
{
    // Translated texts where the system has them; the codes hold anyway.
    const std::string oldLocale = setlocale(LC_ALL, nullptr);
    setenv("LANGUAGE", "de", 1);
    if (!setlocale(LC_ALL, "de_DE.UTF-8"))
        setlocale(LC_ALL, "C.UTF-8");

    using zor::audio::ThreadState;
    const struct {
        int error;
        bool stops;
    } cases[] = {
        {-ENODEV, true},  {-ENXIO, true},     {-EIO, false},    {-EPIPE, false},
        {-EBADFD, false}, {-ESTRPIPE, false}, {-EAGAIN, false}, {-EINTR, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        // No thread runs: the state words say both do. The action button is
        // pressed (or still is), which a stop resets.
        ffm::setThreadStates(ThreadState::Running);
        messages([] { KEL_AVS_FFM_NotifyActionButtonPressed(); });
        ASSERT_EQ(ffm::buttonState(), ffm::ActionButton::Pressed);

        const std::string output = messages([&] { ffm::kel_avs_ffm_capture_read_failed(c.error); });
        EXPECT_NE(output.find(std::string("error from read: ") + snd_strerror(c.error)),
                  std::string::npos)
            << output;
        EXPECT_EQ(ffm::kel_avs_ffm_device_gone(c.error), c.stops);
        const ThreadState thread = c.stops ? ThreadState::StopRequested : ThreadState::Running;
        EXPECT_EQ(ffm::captureState(), thread);
        EXPECT_EQ(ffm::detectionState(), thread);
        EXPECT_EQ(ffm::buttonState(),
                  c.stops ? ffm::ActionButton::Idle : ffm::ActionButton::Pressed);
        EXPECT_EQ(ffm::readinessState(), ffm::Readiness::ApplicationReady);
    }
    ffm::setThreadStates(ThreadState::None);
    KEL_AVS_FFM_TriggerCaptureData(0);
    setlocale(LC_ALL, oldLocale.c_str());
    unsetenv("LANGUAGE");
}

} // namespace
