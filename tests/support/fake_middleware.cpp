// SPDX-License-Identifier: MIT
#include "tests/support/fake_middleware.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace zor::test
{

FakeMiddleware& FakeMiddleware::instance()
{
    static FakeMiddleware* middleware = [] {
        if (!getenv("ZOR_RUNTIME_DIR")) {
            char dir[] = "/tmp/zor-test-XXXXXX";
            if (!mkdtemp(dir))
                throw std::runtime_error("mkdtemp failed");
            setenv("ZOR_RUNTIME_DIR", dir, 1);
        }
        // Lives until the process exits, as the server registration does.
        static FakeMiddleware object;
        if (initAVSServer("test.middleware", &object) != 0)
            throw std::runtime_error("cannot serve test.middleware");
        OXA_TVC_NewClient("test.middleware");
        return &object;
    }();
    return *middleware;
}

void FakeMiddleware::reset()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_exchanges.clear();
    m_default = {};
    m_replies.clear();
    m_beforeReply.clear();
}

void FakeMiddleware::setDefaultReply(ScriptedReply reply)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_default = std::move(reply);
}

void FakeMiddleware::setReply(unsigned int cmd, ScriptedReply reply)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_replies[cmd] = std::move(reply);
}

void FakeMiddleware::setBeforeReply(unsigned int cmd, std::function<void()> action)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_beforeReply[cmd] = std::move(action);
}

std::vector<Exchange> FakeMiddleware::exchanges() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_exchanges;
}

int FakeMiddleware::handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int)
{
    std::function<void()> beforeReply;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_exchanges.push_back({cmd, Bytes(in.data(), in.data() + in.size())});
        auto action = m_beforeReply.find(cmd);
        if (action != m_beforeReply.end())
            beforeReply = action->second;
    }
    if (beforeReply)
        beforeReply();
    std::lock_guard<std::mutex> guard(m_lock);
    auto scripted = m_replies.find(cmd);
    const ScriptedReply& reply = scripted != m_replies.end() ? scripted->second : m_default;
    if (out && !reply.sendNothing) {
        out->writeInt32(reply.status);
        out->write(reply.fields.data(), static_cast<unsigned int>(reply.fields.size()));
    }
    return 0;
}

Bytes hex(const std::string& text)
{
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)))
            digits += c;
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

Bytes le32(uint32_t value)
{
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes repeat(uint8_t value, size_t count)
{
    return Bytes(count, value);
}

Bytes text(const std::string& value)
{
    return Bytes(value.begin(), value.end());
}

} // namespace zor::test
