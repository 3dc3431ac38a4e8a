// SPDX-License-Identifier: MIT
#include "sim/middleware_handler.h"

#include "transport/command_table.h"
#include "transport/record_format.h"

#include <cstdio>

namespace zor::sim
{

MiddlewareHandler::MiddlewareHandler(std::string serviceName, Television& television,
                                     const LineSink& sink)
    : m_serviceName(std::move(serviceName)), m_television(television), m_sink(sink)
{
}

int MiddlewareHandler::handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int)
{
    const wire::CommandRow* row = wire::findCommand(cmd);
    if (!row) {
        char text[96];
        snprintf(text, sizeof(text), "[%s] unknown command 0x%08x -> -1", m_serviceName.c_str(),
                 cmd);
        m_sink(text);
        if (out)
            out->writeInt32(-1);
        return 0;
    }

    Answer answer = m_television.apply(*row, in.data(), in.size());
    // What was asked, and what the answer carried.
    const std::string request = wire::isBlankQuery(*row, in.data(), in.size())
                                    ? std::string(row->name)
                                    : wire::describeRequest(*row, in.data(), in.size());
    m_sink("[" + m_serviceName + "] " + request + " -> " + std::to_string(answer.status) +
           wire::describeReply(*row, answer.fields.data(), answer.fields.size()));
    if (out) {
        out->writeInt32(answer.status);
        out->write(answer.fields.data(), static_cast<unsigned int>(answer.fields.size()));
    }
    return 0;
}

} // namespace zor::sim
