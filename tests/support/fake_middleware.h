// SPDX-License-Identifier: MIT
// An in-process stand-in for the television middleware: a real libmup server
// on a private socket that records every request and answers with scripted
// replies. The library's client endpoint is pointed at it.
#ifndef ZOR_TESTS_SUPPORT_FAKE_MIDDLEWARE_H
#define ZOR_TESTS_SUPPORT_FAKE_MIDDLEWARE_H

#include "mup/mup.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zor::test
{

using Bytes = std::vector<uint8_t>;

struct Exchange {
    unsigned int cmd;
    Bytes request;
};

struct ScriptedReply {
    int32_t status = 0;
    Bytes fields;             // after the status word
    bool sendNothing = false; // answer with an empty reply
};

class FakeMiddleware : public OXAPC::C_OXAAVSServerHandler
{
public:
    // Starts the server once per process (private runtime directory) and opens
    // the client endpoint towards it.
    static FakeMiddleware& instance();

    // Forgets the exchanges and the scripted replies.
    void reset();
    // The reply to every command without its own script.
    void setDefaultReply(ScriptedReply reply);
    // The reply to one command id.
    void setReply(unsigned int cmd, ScriptedReply reply);
    // Runs `action` on the middleware's thread each time `cmd` arrives, after
    // it is recorded and before it is answered (as a middleware that asks
    // something of the application first). reset() removes it.
    void setBeforeReply(unsigned int cmd, std::function<void()> action);

    std::vector<Exchange> exchanges() const;

    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int) override;

private:
    FakeMiddleware() = default;

    mutable std::mutex m_lock;
    std::vector<Exchange> m_exchanges;
    ScriptedReply m_default;
    std::map<unsigned int, ScriptedReply> m_replies;
    std::map<unsigned int, std::function<void()>> m_beforeReply;
};

// "FF 00 0a" -> {0xff, 0x00, 0x0a}; spaces and line breaks are ignored.
Bytes hex(const std::string& text);
// Little-endian bytes of a 32-bit value.
Bytes le32(uint32_t value);
// Concatenation.
Bytes operator+(Bytes left, const Bytes& right);
// n copies of a byte.
Bytes repeat(uint8_t value, size_t count);
// The bytes of a string without its terminator.
Bytes text(const std::string& value);

} // namespace zor::test

#endif
