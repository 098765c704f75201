#include "removal_fixture.hpp"

#include <filesystem>

#include <fcntl.h>

using namespace test;

namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

class IndexRevert : public RemovalTest {
  protected:
    std::string revert(std::vector<std::u16string> patterns = {}, uint32_t options = 0,
                       Host host = Host()) {
        return run(zIndexRevert, patterns, options, host);
    }
    void remove(std::vector<std::u16string> paths) { run(zIndexRemove, paths, kLiteral); }
    static std::string failed(const std::string &path) {
        return RemovalTest::failed(u"odb.eFailedToRevertEntry_s", path);
    }
};

} // namespace

TEST_F(IndexRevert, EachKindComesBackAsHeadHasIt) {
    put_all({"changed", "docs/gone", "docs/removed", "missing", "same", "staged"}, "head's");
    put(".gitignore", "*.log\n");
    commit_all();
    put_all({"added", "added and changed", "added and gone", "staged"}, "new");
    add({u"*"});
    put_all({"added and changed", "changed", "untracked", "x.log"}, "my work");
    take("added and gone"), take("missing"), take("docs/gone");
    remove({u"docs/removed"});
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH, Host({}, 4)), // the user breaks off, and comes again
              "Deleted added and changed;Deleted added;Deleted added and gone;cancel;");
    EXPECT_EQ(zErrorClass(), 6);
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH), "Restored docs/removed;Reverted staged;"
                                             "Reverted changed;Restored missing;"
                                             "Restored docs/gone;done;");
    EXPECT_EQ(revert({}, Z_SPEC_MUST_MATCH, Host({}, 0)), "done;"); // nothing to break off
    EXPECT_EQ(porcelain("--ignored"), "?? untracked\n!! x.log");
    EXPECT_EQ(git(place, "diff-files"), ""); // entered with the times of the files
    EXPECT_EQ(trashed(), "added and changed=my work;added=new;changed=my work;removed=head's;"
                         "staged=new;");
}

TEST_F(IndexRevert, WhatObstructsGoesToTheTrash) {
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
TEST_F(IndexRevert, AFailureIsTheFilesOwn) {
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
              RemovalTest::failed(u"odb.eFailedToRemoveEntry_s", "held") + failed("twin") +
                  "Reverted z;" + failed("lost") + failed("in/a") + "done;");
    EXPECT_EQ(read(place / "lost") + read(place / "held"), "changedchanged");
    EXPECT_EQ(status()["held"], Z_KIND_ADDED);
    EXPECT_EQ(read(dir.path() / "out/a"), "somebody else's");

    put(".git/refs/heads/master", "damaged");
    EXPECT_FALSE(zIndexRevert(lock().get(), spec({u"lost"}, kLiteral).get()));
    EXPECT_EQ(read(place / "lost"), "changed"); // no status, nothing touched
}

// Saved between the look at the place and the writing of HEAD's file.
TEST_F(IndexRevert, WhatAppearsMeanwhileStays) {
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

TEST_F(IndexRevert, InAConflictTheirsIsTaken) {
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
