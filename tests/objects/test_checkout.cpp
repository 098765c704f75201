#include "copy_fixture.hpp"

#include <zev/checkout.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

#include <sys/stat.h>

using namespace test;

namespace {

namespace fs = std::filesystem;
using CheckPtr = Held<CheckSpec, zCheckSpecFree>;

// A copy on master whose base is `first`; what comes in is on the branch side.
class CheckoutTest : public WorkingCopyTest {
  protected:
    Report report;
    CheckPtr spec{zCheckSpecNew()};

    void SetUp() override {
        ASSERT_OK(repository);
        for (const char *name : {"kept", "edited", "same", "gone", "gone-edited", "d/in", "d/two"})
            put(name, std::string("first ") + name);
        git_commit("first");
        git_as("checkout -qb side");
        for (const char *name : {"kept", "edited", "same"}) put(name, std::string("side ") + name);
        put("new/file", "side new");
        put("untracked", "side untracked");
        take("gone"), take("gone-edited");
        git_commit("side");
        git_as("checkout -q master");
        zCheckSpecSetNotify(spec.get(), &report);
    }

    bool checkout(const std::string &target = "side") {
        Oid id{};
        EXPECT_OK(zOidFromStr(&id, zStrfromutf8(git(place, "rev-parse " + target).c_str())));
        zCheckSpecSetTarget(spec.get(), &id);
        return zRepositoryCheckout(repository.get(), spec.get());
    }

    // One more entry, or another one, in the top directory of the side's commit.
    void plant(const std::string &entry, const std::string &path) {
        const std::string tree =
            git(place, "rev-parse; cd '" + place.string() +
                           "'; { git ls-tree side | grep -v '[[:space:]]" + path + "$'; printf '" +
                           entry + "\\t" + path + "\\n'; } | git mktree --missing");
        git_as("update-ref refs/heads/side " + git_as("commit-tree -m more -p side " + tree));
    }
    void expect_told(const zwchar *word, std::initializer_list<std::string> paths) {
        for (const std::string &path : paths)
            EXPECT_TRUE(report.told(text(word) + " " + path)) << narrow(word) << " " << path;
    }
    void expect_reason(const zwchar *key, std::initializer_list<std::string> paths) {
        for (const std::string &path : paths) EXPECT_EQ(report.reasons[path], text(key)) << path;
    }
    // Work directory, index and the new commit are as the target.
    void expect_as(const std::string &target = "side") {
        EXPECT_EQ(porcelain() + git(place, "diff --stat HEAD " + target), "");
    }
    std::string at(const std::string &path) { return exists(path) ? read(place / path) : "(none)"; }
    std::string head() { return git(place, "rev-parse HEAD"); }
};

} // namespace

TEST_F(CheckoutTest, KeepsWhatTheUserChanged) {
    put("edited", "mine");
    put("same", "side same"); // as they did
    put("gone-edited", "mine too"), put("untracked", "mine alone");
    take("kept");                             // theirs takes its place
    for (int times = 0; times < 2; ++times) { // then what is in conflict stays so
        ASSERT_OK(checkout());
        EXPECT_EQ(at("edited") + at("gone-edited") + at("untracked") + at("kept"),
                  "minemine toomine aloneside kept");
        EXPECT_EQ(porcelain(), "UU edited\nUD gone-edited\nAA untracked");
    }
    expect_told(u"action.sConflicted", {"edited", "gone-edited", "untracked"});
    expect_told(u"action.sUpdated", {"same"});
    EXPECT_EQ(git(place, "show :1:edited :2:edited :3:edited"), "first editedmineside edited");
    EXPECT_EQ(git(place, "diff HEAD side --stat"), ""); // the commit is theirs
}

// Content and mode go each by the side that changed it, a link's target and a file's content by
// none; and what both have alike is no change of anybody's, whatever kind of file it comes to be.
TEST_F(CheckoutTest, AModeIsAChangeOfItsOwn) {
    put("tool", "#!"), put("comes", "d/in");
    plant("100755 blob " + git(place, "hash-object -w tool"), "tool");
    plant("120000 blob " + git(place, "hash-object -w comes"), "comes");
    plant("100755 blob " + git(place, "rev-parse HEAD:kept"), "kept");
    plant("120000 blob " + git(place, "rev-parse HEAD:same"), "same");
    put("kept", "mine"), put("same", "mine"), put("untracked", "side untracked");
    git_as("add untracked");
    git_as("update-index --chmod=+x edited untracked");
    ASSERT_OK(checkout());
    EXPECT_EQ(porcelain(), "M  edited\nM  kept\nUU same\nM  untracked");
    const auto modes = [&] {
        return git(place, "ls-files -s comes edited kept same tool untracked | "
                          "sed 's/ .* / /; s/\t/ /' | tr '\n' ,");
    };
    EXPECT_EQ(modes(), "120000 0 comes,100755 0 edited,100755 0 kept,100644 1 same,100644 2 same,"
                       "120000 3 same,100755 0 tool,100755 0 untracked,");
    EXPECT_EQ(at("edited") + at("kept") + at("same"), "side editedminemine");
    EXPECT_EQ(fs::read_symlink(place / "comes"), "d/in");
    for (const char *path : {"edited", "kept", "tool"})
        EXPECT_NE(fs::status(place / path).permissions() & fs::perms::owner_exec, fs::perms::none)
            << path;
    expect_told(u"action.sAdded", {"tool", "comes"});
    expect_told(u"action.sUpdated", {"kept", "edited"});
    plant("100755 blob " + git(place, "hash-object -w same"), "same"); // they agree, at last
    ASSERT_OK(checkout());
    EXPECT_EQ(porcelain(), "M  edited\nM  kept\nM  untracked");
}

// A file stands where theirs needs a directory, a directory where it needs a file, be it that the
// index alone has it.
TEST_F(CheckoutTest, WhatIsInTheWayIsAConflict) {
    plant("100644 blob " + git(place, "rev-parse side:kept"), "d");
    put("d/in", "mine, staged");
    git_as("add d");
    take("d");
    put("new", "a file of mine"), put("untracked/below", "mine");
    ASSERT_OK(checkout());
    EXPECT_EQ(at("new") + at("untracked/below") + at("kept"), "a file of minemineside kept");
    expect_told(u"action.sConflicted", {"new/file", "untracked", "d", "d/in"});
    EXPECT_EQ(git(place, "show :2:d/in"), "mine, staged");
}

// And what takes the place of one.
TEST_F(CheckoutTest, LeavesFilesInUse) {
    plant("100644 blob " + git(place, "rev-parse side:kept"), "d");
    {
        std::vector<Held<Share, zShareClose>> open;
        for (const char *path : {"kept", "d/in"})
            ASSERT_OK(open.emplace_back(zShareOpen((place / path).u16string().c_str(), u"rb", 3)));
        ASSERT_OK(checkout());
    }
    expect_told(u"action.sSkipped", {"kept", "d/in", "d"});
    expect_reason(u"reason.eNoAccess", {"kept", "d/in"});
    expect_reason(u"reason.eHeldUp", {"d"});
    EXPECT_EQ(porcelain(), "");
    EXPECT_EQ(git(place, "diff --name-only --no-renames HEAD side"), "d\nd/in\nkept");
}

// One before the first file makes no commit, with force too, nor does one amid the only file.
TEST_F(CheckoutTest, ABreakKeepsWhatWasDone) {
    static int calls;
    const std::string old = head();
    for (const uint32_t options : {uint32_t{Z_CHECK_FORCE}, 0u}) {
        report.stop = true;
        zCheckSpecSetOptions(spec.get(), options);
        ASSERT_OK(checkout());
        EXPECT_EQ(head() + porcelain(), old) << options;
    }
    // Asked for once, between the blocks of a large file.
    put("d/in", std::string(3u << 20, 'x'));
    calls = 4;
    report.usrbrk = [](const Notify *) { return --calls == 0; };
    zCheckSpecSetOptions(spec.get(), Z_CHECK_FORCE);
    ASSERT_OK(checkout());
    EXPECT_EQ(head() + porcelain(), old + " M d/in");
}

// A name that git alone takes, and that stays, is no failure.
TEST_F(CheckoutTest, ForceMakesItAsTheTarget) {
    put("tab\t", "git's");
    git_commit("odd");
    git_as("rebase -q master side");
    git_as("checkout -q master");
    put("edited", "mine"), put("d/in", "below"), put("added", "staged"), put("untracked", "alone");
    put("new", "in the way");
    take("d/two");
    git_as("add added");
    zCheckSpecSetOn(spec.get(), Z_CHECK_FORCE);
    ASSERT_OK(checkout());
    expect_as();
    EXPECT_EQ(trashed(), "added=staged;edited=mine;in=below;new=in the way;untracked=alone;");
    expect_told(u"action.sReverted", {"edited", "added"});
    expect_told(u"action.sUpdated", {"d/two"}); // was only gone from the disk
    for (const zwchar *word : {u"action.sSkipped", u"action.sFailed"})
        EXPECT_FALSE(report.told(text(word) + " tab\t"));
}

// What a kind leaves out doesn't come in, and with force doesn't go: it is not the target's wish.
TEST_F(CheckoutTest, KindsThatAreLeftOutStayAsTheyAre) {
    const std::string first = head();
    const std::vector<std::string> all = {"d/in", "untracked", "added", "gone-edited", "edited"};
    const struct {
        uint32_t kind;
        std::vector<std::string> stay;
    } cases[] = {{0, {}},
                 {Z_SPEC_NO_UNCHANGED, {}}, // force takes these, whatever is asked for
                 {Z_SPEC_NO_ADDED, {"untracked", "added"}},
                 {Z_SPEC_NO_DELETED, {"gone-edited"}},
                 {Z_SPEC_NO_MODIFIED, {"edited"}},
                 {Z_SPEC_NO_ADDED | Z_SPEC_NO_DELETED | Z_SPEC_NO_MODIFIED,
                  {"untracked", "added", "gone-edited", "edited"}}};
    zCheckSpecSetOn(spec.get(), Z_CHECK_FORCE);
    for (const auto &[kind, stay] : cases) {
        git_as("reset -q --hard " + first);
        git(place, "clean -fdq");
        fs::remove_all(place / ".git/trash");
        for (const std::string &path : all) put(path, "mine");
        git_as("add added");
        zCheckSpecSetPaths(spec.get(), WorkingCopyTest::spec({}, kind, &report).get());
        ASSERT_OK(checkout());
        std::vector<std::string> left;
        for (const std::string &path : all)
            if (at(path) == "mine") left.push_back(path);
        EXPECT_EQ(left, stay) << kind;
        const std::string taken = trashed();
        EXPECT_EQ(std::ranges::count(taken, ';') + std::ssize(stay), std::ssize(all)) << taken;
    }
}

// What can't come in, since the store lacks it or no name is that long, stays as it was and is not
// taken. A conflict takes no bytes of theirs. With force nothing goes for nothing.
TEST_F(CheckoutTest, LeavesOutWhatCantComeIn) {
    const std::string name(300, 'x');
    plant("100644 blob " + git(place, "rev-parse side:kept"), name);
    for (const char *lost : {"side:edited", "side:same", "side:new/file"}) lose(lost);
    put("edited", "mine");
    ASSERT_OK(checkout());
    expect_told(u"action.sSkipped", {"same", "new/file", name});
    expect_reason(u"reason.eNameTooLong", {name});
    EXPECT_EQ(report.reasons["same"].find("object not found"), 0u) << report.reasons["same"];
    EXPECT_EQ(porcelain(), "UU edited");
    EXPECT_EQ(git(place, "diff --name-only --no-renames HEAD side"), "new/file\nsame\n" + name);

    zCheckSpecSetOn(spec.get(), Z_CHECK_FORCE);
    for (const char *path : {"edited", "same"}) {
        zCheckSpecSetPaths(spec.get(), WorkingCopyTest::spec({wide(path)}, 0, &report).get());
        ASSERT_OK(checkout());
        expect_told(u"action.sFailed", {path});
    }
    EXPECT_EQ(at("edited") + at("same"), "minefirst same");
}

// A tracked name of ours that differs in case only keeps theirs out.
TEST_F(CheckoutTest, TakesNoTwinOfOurs) {
    put("Untracked", "mine");
    git_as("add Untracked");
    ASSERT_OK(checkout());
    expect_told(u"action.sSkipped", {"untracked"});
    expect_reason(u"reason.eTwin", {"untracked"});
    EXPECT_EQ(porcelain(), "A  Untracked");
    EXPECT_EQ(git(place, "diff --name-status HEAD side"), "A\tuntracked");
}

// The commit of a repository within: the index alone knows it, beside an empty directory.
TEST_F(CheckoutTest, KeepsGitlinksInTheIndex) {
    const std::string first = head(), link = git(place, "rev-parse side");
    plant("160000 commit " + first, "lib");
    const std::string with = git(place, "rev-parse side");
    plant("160000 commit " + link, "lib");
    for (const uint32_t options : {0u, uint32_t{Z_CHECK_FORCE}}) {
        zCheckSpecSetOptions(spec.get(), options);
        for (const std::string &target : {with, std::string("side")}) {
            ASSERT_OK(checkout(target));
            expect_as(target);
        }
        if (options) put("lib/file", "of the other repository");
        ASSERT_OK(checkout(first));
        EXPECT_EQ(git(place, "ls-files lib"), "");
        EXPECT_EQ(exists("lib"), options != 0);
    }
    zCheckSpecSetOptions(spec.get(), 0);
    ASSERT_OK(checkout(with));
    git_as("update-index --cacheinfo 160000," + head() + ",lib");
    ASSERT_OK(checkout("side"));
    EXPECT_EQ(porcelain(), "UU lib");
}

TEST_F(CheckoutTest, ADirectoryThatCantBeReadFailsIt) {
    plant("040000 tree " + std::string(40, '1'), "lost");
    const auto cant_read = [&] {
        report.lines.clear();
        EXPECT_FALSE(checkout());
        EXPECT_TRUE(report.told("error: " + text(u"odb.eFailedToParseWorktree")))
            << testing::PrintToString(report.lines);
    };
    cant_read();
    put(".git/AUTHZ", R"({"settings":{"default":112,"entries":[
        {"setting":{"path":"d","privilege":16}}]}})");
    cant_read();
    EXPECT_TRUE(is_readonly("d/in"));
    EXPECT_EQ(git(place, "diff-files --name-only d"), ""); // and no status looks into it for that
    git_as("update-ref refs/heads/side side^");
    ASSERT_OK(checkout()); // what had come in already is the same on both sides
    expect_as();
}

// Attributes that come in hold for all that comes with them, a link goes whatever it leads to, and
// the index knows each file as it stands after it was renamed into place.
TEST_F(CheckoutTest, FilesAreAsTheTargetHasThem) {
    fs::create_directory_symlink("d", place / "link");
    for (const char *name : {"turns/deep/one", "turns/two", "goes/deep/three"}) put(name, name);
    git_commit("link");
    git_as("checkout -qB side");
    for (const char *name : {"link", "turns", "goes"}) take(name);
    put_all({"link", "turns"}, "a file\n");
    fs::create_symlink("nowhere", place / "comes");
    put(".gitattributes", "*.txt text eol=crlf\n*.dwx text eol=crlf\n");
    put_all({"!.txt", "text.txt"}, "1\r\n");
    put("plan.dwx", "1\n");
    std::string noise(3u << 20, 0);
    std::generate(noise.begin(), noise.end(), std::minstd_rand());
    for (const char *name : {"kept", "large"}) put(name, noise);
    git_as("add -A");
    git_as("update-index --chmod=+x kept");
    git_as("commit -qm more");
    git_as("checkout -q master");
    git(place, "status"); // else what git wrote may be too young
    ASSERT_OK(checkout());
    expect_as();
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(place / "link")));
    EXPECT_FALSE(exists("goes"));
    EXPECT_EQ(at("!.txt") + at("text.txt"), "1\r\n1\r\n");
    EXPECT_EQ(at("plan.dwx"), "1\n") << "a drawing was converted";
    for (const char *name : {"kept", "large", "link", "text.txt"}) {
        struct stat now;
        ASSERT_EQ(lstat((place / name).c_str(), &now), 0);
        EXPECT_EQ(now.st_mode & 0133, strcmp(name, "kept") ? 0u : 0111u) << name;
        const std::string time = "ctime: " + std::to_string(now.st_ctim.tv_sec) + ":" +
                                 std::to_string(now.st_ctim.tv_nsec) + "\n";
        const std::string known = git(place, std::string("ls-files --debug ") + name);
        EXPECT_NE(known.find(time), std::string::npos) << name << known;
    }
}

// A directory of ours is a link that leads out: nothing there is read, written or taken, and with
// force the link goes.
TEST_F(CheckoutTest, StaysBeforeALink) {
    const fs::path outside = dir.path() / "outside";
    write(outside / "file", "not ours");
    write(outside / "in", "nor this");
    take("d");
    for (const char *link : {"new", "d"}) fs::create_directory_symlink(outside, place / link);
    ASSERT_OK(checkout());
    expect_told(u"action.sConflicted", {"new/file"});
    EXPECT_NE(git(place, "ls-files -u new"), "");
    EXPECT_EQ(git(place, "cat-file -e $(git hash-object " + (outside / "file").string() +
                             ") 2>/dev/null && echo stored"),
              "");
    zCheckSpecSetOn(spec.get(), Z_CHECK_FORCE);
    ASSERT_OK(checkout());
    expect_as();
    EXPECT_EQ(read(outside / "file") + read(outside / "in"), "not oursnor this");
}

// A conflict from before whose file is gone: what the index keeps of it may be all there is. That
// of a former target goes.
TEST_F(CheckoutTest, KeepsOursOfAnEarlierConflict) {
    put("edited", "mine"), put("same", "mine");
    ASSERT_OK(checkout());
    take("edited");
    plant("100644 blob " + git(place, "hash-object -w --stdin </dev/null"), "edited");
    const std::string tree = git(place, "rev-parse; cd '" + place.string() +
                                            "'; git ls-tree side | grep -v same | git mktree");
    ASSERT_OK(checkout(git_as("commit-tree -m later -p side " + tree)));
    EXPECT_EQ(git(place, "show :2:edited :3:edited :2:same"), "minemine");
    EXPECT_EQ(git(place, "ls-files -u same").find(" 3\t"), std::string::npos);
}

// Git commits while we are at work, and knows no lock of ours: its commit stands, and the index has
// its file, whichever reference we are to move.
TEST_F(CheckoutTest, TakesNoOtherCommitBack) {
    static std::function<void()> meanwhile;
    report.progress = [](const Notify *, const zwchar *) { std::exchange(meanwhile, [] {})(); };
    git_as("branch aside");
    git_as("pack-refs --all");
    for (const zwchar *branch : {u"refs/heads/aside", u"HEAD"}) {
        meanwhile = [this, branch] {
            put("later", narrow(branch));
            git_as("add later");
            git_as("commit -qm meanwhile");
        };
        zCheckSpecSetBranch(spec.get(), branch);
        EXPECT_FALSE(checkout()) << narrow(branch);
        EXPECT_EQ(git(place, "log -1 --format=%s"), "meanwhile");
        EXPECT_EQ(git(place, "log -1 --format=%s --all --grep=MERGE"), "");
        EXPECT_EQ(git(place, "diff --name-only --cached"), "");
        EXPECT_EQ(at("edited"), "side edited");
        git_as("reset -q --hard");
    }
}

// Nor does a host that looks while git has written: what it was shown took the place of what came
// in.
TEST_F(CheckoutTest, EndsWhereALookTookItsIndex) {
    static std::function<void()> meanwhile;
    report.progress = [](const Notify *, const zwchar *) { std::exchange(meanwhile, [] {})(); };
    const std::string head = git(place, "rev-parse HEAD");
    meanwhile = [this] {
        put("later", "mine");
        git_as("add later");
        EXPECT_OK(IndexPtr(zIndexHead(repository.get(), false)));
    };
    EXPECT_FALSE(checkout());
    EXPECT_EQ(git(place, "rev-parse HEAD"), head);
    EXPECT_EQ(git(place, "diff --name-only --cached"), "later");
}

// An empty file is what a process leaves that dies before it writes.
TEST_F(CheckoutTest, GoesOnWhereOneWasKilled) {
    put("untracked", "");
    ASSERT_OK(checkout());
    expect_as();
}
TEST_F(CheckoutTest, LeavesAnEmptyFileToWhoeverHasItOpen) {
    put("untracked", "");
    const Held<Share, zShareClose> open(
        zShareOpen((place / "untracked").u16string().c_str(), u"r+b", Z_SHARE_NONE));
    ASSERT_OK(checkout());
    EXPECT_EQ(at("untracked"), "");
    EXPECT_EQ(at("new/file"), "side new");
}
