// ls: a directory, with the state of each file.

#include "listing.hpp"

#include <algorithm>

namespace host {

namespace {

struct Options {
    std::string directory = ".";
};

void declare(Command &verb, Options &options) {
    verb.description("List a directory with the state of each file");
    verb.footer(
        "What is tracked there. A file that is gone from the disk, and not by \"zev rm\", is\n"
        "brought back first.\n"
        "Examples:\n  zev ls\n  zev ls plans");
    verb.add_option("directory", options.directory, "A directory; else the current one")
        ->type_name("DIR");
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const std::string path = copy.relative(options.directory);
    const Front front(host, copy);
    std::vector<Listed> found;
    auto visit = [&](const Listed &listed) { found.push_back(listed); };
    if (!zCommandList(front.path(), wide(path).c_str(), listing<decltype(visit)>(), &visit)) {
        OwnedIndex index(check(zIndexHead(copy.repository(), false)));
        const bool file = zIndexEntryBypath(index.get(), wide(path).c_str());
        throw Failed(
            file ? kInvalid : kNotFound,
            say(file ? "%s: is no directory" : "%s: nothing is tracked there", options.directory));
    }
    const auto is_directory = [](const Listed &listed) { return listed.path.ends_with('/'); };
    std::stable_partition(found.begin(), found.end(), is_directory);
    for (const Listed &listed : found) print_listed(host, "entry", listed);
    return kDone;
}

} // namespace

extern const Verb kLsVerb{"ls", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
