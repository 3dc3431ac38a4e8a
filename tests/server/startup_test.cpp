// SPDX-License-Identifier: MIT
// Starting the library per application type: which services it serves and
// connects to, and the types that start nothing.
#include "mup/mup.h"
#include "tests/server/inbound_harness.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dirent.h>
#include <mutex>
#include <regex>
#include <set>

using namespace zor::test;
using testing::HasSubstr;

namespace
{

// Plays the middleware's side of one client service: records the ids.
class Recorder : public OXAPC::C_OXAAVSServerHandler
{
public:
    int handleCommand(unsigned int cmd, MUPParam&, MUPParam* out, unsigned int) override
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_ids.push_back(cmd);
        if (out)
            out->writeInt32(0);
        return 0;
    }
    std::vector<unsigned int> ids()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_ids;
    }

private:
    std::mutex m_lock;
    std::vector<unsigned int> m_ids;
};

std::set<std::string> sockets(const std::string& dir)
{
    std::set<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name.substr(name.size() - 5) == ".sock")
                names.insert(name);
        }
        closedir(d);
    }
    return names;
}

class StartupTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_dir = usePrivateRuntimeDir("zor-startup"); }
    static std::string s_dir;
};

std::string StartupTest::s_dir;

TEST_F(StartupTest, TypesOutsideTheThreeStartNothing)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_Common_Init(static_cast<EN_ZOR_COMMON_APP_TYPE_T>(3)), -1);
    EXPECT_EQ(ZOR_Common_Init(static_cast<EN_ZOR_COMMON_APP_TYPE_T>(-1)), -1);
    const std::string silent = testing::internal::GetCapturedStdout();
    EXPECT_EQ(silent, "");

    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_Common_Init(static_cast<EN_ZOR_COMMON_APP_TYPE_T>(4)), -1);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_search(
        output, std::regex(R"(\[ZOR_Common_Init\(\): \d+\]over app type can support\n)")));
    EXPECT_TRUE(sockets(s_dir).empty());
}

TEST_F(StartupTest, EachTypeServesItsServerNameAndConnectsToItsClientName)
{
    const struct {
        EN_ZOR_COMMON_APP_TYPE_T type;
        const char* typeLine;
        const char* server;
        const char* client;
    } types[] = {
        {EN_ZOR_COMMON_APP_TYPE_AVS, "AVS App Type", "oxa.kel.idtv.client", "oxa.kel.avs.client"},
        {EN_ZOR_COMMON_APP_TYPE_GA, "GA App Type", "oxa.kel.idtv.client3", "oxa.kel.ga.client"},
        {EN_ZOR_COMMON_APP_TYPE_IOT, "IOT App Type", "oxa.kel.idtv.client2", "oxa.kel.iot.client"},
    };
    registerRecordingCallbacks();
    setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(9));
    for (const auto& t : types) {
        SCOPED_TRACE(t.typeLine);
        static Recorder recorders[3];
        Recorder& television = recorders[t.type];
        ASSERT_EQ(initAVSServer(t.client, &television), 0);

        testing::internal::CaptureStdout();
        EXPECT_EQ(ZOR_Common_Init(t.type), 0);
        const std::string output = testing::internal::GetCapturedStdout();
        // Type line, then the server's registration; the client opens last.
        EXPECT_TRUE(std::regex_search(
            output, std::regex(std::string(R"(\[ZOR_Common_Init\(\): \d+\])") + t.typeLine +
                               R"(\n\[initServer\(\): \d+\]<===\n\[initServer\(\): \d+\]===>\n)")))
            << output;
        EXPECT_EQ(sockets(s_dir).count(std::string(t.server) + ".sock"), 1u);

        // The client endpoint reaches the type's television service...
        ZOR_App_setUserSelectionChromeGlow(1);
        EXPECT_EQ(television.ids(), std::vector<unsigned int>{0x18010009});
        // ...and the middleware reaches the application under the server name.
        clearRecordedEvents();
        auto lines = sendInbound(t.server, {"10010001"});
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(replyOf(lines[0]), "00000000");
        EXPECT_EQ(eventTexts(recordedEvents()), std::vector<std::string>{"activate"});
    }
    setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
    setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);
}

TEST_F(StartupTest, GoogleAssistantInitDoesNothing)
{
    EXPECT_EQ(ZOR_GA_Init(), 0);
}

} // namespace
