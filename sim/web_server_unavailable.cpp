// SPDX-License-Identifier: MIT
// tvsim built without cpp-httplib: --web says so and the simulator goes on
// without its dashboard.
#include "sim/web_server.h"

namespace zor::sim
{

class WebServer::Impl
{
};

WebServer::WebServer(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

WebServer::~WebServer() = default;

std::unique_ptr<WebServer> WebServer::start(const WebOptions&, DashboardFeed&, Execute,
                                            FarFieldVoice*, std::string* error)
{
    *error = "this tvsim was built without cpp-httplib (libcpp-httplib-dev): no web dashboard";
    return nullptr;
}

int WebServer::port() const
{
    return -1;
}

std::string WebServer::address() const
{
    return {};
}

} // namespace zor::sim
