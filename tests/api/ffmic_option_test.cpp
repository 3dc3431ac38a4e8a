// SPDX-License-Identifier: MIT
// The far-field option file: what each kind of contents gives.
#include "api/ffmic_option.h"
#include "zor/zor_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

class FFmicOptionTest : public testing::Test
{
protected:
    void SetUp() override
    {
        char dir[] = "/tmp/zor-ffmic-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_dir = dir;
        m_path = m_dir + "/FFMOptionCode.txt";
    }
    void TearDown() override
    {
        unlink(m_path.c_str());
        rmdir(m_dir.c_str());
    }

    void write(const std::string& contents) { std::ofstream(m_path) << contents; }

    std::string m_dir;
    std::string m_path;
};

struct FileCase {
    const char* contents;
    int result;
    bool option;
    const char* line;
};

TEST_F(FFmicOptionTest, ContentsDecideResultAndOption)
{
    const FileCase cases[] = {
        {"1\n", 1, true, "s32OptionCode = 1\n"},
        {"  7 trailing words\n", 1, true, "s32OptionCode = 7\n"},
        {"0\n", 1, false, "s32OptionCode = 0\n"},
        {"abc\n", 0, false, "s32OptionCode = 0\n"},
        {"", -1, false, "Error, read special state failed"},
    };
    for (const FileCase& c : cases) {
        SCOPED_TRACE(c.contents);
        write(c.contents);
        bool option = !c.option;
        testing::internal::CaptureStdout();
        const int result = zor::api::readFFmicOptionBit(m_path.c_str(), &option);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(option, c.option);
        EXPECT_EQ(out, " ZOR_App_GetFFmicOptionBit open file " + m_path + " ok!\n" + c.line);
    }
}

TEST_F(FFmicOptionTest, MissingFileLeavesTheOptionUntouched)
{
    for (bool before : {false, true}) {
        bool option = before;
        testing::internal::CaptureStdout();
        EXPECT_EQ(zor::api::readFFmicOptionBit(m_path.c_str(), &option), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  " ZOR_App_GetFFmicOptionBit open file " + m_path + " failed!\n");
        EXPECT_EQ(option, before);
    }
}

TEST_F(FFmicOptionTest, ReadOnlyFileCountsAsMissing)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root opens read-only files for writing";
    write("1\n");
    chmod(m_path.c_str(), 0444);
    bool option = false;
    testing::internal::CaptureStdout();
    EXPECT_EQ(zor::api::readFFmicOptionBit(m_path.c_str(), &option), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(option);
}

TEST(FFmicOptionBitTest, NullOptionIsRefused)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(ZOR_App_GetFFmicOptionBit(nullptr), -1);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("^input pointer is NULL! line = [0-9]+ fun = "
                                      "ZOR_App_GetFFmicOptionBit\n$"));
}

} // namespace
