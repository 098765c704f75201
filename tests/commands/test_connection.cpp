#include "command_fixture.hpp"

#include "commands/node.hpp"
#include "system/os.hpp"

#include <fcntl.h>

using namespace test;
namespace fs = std::filesystem;

namespace {

// ---- The tree by itself

// Each goes before the first of its kind that collates after it, else to the end; the keep-file
// collates before all, and of a name in another case only a directory beside a file comes in.
TEST(NodeTree, ChildrenStandWherePuttingThemInOneByOneWouldPlaceThem) {
    for (const auto &[added, order] :
         {std::pair{"b a/ c d/ aa .gitkeep b/ ä 9 Z z A/ 10 A y/ ",
                    ".gitkeep 10 9 ä aa b a/ c b/ d/ Z y/ "},
          {"z y/ m x/ k w/ l .gitkeep a/ zz c/ b M m/ (1) _ é/ e/ É ",
           ".gitkeep _ (1) b k l m z a/ c/ é/ e/ m/ w/ x/ y/ zz "},
          {"5/ 4 3/ 2 1/ 0 .gitkeep/ .gitkeep 4/ 3 ", ".gitkeep/ 1/ 3/ 4/ 5/ 0 2 4 "}}) {
        const auto root = zev::make_directory({}, u"copy");
        zev::NodeBuilder builder(root.get());
        std::istringstream names(added);
        for (std::string name; names >> name;) builder.add(name.back() == '/' ? name + "x" : name);
        builder.finish();
        std::string got;
        for (const auto &child : root->children)
            got += narrow(zev::node_path(*child).c_str()) + " ";
        EXPECT_EQ(got, order);
    }
}

TEST(NodeTree, LooksUpWithoutRegardToCase) {
    const auto root = zev::make_directory({}, u"copy");
    zev::NodeBuilder builder(root.get());
    std::string below = "x";
    for (int i = 0; i < 255; ++i) below = "d/" + below;
    const std::string too_deep = "e/" + below;
    for (const std::string path : {"a/B.dwx", "A/c.dwx", "a/b.DWX", "f.dwx", "twin", "Twin/below",
                                   "zeichnung/Größe.dwx", below.c_str(), too_deep.c_str()})
        builder.add(path);
    builder.finish();
    for (const auto &[path, found] : {std::pair{"A/b.dwx", "a/B.dwx"},
                                      {"a/C.dwx", "A/c.dwx"}, // in one, with its own prefix
                                      {"a/", "a/"},
                                      {"f.dwx/x", "f.dwx"}, // a file ends the walk
                                      {"twin", "twin"},     // which of both stands first
                                      {"Zeichnung/GRÖßE.dwx", "zeichnung/Größe.dwx"},
                                      {"a//B.dwx", "-"},
                                      {below.c_str(), below.c_str()},
                                      {"e", "-"}}) { // too deep
        const Node *node = zev::find_node(root.get(), wide(path));
        EXPECT_EQ(node ? narrow(zev::node_path(*node).c_str()) : "-", found) << path;
    }
    EXPECT_EQ(zev::find_node(root.get(), {}), root.get());
}

// ---- Connections

struct ConnectionTest : Connected<WorkingCopyTest> {
    std::string deleted() {
        std::string paths;
        for (const auto &path : zev::find_connection(copy.c_str())->deleted)
            paths += narrow(path.c_str()) + ";";
        return paths;
    }
    void stage_all() { git(place, "add -A"); }
    void base(std::vector<std::string> paths) {
        for (const std::string &path : paths) put(path, "content of " + path + "\n");
        commit_all();
    }
};

TEST_F(ConnectionTest, IsMadeOnceForEachText) {
    const std::u16string slashed = copy + u"/", elsewhere = dir / u"none";
    connect();
    put("a.dwx", "a");
    stage_all();
    connect();
    EXPECT_EQ(list(), Lines{}); // not made anew
    EXPECT_OK(zCommandConnect(slashed.c_str()));
    zCommandDisconnect(slashed.c_str());
    EXPECT_EQ(zev::find_connection(slashed.c_str()), nullptr);
    EXPECT_TRUE(zev::find_connection(copy.c_str()));
    for (const zwchar *bad : {elsewhere.c_str(), u"", static_cast<const zwchar *>(nullptr)}) {
        EXPECT_FALSE(zCommandConnect(bad));
        EXPECT_EQ(zev::find_connection(bad), nullptr);
        zCommandDisconnect(bad);
        zCommandReload(bad, nullptr, false);
    }
    zev::drop_connections();
    EXPECT_EQ(zev::find_connection(copy.c_str()), nullptr);
    connect();
    EXPECT_EQ(list(), (Lines{"1 >a.dwx"}));
}

TEST_F(ConnectionTest, ReloadIsOfTheWholeOrNotAtAll) {
    base({"d/a.dwx"});
    connect();
    put("e/b.dwx", "b");
    stage_all();
    zCommandReload(copy.c_str(), u"d/none", false);
    EXPECT_EQ(list(), (Lines{"0 >d/"}));
    zCommandReload(copy.c_str(), u"D/A.dwx", false);
    EXPECT_EQ(list(), (Lines{"0 >d/", "3 >e/"}));

    fs::remove(place / "e/b.dwx");
    git(place, "rm -q --cached d/a.dwx");
    IndexPtr held = lock();
    ASSERT_OK(held);
    zCommandReload(copy.c_str(), nullptr, true);
    EXPECT_EQ(zErrorClass(), 7);
    EXPECT_EQ(list(), Lines{});
    EXPECT_EQ(deleted(), "");
    // What needs no lock is shown; what is gone can't be brought back now, so it stays.
    reload();
    EXPECT_EQ(list(u"e"), (Lines{"1 >e/b.dwx"}));
    held.reset();
    zCommandReload(copy.c_str(), nullptr, true);
    EXPECT_EQ(list(), Lines{});
    EXPECT_EQ(deleted(), "d/a.dwx;");
}

TEST_F(ConnectionTest, NodesTellWhatTheIndexAndTheDiskChanged) {
    base({"same.dwx", "d/e/staged.dwx", "d/on disk.dwx", "gone.dwx", "d/f/gone.dwx", "moved.dwx",
          "other.dwx", "case.dwx", "only/.gitkeep", "d/.gitkeep"});
    put("d/e/staged.dwx", "new content");
    put("new/below/x.dwx", "x");
    git(place, "rm -q gone.dwx d/f/gone.dwx");
    git(place, "mv moved.dwx d/moved.dwx");
    git(place, "mv other.dwx d/other.dwx");
    fs::rename(place / "case.dwx", place / "Case.dwx");
    put("Case.dwx", "all different");
    stage_all();
    put("d/on disk.dwx", "edited");
    put("d/other.dwx", "content of other.dwx\nedited\n");
    put("untracked.dwx", "?");
    connect();
    EXPECT_EQ(list(), (Lines{"1 >Case.dwx", "3 >d/", "3 >new/", "0 >only/", "0 >same.dwx"}));
    EXPECT_EQ(list(u"ONLY/"), Lines{});
    EXPECT_EQ(list(u"d"), (Lines{"3 >d/e/", "4 moved.dwx>d/moved.dwx", "3 >d/on disk.dwx",
                                 "1 >d/other.dwx"})); // moved and edited
    EXPECT_EQ(list(u"d/e"), (Lines{"3 >d/e/staged.dwx"}));
    EXPECT_EQ(list(u"new"), (Lines{"3 >new/below/"}));
    EXPECT_EQ(list(u"new/below"), (Lines{"1 >new/below/x.dwx"}));
    EXPECT_EQ(deleted(), "case.dwx;d/f/gone.dwx;gone.dwx;other.dwx;");
    const Node *other =
        zev::find_node(zev::find_connection(copy.c_str())->root.get(), u"d/other.dwx");
    EXPECT_EQ(other->flags, zev::kAdded);
    Listed one{.most = 1};
    EXPECT_OK(zCommandList(copy.c_str(), u"d/", Listed::take, &one));
    EXPECT_EQ(one.lines.size(), 1u);
    EXPECT_FALSE(zCommandList(copy.c_str(), u"d/moved.dwx", Listed::take, &one));
    EXPECT_FALSE(zCommandList(copy.c_str(), u"nowhere", Listed::take, &one));
}

// Keep-files are all alike: the files beside them tell which directory is which.
TEST_F(ConnectionTest, DirectoriesAreRenamedByTheirKeepFiles) {
    base({"a/a.dwx", "b/b.dwx", "b/sub/s.dwx", "empty/x", "stays/one.dwx", "stays/two.dwx",
          "up/u.dwx"});
    for (const char *path : {"a", "b", "b/sub", "empty", "stays", "up"})
        put(std::string(path) + "/.gitkeep", "");
    fs::remove(place / "empty/x");
    stage_all();
    commit_all();
    git(place, "mv a z");
    git(place, "mv b y");
    git(place, "mv empty hollow");
    git(place, "mv up UP");
    fs::create_directory(place / "part");
    git(place, "mv stays/one.dwx part/one.dwx");
    git(place, "mv stays/.gitkeep part/.gitkeep");
    connect();
    EXPECT_EQ(list(), (Lines{"4 empty/>hollow/", "3 >part/", "0 >stays/", "4 up/>UP/", "4 b/>y/",
                             "4 a/>z/"}));
    EXPECT_EQ(list(u"y"), (Lines{"4 b/b.dwx>y/b.dwx", "4 b/sub/>y/sub/"}));
    EXPECT_EQ(list(u"hollow"), Lines{});
}

// ---- What is gone from the disk

TEST_F(ConnectionTest, WhatIsGoneFromTheDiskComesBack) {
    base({"a.dwx", "d/b.dwx", "d/c.dwx", "edited.dwx", "#1.dwx", "old.dwx", "saved.dwx", "file.dwx",
          "was/1.dwx"});
    put("edited.dwx", "staged");
    put("added/new.dwx", "new");
    git(place, "mv old.dwx renamed.dwx");
    stage_all();
    put("d/c.dwx", "unsaved work");
    for (const char *path : {"a.dwx", "d/b.dwx", "#1.dwx", "added/new.dwx", "edited.dwx",
                             "renamed.dwx", "saved.dwx", "file.dwx", "was"})
        fs::remove_all(place / path);
    put("file.dwx/untracked", "mine");
    put("was", "mine too");
    put(".git/AUTHZ", R"({"settings":{"default":112,"entries":[
        {"setting":{"path":"d","privilege":16}}]}})");
    // Its user saves one after the status was read, before the index is locked.
    static fs::path saved;
    saved = place / "saved.dwx";
    const zev::os::Calls kept = zev::os::calls;
    zev::os::calls.open = [](const char *path, int flags, mode_t mode) {
        if (std::string_view(path).ends_with(".index.zlck")) write(saved, "work");
        return ::open(path, flags, mode);
    };
    connect();
    zev::os::calls = kept;
    EXPECT_EQ(read(saved), "work");
    EXPECT_EQ(read(place / "a.dwx"), "content of a.dwx\n");
    EXPECT_EQ(read(place / "d/b.dwx"), "content of d/b.dwx\n");
    EXPECT_EQ(read(place / "d/c.dwx"), "unsaved work"); // no business of a reload
    EXPECT_TRUE(is_readonly("d/b.dwx"));                // as he may only read it
    EXPECT_FALSE(is_readonly("a.dwx"));
    EXPECT_EQ(read(place / "edited.dwx"), "content of edited.dwx\n");
    EXPECT_FALSE(fs::exists(place / "added/new.dwx"));
    EXPECT_EQ(git(place, "ls-files added"), "");
    EXPECT_EQ(list(), (Lines{"0 >#1.dwx", "0 >a.dwx", "3 >d/", "0 >edited.dwx", "0 >file.dwx",
                             "3 >saved.dwx", "0 >was/"}));
    // As if the move had been undone, and old.dwx removed. What stands elsewhere is left alone.
    EXPECT_EQ(git(place, "status --short -uall"),
              " M d/c.dwx\n D file.dwx\nD  old.dwx\n M saved.dwx\n D was/1.dwx\n"
              "?? file.dwx/untracked\n?? was");
    EXPECT_EQ(read(place / "was"), "mine too");
}

// ---- Conflicts

struct ConnectedConflict : Connected<ConflictFixture> {};

TEST_F(ConnectedConflict, MarkWhatIsShownOfThem) {
    for (const char *path : {"d/both.dwx", "d/e/dropped.dwx", "way", "clean/x.dwx"})
        put(path, std::string("first of ") + path);
    commit("base");
    merge(
        [&] {
            take("way");
            for (auto *path : {"d/both.dwx", "d/e/dropped.dwx", "way/in/theirs.dwx", "new/n.dwx"})
                put(path, "theirs");
        },
        [&] {
            take("d/e/dropped.dwx");
            for (auto *path : {"d/both.dwx", "d/e/other.dwx", "way", "new/n.dwx"})
                put(path, "ours");
        });
    connect();
    EXPECT_EQ(list(), (Lines{"0 >clean/", "10 >d/", "10 >new/", "3 >way/", "10 >way~HEAD"}));
    EXPECT_EQ(list(u"d"), (Lines{"10 >d/both.dwx", "10 >d/e/"}));
    EXPECT_EQ(list(u"d/e"), (Lines{"0 >d/e/other.dwx"})); // the dropped one is no longer ours
}

// A conflict of theirs alone shows at what stands in its way.
TEST_F(ConnectedConflict, ShowAtTheObstacle) {
    for (auto *path : {"d/a", "e/f/x.dwx"}) put(path, "file");
    commit("base");
    IndexPtr index = lock();
    ASSERT_OK(index);
    for (const char *path : {"d/a/b/theirs.dwx", "d/a/c.dwx", "e/f"})
        ASSERT_OK(zConflictAdd(index.get(), nullptr, nullptr, entry(path, "theirs").get()));
    ASSERT_OK(zIndexWrite(index.get()));
    index.reset();
    connect();
    EXPECT_EQ(list(u"d"), (Lines{"10 >d/a"}));
    EXPECT_EQ(list(u"e"), (Lines{"10 >e/f/"}));
    EXPECT_EQ(list(u"e/f"), (Lines{"10 >e/f/x.dwx"}));
}

} // namespace
