// SPDX-License-Identifier: MIT
#include "tools/suggest.h"

#include <algorithm>

namespace zorctl
{

namespace
{

size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The deepest subcommand that the parse got to.
const CLI::App* deepestParsed(const CLI::App& app)
{
    const CLI::App* command = &app;
    for (bool descended = true; descended;) {
        descended = false;
        for (const CLI::App* sub : command->get_subcommands([](const CLI::App*) { return true; })) {
            if (sub->parsed()) {
                command = sub;
                descended = true;
                break;
            }
        }
    }
    return command;
}

} // namespace

std::string nearestName(const std::string& word, const std::vector<std::string>& names)
{
    std::string best;
    size_t bestDistance = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string& name : names) {
        size_t distance = editDistance(word, name);
        // "vol" for "volume": a beginning is as good as a small slip.
        if (word.size() >= 3 && name.compare(0, word.size(), word) == 0)
            distance = std::min<size_t>(distance, 1);
        if (distance < bestDistance) {
            best = name;
            bestDistance = distance;
        }
    }
    return best;
}

std::string unknownSubcommand(const CLI::App& app)
{
    const CLI::App* command = deepestParsed(app);
    const auto subcommands = command->get_subcommands([](const CLI::App*) { return true; });
    if (subcommands.empty())
        return {};
    const std::vector<std::string> leftOver = app.remaining(true);
    const auto word = std::find_if(leftOver.begin(), leftOver.end(),
                                   [](const std::string& w) { return !w.empty() && w[0] != '-'; });
    if (word == leftOver.end())
        return {};

    std::vector<std::string> names;
    for (const CLI::App* sub : subcommands)
        names.push_back(sub->get_name());
    std::string where = command == &app ? "zorctl" : "zorctl " + command->get_name();
    std::string message = "unknown command '" + *word + "' for " + where;
    const std::string nearest = nearestName(*word, names);
    if (!nearest.empty())
        message += " (did you mean '" + nearest + "'?)";
    return message + "; " + where + " --help lists them";
}

} // namespace zorctl
