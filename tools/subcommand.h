// SPDX-License-Identifier: MIT
// Small helpers for zorctl's command families: a subcommand whose action runs
// once the library is up, and arguments that outlive the parser's callbacks.
#ifndef ZOR_TOOLS_SUBCOMMAND_H
#define ZOR_TOOLS_SUBCOMMAND_H

#include "tools/zorctl.h"

#include <memory>
#include <string>

namespace zorctl
{

// Adds `name`; choosing it makes `action` the invocation's action, run once
// the library has opened what `needs` says.
inline CLI::App* addAction(CLI::App& app, Invocation& invocation, const char* name,
                           const char* help, Action action, Needs needs = Needs::Middleware)
{
    CLI::App* command = app.add_subcommand(name, help);
    command->callback([&invocation, action, needs] {
        invocation.action = action;
        invocation.needs = needs;
    });
    return command;
}

// A value that a subcommand's option fills and its action reads later.
template <typename T> std::shared_ptr<T> arg(T initial = T{})
{
    return std::make_shared<T>(std::move(initial));
}

// Null for an option that was not given, else the text.
inline char* optionalText(const CLI::Option* option, std::string& text)
{
    return option->count() ? &text[0] : nullptr;
}

} // namespace zorctl

#endif
