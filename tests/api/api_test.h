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

namespace zor::test
{

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

} // namespace zor::test

#endif
