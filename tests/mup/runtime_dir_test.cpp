// SPDX-License-Identifier: MIT
// Where the sockets live: the order of the candidate directories, who may own
// them, their modes, and the socket path of a service name.
#include "mup/runtime_dir.h"
#include "mup/server.h"
#include "tests/mup/mup_test_util.h"

#include <gtest/gtest.h>

#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

using mup::RuntimeDirectoryChoices;
using mup_test::ScopedEnv;
using mup_test::TempDir;

mode_t modeOf(const std::string& path)
{
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0)
        return 0;
    return info.st_mode & 07777;
}

bool exists(const std::string& path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0;
}

struct DirectoryCase {
    const char* name;
    bool needsRoot;
    std::function<void(const std::string& base)> prepare;
    // Relative to a fresh base directory; "" leaves the choice empty.
    const char* override;
    const char* system;
    const char* user;
    const char* fallback;
    const char* expected; // "" when no directory can be had
    mode_t expectedMode;
};

class RuntimeDirectoryOrder : public testing::TestWithParam<DirectoryCase>
{
};

TEST_P(RuntimeDirectoryOrder, TakesTheFirstUsableChoice)
{
    const DirectoryCase& c = GetParam();
    if (c.needsRoot && geteuid() != 0)
        GTEST_SKIP() << "needs root to give a directory to another user";

    TempDir base;
    ASSERT_FALSE(base.path().empty());
    const auto at = [&](const char* relative) {
        return *relative ? base.path() + "/" + relative : std::string();
    };
    if (c.prepare)
        c.prepare(base.path());

    RuntimeDirectoryChoices choices;
    choices.override = at(c.override);
    choices.system = at(c.system);
    choices.user = at(c.user);
    choices.fallback = at(c.fallback);
    const std::vector<std::string> order = {choices.override, choices.system, choices.user,
                                            choices.fallback};
    std::vector<bool> existedBefore;
    for (const std::string& path : order)
        existedBefore.push_back(!path.empty() && exists(path));

    const std::string resolved = mup::resolveRuntimeDirectory(choices);

    EXPECT_EQ(resolved, at(c.expected));
    if (*c.expected) {
        EXPECT_EQ(modeOf(resolved), c.expectedMode) << std::oct << modeOf(resolved);
    }
    // Choices after the one taken (all of them after an override) are left
    // alone.
    bool passed = false;
    for (size_t i = 0; i < order.size(); ++i) {
        if (passed && !order[i].empty() && !existedBefore[i]) {
            EXPECT_FALSE(exists(order[i])) << order[i] << " was made but not used";
        }
        if (!order[i].empty() && (order[i] == resolved || i == 0))
            passed = true;
    }
}

void makeDir(const std::string& path, mode_t mode)
{
    ASSERT_EQ(mkdir(path.c_str(), mode), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

void makeFile(const std::string& path)
{
    FILE* file = fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    fclose(file);
}

INSTANTIATE_TEST_SUITE_P(
    RuntimeDirectory, RuntimeDirectoryOrder,
    testing::Values(DirectoryCase{"OverrideIsMadeWithItsParents", false, nullptr, "a/b/rt", "sys",
                                  "xdg", "tmp", "a/b/rt", 0700},
                    DirectoryCase{"OverrideThatExistsKeepsItsMode", false,
                                  [](const std::string& base) { makeDir(base + "/shared", 0755); },
                                  "shared", "sys", "xdg", "tmp", "shared", 0755},
                    DirectoryCase{"OverrideWithTheStickyBitIsShared", false,
                                  [](const std::string& base) { makeDir(base + "/shared", 01777); },
                                  "shared", "sys", "xdg", "tmp", "shared", 01777},
                    DirectoryCase{"OverrideThatOthersMayWriteToNeedsTheStickyBit", false,
                                  [](const std::string& base) { makeDir(base + "/open", 0777); },
                                  "open", "sys", "xdg", "tmp", "", 0},
                    DirectoryCase{"OverrideUnderADirectoryOthersMayWriteToIsRefused", false,
                                  [](const std::string& base) { makeDir(base + "/open", 0773); },
                                  "open/rt", "sys", "xdg", "tmp", "", 0},
                    DirectoryCase{"OverrideOfAnotherUserIsRefused", true,
                                  [](const std::string& base) {
                                      makeDir(base + "/theirs", 01777);
                                      ASSERT_EQ(chown((base + "/theirs").c_str(), 65534, 65534), 0);
                                  },
                                  "theirs", "sys", "xdg", "tmp", "", 0},
                    DirectoryCase{"OverrideThatIsAFileIsNotReplacedByAnotherChoice", false,
                                  [](const std::string& base) { makeFile(base + "/file"); }, "file",
                                  "sys", "xdg", "tmp", "", 0},
                    DirectoryCase{"SystemIsMade", false, nullptr, "", "run-zor", "xdg", "tmp",
                                  "run-zor", 0700},
                    DirectoryCase{"SystemOfOursIsMadePrivate", false,
                                  [](const std::string& base) { makeDir(base + "/run-zor", 0755); },
                                  "", "run-zor", "xdg", "tmp", "run-zor", 0700},
                    DirectoryCase{"SystemThatCannotBeMadeGivesUser", false, nullptr, "",
                                  "no-parent/zor", "xdg", "tmp", "xdg", 0700},
                    DirectoryCase{"SystemThatIsALinkIsNotTrusted", false,
                                  [](const std::string& base) {
                                      makeDir(base + "/real", 0700);
                                      ASSERT_EQ(symlink("real", (base + "/link").c_str()), 0);
                                  },
                                  "", "link", "xdg", "tmp", "xdg", 0700},
                    DirectoryCase{"SystemThatIsAFileGivesUser", false,
                                  [](const std::string& base) { makeFile(base + "/run-zor"); }, "",
                                  "run-zor", "xdg", "tmp", "xdg", 0700},
                    DirectoryCase{"SystemOfAnotherUserGivesUser", true,
                                  [](const std::string& base) {
                                      makeDir(base + "/run-zor", 0700);
                                      ASSERT_EQ(chown((base + "/run-zor").c_str(), 65534, 65534),
                                                0);
                                  },
                                  "", "run-zor", "xdg", "tmp", "xdg", 0700},
                    DirectoryCase{"NoUserDirectoryGivesFallback", false, nullptr, "",
                                  "no-parent/zor", "", "tmp", "tmp", 0700},
                    DirectoryCase{"FallbackOfAnotherUserIsRefused", true,
                                  [](const std::string& base) {
                                      makeDir(base + "/tmp", 0700);
                                      ASSERT_EQ(chown((base + "/tmp").c_str(), 65534, 65534), 0);
                                  },
                                  "", "no-parent/a", "", "tmp", "", 0},
                    DirectoryCase{"NothingUsable", false, nullptr, "", "no-parent/a", "no-parent/b",
                                  "no-parent/c", "", 0}),
    [](const testing::TestParamInfo<DirectoryCase>& testCase) { return testCase.param.name; });

TEST(RuntimeDirectoryChoices, ComeFromTheEnvironment)
{
    {
        ScopedEnv runtime("ZOR_RUNTIME_DIR", "/somewhere/zor-rt");
        ScopedEnv xdg("XDG_RUNTIME_DIR", "/run/user/1000");
        const RuntimeDirectoryChoices choices = mup::runtimeDirectoryChoices();
        EXPECT_EQ(choices.override, "/somewhere/zor-rt");
        EXPECT_EQ(choices.system, "/run/zor");
        EXPECT_EQ(choices.user, "/run/user/1000/zor");
        EXPECT_EQ(choices.fallback, "/tmp/zor-" + std::to_string(geteuid()));
    }
    {
        ScopedEnv runtime("ZOR_RUNTIME_DIR", nullptr);
        ScopedEnv xdg("XDG_RUNTIME_DIR", nullptr);
        const RuntimeDirectoryChoices choices = mup::runtimeDirectoryChoices();
        EXPECT_EQ(choices.override, "");
        EXPECT_EQ(choices.user, "");
    }
    {
        // Empty counts as unset, as for XDG_RUNTIME_DIR.
        ScopedEnv runtime("ZOR_RUNTIME_DIR", "");
        EXPECT_EQ(mup::runtimeDirectoryChoices().override, "");
    }
    {
        // A relative XDG_RUNTIME_DIR is not a place to trust.
        ScopedEnv xdg("XDG_RUNTIME_DIR", "relative/dir");
        EXPECT_EQ(mup::runtimeDirectoryChoices().user, "");
    }
}

TEST(RuntimeDirectory, OverrideFromTheEnvironmentWins)
{
    TempDir base;
    const std::string wanted = base.path() + "/rt";
    ScopedEnv runtime("ZOR_RUNTIME_DIR", wanted.c_str());
    EXPECT_EQ(mup::runtimeDirectory(), wanted);
    EXPECT_EQ(modeOf(wanted), 0700u);
}

TEST(RuntimeDirectory, RelativeOverrideIsRefusedAndNothingElseTried)
{
    TempDir base;
    RuntimeDirectoryChoices choices;
    choices.override = "relative-zor-rt";
    choices.system = base.path() + "/sys";
    EXPECT_EQ(mup::resolveRuntimeDirectory(choices), "");
    EXPECT_FALSE(exists("relative-zor-rt"));
    EXPECT_FALSE(exists(choices.system));
}

struct SocketPathCase {
    const char* name;
    std::string service; // "#N" stands for a name of N characters that just fits (0) or not
    bool valid;
};

TEST(SocketPath, FollowsTheNamingRules)
{
    TempDir base;
    ScopedEnv runtime("ZOR_RUNTIME_DIR", base.path().c_str());
    // "<dir>/<name>.sock" and its NUL must fit in sockaddr_un::sun_path.
    const size_t longest = sizeof(sockaddr_un::sun_path) - 1 - base.path().size() - 6;
    const SocketPathCase cases[] = {
        {"Plain", "oxa.kel.avs.client", true},
        {"Empty", "", false},
        {"Slash", "oxa/kel", false},
        {"LeadingSlash", "/oxa", false},
        {"Nul", std::string("oxa\0kel", 7), false},
        {"Longest", std::string(longest, 'n'), true},
        {"OneTooLong", std::string(longest + 1, 'n'), false},
    };
    for (const SocketPathCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = mup::socketPathFor(c.service);
        if (c.valid)
            EXPECT_EQ(path, base.path() + "/" + c.service + ".sock");
        else
            EXPECT_EQ(path, "");
    }
}

TEST(RuntimeDirectory, ModesDoNotDependOnTheUmask)
{
    TempDir base;
    const std::string dir = base.path() + "/rt";
    ScopedEnv runtime("ZOR_RUNTIME_DIR", dir.c_str());
    const mode_t saved = umask(0);
    OXAPC::C_OXAAVSServerHandler handler;
    std::unique_ptr<mup::Server> server = mup::Server::start("mode.check", handler);
    umask(saved);
    ASSERT_NE(server, nullptr);

    const std::string socket = dir + "/mode.check.sock";
    struct stat info = {};
    ASSERT_EQ(lstat(socket.c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    // Root serves every user; anyone else only itself and root.
    const mode_t expected = geteuid() == 0 ? 0666 : 0600;
    EXPECT_EQ(info.st_mode & 07777, expected) << std::oct << (info.st_mode & 07777);
    EXPECT_EQ(modeOf(dir), 0700u) << std::oct << modeOf(dir);

    server.reset();
    EXPECT_FALSE(exists(socket)) << "a stopped server removes its socket file";
}

} // namespace
