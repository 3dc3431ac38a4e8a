// SPDX-License-Identifier: MIT
// The fixture of the command-function tests: a fake middleware that records
// every request, and stdout capture for the argument messages.
#ifndef ZOR_TESTS_API_API_TEST_H
#define ZOR_TESTS_API_API_TEST_H

#include "tests/support/fake_middleware.h"
#include "tests/support/record_bytes.h"
#include "zor/zor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace zor::test
{

// "%s line:%d <message>" with any line number.
inline std::string argLine(const std::string& function, const std::string& message)
{
    return "^" + function + " line:[0-9]+ " + message + "\n$";
}

// "[%s(): %d]<message>" with any line number, as a regular expression.
inline std::string gatedLine(const std::string& function, const std::string& message)
{
    return "\\[" + function + "\\(\\): [0-9]+\\]" + message + "\n";
}

class ApiTest : public testing::Test
{
protected:
    void SetUp() override { middleware().reset(); }

    static FakeMiddleware& middleware() { return FakeMiddleware::instance(); }
    static std::vector<Exchange> sent() { return middleware().exchanges(); }

    // Runs `call` with stdout captured; returns what it printed.
    static std::string printed(const std::function<void()>& call)
    {
        testing::internal::CaptureStdout();
        call();
        return testing::internal::GetCapturedStdout();
    }

    // Runs `call` with stdout captured at debug level `level`; the level
    // returns to 1 (errors only) afterwards.
    static std::string printedAtLevel(int level, const std::function<void()>& call)
    {
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
        setDebugLevel(static_cast<_EN_DBG_PRT_LEVEL>(level));
        const std::string text = printed(call);
        setDebugLevel(EN_DBG_PRT_LEVEL_NONE);
        setDebugLevel(EN_DBG_PRT_LEVEL_ERROR);
        return text;
    }

    // Whether `call` was refused: it returned -1 and printed exactly what the
    // regular expression `line` matches.
    static testing::AssertionResult refused(const std::function<int()>& call,
                                            const std::string& line)
    {
        int result = 0;
        const std::string output = printed([&] { result = call(); });
        const bool matches = testing::Matches(testing::MatchesRegex(line))(output);
        if (result == -1 && matches)
            return testing::AssertionSuccess();
        testing::AssertionResult failure = testing::AssertionFailure();
        if (result != -1)
            failure << "returned " << result << " instead of -1; ";
        if (!matches)
            failure << "printed \"" << output << "\", which does not match /" << line << "/";
        return failure;
    }

    // A call refused for its arguments with "<function> line:N <message>".
    struct RefusedCall {
        std::function<int()> call;
        const char* function;
        const char* message;
    };

    // Each of `calls` is refused with its line, and nothing is sent.
    static void expectRefused(const std::vector<RefusedCall>& calls)
    {
        for (const RefusedCall& c : calls) {
            SCOPED_TRACE(c.message);
            EXPECT_TRUE(refused(c.call, argLine(c.function, c.message)));
        }
        EXPECT_TRUE(sent().empty());
    }

    // The one request sent so far, after checking its id.
    static Bytes onlyRequest(unsigned int id)
    {
        const auto exchanges = sent();
        EXPECT_EQ(exchanges.size(), 1u);
        if (exchanges.empty())
            return {};
        EXPECT_EQ(exchanges[0].cmd, id);
        return exchanges[0].request;
    }
};

} // namespace zor::test

#endif
