// docs/rest.md and the service tell of the same operations and commands.
#include "network/rest/operations.hpp"
#include "support.hpp"

#include <regex>
#include <set>
#include <sstream>

using namespace zev::rest;

TEST(Documentation, TellsWhatTheServiceDoesAndNoMore) {
    std::set<std::string> told, known;
    for (const Operation &operation : kOperations) known.insert(operation.told);
    for (const auto &[route, table] : {std::pair{"POST /rms", kServerCommands},
                                       {"POST /repos/:owner/:name/rms", kProjectCommands}})
        for (const Command &each : table)
            known.insert(route + (" " + test::narrow(each.target)) + " " + test::narrow(each.name));
    std::istringstream lines(test::read(ZEV_DOCS "/rest.md"));
    std::string section;
    const std::regex word("`([^`]*)`"); // a row is `target` and its `name`s
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("#")) section = line.starts_with("### ") ? line.substr(4) : "";
        if (line.starts_with("### ")) told.insert(section);
        if (!line.starts_with("| `") || !section.ends_with("/rms")) continue;
        std::sregex_iterator at(line.begin(), line.end(), word), end;
        const std::string target = at->str(1);
        while (++at != end) told.insert(section + " " + target + " " + at->str(1));
    }
    EXPECT_EQ(told, known);
}
