// SPDX-License-Identifier: MIT
// Where zorctl's output and the library's lines go.
#ifndef ZOR_TOOLS_OUTPUT_H
#define ZOR_TOOLS_OUTPUT_H

#include <string>

namespace zorctl
{

// Sends the library's lines (its standard output, and the messaging layer's
// and ALSA's standard error) to zorctl's standard error when `verbose`,
// else nowhere; with `verbose`, what it printed so far comes first. Once,
// after the command line is read.
void routeLibraryLines(bool verbose);

// Text from the command-line parser: help and version to the answers,
// errors to the complaints (as is, no prefix).
void printUsage(const std::string& text, bool toAnswer);

} // namespace zorctl

#endif
