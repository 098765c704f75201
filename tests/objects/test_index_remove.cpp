// A working copy whose files go to its trash, and come back.
#include "copy_fixture.hpp"

#include "system/os.hpp"

#include <cerrno>
#include <filesystem>
#include <set>

#include <fcntl.h>

using namespace test;

namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

struct Host : Report {
    size_t break_at; // lines told until the user breaks off

    explicit Host(size_t lines_told = SIZE_MAX) : break_at(lines_told) {
        usrbrk = [](auto *n) { return of(n).lines.size() >= of(n).break_at; };
        dialog = [](auto *, auto *) { return -1; }; // nobody answers
    }
    // What was told after the start: "word path;" and the end, words as their keys.
    std::string told() const {
        std::string all;
        for (size_t i = 1; i < lines.size(); ++i) all += by_key(lines[i]) + ";";
        return all;
    }

  private:
    static Host &of(const Notify *n) { return const_cast<Host &>(*static_cast<const Host *>(n)); }
    static std::string by_key(const std::string &line) {
        for (auto *key : {u"action.sDeleted", u"action.sSkipped", u"action.sReverted",
                          u"action.sRestored", u"action.sFailed"})
            if (line.starts_with(text(key) + " "))
                return narrow(key).substr(8) + line.substr(text(key).size());
        return line.substr(0, line.find(':'));
    }
};

class IndexRemoval : public WorkingCopyTest {
  protected:
    const os::Calls kept = os::calls;
    void TearDown() override { os::calls = kept; }

    using Operation = bool (*)(Index *, PathSpec *);
    std::string run(Operation operation, std::vector<std::u16string> patterns, uint32_t options,
                    Host host) {
        IndexPtr index = lock();
        EXPECT_OK(operation(index.get(), spec(patterns, options, &host).get()));
        EXPECT_OK(operation == zIndexRemove || zIndexWrite(index.get()));
        return host.told();
    }
    std::string remove(std::vector<std::u16string> paths) {
        return run(zIndexRemove, paths, kLiteral, Host());
    }
    std::string revert(std::vector<std::u16string> patterns = {}, uint32_t options = 0,
                       Host host = Host()) {
        return run(zIndexRevert, patterns, options, host);
    }
    static std::string failed(const std::string &path,
                              const zwchar *key = u"odb.eFailedToRevertEntry_s") {
        return "Failed " + narrow(zI18nTextFormat(zI18nCurrentLang(), key, wide(path).c_str())) +
               ";";
    }
};

} // namespace

// The reports come from under the lock, and see what a reader would.
TEST_F(IndexRemoval, TheIndexIsWrittenInBatches) {
    struct Watching : Report {
        fs::path index;
        std::set<uintmax_t> sizes;
    } watching;
    watching.index = place / ".git/index";
    watching.action = [](auto *n, auto *, auto *) {
        auto &self = const_cast<Watching &>(*static_cast<const Watching *>(n));
        self.sizes.insert(fs::file_size(self.index));
    };
    std::vector<std::u16string> paths;
    for (int i = 0; i < 600; ++i) {
        put("d/" + std::to_string(i), "x");
        paths.push_back(wide("d/" + std::to_string(i)));
    }
    add({u"*"});
    EXPECT_OK(zIndexRemove(lock().get(), spec(paths, kLiteral, &watching).get()));
    EXPECT_EQ(watching.sizes.size(), 4u); // as it was, after 256, after 512, at the end
    EXPECT_TRUE(tracked().empty());
    EXPECT_FALSE(exists("d"));
}

// Git knows no lock of ours. What it has staged meanwhile is in the index that is written.
TEST_F(IndexRemoval, TakesItsPathsOutOfWhatGitHasWritten) {
    put_all({"a", "b", "c"});
    add({u"a", u"b"});
    static fs::path where;
    where = place;
    os::calls.syncfs = [](int) {
        if (!where.empty()) git(std::exchange(where, {}), "add c");
        return 0;
    };
    EXPECT_EQ(remove({u"a"}), "Deleted a;done;");
    os::calls = kept;
    EXPECT_EQ(tracked(), (std::vector<std::string>{"b", "c"}));
}

// ---- Reverting

TEST_F(IndexRemoval, EachKindComesBackAsHeadHasIt) {
    put_all({"changed", "docs/gone", "docs/removed", "missing", "same", "staged"}, "head's");
    put(".gitignore", "*.log\n");
    commit_all();
    put_all({"added", "added and changed", "added and gone", "staged"}, "new");
    add({u"*"});
    put_all({"added and changed", "changed", "untracked", "x.log"}, "my work");
    take("added and gone"), take("missing"), take("docs/gone");
    remove({u"docs/removed"});
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH, Host(4)), // the user breaks off, and comes again
              "Deleted added and changed;Deleted added;Deleted added and gone;cancel;");
    EXPECT_EQ(zErrorClass(), 6);
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH), "Restored docs/removed;Reverted staged;"
                                             "Reverted changed;Restored missing;"
                                             "Restored docs/gone;done;");
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH, Host(0)), "done;"); // nothing to break off
    EXPECT_EQ(porcelain("--ignored"), "?? untracked\n!! x.log");
    EXPECT_EQ(git(place, "diff-files"), ""); // entered with the times of the files
    EXPECT_EQ(trashed(), "added and changed=my work;added=new;changed=my work;removed=head's;"
                         "staged=new;");
}

TEST_F(IndexRemoval, WhatObstructsGoesToTheTrash) {
    put_all({"d/deep/a", "f"}, "head's");
    commit_all();
    take("d"), take("f");
    put("d", "a file now"), put("f/mine.txt", "a directory now");
    EXPECT_EQ(revert(), "Restored f;Restored d/deep/a;done;");
    EXPECT_EQ(porcelain(), "");
    EXPECT_EQ(trashed(), "d=a file now;mine.txt=a directory now;");
    remove({u"d"});
    put("d", "a file now");
    add({u"*"}); // staged so, the new path goes before the old one comes
    EXPECT_EQ(revert(), "Deleted d;Restored d/deep/a;done;");
    EXPECT_EQ(porcelain(), "");
}

// Neither what a link leads to, nor a file that HEAD can't replace, is touched; the rest is done.
TEST_F(IndexRemoval, AFailureIsTheFilesOwn) {
    write(dir.path() / "out/a", "somebody else's");
    put_all({"in/a", "twin", "z"}), put("lost", "its blob is gone");
    commit_all();
    put_all({"lost", "z", "held"}, "changed");
    take("in");
    fs::create_directory_symlink(dir.path() / "out", place / "in");
    git(place, "mv twin TWIN");
    git(place, "add held");
    lose("HEAD:lost");
    repository.reset(zRepositoryOpen(place.u16string().c_str()));
    static const auto real = kept.rename;
    os::calls.rename = [](const char *from, const char *to, unsigned flags) {
        return std::string_view(to).ends_with("/held") ? (errno = EACCES, -1)
                                                       : real(from, to, flags);
    };
    EXPECT_EQ(revert({u"z", u"twin", u"lost", u"in/a", u"held"}, kLiteral),
              failed("held", u"odb.eFailedToRemoveEntry_s") + failed("twin") + "Reverted z;" +
                  failed("lost") + failed("in/a") + "done;");
    EXPECT_EQ(read(place / "lost") + read(place / "held"), "changedchanged");
    EXPECT_EQ(status()["held"], Z_KIND_ADDED);
    EXPECT_EQ(read(dir.path() / "out/a"), "somebody else's");

    put(".git/refs/heads/master", "damaged");
    EXPECT_FALSE(zIndexRevert(lock().get(), spec({u"lost"}, kLiteral).get()));
    EXPECT_EQ(read(place / "lost"), "changed"); // no status, nothing touched
}

// Saved between the look at the place and the writing of HEAD's file.
TEST_F(IndexRemoval, WhatAppearsMeanwhileStays) {
    for (const char *attributes : {"", "a text eol=crlf\n"}) {
        put(".gitattributes", attributes);
        put("a", "head\n");
        commit_all();
        take("a");
        static fs::path saved;
        saved = place / "a";
        os::calls.open = [](const char *path, int flags, mode_t mode) {
            if (flags & O_CREAT && std::string_view(path).find("/copy/.git/") == std::string::npos)
                write(saved, "mine");
            return ::open(path, flags, mode);
        };
        EXPECT_EQ(revert(), failed("a") + "done;") << attributes;
        os::calls = kept;
        EXPECT_EQ(read(saved), "mine");
    }
}

TEST_F(IndexRemoval, InAConflictTheirsIsTaken) {
    const std::string base(1, '\0');
    put_all({"a", "b", "d/c", "e"}, base);
    commit_all();
    git(place, "checkout -qb theirs");
    put_all({"a", "b", "d/c", "e"}, base + "theirs");
    git_commit("theirs");
    git(place, "checkout -q master");
    put_all({"a", "b", "d/c"}, base + "ours"), take("e");
    git_commit("ours");
    git_as("merge -q theirs");
    put("b", "edited since");
    EXPECT_EQ(revert({u"a", u"d", u"e"}), "Reverted e;Reverted d/c;Reverted a;done;");
    EXPECT_EQ(read(place / "a"), base + "theirs");
    EXPECT_EQ(read(place / "b"), "edited since"); // not selected
    EXPECT_EQ(porcelain(), "M  a\nUU b\nA  d/.gitkeep\nM  d/c\nA  e");
    EXPECT_NE(trashed().find("a=" + base + "ours"), std::string::npos);
}
