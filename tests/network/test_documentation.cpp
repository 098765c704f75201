// docs/rest.md and the service tell of the same operations.
#include "network/rest/operations.hpp"
#include "support.hpp"

#include <regex>
#include <set>
#include <sstream>
#include <string>

using namespace zev::rest;

namespace {

std::string service_page() { return test::read(ZEV_DOCS "/rest.md"); }

// The names of a command table by its target, as the page has them: `name` behind `target`.
std::set<std::string> told_commands(const std::string &page, const std::string &section) {
    std::set<std::string> result;
    const size_t begin = page.find("### " + section) + 4;
    std::istringstream lines(page.substr(begin, page.find("\n#", begin) - begin));
    const std::regex word("`([^`]*)`");
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("| `")) continue;
        std::sregex_iterator at(line.begin(), line.end(), word), end;
        const std::string target = at->str(1);
        while (++at != end) result.insert(target + " " + at->str(1));
    }
    return result;
}

std::set<std::string> known_commands(std::span<const Command> table) {
    std::set<std::string> result;
    for (const Command &command : table)
        result.insert(test::narrow(command.target) + " " + test::narrow(command.name));
    return result;
}

} // namespace

TEST(Documentation, EveryOperationOfTheServiceAndNoOther) {
    std::set<std::string> told, known;
    std::istringstream lines(service_page());
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("### ")) told.insert(line.substr(4));
    for (const Operation &operation : kOperations) known.insert(operation.told);
    EXPECT_EQ(told, known);
}

TEST(Documentation, EveryCommandOfTheRightsAndNoOther) {
    const std::string page = service_page();
    EXPECT_EQ(told_commands(page, "POST /rms"), known_commands(kServerCommands));
    EXPECT_EQ(told_commands(page, "POST /repos/:owner/:name/rms"),
              known_commands(kProjectCommands));
}
