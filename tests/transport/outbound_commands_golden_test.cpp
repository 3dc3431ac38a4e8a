// SPDX-License-Identifier: MIT
// Every outbound command of the voice-control, video, channel, system and
// miscellaneous classes on the wire: the request bytes for a representative
// record, and what the record holds after a reply with status 0, -1 and -5.
#include "tests/support/fake_middleware.h"
#include "tests/support/record_bytes.h"
#include "zor/zor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

using namespace zor::test;

namespace
{

enum class Holder {
    None,   // no record: a null pointer is passed
    Raw,    // the record's bytes
    List,   // a list holder over `count` elements of `elementSize`
    String, // a NUL-terminated string
    Certs,  // four strings
};

enum Rule { Unconditional, Guarded };

struct GoldenCase {
    const char* name;
    unsigned int id;
    Holder holder;
    Bytes record;  // Raw: the record before the call; String: the text
    Bytes request; // expected request bytes
    Bytes reply;   // reply fields after the status word
    Rule rule = Unconditional;
    uint32_t count = 0;
    size_t elementSize = 0;
};

const Bytes kChannel = channelInfo(101, 0x1001, 0x2002, 0x3003, 0x4004, 0x05060708, "BBC One");
const Bytes kChangeRequest = Bytes(kChannel.begin(), kChannel.begin() + 81) + zeros(7);
const Bytes kThreeChannels = channelInfo(1, 1, 2, 3, 4, 5, "One") +
                             channelInfo(2, 6, 7, 8, 9, 10, "Two") +
                             channelInfo(3, 11, 12, 13, 14, 15, "Three");
const Bytes kTwoSources = sourceInfo("HDMI1", "Console") + sourceInfo("TV", "Antenna");
const Bytes kSmartTv = longStrInfo("start --kids") + strInfo("netflix") + le32(7);
const Bytes kUiControl = longStrInfo("open") + strInfo("settings");
const Bytes kFilled = repeat(0xEE, 4);

std::vector<GoldenCase> goldenCases()
{
    return {
        // Class 2, voice control.
        {"VC_INIT", 0x18020001, Holder::None, {}, {}, {}},
        {"VC_SetWallglowState", 0x18020002, Holder::Raw, hex("01"), hex("01"), {}},
        {"VC_SetWallglowToFollow", 0x18020003, Holder::Raw, hex("07"), hex("07"), {}},
        {"VC_SetPowerControl", 0x18020004, Holder::Raw, hex("00"), hex("00"), {}},
        {"VC_GetChannelList",
         0x18020005,
         Holder::List,
         {},
         hex("03 00 00 00"),
         kThreeChannels,
         Guarded,
         3,
         84},
        {"VC_TuneToNextChannel", 0x18020006, Holder::None, {}, {}, {}},
        {"VC_TuneToPreviousChannel", 0x18020007, Holder::None, {}, {}, {}},
        {"VC_ChangeToChannel", 0x18020008, Holder::Raw, kChangeRequest, kChangeRequest, {}},
        {"VC_TuneToChannel", 0x18020009, Holder::Raw, hex("05 00 00 00"), hex("05 00 00 00"), {}},
        {"VC_SetUSBSource", 0x1802000A, Holder::None, {}, {}, {}},
        {"VC_TuneToInputSrc", 0x1802000B, Holder::Raw, strInfo("HDMI1"), strInfo("HDMI1"), {}},
        {"VC_SetMute", 0x1802000C, Holder::Raw, hex("01 00 00 00"), hex("01 00 00 00"), {}},
        {"VC_GetMute", 0x1802000D, Holder::Raw, zeros(4), zeros(4), hex("01 00 00 00")},
        {"VC_SetVolume", 0x1802000E, Holder::Raw, hex("1E 00 00 00"), hex("1E 00 00 00"), {}},
        {"VC_GetVolume", 0x1802000F, Holder::Raw, zeros(4), zeros(4), hex("19 00 00 00")},
        {"VC_GetMaxVolume", 0x18020010, Holder::Raw, zeros(4), zeros(4), hex("64 00 00 00")},
        {"VC_SendPlaybackCtrl",
         0x18020011,
         Holder::Raw,
         longStrInfo("pause"),
         longStrInfo("pause"),
         {}},
        {"VC_GetOptionBits", 0x18020013, Holder::Raw, repeat(0xEE, 5), {}, hex("01 02 03 04 05")},
        {"VC_StartSmartTVApp", 0x18020014, Holder::Raw, kSmartTv, kSmartTv, {}},
        {"VC_GetCurrentInputSrc", 0x18020015, Holder::Raw, zeros(72), zeros(72), strInfo("HDMI2")},
        {"VC_GetCurrentChannel", 0x18020016, Holder::Raw, repeat(0xEE, 84), {}, kChannel},
        {"VC_GetNumberofChannels", 0x18020017, Holder::Raw, kFilled, {}, hex("0C 00 00 00")},
        {"VC_StartUIControl", 0x18020018, Holder::Raw, kUiControl, kUiControl, {}},
        {"VC_GetInputSouceList",
         0x18020019,
         Holder::List,
         {},
         hex("02 00 00 00"),
         kTwoSources,
         Guarded,
         2,
         66},
        // Unlike its video twin, read whatever the status.
        {"VC_GetInputSouceListLen", 0x18020020, Holder::Raw, kFilled, {}, hex("04 00 00 00")},
        {"VC_SetBrowerCerts",
         0x18020021,
         Holder::Certs,
         {},
         hex("04 00 00 00 01 00 00 00 06 00 00 00 08 00 00 00") + text("abc") + hex("00") +
             hex("00") + text("defgh") + hex("00") + text("subject") + hex("00"),
         {}},

        // Class 3, video.
        {"VIDEO_SetWallglowState", 0x18030001, Holder::Raw, hex("01"), hex("01"), {}},
        {"VIDEO_SetWallglowToFollow", 0x18030002, Holder::Raw, hex("02"), hex("02"), {}},
        {"VIDEO_TuneToInputSrc", 0x18030003, Holder::Raw, strInfo("TV"), strInfo("TV"), {}},
        {"VIDEO_GetCurrentInputSrc", 0x18030004, Holder::Raw, zeros(72), zeros(72),
         strInfo("HDMI1")},
        {"VIDEO_GetInputSouceList",
         0x18030005,
         Holder::List,
         {},
         hex("02 00 00 00"),
         kTwoSources,
         Guarded,
         2,
         66},
        {"VIDEO_GetInputSouceListLen",
         0x18030006,
         Holder::Raw,
         kFilled,
         {},
         hex("04 00 00 00"),
         Guarded},
        {"VIDEO_GetPlayerStatus",
         0x18030007,
         Holder::Raw,
         hex("06 00 00 00"),
         {},
         hex("03 00 00 00")},
        {"VIDEO_SetPictureStyle",
         0x18030008,
         Holder::Raw,
         hex("09 00 00 00"),
         hex("09 00 00 00"),
         {}},

        // Class 5, channel.
        {"CHANNEL_GetChannelList",
         0x18050001,
         Holder::List,
         {},
         hex("03 00 00 00"),
         kThreeChannels,
         Guarded,
         3,
         84},
        {"CHANNEL_TuneToNextChannel", 0x18050002, Holder::None, {}, {}, {}},
        {"CHANNEL_TuneToPreviousChannel", 0x18050003, Holder::None, {}, {}, {}},
        {"CHANNEL_ChangeToChannel", 0x18050004, Holder::Raw, kChangeRequest, kChangeRequest, {}},
        {"CHANNEL_TuneToChannel",
         0x18050005,
         Holder::Raw,
         hex("07 00 00 00"),
         hex("07 00 00 00"),
         {}},
        {"CHANNEL_GetCurrentChannel", 0x18050006, Holder::Raw, repeat(0xEE, 84), {}, kChannel},
        {"CHANNEL_GetNumberofChannels", 0x18050007, Holder::Raw, kFilled, {}, hex("0C 00 00 00")},
        {"CHANNEL_TuneToLastTunedChannel", 0x18050008, Holder::None, {}, {}, {}},
        {"CHANNEL_StartFVPApp",
         0x18050009,
         Holder::Raw,
         field("http://fvp/ait.xml", 1024) + field("crid://bbc/1", 64),
         field("http://fvp/ait.xml", 1024) + field("crid://bbc/1", 64),
         {}},
        {"CHANNEL_TuneToFVPChannel",
         0x1805000A,
         Holder::Raw,
         strInfo("crid://a/b"),
         strInfo("crid://a/b"),
         {}},
        {"CHANNEL_TuneToChannel_2",
         0x1805000B,
         Holder::String,
         text("12"),
         hex("02 00 00 00 31 32"),
         {}},

        // Class 6, system.
        {"SYSTEM_SetPowerControl", 0x18060001, Holder::Raw, hex("01"), hex("01"), {}},
        {"SYSTEM_SetUSBSource", 0x18060002, Holder::None, {}, {}, {}},
        {"SYSTEM_SetIOTCertificate", 0x18060003, Holder::Raw, hex("2A"), hex("2A"), {}},
        {"SYSTEM_GetEnvironment", 0x18060004, Holder::Raw, hex("EE"), {}, hex("07")},
        {"SYSTEM_getFWversion", 0x18060005, Holder::Raw, repeat(0xEE, 40), {}, field("V1.2.3", 40)},
        {"SYSTEM_showFVPRecommendation",
         0x18060006,
         Holder::Raw,
         field("/rec/1", 1028),
         field("/rec/1", 1028),
         {}},
        {"SYSTEM_showFVPCollection",
         0x18060007,
         Holder::Raw,
         field("crid://c", 1028),
         field("crid://c", 1028),
         {}},
        {"SYSTEM_TuneToFVPProgram",
         0x18060008,
         Holder::Raw,
         field("a", 64) + field("b", 1024),
         field("a", 64) + field("b", 1024),
         {}},
        {"SYSTEM_restartCurrentFVPProgram", 0x18060009, Holder::None, {}, {}, {}},
        {"SYSTEM_SetCtrlMode", 0x1806000A, Holder::Raw, hex("03 00 00 00"), hex("03 00 00 00"), {}},
        {"SYSTEM_SetAVSToken",
         0x1806000B,
         Holder::Raw,
         text("abc") + zeros(4093) + le32(3),
         hex("61 62 63") + zeros(4093) + hex("03 00 00 00"),
         {}},
        {"SYSTEM_GetAVSToken",
         0x1806000C,
         Holder::Raw,
         repeat(0xEE, 4100),
         {},
         field("tok", 4096) + le32(3)},
        {"SYSTEM_GetTimeZone",
         0x1806000D,
         Holder::Raw,
         repeat(0xEE, 1032),
         {},
         longStrInfo("Europe/London")},
        {"SYSTEM_GetFFmicOption", 0x1806000E, Holder::Raw, hex("EE"), {}, hex("01")},
        {"SYSTEM_LoadTevoraApp",
         0x1806000F,
         Holder::Raw,
         strInfo("portal") + strInfo(""),
         strInfo("portal") + strInfo(""),
         {}},

        // Class 7, miscellaneous.
        {"MISC_SendPlaybackCtrl",
         0x18070001,
         Holder::Raw,
         longStrInfo("play"),
         longStrInfo("play"),
         {}},
        {"MISC_GetCertificate", 0x18070002, Holder::Raw, zeros(6144) + le32(4096),
         zeros(6144) + hex("00 10 00 00"), field("CERT", 6144) + le32(4)},
        {"MISC_GetOptionBits", 0x18070003, Holder::Raw, zeros(5), {}, hex("01 02 03 04 05")},
        {"MISC_StartSmartTVApp", 0x18070004, Holder::Raw, kSmartTv, kSmartTv, {}},
        {"MISC_StartUIControl", 0x18070005, Holder::Raw, kUiControl, kUiControl, {}},
        {"MISC_GetActiveApp", 0x18070006, Holder::Raw, hex("06 00 00 00"), {}, hex("02 00 00 00")},
        {"MISC_InjectRCKey", 0x18070007, Holder::Raw, strInfo("KEY_OK"), strInfo("KEY_OK"), {}},
        {"MISC_StartYoutubeVideo",
         0x18070008,
         Holder::Raw,
         longStrInfo("dQw4w9WgXcQ") + le32(1),
         longStrInfo("dQw4w9WgXcQ") + hex("01 00 00 00"),
         {}},
    };
}

// Both public list holders have this layout: the array, then the count.
struct ListHolder {
    void* items;
    uint32_t count;
};
static_assert(sizeof(ListHolder) == sizeof(_VOICECTRL_CHANNEL_LIST));
static_assert(offsetof(ListHolder, count) == offsetof(_VOICECTRL_SOURCE_LIST, u32SourceNum));

class OutboundGoldenTest : public testing::TestWithParam<int32_t>
{
protected:
    void SetUp() override { FakeMiddleware::instance().reset(); }
};

TEST_P(OutboundGoldenTest, RequestBytesAndRecordAfterTheReply)
{
    const int32_t status = GetParam();
    FakeMiddleware& middleware = FakeMiddleware::instance();
    for (const GoldenCase& c : goldenCases()) {
        SCOPED_TRACE(testing::Message() << c.name << " status " << status);
        middleware.reset();
        middleware.setDefaultReply({status, c.reply});

        Bytes record = c.record;
        Bytes items(c.count * c.elementSize, 0xEE);
        ListHolder holder{items.data(), c.count};
        std::string textArg(c.record.begin(), c.record.end());
        char data1[] = "abc", data2[] = "", data3[] = "defgh", subject[] = "subject";
        _VOICECTRL_BROWSER_CERT_INFO certs{data1, data2, data3, subject};

        void* cmd_data = nullptr;
        switch (c.holder) {
        case Holder::None:
            break;
        case Holder::Raw:
            cmd_data = record.data();
            break;
        case Holder::List:
            cmd_data = &holder;
            break;
        case Holder::String:
            cmd_data = &textArg[0];
            break;
        case Holder::Certs:
            cmd_data = &certs;
            break;
        }

        EXPECT_EQ(forwardCommand(static_cast<OXAPC::OXA_TV_CMD_ID>(c.id), cmd_data), status);
        const auto sent = middleware.exchanges();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0].cmd, c.id);
        EXPECT_EQ(sent[0].request, c.request);

        const bool readSkipped = c.rule == Guarded && status == -1;
        if (c.holder == Holder::Raw) {
            const Bytes expected = c.reply.empty() || readSkipped ? c.record : c.reply;
            EXPECT_EQ(record, expected);
        }
        if (c.holder == Holder::List) {
            const Bytes expected = readSkipped ? Bytes(items.size(), 0xEE) : c.reply;
            EXPECT_EQ(items, expected);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses, OutboundGoldenTest, testing::Values(0, -1, -5));

TEST(OutboundGoldenTableTest, CoversEveryOutboundIdOfTheFiveClasses)
{
    std::vector<unsigned int> ids;
    for (const GoldenCase& c : goldenCases())
        ids.push_back(c.id);
    // 26 voice-control, 8 video, 11 channel, 15 system and 8 miscellaneous commands.
    EXPECT_EQ(ids.size(), 68u);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

TEST(OutboundGoldenTableTest, NullRecordIsRefusedWithoutSending)
{
    FakeMiddleware& middleware = FakeMiddleware::instance();
    for (unsigned int id : {0x18020021u, 0x18030004u, 0x1805000Bu, 0x18060004u, 0x18070002u}) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        middleware.reset();
        EXPECT_EQ(forwardCommand(static_cast<OXAPC::OXA_TV_CMD_ID>(id), nullptr), -1);
        EXPECT_TRUE(middleware.exchanges().empty());
    }
}

TEST(OutboundGoldenTableTest, IdsWithoutCommandAreRefused)
{
    FakeMiddleware& middleware = FakeMiddleware::instance();
    middleware.reset();
    uint32_t word = 0;
    for (unsigned int id :
         {0x18020012u, 0x1802001Au, 0x18030009u, 0x1805000Cu, 0x18060010u, 0x18070009u}) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        EXPECT_EQ(forwardCommand(static_cast<OXAPC::OXA_TV_CMD_ID>(id), &word), -1);
    }
    EXPECT_TRUE(middleware.exchanges().empty());
}

} // namespace
