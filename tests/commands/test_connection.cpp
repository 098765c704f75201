#include "command_fixture.hpp"

#include "commands/node.hpp"

#include <random>

using namespace test;
namespace fs = std::filesystem;

namespace {

// ---- The tree by itself

// Each node into its place as it comes, by the rule in its own words.
struct NaiveDirectory {
    struct Child {
        std::u16string name;
        bool directory;
    };
    std::vector<Child> children;

    void place(const std::u16string &name, bool directory) {
        const auto same = [&](const Child &child) {
            return zStrcasesameW(child.name.c_str(), name.c_str());
        };
        for (const Child &child : children)
            if (same(child) && (!directory || child.directory)) return;
        auto at = children.begin();
        while (at != children.end() && !(at->directory == directory && is_after(at->name, name)))
            ++at;
        children.insert(at, {name, directory});
    }
    static bool is_after(const std::u16string &a, const std::u16string &b) {
        const bool keep_a = a == u".gitkeep", keep_b = b == u".gitkeep";
        return keep_a || keep_b ? keep_b && !keep_a : zStricollW(a.c_str(), b.c_str()) > 0;
    }
};

std::string random_name(std::mt19937 &random, bool ascii) {
    static const std::vector<std::string> kPlain = {"a", "A",  "b", "B", "z", "_",    "-", ".", " ",
                                                    "1", "10", "(", "~", "+", "\x01", "$", "ch"};
    static const std::vector<std::string> kOther = {"ä", "Å", "中", "é", "e\u0301", "ß", "ж", "Ж"};
    if (random() % 12 == 0) return ".gitkeep";
    std::string name;
    for (size_t n = 1 + random() % 3; n > 0; --n) {
        const auto &parts = ascii || random() % 2 ? kPlain : kOther;
        name += parts[random() % parts.size()];
    }
    return name;
}

TEST(NodeTree, ChildrenStandWherePuttingThemInOneByOneWouldPlaceThem) {
    std::mt19937 random(8);
    for (int round = 0; round < 400; ++round) {
        const auto root = zev::make_directory({}, u"copy");
        zev::NodeBuilder builder(root.get());
        NaiveDirectory naive;
        std::string said;
        for (size_t n = random() % 30; n > 0; --n) {
            const std::string name = random_name(random, round % 2);
            const bool directory = random() % 2;
            builder.add(directory ? name + "/x" : name);
            naive.place(wide(name), directory);
            said += name + (directory ? "/ " : " ");
        }
        builder.finish();
        std::string want, got;
        for (const auto &[name, directory] : naive.children)
            want += narrow(name.c_str()) + (directory ? "/ " : " ");
        for (const auto &child : root->children)
            got += narrow(child->name.c_str()) + (child->is(zev::kDirectory) ? "/ " : " ");
        ASSERT_EQ(got, want) << "round " << round << ": " << said;
    }
}

TEST(NodeTree, LooksUpWithoutRegardToCase) {
    const auto root = zev::make_directory({}, u"copy");
    zev::NodeBuilder builder(root.get());
    std::string below = "x", too_deep;
    for (int i = 0; i < 255; ++i) below = "d/" + below;
    too_deep = "d/" + below.substr(0, below.size() - 1) + "y";
    for (const std::string path : {"a/B.dwx", "A/c.dwx", "a/b.DWX", "f.dwx", "twin", "Twin/below",
                                   "zeichnung/Größe.dwx", below.c_str(), too_deep.c_str()})
        builder.add(path);
    builder.finish();
    const struct {
        std::u16string_view path;
        const char *found; // its own path
    } kPaths[] = {
        {u"A/b.dwx", "a/B.dwx"},
        {u"a/C.dwx", "A/c.dwx"}, // below the one directory, with its own prefix
        {u"a/", "a/"},
        {u"f.dwx/x", "f.dwx"}, // a file ends the walk
        {u"twin", "twin"},     // which of both stands first
        {u"Zeichnung/GRÖßE.dwx", "zeichnung/Größe.dwx"},
        {u"a//B.dwx", "-"},
    };
    for (const auto &[path, found] : kPaths) {
        const Node *node = zev::find_node(root.get(), path);
        EXPECT_EQ(node ? narrow(zev::node_path(*node).c_str()) : "-", found)
            << narrow(std::u16string(path).c_str());
    }
    EXPECT_EQ(zev::find_node(root.get(), {}), root.get());
    EXPECT_TRUE(zev::find_node(root.get(), wide(below)));
    EXPECT_FALSE(zev::find_node(root.get(), wide(too_deep)));
}

// ---- Connections

struct ConnectionTest : Connected<WorkingCopyTest> {
    std::string deleted() {
        std::string paths;
        for (const auto &path : zev::find_connection(copy.c_str())->deleted)
            paths += narrow(path.c_str()) + ";";
        return paths;
    }
    std::string porcelain() { return git(place, "status --short -uall"); }
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
    EXPECT_EQ(zev::find_connection(slashed.c_str()), nullptr);
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
    const IndexPtr held = lock();
    ASSERT_OK(held);
    zCommandReload(copy.c_str(), nullptr, true);
    EXPECT_EQ(zErrorClass(), 7);
    EXPECT_EQ(list(), Lines{});
    EXPECT_EQ(deleted(), "");
    // What needs no lock is shown; what is gone can't be brought back now, so it stays.
    reload();
    EXPECT_EQ(list(u"e"), (Lines{"1 >e/b.dwx"}));
    EXPECT_EQ(deleted(), "d/a.dwx;");
}

TEST_F(ConnectionTest, NodesTellWhatTheIndexAndTheDiskChanged) {
    base({"same.dwx", "d/e/staged.dwx", "d/on disk.dwx", "gone.dwx", "d/f/gone.dwx", "moved.dwx",
          "other.dwx", "case.dwx"});
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
    EXPECT_EQ(list(), (Lines{"1 >Case.dwx", "3 >d/", "3 >new/", "0 >same.dwx"}));
    EXPECT_EQ(list(u"d"), (Lines{"3 >d/e/", "4 moved.dwx>d/moved.dwx", "3 >d/on disk.dwx",
                                 "1 >d/other.dwx"})); // moved and edited
    EXPECT_EQ(list(u"d/e"), (Lines{"3 >d/e/staged.dwx"}));
    EXPECT_EQ(list(u"new"), (Lines{"3 >new/below/"}));
    EXPECT_EQ(list(u"new/below"), (Lines{"1 >new/below/x.dwx"}));
    EXPECT_EQ(deleted(), "case.dwx;d/f/gone.dwx;gone.dwx;other.dwx;");
    const Node *other =
        zev::find_node(zev::find_connection(copy.c_str())->root.get(), u"d/other.dwx");
    EXPECT_EQ(other->flags, zev::kAdded);
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
    base({"a.dwx", "d/b.dwx", "d/c.dwx", "edited.dwx", "#1.dwx", "old.dwx"});
    put("edited.dwx", "staged");
    put("added/new.dwx", "new");
    git(place, "mv old.dwx renamed.dwx");
    stage_all();
    put("d/c.dwx", "unsaved work");
    for (const char *path :
         {"a.dwx", "d/b.dwx", "#1.dwx", "added/new.dwx", "edited.dwx", "renamed.dwx"})
        fs::remove(place / path);
    put("#1.dwx/in the way", "mine");
    connect();
    EXPECT_EQ(read(place / "a.dwx"), "content of a.dwx\n");
    EXPECT_EQ(read(place / "d/b.dwx"), "content of d/b.dwx\n");
    EXPECT_EQ(read(place / "d/c.dwx"), "unsaved work"); // no business of a reload
    EXPECT_EQ(read(place / "edited.dwx"), "content of edited.dwx\n");
    EXPECT_FALSE(fs::exists(place / "added/new.dwx"));
    EXPECT_EQ(git(place, "ls-files added"), "");
    EXPECT_EQ(list(), (Lines{"0 >#1.dwx", "0 >a.dwx", "3 >d/", "0 >edited.dwx"}));
    // As if the move had been undone, and old.dwx removed.
    EXPECT_EQ(porcelain(), " M d/c.dwx\nD  old.dwx");
}

// ---- Conflicts

struct ConnectedConflict : Connected<ConflictFixture> {};

TEST_F(ConnectedConflict, MarkWhatIsShownOfThem) {
    for (const char *path : {"d/both.dwx", "d/e/dropped.dwx", "way", "clean/x.dwx"})
        put(path, std::string("first of ") + path);
    commit("base");
    merge(
        [&] {
            put("d/both.dwx", "theirs");
            put("d/e/dropped.dwx", "theirs");
            take("way");
            put("way/in/theirs.dwx", "below");
            put("new/n.dwx", "theirs");
        },
        [&] {
            put("d/both.dwx", "ours");
            take("d/e/dropped.dwx");
            put("d/e/other.dwx", "ours");
            put("way", "ours");
            put("new/n.dwx", "ours");
        });
    connect();
    EXPECT_EQ(list(), (Lines{"0 >clean/", "10 >d/", "10 >new/", "3 >way/", "10 >way~HEAD"}));
    EXPECT_EQ(list(u"d"), (Lines{"10 >d/both.dwx", "10 >d/e/"}));
    EXPECT_EQ(list(u"d/e"), (Lines{"0 >d/e/other.dwx"})); // the dropped one is no longer ours
}

// A conflict of theirs alone shows at what stands in its way.
TEST_F(ConnectedConflict, ShowAtTheObstacle) {
    put("d/a", "file");
    put("e/f/x.dwx", "file");
    commit("base");
    IndexPtr index = lock();
    ASSERT_OK(index);
    for (const char *path : {"d/a/b/theirs.dwx", "d/a/c.dwx", "e/f"})
        ASSERT_OK(zConflictAdd(index.get(), nullptr, nullptr, entry(path, "theirs").get()));
    ASSERT_OK(zIndexWrite(index.get()));
    index.reset();
    connect();
    EXPECT_EQ(list(), (Lines{"10 >d/", "10 >e/"}));
    EXPECT_EQ(list(u"d"), (Lines{"10 >d/a"}));
    EXPECT_EQ(list(u"e"), (Lines{"10 >e/f/"}));
    EXPECT_EQ(list(u"e/f"), (Lines{"10 >e/f/x.dwx"}));
}

} // namespace
