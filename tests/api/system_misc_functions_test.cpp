// SPDX-License-Identifier: MIT
// System-, miscellaneous- and voice-control-class functions: argument limits,
// messages, what is sent and what reaches the caller.
#include "tests/api/api_test.h"

#include <cstring>
#include <functional>
#include <vector>

using namespace zor::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace
{

using SystemFunctionsTest = ApiTest;
using MiscFunctionsTest = ApiTest;
using VoiceControlFunctionsTest = ApiTest;

TEST_F(SystemFunctionsTest, OneValueSettersAndCommandsWithoutData)
{
    EXPECT_EQ(ZOR_App_SetPowerControl(true), 0);
    EXPECT_EQ(onlyRequest(0x18060001), hex("01"));
    middleware().reset();
    EXPECT_EQ(ZOR_App_SetIOTCertificate(0xAB), 0);
    EXPECT_EQ(onlyRequest(0x18060003), hex("AB"));
    middleware().reset();
    EXPECT_EQ(ZOR_App_SetModes(0x11223344), 0);
    EXPECT_EQ(onlyRequest(0x1806000A), hex("44 33 22 11"));
    middleware().reset();
    middleware().setDefaultReply({-9, {}});
    EXPECT_EQ(ZOR_App_SetUSBSource(), -9);
    EXPECT_EQ(onlyRequest(0x18060002), Bytes{});
    middleware().reset();
    EXPECT_EQ(ZOR_App_restartCurrentFVPProgram(), 0);
    EXPECT_EQ(onlyRequest(0x18060009), Bytes{});
}

TEST_F(SystemFunctionsTest, EnvironmentIsTheCallersByte)
{
    middleware().setDefaultReply({-2, hex("07")});
    unsigned char env = 0;
    EXPECT_EQ(ZOR_App_GetEnvironment(&env), -2);
    EXPECT_EQ(env, 7);
    middleware().reset();
    EXPECT_EQ(ZOR_App_GetEnvironment(nullptr), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(SystemFunctionsTest, FirmwareVersionIsCutAt33BytesWithoutTerminator)
{
    middleware().setDefaultReply({0, repeat('V', 40)});
    char version[40];
    memset(version, 'x', sizeof(version));
    EXPECT_EQ(ZOR_App_GetFWversion(version), 0);
    EXPECT_EQ(std::string(version, 33), std::string(33, 'V'));
    EXPECT_EQ(version[33], 'x');

    middleware().setDefaultReply({-1, field("1.2", 40)});
    memset(version, 'x', sizeof(version));
    EXPECT_EQ(ZOR_App_GetFWversion(version), -1);
    EXPECT_EQ(Bytes(version, version + 34), text("1.2") + zeros(30) + text("x"));

    // A null buffer: -1 and nothing sent; its line is an error line, so
    // level 0 prints nothing.
    middleware().reset();
    int result = 0;
    EXPECT_EQ(printedAtLevel(0, [&] { result = ZOR_App_GetFWversion(nullptr); }), "");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(refused([&] { return ZOR_App_GetFWversion(nullptr); },
                        gatedLine("ZOR_App_GetFWversion", "version is NULL")));
    EXPECT_TRUE(sent().empty());
}

TEST_F(SystemFunctionsTest, SettersAndCommandsWithoutDataPrintTheirOwnTraceLines)
{
    const struct {
        std::function<int()> call;
        const char* function;
        unsigned id;
        Bytes request;
    } cases[] = {
        {[] { return ZOR_App_SetPowerControl(false); }, "ZOR_App_SetPowerControl", 0x18060001,
         hex("00")},
        {[] { return ZOR_App_SetUSBSource(); }, "ZOR_App_SetUSBSource", 0x18060002, {}},
        {[] { return ZOR_App_SetIOTCertificate(7); }, "ZOR_App_SetIOTCertificate", 0x18060003,
         hex("07")},
        {[] { return ZOR_App_restartCurrentFVPProgram(); },
         "ZOR_App_restartCurrentFVPProgram",
         0x18060009,
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        middleware().reset();
        const std::string output = printedAtLevel(8, [&] { EXPECT_EQ(c.call(), 0); });
        EXPECT_THAT(output, ContainsRegex("^" + gatedLine(c.function, "<===")));
        EXPECT_THAT(output, ContainsRegex(gatedLine(c.function, "===>") + "$"));
        EXPECT_EQ(onlyRequest(c.id), c.request);
    }
}

TEST_F(SystemFunctionsTest, FvpTextsAtTheirFieldSizes)
{
    std::string path(1027, 'p');
    EXPECT_EQ(ZOR_App_showFVPRecommendation(&path[0]), 0);
    EXPECT_EQ(onlyRequest(0x18060006), repeat('p', 1027) + zeros(1));
    middleware().reset();
    EXPECT_EQ(ZOR_App_showFVPCollection(&path[0]), 0);
    EXPECT_EQ(onlyRequest(0x18060007), repeat('p', 1027) + zeros(1));

    middleware().reset();
    std::string tooLong(1028, 'p');
    EXPECT_TRUE(
        refused([&] { return ZOR_App_showFVPRecommendation(&tooLong[0]); },
                argLine("ZOR_App_showFVPRecommendation", "Then length of path is out of range")));
    EXPECT_TRUE(refused(
        [&] { return ZOR_App_showFVPCollection(&tooLong[0]); },
        argLine("ZOR_App_showFVPCollection", "Then length of collectionCrid is out of range")));
    EXPECT_TRUE(refused([&] { return ZOR_App_showFVPRecommendation(nullptr); },
                        "^\\[ZOR_App_showFVPRecommendation\\(\\): [0-9]+\\]path is NULL\n\n$"));
    EXPECT_TRUE(
        refused([&] { return ZOR_App_showFVPCollection(nullptr); },
                "^\\[ZOR_App_showFVPCollection\\(\\): [0-9]+\\]collectionCrid is NULL\n\n$"));

    std::string first63(63, 'f'), first64(64, 'f'), second1023(1023, 's'), second1024(1024, 's');
    EXPECT_TRUE(
        refused([&] { return ZOR_App_TuneToFVPProgram(&first64[0], &second1023[0]); },
                argLine("ZOR_App_TuneToFVPProgram", "Then length of first is out of range")));
    EXPECT_TRUE(
        refused([&] { return ZOR_App_TuneToFVPProgram(&first63[0], &second1024[0]); },
                argLine("ZOR_App_TuneToFVPProgram", "Then length of second is out of range")));
    EXPECT_TRUE(refused([&] { return ZOR_App_TuneToFVPProgram(nullptr, &second1023[0]); },
                        argLine("ZOR_App_TuneToFVPProgram", "first or second is NULL")));
    EXPECT_EQ(ZOR_App_TuneToFVPProgram(&first63[0], nullptr), -1);
    EXPECT_TRUE(sent().empty());

    EXPECT_EQ(ZOR_App_TuneToFVPProgram(&first63[0], &second1023[0]), 0);
    EXPECT_EQ(onlyRequest(0x18060008), repeat('f', 63) + zeros(1) + repeat('s', 1023) + zeros(1));
}

TEST_F(SystemFunctionsTest, TokenIsSentCutAt2048WithTheCallersLength)
{
    std::string abc = "abc";
    EXPECT_EQ(ZOR_App_SetAVSToken(&abc[0], 3), 0);
    EXPECT_EQ(onlyRequest(0x1806000B), hex("61 62 63") + zeros(4093) + hex("03 00 00 00"));

    for (size_t length : {2047u, 2048u, 2049u, 4000u}) {
        SCOPED_TRACE(length);
        middleware().reset();
        std::string token(length, 't');
        EXPECT_EQ(ZOR_App_SetAVSToken(&token[0], -2), 0);
        const size_t sentChars = length < 2048 ? length : 2048;
        EXPECT_EQ(onlyRequest(0x1806000B),
                  repeat('t', sentChars) + zeros(4096 - sentChars) + hex("FE FF FF FF"));
    }

    middleware().reset();
    EXPECT_TRUE(refused([&] { return ZOR_App_SetAVSToken(nullptr, 3); },
                        "^\\[ZOR_App_SetAVSToken\\(\\): [0-9]+\\]avsToken is NULL\n\n$"));
    EXPECT_TRUE(sent().empty());
}

TEST_F(SystemFunctionsTest, TokenFetchFollowsTheLengthField)
{
    std::vector<char> token(4098, 'x');
    int length = -1;

    middleware().setDefaultReply({0, field("0123456789", 4096) + le32(4)});
    std::string out;
    out = printed([&] { EXPECT_EQ(ZOR_App_GetAVSToken(token.data(), &length), 0); });
    EXPECT_STREQ(token.data(), "0123");
    EXPECT_EQ(length, 4);
    EXPECT_THAT(out, ContainsRegex("^ length 4, 4, 0123, ppid [0-9]+, pid [0-9]+\n"));

    // A full field without terminator: 4096 characters and a terminator.
    middleware().setDefaultReply({0, repeat('T', 4096) + le32(4096)});
    std::fill(token.begin(), token.end(), 'x');
    printed([&] { EXPECT_EQ(ZOR_App_GetAVSToken(token.data(), &length), 0); });
    EXPECT_EQ(strlen(token.data()), 4096u);
    EXPECT_EQ(token[4097], 'x');

    // Length 0: -1 after both lines, also with status 0.
    middleware().setDefaultReply({0, field("abc", 4096) + le32(0)});
    out = printed([&] { EXPECT_EQ(ZOR_App_GetAVSToken(token.data(), &length), -1); });
    EXPECT_EQ(length, 0);
    EXPECT_THAT(out, ContainsRegex("\n ppid [0-9]+, pid [0-9]+\n$"));

    // A length field outside the token field is refused; nothing is delivered.
    for (int32_t bad : {4097, -1, INT32_MIN}) {
        SCOPED_TRACE(bad);
        middleware().setDefaultReply({0, field("abc", 4096) + le32(static_cast<uint32_t>(bad))});
        std::fill(token.begin(), token.end(), 'x');
        length = 77;
        EXPECT_EQ(ZOR_App_GetAVSToken(token.data(), &length), -1);
        EXPECT_EQ(length, 77);
        EXPECT_EQ(token[0], 'x');
    }

    middleware().reset();
    EXPECT_EQ(ZOR_App_GetAVSToken(nullptr, &length), -1);
    EXPECT_EQ(ZOR_App_GetAVSToken(token.data(), nullptr), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(SystemFunctionsTest, TimeZoneNeedsALengthAndStaysWithin1025Bytes)
{
    std::vector<char> zone(1026, 'x');
    middleware().setDefaultReply({0, longStrInfo("")});
    EXPECT_EQ(ZOR_App_GetTimeZone(zone.data()), -1);
    EXPECT_EQ(zone[0], 'x');

    middleware().setDefaultReply({-3, longStrInfo("Europe/Paris")});
    std::string out = printed([&] { EXPECT_EQ(ZOR_App_GetTimeZone(zone.data()), -3); });
    EXPECT_STREQ(zone.data(), "Europe/Paris");
    EXPECT_EQ(out, "ZOR_App_GetTimeZone Europe/Paris\n");

    middleware().setDefaultReply({0, repeat('Z', 1028) + le32(1028)});
    std::fill(zone.begin(), zone.end(), 'x');
    printed([&] { EXPECT_EQ(ZOR_App_GetTimeZone(zone.data()), 0); });
    EXPECT_EQ(strlen(zone.data()), 1024u);
    EXPECT_EQ(zone[1025], 'x');

    middleware().reset();
    EXPECT_EQ(ZOR_App_GetTimeZone(nullptr), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(SystemFunctionsTest, PortalApplicationSendsWhatFitsAndEmptiesTheRest)
{
    std::string portal = "portal";
    EXPECT_EQ(ZOR_App_LoadTevoraApp(&portal[0], nullptr), 0);
    EXPECT_EQ(onlyRequest(0x1806000F), strInfo("portal") + zeros(72));

    middleware().reset();
    std::string longId(65, 'i');
    std::string out = printed([&] { EXPECT_EQ(ZOR_App_LoadTevoraApp(&portal[0], &longId[0]), 0); });
    EXPECT_THAT(
        out, ContainsRegex("^\\[ZOR_App_LoadTevoraApp\\(\\): [0-9]+\\]ZOR_App_LoadTevoraApp "
                           "line:[0-9]+ Then length of appid\\(65\\) is out of range\\(64\\)\n\n"));
    EXPECT_EQ(onlyRequest(0x1806000F), strInfo("portal") + zeros(72));

    middleware().reset();
    std::string id64(64, 'i');
    EXPECT_EQ(ZOR_App_LoadTevoraApp(nullptr, &id64[0]), 0);
    EXPECT_EQ(onlyRequest(0x1806000F), zeros(72) + strInfo(id64));

    middleware().reset();
    EXPECT_EQ(ZOR_App_LoadTevoraApp(nullptr, nullptr), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(MiscFunctionsTest, StringLimitsOfTheMiscellaneousFunctions)
{
    struct Case {
        const char* function;
        const char* argument;
        size_t limit;
        std::function<int(char*)> call;
        unsigned int id;
    };
    const Case cases[] = {
        {"ZOR_App_SendPlaybackCtrl", "ps_command", 1024,
         [](char* s) { return ZOR_App_SendPlaybackCtrl(s); }, 0x18070001},
        {"ZOR_App_Inject_RC_Key", "ps_key", 64, [](char* s) { return ZOR_App_Inject_RC_Key(s); },
         0x18070007},
        {"ZOR_App_StartSmartTVApp", "appName", 64,
         [](char* s) { return ZOR_App_StartSmartTVApp(s, nullptr, 0); }, 0x18070004},
        {"ZOR_App_StartSmartTVApp", "command", 1024,
         [](char* s) { return ZOR_App_StartSmartTVApp(const_cast<char*>("app"), s, 0); },
         0x18070004},
        {"ZOR_App_StartUIControl", "ps_name", 64,
         [](char* s) { return ZOR_App_StartUIControl(s, const_cast<char*>("sub")); }, 0x18070005},
        {"ZOR_App_StartUIControl", "ps_subCommand", 1024,
         [](char* s) { return ZOR_App_StartUIControl(const_cast<char*>("n"), s); }, 0x18070005},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.function << " " << c.argument);
        middleware().reset();
        std::string fits(c.limit, 'a');
        EXPECT_EQ(c.call(&fits[0]), 0);
        EXPECT_EQ(sent().size(), 1u);

        middleware().reset();
        std::string tooLong(c.limit + 1, 'a');
        EXPECT_TRUE(refused(
            [&] { return c.call(&tooLong[0]); },
            argLine(c.function, std::string("Then length of ") + c.argument + " is out of range")));
        EXPECT_TRUE(sent().empty());
    }
}

TEST_F(MiscFunctionsTest, NullArgumentsAreRefusedWithTheirMessages)
{
    unsigned int length = 10;
    char buffer[10];
    expectRefused({
        {[] { return ZOR_App_SendPlaybackCtrl(nullptr); }, "ZOR_App_SendPlaybackCtrl",
         "ps_command is NULL"},
        {[&] { return ZOR_App_GetCertificate(nullptr, &length); }, "ZOR_App_GetCertificate",
         "buffer or ui4_bufLen is NULL"},
        {[&] { return ZOR_App_GetCertificate(buffer, nullptr); }, "ZOR_App_GetCertificate",
         "buffer or ui4_bufLen is NULL"},
        {[] { return ZOR_App_GetOptionBit(nullptr); }, "ZOR_App_GetOptionBit", " optionGA is NULL"},
        {[] { return ZOR_App_GetWallglowOptionBit(nullptr); }, "ZOR_App_GetWallglowOptionBit",
         "option is NULL"},
        {[] { return ZOR_App_StartSmartTVApp(nullptr, nullptr, 0); }, "ZOR_App_StartSmartTVApp",
         "appName is NULL"},
        {[] { return ZOR_App_StartUIControl(nullptr, nullptr); }, "ZOR_App_StartUIControl",
         "ps_name is NULL"},
        {[] { return ZOR_App_GetActiveApp(nullptr); }, "ZOR_App_GetActiveApp", "pt_value is NULL"},
        {[] { return ZOR_App_Inject_RC_Key(nullptr); }, "ZOR_App_Inject_RC_Key", "ps_key is NULL"},
    });
}

TEST_F(MiscFunctionsTest, RequestsOfTheStartFunctions)
{
    std::string command(1024, 'k');
    EXPECT_EQ(ZOR_App_SendPlaybackCtrl(command.c_str()), 0);
    EXPECT_EQ(onlyRequest(0x18070001), repeat('k', 1024) + zeros(4) + hex("00 04 00 00"));

    middleware().reset();
    EXPECT_EQ(ZOR_App_StartSmartTVApp(const_cast<char*>("abc"), nullptr, 7), 0);
    EXPECT_EQ(onlyRequest(0x18070004),
              zeros(1032) + text("abc") + zeros(65) + hex("03 00 00 00") + hex("07 00 00 00"));

    middleware().reset();
    EXPECT_EQ(ZOR_App_StartUIControl(const_cast<char*>("menu"), nullptr), 0);
    EXPECT_EQ(onlyRequest(0x18070005), zeros(1032) + strInfo("menu"));

    middleware().reset();
    std::string key(64, 'K');
    EXPECT_EQ(ZOR_App_Inject_RC_Key(key.c_str()), 0);
    EXPECT_EQ(onlyRequest(0x18070007), repeat('K', 64) + zeros(4) + le32(64));
}

TEST_F(MiscFunctionsTest, YoutubeIdIsCutAt1024AndANullIdSendsNothing)
{
    std::string id(2000, 'y');
    EXPECT_EQ(ZOR_App_StartYoutubeVideo(&id[0], -1), 0);
    EXPECT_EQ(onlyRequest(0x18070008),
              repeat('y', 1024) + zeros(4) + hex("00 04 00 00") + hex("FF FF FF FF"));

    middleware().reset();
    int result = -1;
    EXPECT_THAT(
        printed([&] { result = ZOR_App_StartYoutubeVideo(nullptr, 1); }),
        MatchesRegex("^\\[ZOR_App_StartYoutubeVideo\\(\\): [0-9]+\\]video_id is NULL\n\n$"));
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(sent().empty());
}

TEST_F(MiscFunctionsTest, CertificateIsBoundedByMaxLenAndByTheCallersBuffer)
{
    std::vector<char> buffer(6200, 'x');
    unsigned int length = 4096;
    middleware().setDefaultReply({-4, field("CERT", 6144) + le32(4)});
    printed([&] { EXPECT_EQ(ZOR_App_GetCertificate(buffer.data(), &length), -4); });
    EXPECT_EQ(onlyRequest(0x18070002), zeros(6144) + hex("00 10 00 00"));
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(std::string(buffer.data(), 5), "CERTx"); // no terminator added

    struct Case {
        unsigned int bufferLength;
        uint32_t replyLength;
        int result;
    };
    const Case cases[] = {
        {6144, 6144, 0},  // the largest certificate
        {6200, 6145, -1}, // longer than MAX_LEN
        {4096, 5000, -1}, // longer than the caller's buffer
        {5000, 5000, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bufferLength << " " << c.replyLength);
        middleware().reset();
        middleware().setDefaultReply({0, repeat('C', 6144) + le32(c.replyLength)});
        std::fill(buffer.begin(), buffer.end(), 'x');
        length = c.bufferLength;
        std::string out =
            printed([&] { EXPECT_EQ(ZOR_App_GetCertificate(buffer.data(), &length), c.result); });
        if (c.result == 0) {
            EXPECT_EQ(length, c.replyLength);
            EXPECT_EQ(std::string(buffer.data(), c.replyLength + 1),
                      std::string(c.replyLength, 'C') + "x");
        } else {
            EXPECT_EQ(length, c.bufferLength);
            EXPECT_EQ(buffer[0], 'x');
        }
        if (c.replyLength > 6144) {
            EXPECT_THAT(out, HasSubstr(" u32BufLen 6145 > MAX_LEN\n"));
        }
    }
}

TEST_F(MiscFunctionsTest, OptionReadersDeliverTheirBytesWhateverTheStatus)
{
    middleware().setDefaultReply({-6, hex("01 02 03 04 05")});
    char o[4] = {};
    EXPECT_EQ(ZOR_App_GetOptionBits(&o[0], &o[1], &o[2], &o[3]), -6);
    EXPECT_EQ(Bytes(o, o + 4), hex("01 02 03 04"));
    EXPECT_EQ(onlyRequest(0x18070003), Bytes{});
    bool ga = false;
    EXPECT_EQ(ZOR_App_GetOptionBit(&ga), -6);
    EXPECT_TRUE(ga);
    char wallglow = 0;
    EXPECT_EQ(ZOR_App_GetWallglowOptionBit(&wallglow), -6);
    EXPECT_EQ(wallglow, 5);
    EXPECT_EQ(ZOR_App_GetOptionBits(nullptr, nullptr, nullptr, nullptr), -6);

    middleware().setDefaultReply({0, hex("01 00 03 04 05")});
    EXPECT_EQ(ZOR_App_GetOptionBit(&ga), 0);
    EXPECT_FALSE(ga);

    // Nothing came back: zeros.
    middleware().setDefaultReply({0, {}});
    wallglow = 9;
    EXPECT_EQ(ZOR_App_GetWallglowOptionBit(&wallglow), 0);
    EXPECT_EQ(wallglow, 0);

    middleware().setDefaultReply({-2, le32(3)});
    EN_VOICECTRL_ACTIVE_APP app = 0;
    EXPECT_EQ(ZOR_App_GetActiveApp(&app), -2);
    EXPECT_EQ(app, 3);
}

TEST_F(VoiceControlFunctionsTest, BrowserCertificatesAndInit)
{
    std::string out = printed([] {
        EXPECT_EQ(ZOR_App_SetBrowserCertificates(const_cast<char*>("abc"), const_cast<char*>(""),
                                                 const_cast<char*>("defgh"),
                                                 const_cast<char*>("subject")),
                  0);
    });
    EXPECT_EQ(onlyRequest(0x18020021),
              hex("04 00 00 00 01 00 00 00 06 00 00 00 08 00 00 00 61 62 63 00 00 64 65 66 67 68 "
                  "00 73 75 62 6A 65 63 74 00"));
    EXPECT_EQ(out, "subjectname: 'subject'\nu32SubjectNameLen: '8'\nsubjectname: 'subject'\n");

    // A missing string is the encoder's to refuse: its error line only, and
    // nothing at all at level 0.
    char text[] = "x";
    for (int missing = 0; missing < 4; ++missing) {
        SCOPED_TRACE(missing);
        middleware().reset();
        char* args[4] = {text, text, text, text};
        args[missing] = nullptr;
        int result = 0;
        const auto call = [&] {
            result = ZOR_App_SetBrowserCertificates(args[0], args[1], args[2], args[3]);
        };
        EXPECT_EQ(printedAtLevel(0, call), "");
        EXPECT_EQ(result, -1);
        EXPECT_THAT(printed(call), MatchesRegex(gatedLine("_voiceCtrlSendTransact",
                                                          "certificate string is NULL\\.")));
        EXPECT_EQ(result, -1);
        EXPECT_THAT(
            printedAtLevel(9, call),
            MatchesRegex(
                gatedLine("ZOR_App_SetBrowserCertificates", "<===") +
                gatedLine("forwardCommand", "OXA_TV_CMD_CLASS_VOICE_CTRL") +
                gatedLine("_voiceCtrlSendTransact", "OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts") +
                gatedLine("_voiceCtrlSendTransact", "certificate string is NULL\\.") +
                gatedLine("ZOR_App_SetBrowserCertificates", "===>")));
        EXPECT_TRUE(sent().empty());
    }

    middleware().reset();
    middleware().setDefaultReply({-8, {}});
    EXPECT_EQ(ZOR_Voice_Ctrl_Init(), -8);
    EXPECT_EQ(onlyRequest(0x18020001), Bytes{});
}

} // namespace
