// SPDX-License-Identifier: MIT
// tvsim's options for the television itself: where its state comes from and
// which answers tests want bent.
#ifndef ZOR_SIM_TELEVISION_OPTIONS_H
#define ZOR_SIM_TELEVISION_OPTIONS_H

#include "sim/television.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace zor::sim
{

struct TelevisionOptions {
    std::string stateFile;
    std::vector<std::string> failures;     // "ID=STATUS"
    std::vector<std::string> shortReplies; // "ID"
};

void addTelevisionOptions(CLI::App& app, TelevisionOptions& options);

// The television the options describe, or null with `error` set.
std::unique_ptr<Television> makeTelevision(const TelevisionOptions& options, std::string& error);

} // namespace zor::sim

#endif
