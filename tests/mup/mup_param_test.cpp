// SPDX-License-Identifier: MIT
// MUPParam's read rules, on which every status word of the library rests: a
// failed transmission leaves the reply empty and its status reads -1.
#include "mup/mup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

Bytes contents(const MUPParam& param)
{
    return Bytes(param.data(), param.data() + param.size());
}

struct ReadCase {
    const char* name;
    Bytes written;
    unsigned int skipped; // taken before the read under test
    unsigned int asked;
    int expectedCount;
    Bytes expectedCopy;     // the destination's first bytes afterwards
    unsigned int leftAfter; // remaining() afterwards
};

class ReadRule : public testing::TestWithParam<ReadCase>
{
};

TEST_P(ReadRule, CopiesAtMostWhatRemains)
{
    const ReadCase& c = GetParam();
    MUPParam param;
    if (!c.written.empty()) {
        ASSERT_EQ(param.write(c.written.data(), static_cast<unsigned int>(c.written.size())),
                  static_cast<int>(c.written.size()));
    }
    Bytes skipped(c.skipped);
    ASSERT_EQ(param.read(skipped.data(), c.skipped), static_cast<int>(c.skipped));

    // Guard bytes show that nothing beyond the copied count is touched.
    Bytes destination(c.asked + 4, 0xEE);
    EXPECT_EQ(param.read(destination.data(), c.asked), c.expectedCount);
    EXPECT_EQ(Bytes(destination.begin(), destination.begin() + c.expectedCopy.size()),
              c.expectedCopy);
    for (size_t i = c.expectedCopy.size(); i < destination.size(); ++i)
        EXPECT_EQ(destination[i], 0xEE) << "byte " << i << " written past the copied count";
    EXPECT_EQ(param.remaining(), c.leftAfter);
}

INSTANTIATE_TEST_SUITE_P(
    MUPParam, ReadRule,
    testing::Values(ReadCase{"Exact", {0x01, 0x02, 0x03}, 0, 3, 3, {0x01, 0x02, 0x03}, 0},
                    ReadCase{"Shorter", {0x01, 0x02, 0x03}, 0, 2, 2, {0x01, 0x02}, 1},
                    ReadCase{"PastEndCopiesTheRest", {0x01, 0x02, 0x03}, 1, 8, 2, {0x02, 0x03}, 0},
                    ReadCase{"EmptyBuffer", {}, 0, 4, 0, {}, 0},
                    ReadCase{"AllTakenAlready", {0xAA, 0xBB}, 2, 4, 0, {}, 0},
                    ReadCase{"ZeroCount", {0xAA}, 0, 0, 0, {}, 1}),
    [](const testing::TestParamInfo<ReadCase>& testCase) { return testCase.param.name; });

struct Int32Case {
    const char* name;
    Bytes written;
    unsigned int skipped;
    int expected;
    unsigned int leftAfter; // a failed readInt32 takes nothing
};

class ReadInt32Rule : public testing::TestWithParam<Int32Case>
{
};

TEST_P(ReadInt32Rule, NeedsFourBytes)
{
    const Int32Case& c = GetParam();
    MUPParam param;
    if (!c.written.empty())
        param.write(c.written.data(), static_cast<unsigned int>(c.written.size()));
    Bytes skipped(c.skipped);
    param.read(skipped.data(), c.skipped);

    EXPECT_EQ(param.readInt32(), c.expected);
    EXPECT_EQ(param.remaining(), c.leftAfter);
}

INSTANTIATE_TEST_SUITE_P(
    MUPParam, ReadInt32Rule,
    testing::Values(Int32Case{"EmptyReplyReadsFailedStatus", {}, 0, -1, 0},
                    Int32Case{"OneByteLeft", {0x05}, 0, -1, 1},
                    Int32Case{"TwoBytesLeft", {0x05, 0x00}, 0, -1, 2},
                    Int32Case{"ThreeBytesLeft", {0x05, 0x00, 0x00, 0x00}, 1, -1, 3},
                    Int32Case{"FourBytesLittleEndian", {0x1E, 0x00, 0x00, 0x00}, 0, 30, 0},
                    Int32Case{"Negative", {0xFE, 0xFF, 0xFF, 0xFF, 0x07}, 0, -2, 1},
                    Int32Case{"AfterOtherBytes", {0x09, 0x02, 0x01, 0x00, 0x00}, 1, 0x102, 0}),
    [](const testing::TestParamInfo<Int32Case>& testCase) { return testCase.param.name; });

TEST(MUPParamRoundTrip, IntegersAndBytesComeBackInOrder)
{
    MUPParam param;
    const Bytes text = {'v', 'o', 'l'};
    EXPECT_EQ(param.writeInt32(0), 4);
    EXPECT_EQ(param.writeInt32(-1), 4);
    EXPECT_EQ(param.write(text.data(), 3), 3);
    EXPECT_EQ(param.writeInt32(INT32_MAX), 4);
    EXPECT_EQ(param.writeInt32(INT32_MIN), 4);
    EXPECT_EQ(contents(param), (Bytes{0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 'v', 'o', 'l',
                                      0xFF, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0x80}));

    EXPECT_EQ(param.readInt32(), 0);
    EXPECT_EQ(param.readInt32(), -1);
    Bytes back(3);
    EXPECT_EQ(param.read(back.data(), 3), 3);
    EXPECT_EQ(back, text);
    EXPECT_EQ(param.readInt32(), INT32_MAX);
    EXPECT_EQ(param.readInt32(), INT32_MIN);
    EXPECT_EQ(param.readInt32(), -1);
}

TEST(MUPParamEdges, BadArgumentsChangeNothing)
{
    MUPParam param;
    param.writeInt32(7);
    EXPECT_EQ(param.write(nullptr, 4), -1);
    EXPECT_EQ(param.write(nullptr, 0), 0);
    EXPECT_EQ(param.size(), 4u);
    EXPECT_EQ(param.read(nullptr, 4), 0);
    EXPECT_EQ(param.remaining(), 4u) << "a read into nothing takes nothing";
    EXPECT_EQ(param.readInt32(), 7);
}

TEST(MUPParamEdges, AssignAndClearRestartReading)
{
    MUPParam param;
    param.writeInt32(1);
    EXPECT_EQ(param.readInt32(), 1);

    const unsigned char frame[] = {0x2A, 0x00, 0x00, 0x00, 0x63};
    param.assign(frame, sizeof(frame));
    EXPECT_EQ(param.size(), 5u);
    EXPECT_EQ(param.remaining(), 5u);
    EXPECT_EQ(param.readInt32(), 42);

    param.clear();
    EXPECT_EQ(param.size(), 0u);
    EXPECT_EQ(param.remaining(), 0u);
    EXPECT_EQ(param.readInt32(), -1);
}

TEST(DefaultHandler, SaysItIsNotImplemented)
{
    OXAPC::C_OXAAVSServerHandler handler;
    MUPParam in;
    MUPParam out;
    testing::internal::CaptureStdout();
    const int result = handler.handleCommand(0x18040003, in, &out, 0);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(printed,
              "\n\033[1;5;33m[quill] This function 'C_OXAAVSServerHandler::handleCommand()'"
              " isn't implemented yet !!!\033[0m\n");
    EXPECT_EQ(out.size(), 0u);
}

} // namespace
