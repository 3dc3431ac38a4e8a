// SPDX-License-Identifier: MIT
// The dashboard's feed: what the page is shown of the television (never the
// token's text), how readers follow the events, and the waveform drawing.
#include "sim/dashboard_feed.h"
#include "sim/television.h"
#include "transport/command_table.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace zor::sim;
using namespace std::chrono_literals;

namespace
{

TEST(DashboardFeed, TokenTextIsHiddenInLogLines)
{
    const struct {
        const char* line;
        const char* shown;
    } cases[] = {
        {"[oxa.kel.avs.client] OXA_TV_CMD_ID_SYSTEM_SetAVSToken token=\"abc\" len=3 -> 0",
         "[oxa.kel.avs.client] OXA_TV_CMD_ID_SYSTEM_SetAVSToken token=<hidden> len=3 -> 0"},
        // Escaped quotes inside the text do not end it.
        {"X token=\"a\\\"b c\" len=4 -> 0", "X token=<hidden> len=4 -> 0"},
        // A long token is shown cut, with its length; all of it goes.
        {"X token=\"Atza|IwEB\"...(900 chars) len=900 -> 0", "X token=<hidden> len=900 -> 0"},
        {"X token=\"\" len=0 -> 0", "X token=<hidden> len=0 -> 0"},
        // Cut off at the end of the line.
        {"X token=\"unterminated", "X token=<hidden>"},
        // Other fields, and a quoted "token=" inside another text, stay.
        {"Y text=\"KEY_OK\" text_len=6 -> 0", "Y text=\"KEY_OK\" text_len=6 -> 0"},
        {"Y text=\"a token=\\\"b\" -> 0", "Y text=\"a token=\\\"b\" -> 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(redactedLine(c.line), c.shown);
    }
}

TEST(DashboardFeed, ViewShowsTheTokensPresenceOnly)
{
    TelevisionState state = defaultTelevision();
    state.avsToken = "SECRET-token-text";
    state.avsTokenLength = 17;
    state.currentChannel = 6;
    state.currentSource = 1;
    const nlohmann::json view = dashboardView(state);
    EXPECT_EQ(view.dump().find("SECRET"), std::string::npos);
    EXPECT_EQ(view["avsToken"], nlohmann::json({{"present", true}, {"length", 17}}));
    EXPECT_EQ(view["channel"], nlohmann::json({{"number", 7}, {"name", "Film4"}}));
    EXPECT_EQ(view["source"]["name"], "HDMI1");

    state.avsToken.clear();
    state.avsTokenLength = 0;
    state.currentChannel = 99; // past the list: no channel rather than a wrong one
    const nlohmann::json empty = dashboardView(state);
    EXPECT_EQ(empty["avsToken"]["present"], false);
    EXPECT_TRUE(empty["channel"].is_null());
}

// A command applied by the television shows on the feed as a state change and
// a log line, as the middleware handler reports it.
TEST(DashboardFeed, CommandsChangeTheStateReadersSee)
{
    Television television;
    DashboardFeed feed(television);
    DashboardFeed::Cursor cursor = feed.subscribe();
    std::vector<DashboardFeed::Event> events;
    nlohmann::json state;
    ASSERT_TRUE(feed.wait(cursor, 0ms, &events, &state));
    EXPECT_EQ(state["audio"]["volume"], 20);
    EXPECT_TRUE(events.empty());

    // Nothing new: the state is not sent again.
    ASSERT_TRUE(feed.wait(cursor, 0ms, &events, &state));
    EXPECT_TRUE(state.is_null());

    const unsigned char volume42[] = {0x2a, 0x00, 0x00, 0x00};
    const zor::wire::CommandRow* row = zor::wire::findCommand(0x18040003);
    ASSERT_NE(row, nullptr);
    television.apply(*row, volume42, sizeof(volume42));
    feed.publishLine("[oxa.kel.avs.client] SetVolume -> 0");

    ASSERT_TRUE(feed.wait(cursor, 0ms, &events, &state));
    EXPECT_EQ(state["audio"]["volume"], 42);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].name, "log");
    const auto entry = nlohmann::json::parse(events[0].data);
    EXPECT_EQ(entry["kind"], "command");
    EXPECT_EQ(entry["text"], "[oxa.kel.avs.client] SetVolume -> 0");

    // The page's own controls are logged but change no state.
    feed.publishControl("tap", "ok reply=0");
    ASSERT_TRUE(feed.wait(cursor, 0ms, &events, &state));
    EXPECT_TRUE(state.is_null());
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(nlohmann::json::parse(events[0].data)["text"], "tap -> ok reply=0");
}

TEST(DashboardFeed, NewReadersGetTheBacklogAndSlowReadersSkipWhatIsGone)
{
    Television television;
    DashboardFeed feed(television, 3);
    for (int i = 0; i < 5; ++i)
        feed.publishControl("c" + std::to_string(i), "ok");

    std::vector<DashboardFeed::Event> events;
    nlohmann::json state;
    DashboardFeed::Cursor late = feed.subscribe(2);
    ASSERT_TRUE(feed.wait(late, 0ms, &events, &state));
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(nlohmann::json::parse(events[0].data)["text"], "c3 -> ok");
    EXPECT_EQ(nlohmann::json::parse(events[1].data)["text"], "c4 -> ok");

    DashboardFeed::Cursor slow = feed.subscribe(0);
    for (int i = 5; i < 12; ++i)
        feed.publishControl("c" + std::to_string(i), "ok");
    ASSERT_TRUE(feed.wait(slow, 0ms, &events, &state));
    ASSERT_EQ(events.size(), 3u); // only three are kept
    EXPECT_EQ(nlohmann::json::parse(events[0].data)["text"], "c9 -> ok");
    ASSERT_TRUE(feed.wait(slow, 0ms, &events, &state));
    EXPECT_TRUE(events.empty());
}

TEST(DashboardFeed, PublishingAndClosingWakeAWaitingReader)
{
    Television television;
    DashboardFeed feed(television);
    DashboardFeed::Cursor cursor = feed.subscribe();
    std::vector<DashboardFeed::Event> events;
    nlohmann::json state;
    ASSERT_TRUE(feed.wait(cursor, 0ms, &events, &state)); // the first state

    auto woken = std::async(std::launch::async, [&] {
        std::vector<DashboardFeed::Event> got;
        nlohmann::json ignored;
        feed.wait(cursor, 60s, &got, &ignored);
        return got;
    });
    std::this_thread::sleep_for(20ms);
    feed.publishControl("activate", "ok reply=0");
    ASSERT_EQ(woken.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(woken.get().size(), 1u);

    auto closed = std::async(std::launch::async, [&] {
        std::vector<DashboardFeed::Event> got;
        nlohmann::json ignored;
        return feed.wait(cursor, 60s, &got, &ignored);
    });
    std::this_thread::sleep_for(20ms);
    feed.close();
    ASSERT_EQ(closed.wait_for(30s), std::future_status::ready);
    EXPECT_FALSE(closed.get());
}

TEST(DashboardFeed, UtteranceDrawingKeepsPeaksAndMarksInSeconds)
{
    FarFieldUtterance utterance;
    utterance.what = "alexa hello";
    utterance.rate = 16000;
    utterance.samples.assign(32000, 0);
    utterance.samples[100] = 32767;    // in the first bucket
    utterance.samples[16100] = -32768; // in the second
    utterance.keywordBegin = 8000;
    utterance.keywordEnd = 12000;
    const nlohmann::json view = utteranceView(utterance, 2);
    EXPECT_EQ(view["samples"], 32000);
    EXPECT_DOUBLE_EQ(view["seconds"].get<double>(), 2.0);
    EXPECT_EQ(view["max"], nlohmann::json({1.0, 0.0}));
    EXPECT_EQ(view["min"], nlohmann::json({0.0, -1.0}));
    EXPECT_DOUBLE_EQ(view["keywordBegin"].get<double>(), 0.5);
    EXPECT_DOUBLE_EQ(view["keywordEnd"].get<double>(), 0.75);
    EXPECT_TRUE(view["keyPress"].is_null());

    // Fewer samples than buckets: one pair a sample; none at all is empty.
    utterance.samples = {100, -100, 50};
    EXPECT_EQ(utteranceView(utterance, 800)["max"].size(), 3u);
    utterance.samples.clear();
    EXPECT_TRUE(utteranceView(utterance)["max"].empty());
}

} // namespace
