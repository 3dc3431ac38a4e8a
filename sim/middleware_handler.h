// SPDX-License-Identifier: MIT
// The simulator's side of the outbound commands: it decodes each request with
// the library's own command tables, lets the television answer and prints one
// line per command.
#ifndef ZOR_SIM_MIDDLEWARE_HANDLER_H
#define ZOR_SIM_MIDDLEWARE_HANDLER_H

#include "mup/mup.h"
#include "sim/television.h"

#include <functional>
#include <string>

namespace zor::sim
{

class MiddlewareHandler final : public OXAPC::C_OXAAVSServerHandler
{
public:
    using LineSink = std::function<void(const std::string&)>;

    // Both are borrowed and must outlive the handler.
    MiddlewareHandler(std::string serviceName, Television& television, const LineSink& sink);

    int handleCommand(unsigned int cmd, MUPParam& in, MUPParam* out, unsigned int) override;

private:
    std::string m_serviceName;
    Television& m_television;
    const LineSink& m_sink;
};

} // namespace zor::sim

#endif
