// SPDX-License-Identifier: MIT
// The far-field option file: what each kind of contents gives.
#include "api/ffmic_option.h"
#include "zor/zor_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <linux/capability.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
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

// Root writes read-only files through CAP_DAC_OVERRIDE; while this lives, the
// calling thread goes without it, so that the file's mode holds for root too.
class WithoutFileOverride
{
public:
    WithoutFileOverride()
    {
        if (syscall(SYS_capget, &m_header, m_saved) != 0)
            return;
        __user_cap_data_struct reduced[2] = {m_saved[0], m_saved[1]};
        reduced[CAP_TO_INDEX(CAP_DAC_OVERRIDE)].effective &= ~CAP_TO_MASK(CAP_DAC_OVERRIDE);
        m_dropped = syscall(SYS_capset, &m_header, reduced) == 0;
    }
    ~WithoutFileOverride()
    {
        if (m_dropped)
            syscall(SYS_capset, &m_header, m_saved);
    }
    WithoutFileOverride(const WithoutFileOverride&) = delete;
    WithoutFileOverride& operator=(const WithoutFileOverride&) = delete;

    bool dropped() const { return m_dropped; }

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_saved[2] = {};
    bool m_dropped = false;
};

TEST_F(FFmicOptionTest, ReadOnlyFileCountsAsMissing)
{
    write("1\n");
    chmod(m_path.c_str(), 0444);
    const WithoutFileOverride asOwner;
    ASSERT_TRUE(asOwner.dropped());
    const int writable = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    if (writable >= 0)
        close(writable);
    ASSERT_LT(writable, 0) << "the file is still writable";
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
