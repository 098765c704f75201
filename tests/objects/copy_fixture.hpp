// A working copy with files in it, worked on through an index, and what it reported.
#pragma once

#include "repo_fixture.hpp"

#include <algorithm>
#include <map>
#include <vector>

namespace test {

using IndexPtr = Held<Index, zIndexFree>;
using SpecPtr = Held<PathSpec, zPathSpecFree>;
using StatusPtr = Held<StatusList, zStatusListFree>;
using EntryPtr = Held<IndexEntry, zIndexEntryFree>;

// Writes down what a host is told: "start:", "done:" ..., and "word path" for an action.
struct Report : Notify {
    std::vector<std::string> lines;
    std::map<std::string, std::string> reasons; // by what an action was told of
    bool stop = false;

    Report() : Notify{} {
        start = [](auto *n, auto *heading, auto *text) {
            of(n).push_back("start: " + narrow(heading) + " " + narrow(text));
        };
        done = [](auto *n, auto *text) { of(n).push_back("done: " + narrow(text)); };
        cancel = [](auto *n, auto *text) { of(n).push_back("cancel: " + narrow(text)); };
        abort = [](auto *n, auto *text) { of(n).push_back("abort: " + narrow(text)); };
        error = [](auto *n, auto *text) { of(n).push_back("error: " + narrow(text)); };
        action = [](auto *n, auto *word, auto *text) {
            of(n).push_back(narrow(word) + " " + narrow(text));
            const_cast<Report *>(static_cast<const Report *>(n))->reasons[narrow(text)] =
                narrow(zErrorReason());
        };
        usrbrk = [](auto *n) { return static_cast<const Report *>(n)->stop; };
    }
    bool told(const std::string &line) const {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

  private:
    static std::vector<std::string> &of(const Notify *notify) {
        return const_cast<Report *>(static_cast<const Report *>(notify))->lines;
    }
};

inline std::string text(const zwchar *key) {
    return narrow(zI18nTextLookup(zI18nCurrentLang(), key));
}

class WorkingCopyTest : public RepositoryTest {
  protected:
    static constexpr uint32_t kLiteral = Z_SPEC_LITERAL;

    void put(const std::string &path, std::string_view bytes) { write(place / path, bytes); }
    void put_all(std::initializer_list<const char *> paths, const std::string &bytes = "1") {
        for (auto *path : paths) put(path, bytes);
    }
    void take(const std::string &path) { std::filesystem::remove_all(place / path); }
    bool exists(const std::string &path) { return std::filesystem::exists(place / path); }
    bool is_readonly(const std::string &path) {
        const auto bits = std::filesystem::status(place / path).permissions();
        return (static_cast<unsigned>(bits) & 0222) == 0;
    }
    std::string porcelain(const char *more = "") {
        return git(place, std::string("-c core.quotepath=off status --porcelain -uall ") + more);
    }
    std::string git_as(const std::string &arguments, int *status = nullptr) {
        return git(place, "-c user.name=Ada -c user.email=ada@example.com " + arguments, status);
    }
    void git_commit(const std::string &message) {
        git(place, "add -A");
        int status = -1;
        const std::string said = git_as("commit -qm " + message, &status);
        EXPECT_EQ(status, 0) << said;
    }

    // "name=bytes;" of the files in the trash, in order.
    std::string trashed() {
        std::vector<std::string> found;
        std::error_code none;
        for (auto &at : std::filesystem::recursive_directory_iterator(place / ".git/trash", none))
            if (at.is_regular_file() && at.path().filename() != "info.$$$")
                found.push_back(at.path().filename().string() + "=" + read(at.path()) + ";");
        std::sort(found.begin(), found.end());
        std::string all;
        for (const std::string &file : found) all += file;
        return all;
    }

    static SpecPtr spec(std::vector<std::u16string> patterns, uint32_t options = 0,
                        const Notify *notify = nullptr) {
        SpecPtr made(zPathSpecNew(nullptr, options));
        for (const auto &pattern : patterns) zPathSpecAdd(made.get(), pattern.c_str());
        zPathSpecSetNotify(made.get(), notify);
        return made;
    }

    IndexPtr lock() { return IndexPtr(zIndexHead(repository.get(), true)); }

    void add(std::vector<std::u16string> patterns, uint32_t options = 0) {
        IndexPtr index = lock();
        ASSERT_OK(index);
        ASSERT_OK(zIndexAdd(index.get(), spec(patterns, options).get()));
        ASSERT_OK(zIndexWrite(index.get()));
    }

    void commit_all(const zwchar *message = u"base") {
        add({u"*"});
        IndexPtr index = lock();
        CommitPtr made(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", message));
        ASSERT_OK(made);
    }

    // Both sides of a merge by git have changed the file.
    void make_conflict(const std::string &path) {
        put(path, "base");
        commit_all();
        git(place, "checkout -q -b other");
        put(path, "theirs");
        git_as("commit -qam theirs");
        git(place, "checkout -q master");
        put(path, "ours");
        git_as("commit -qam ours");
        git_as("merge -q other");
    }
    std::string brief_status() { return git(place, "status --porcelain"); }

    // Path to kind, as a status without a lock sees it.
    std::map<std::string, int> status(PathSpec *wanted = nullptr) {
        IndexPtr index(zIndexHead(repository.get(), false));
        StatusPtr list(zStatusListBuild(index.get(), wanted));
        EXPECT_OK(list);
        std::map<std::string, int> kinds;
        for (uint64_t i = 0; list && i < zStatusListLength(list.get()); ++i) {
            StatusEntry *entry = zStatusListEntry(list.get(), i);
            kinds[narrow(zStatusEntryPath(entry))] = zStatusEntryStatus(entry);
        }
        return kinds;
    }

    // Paths in the index, by git.
    std::vector<std::string> tracked() {
        std::vector<std::string> paths;
        std::string names = git(place, "ls-files -z");
        for (size_t at = 0, end; (end = names.find('\0', at)) != names.npos; at = end + 1)
            paths.push_back(names.substr(at, end - at));
        return paths;
    }
};

} // namespace test
