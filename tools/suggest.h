// SPDX-License-Identifier: MIT
// A word on the command line that names no subcommand, and the nearest one.
#ifndef ZOR_TOOLS_SUGGEST_H
#define ZOR_TOOLS_SUGGEST_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace zorctl
{

// The name among `names` nearest to `word` (edit distance, a prefix counts as
// near), or "" when none is near enough to be meant.
std::string nearestName(const std::string& word, const std::vector<std::string>& names);

// After a failed parse: "unknown command 'volum' (did you mean 'volume'?)"
// when the first word left over stands where a subcommand was expected, else
// "".
std::string unknownSubcommand(const CLI::App& app);

} // namespace zorctl

#endif
