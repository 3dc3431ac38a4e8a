// SPDX-License-Identifier: MIT
#include "sim/television_options.h"

#include <cstdio>
#include <stdexcept>

namespace zor::sim
{

namespace
{

// Accepts 0x-prefixed hexadecimal or decimal, all of the text.
bool parseId(const std::string& text, uint32_t& id)
{
    try {
        size_t used = 0;
        const unsigned long value = std::stoul(text, &used, 0);
        if (used != text.size() || value > UINT32_MAX)
            return false;
        id = static_cast<uint32_t>(value);
        return true;
    } catch (const std::logic_error&) {
        return false;
    }
}

} // namespace

void addTelevisionOptions(CLI::App& app, TelevisionOptions& options)
{
    app.add_option("--state", options.stateFile,
                   "JSON file with the television's state (missing keys keep the default "
                   "television's values)")
        ->check(CLI::ExistingFile);
    app.add_option("--fail", options.failures,
                   "Answer command ID with STATUS and zeroed reply fields, leaving the state "
                   "alone (ID=STATUS, e.g. 0x18050001=-1; repeatable)");
    app.add_option("--short", options.shortReplies,
                   "Answer command ID with only the first half of its reply fields (repeatable)");
}

std::unique_ptr<Television> makeTelevision(const TelevisionOptions& options, std::string& error)
{
    TelevisionState state = defaultTelevision();
    std::vector<std::string> unknownKeys;
    if (!options.stateFile.empty() &&
        !loadTelevisionState(options.stateFile, state, error, &unknownKeys))
        return nullptr;
    for (const std::string& key : unknownKeys)
        fprintf(stderr, "tvsim: %s: unknown key %s, ignored (tvsim --print-state shows them all)\n",
                options.stateFile.c_str(), key.c_str());

    FaultPlan faults;
    for (const std::string& failure : options.failures) {
        const size_t equals = failure.find('=');
        uint32_t id = 0;
        int status = 0;
        try {
            if (equals == std::string::npos || !parseId(failure.substr(0, equals), id))
                throw std::invalid_argument("id");
            size_t used = 0;
            status = std::stoi(failure.substr(equals + 1), &used, 0);
            if (used != failure.size() - equals - 1)
                throw std::invalid_argument("status");
        } catch (const std::logic_error&) {
            error = "--fail wants ID=STATUS, not '" + failure + "'";
            return nullptr;
        }
        faults.failures[id] = status;
    }
    for (const std::string& text : options.shortReplies) {
        uint32_t id = 0;
        if (!parseId(text, id)) {
            error = "--short wants a command id, not '" + text + "'";
            return nullptr;
        }
        faults.shortReplies.insert(id);
    }
    return std::make_unique<Television>(std::move(state), std::move(faults));
}

} // namespace zor::sim
