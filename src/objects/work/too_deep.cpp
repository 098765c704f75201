// A rule of the process's own keeps libgit2 out of a directory; it is gone after the comparison.
#include "objects/work/too_deep.hpp"

#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/git.hpp"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace zev {

namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 100;   // components of a directory that libgit2 doesn't enter any more
constexpr size_t kMost = 1'000; // rules; each costs a look at every file
constexpr const char *kTold = "directory nesting too deep";

bool is_too_deep(int code) {
    const git_error *last = code < 0 ? git_error_last() : nullptr;
    return last && last->message && std::strstr(last->message, kTold);
}

// From the work directory. What can't be read is left to the comparison.
std::vector<std::string> find_too_deep(const fs::path &top) {
    std::vector<std::string> found;
    std::error_code error;
    fs::recursive_directory_iterator at(top, fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
        std::error_code gone;
        if (at->symlink_status(gone).type() != fs::file_type::directory) continue;
        const bool own = !at.depth() && at->path().filename() == ".git";
        const bool last = at.depth() + 1 == kDeepest;
        if (last && found.size() < kMost)
            found.push_back(at->path().lexically_relative(top).string());
        if (own || last) at.disable_recursion_pending();
    }
    return found;
}

// A rule is a line, and none can be made for a name of two.
bool can_be_rule(const std::string &directory) { return directory.find('\n') == directory.npos; }

// The name itself, whatever signs of patterns it has.
std::string rule_for(const std::string &directory) {
    std::string rule = "/";
    for (const char c : directory) {
        if (std::strchr("*?[]\\! ", c)) rule += '\\';
        rule += c;
    }
    return rule + "/\n";
}

class LeftOut {
  public:
    explicit LeftOut(git_repository *repository) : repository_(repository) {}
    LeftOut(const LeftOut &) = delete;
    LeftOut &operator=(const LeftOut &) = delete;
    ~LeftOut() { git_ignore_clear_internal_rules(repository_); }

    int add(const std::vector<std::string> &directories) {
        std::string rules;
        for (const std::string &directory : directories) rules += rule_for(directory);
        return git_ignore_add_rule(repository_, rules.c_str());
    }

  private:
    git_repository *repository_;
};

void warn(const Notify *notify, const std::vector<std::string> &directories) {
    for (const std::string &directory : directories) {
        const std::u16string path = to_wide(directory);
        raise_other(word(u"odb.eNestsTooDeep"), path);
        log_raised(kWarning);
        zNotifyWarning(notify, u"%s: %s", word(u"odb.eNestsTooDeep"), path.c_str());
    }
}

} // namespace

bool compare_reachable(const Repository *repository, const Notify *notify,
                       const std::function<int(bool again)> &compare) {
    git_repository *handle = repository->handle.get();
    int code = compare(false);
    const char *workdir = git_repository_workdir(handle);
    if (!is_too_deep(code) || !workdir) return code < 0 ? fail_git(code) : true;
    const std::vector<std::string> directories =
        find_too_deep(fs::path(workdir).lexically_normal());
    if (directories.empty()) return fail_git(code);
    const auto unruly = std::ranges::find_if_not(directories, can_be_rule);
    if (unruly != directories.end())
        return raise_other(word(u"odb.eNestsTooDeep"), to_wide(*unruly));
    LeftOut left_out(handle);
    code = left_out.add(directories);
    if (!code) code = compare(true);
    if (is_too_deep(code))
        return raise_other(word(u"odb.eNestsTooDeep"), to_wide(directories.front()));
    if (code < 0) return fail_git(code);
    const KeptFailure kept;
    return warn(notify, directories), true;
}

} // namespace zev
