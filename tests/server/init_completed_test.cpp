// SPDX-License-Identifier: MIT
// The end of initialisation: the init-completed command always, and the
// far-field start only for the AVS application on a set with the microphone
// array; the pipeline's threads start once the DSP is ready as well.
#include "mup/mup.h"
#include "tests/server/inbound_harness.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

using namespace zor::test;
using testing::HasSubstr;
using testing::Not;

namespace
{

class Television : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int) override
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_ids.push_back(cmd);
        m_sizes.push_back(in.size());
        if (out)
            out->writeInt32(3);
        return 0;
    }
    std::vector<unsigned int> ids()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_ids;
    }
    void clear()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_ids.clear();
        m_sizes.clear();
    }

private:
    std::mutex m_lock;
    std::vector<unsigned int> m_ids;
    std::vector<unsigned int> m_sizes;
};

Television gTelevision;

class InitCompletedTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        usePrivateRuntimeDir("zor-init-completed");
        ASSERT_EQ(initAVSServer("oxa.kel.avs.client", &gTelevision), 0);
        ASSERT_EQ(ZOR_Common_Init(EN_ZOR_COMMON_APP_TYPE_AVS), 0);
    }
    void SetUp() override { gTelevision.clear(); }
};

// The tests build on each other: the far-field state lives for the process.
TEST_F(InitCompletedTest, WithoutFarFieldMicrophoneOnlyTheCommandIsSent)
{
    setFFMSup(_ST_FFM_INFO{2, 1, 2});
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_AVS), 3);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(gTelevision.ids(), std::vector<unsigned int>{0x18010001});
    EXPECT_THAT(output, Not(HasSubstr("Support FFM")));
    EXPECT_THAT(output, Not(HasSubstr("FFM_CAP_DEVICE")));
}

TEST_F(InitCompletedTest, GoogleAssistantNeverStartsTheFarFieldPipeline)
{
    setFFMSup(_ST_FFM_INFO{1, 1, 2});
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_GA), 3);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(gTelevision.ids(), std::vector<unsigned int>{0x18010001});
    EXPECT_THAT(output, Not(HasSubstr("Support FFM")));
}

TEST_F(InitCompletedTest, FarFieldRecordFromTheMiddlewareIsLoggedSigned)
{
    testing::internal::CaptureStdout();
    auto lines = sendInbound("oxa.kel.idtv.client", {"1001000e:01ff02"});
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(replyOf(lines[0]), "00000000");
    EXPECT_THAT(output, HasSubstr("u8Sup 1 c8CardID -1 c8DevID 2\n"));
}

TEST_F(InitCompletedTest, AvsWithFarFieldMicrophoneStartsThePipelineOnceTheDspIsReady)
{
    sendInbound("oxa.kel.idtv.client", {"1001000e:010102"});
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_initCompleted(EN_ZOR_COMMON_APP_TYPE_AVS), 3);
    auto lines = sendInbound("oxa.kel.idtv.client", {"10010010:01000000"});
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(gTelevision.ids(), std::vector<unsigned int>{0x18010001});
    EXPECT_THAT(output, HasSubstr("Support FFM, init...\n"));
    // The far-field control got the record's card 1 and device 2.
    EXPECT_THAT(output, HasSubstr("FFM_CAP_DEVICE = hw:1,2"));
    EXPECT_THAT(output, HasSubstr("FFM avs is ready, starting thread when xmos is ready!!!"));
    EXPECT_THAT(output, HasSubstr("FFM is all ready, starting...!!!"));
}

} // namespace
