// ls: a directory, with the state of each file.

#include "keep_files.hpp"
#include "listing.hpp"
#include "walks.hpp"

#include <algorithm>
#include <map>

namespace host {

namespace {

struct Options {
    std::string directory = ".";
};

void declare(Command &verb, Options &options) {
    verb.description("List a directory with the state of each file");
    verb.footer("What is tracked there, also what is missing: gone from the disk, and not by \"zev "
                "rm\".\n"
                "Nothing is changed.\n"
                "Examples:\n  zev ls\n  zev ls plans");
    verb.add_option("directory", options.directory, "A directory; else the current one")
        ->type_name("DIR");
}

// What one directory holds, by name, directories with a slash.
class Directory {
  public:
    explicit Directory(const std::string &path) : prefix_(path.empty() ? "" : path + "/") {}

    bool is_there() const { return is_there_; }

    void add(const std::string &path) {
        if (!path.starts_with(prefix_)) return;
        is_there_ = true;
        const std::string name = name_of(path);
        if (!is_keep(name)) children_.try_emplace(name, Listed{0, "", prefix_ + name});
    }

    // Of a file, or of what lies in a directory of it.
    void mark(const Listed &change) {
        if (!change.path.starts_with(prefix_) || change.path == prefix_) return;
        const std::string name = name_of(change.path);
        const auto child = children_.find(name);
        if (child == children_.end()) return; // it is deleted
        Listed &listed = child->second;
        if (change.path == listed.path && !name.ends_with('/')) {
            listed = change;
        } else if (change.kind == Z_KIND_CONFLICTED || listed.kind == Z_KIND_CONFLICTED) {
            listed = {Z_KIND_CONFLICTED, "", listed.path};
        } else if (change.path == listed.path && change.kind == Z_KIND_RENAMED) {
            listed = change;
        } else if (listed.kind == Z_KIND_UNCHANGED) {
            listed.kind = Z_KIND_MODIFIED;
        }
    }

    // Directories first, both in the order of their names.
    std::vector<Listed> sorted() const {
        std::vector<std::pair<std::u16string, Listed>> all;
        for (const auto &[name, listed] : children_) all.emplace_back(wide(name), listed);
        std::stable_sort(all.begin(), all.end(), [](const auto &a, const auto &b) {
            const bool first = a.first.ends_with(u'/'), second = b.first.ends_with(u'/');
            return first == second ? zStricollW(a.first.c_str(), b.first.c_str()) < 0 : first;
        });
        std::vector<Listed> list;
        for (auto &[name, listed] : all) list.push_back(std::move(listed));
        return list;
    }

  private:
    std::string name_of(const std::string &path) const {
        const size_t slash = path.find('/', prefix_.size());
        return path.substr(prefix_.size(),
                           slash == path.npos ? path.npos : slash + 1 - prefix_.size());
    }

    std::string prefix_;
    bool is_there_ = false;
    std::map<std::string, Listed> children_;
};

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    const std::string path = copy.relative(options.directory);
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    Directory directory(path);
    each_entry_of(index.get(),
                  [&](const IndexEntry *entry) { directory.add(narrow(zIndexEntryPath(entry))); });
    if (!directory.is_there() && !path.empty()) {
        const bool file = zIndexEntryBypath(index.get(), wide(path).c_str());
        throw Failed(
            file ? kInvalid : kNotFound,
            say(file ? "%s: is no directory" : "%s: nothing is tracked there", options.directory));
    }
    // Of the whole: a file may have come from another directory.
    const OwnedSpec all =
        copy.spec({}, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED, host.notify);
    const OwnedStatus list(check(zStatusListBuild(index.get(), all.get())));
    for (const Listed &change : listed_changes(list.get())) directory.mark(change);
    for (const Listed &listed : directory.sorted()) print_listed(host, "entry", listed);
    return kDone;
}

} // namespace

extern const Verb kLsVerb{"ls", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
