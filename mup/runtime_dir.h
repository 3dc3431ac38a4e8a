// SPDX-License-Identifier: MIT
// Where the sockets live, and how a service name maps to a socket path.
#ifndef MUP_RUNTIME_DIR_H
#define MUP_RUNTIME_DIR_H

#include <string>

namespace mup
{

// The places tried in order. An explicit override is used alone: when it
// can't be made or trusted, nothing else is tried, so that two processes
// configured alike never end up in different directories without a word.
struct RuntimeDirectoryChoices {
    std::string override; // $ZOR_RUNTIME_DIR (empty: unset); made with its parents if missing
    std::string system;   // /run/zor
    std::string user;     // $XDG_RUNTIME_DIR/zor, empty when that is not set
    std::string fallback; // /tmp/zor-<uid>
};

// The choices of this process, from its environment and uid.
RuntimeDirectoryChoices runtimeDirectoryChoices();

// The first usable choice, created (mode 0700) when missing; "" (with one
// line on stderr) when none is. A shared choice (all but the override) that
// already exists is used only when it is a real directory owned by this uid.
// Whatever the choice, it and every directory above it must belong to this
// uid or root, and one that group or others may write to must carry the
// sticky bit: no one else may then rename or replace a socket in it. The
// override must be an absolute path; its mode is left as it is.
std::string resolveRuntimeDirectory(const RuntimeDirectoryChoices& choices);

// resolveRuntimeDirectory(runtimeDirectoryChoices()).
std::string runtimeDirectory();

// Non-empty, no '/' and no NUL.
bool isValidServiceName(const std::string& name);

// "<dir>/<name>.sock", or "" for an invalid name, an unusable directory or a
// path too long for a Unix socket address (the last two with a line on
// stderr).
std::string socketPathFor(const std::string& name);

} // namespace mup

#endif
