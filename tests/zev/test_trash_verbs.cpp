// What the library took, looked through and brought back by the program.
#include "support.hpp"
#include "zev_program.hpp"

#include <algorithm>
#include <ctime>

namespace {

namespace fs = std::filesystem;

struct TrashVerbs : CopyTest {
    test::Guard<Repository> repository{nullptr, zRepositoryFree};

    void SetUp() override {
        CopyTest::SetUp();
        repository.reset(zRepositoryOpen((dir / u"copy").c_str()));
        ASSERT_OK(repository != nullptr);
    }
    // A file that was taken so many days ago.
    void take(const std::string &path, const std::string &content, int64_t days = 0) {
        test::write(root + "/" + path, content);
        take_tree(path, days);
    }
    void take_tree(const std::string &path, int64_t days = 0) {
        const auto before = slots();
        ASSERT_OK(zTrashMoveInto(repository.get(), test::wide(path).c_str()));
        for (const fs::path &slot : slots())
            if (std::ranges::find(before, slot) == before.end()) date(slot / "info.$$$", days);
    }
    static void date(const fs::path &note, int64_t days) {
        auto json = test::guard(zJsonReadFile(note.u16string().c_str()), zJsonFree);
        ASSERT_OK(json != nullptr);
        ASSERT_OK(zJsonPathSetLarge(json.get(), u"time", time(nullptr) - days * 86400));
        ASSERT_OK(zJsonWriteFile(json.get(), note.u16string().c_str()));
    }
    std::vector<fs::path> slots() const {
        std::vector<fs::path> out;
        if (!fs::exists(root + "/.git/trash")) return out;
        for (const auto &upper : fs::directory_iterator(root + "/.git/trash"))
            for (const auto &slot : fs::directory_iterator(upper)) out.push_back(slot.path());
        return out;
    }
    // A member of each record of that type.
    std::vector<std::string> fields(const std::string &arguments, const char16_t *name) {
        std::vector<std::string> out;
        for (const std::string &line : lines(zev(root, "--json " + arguments).out))
            if (field(line, u"type") == "trash") out.push_back(field(line, name));
        std::ranges::sort(out);
        return out;
    }
};

using Texts = std::vector<std::string>;

TEST_F(TrashVerbs, ListAndFind) {
    EXPECT_EQ(out("trash list"), "the trash is empty\n");
    take("plan.dwx", "0123456789", 2);
    take("d/site.dwx", "s");
    write("tree/in/door.dwx", "d");
    write("tree/plan.dwx", "p");
    take_tree("tree");
    EXPECT_EQ(fields("trash list", u"path"), (Texts{"d/site.dwx", "plan.dwx", "tree"}));
    EXPECT_EQ(fields("trash list", u"kind"), (Texts{"directory", "file", "file"}));
    EXPECT_EQ(fields("trash list PLAN", u"size"), Texts{"10"});
    EXPECT_EQ(fields("trash list 'd/*'", u"path"), Texts{"d/site.dwx"});
    EXPECT_EQ(fields("trash find plan", u"path"), (Texts{"plan.dwx", "tree/plan.dwx"}));
    EXPECT_EQ(fields("trash find '*/door.dwx'", u"path"), Texts{"tree/in/door.dwx"});
    const std::string id = fields("trash list plan", u"id")[0], line = out("trash list plan");
    EXPECT_TRUE(there(".git/trash/" + id.substr(0, 2) + "/" + id.substr(2)));
    EXPECT_TRUE(line.ends_with("  10 Bytes    " + id.substr(0, 8) + "  plan.dwx\n")) << line;
    EXPECT_EQ(code("trash find nothing"), 3);
    EXPECT_EQ(out("trash list nothing"), "nothing in the trash matches\n");
    EXPECT_EQ(code("trash"), 2);
}

TEST_F(TrashVerbs, RestoresExactlyWhatIsNamed) {
    Texts odd = kOddNames;
    odd.push_back("beef"); // might be the beginning of an id
    for (const auto &names : {odd, kNeighbours})
        for (const std::string &name : names) take(name, name);
    size_t left = slots().size();
    for (const std::string &name : odd) {
        EXPECT_EQ(fields("trash restore '" + name + "'", u"path"), Texts{}) << name;
        EXPECT_EQ(content(name), name);
        EXPECT_EQ(slots().size(), --left) << name;
    }
    // What comes back is in the next commit.
    EXPECT_EQ(lines(git("ls-files")).size(), odd.size());
    // Paths are taken from the current directory; without the name it is a pattern.
    fs::create_directory(root + "/d");
    EXPECT_EQ(zev(root + "/d", "trash restore ../a1 '../wh*'").code, 0);
    EXPECT_EQ(content("a1") + content("what"), "a1what");
    EXPECT_EQ(code("trash restore star nothing"), 3);
    EXPECT_FALSE(fs::exists(root + "/star")); // one wrong name and nothing is done
    ok("trash restore star --to d/new");
    EXPECT_EQ(content("d/new/star"), "star");
    EXPECT_EQ(code("trash restore tr --to .."), 2);
}

TEST_F(TrashVerbs, OfSeveralTheUserChooses) {
    take("plan.dwx", "newer", 1);
    take("plan.dwx", "oldest", 3);
    take("plan.dwx", "old", 2);
    const Outcome outcome = zev(root, "trash restore plan.dwx 2>/dev/null");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(lines(outcome.out).size(), 3u);
    EXPECT_EQ(code("trash restore '*.dwx'"), 2);
    EXPECT_FALSE(fs::exists(root + "/plan.dwx"));
    ok("trash restore --newest plan.dwx");
    EXPECT_EQ(content("plan.dwx"), "newer");
    fs::remove(root + "/plan.dwx");
    for (const fs::path &slot : slots())
        if (test::read(slot / "plan.dwx") == "oldest")
            ok("trash restore " + slot.parent_path().filename().string() +
               slot.filename().string().substr(0, 10));
    EXPECT_EQ(content("plan.dwx"), "oldest");
}

TEST_F(TrashVerbs, WhatLiesInADirectory) {
    write("tree/in/door.dwx", "d");
    write("tree/plan.dwx", "p");
    take_tree("tree");
    ok("trash restore tree/in/door.dwx");
    EXPECT_EQ(content("tree/in/door.dwx"), "d");
    const std::string id = fields("trash list", u"id")[0].substr(0, 8);
    EXPECT_EQ(zev(root, "trash restore " + id + "/nothing 2>/dev/null").code, 3);
    EXPECT_EQ(zev(root, "trash restore --to . " + id + "/plan.dwx").code, 0);
    EXPECT_EQ(content("plan.dwx"), "p");
    EXPECT_EQ(slots().size(), 0u);
}

TEST_F(TrashVerbs, NothingIsOverwrittenWithoutAnAnswer) {
    take("plan.dwx", "taken");
    write("plan.dwx", "here");
    for (const char *arguments :
         {"trash restore plan.dwx", "--no trash restore plan.dwx",
          "--answer 2 trash restore plan.dwx", "--json trash restore plan.dwx"}) {
        EXPECT_EQ(code(arguments), 6) << arguments;
        EXPECT_EQ(content("plan.dwx"), "here") << arguments;
        EXPECT_EQ(slots().size(), 1u) << arguments;
    }
    ok("--answer 3 trash restore plan.dwx"); // under another name
    EXPECT_EQ(content("plan.dwx") + content("plan (1).dwx"), "heretaken");
    take("plan.dwx", "again");
    write("plan.dwx", "here");
    ok("--yes trash restore plan.dwx");
    EXPECT_EQ(content("plan.dwx"), "again");
    EXPECT_EQ(test::read(home + "/desktop/Trash/files/plan.dwx"), "here");
}

TEST_F(TrashVerbs, PurgesAfterAQuestion) {
    take("new", "n", 29);
    take("old", "o", 30);
    take("older", "o", 400);
    for (const char *arguments : {"trash purge", "trash purge --older 3 --all",
                                  "trash purge --older -1", "trash purge --older soon"})
        EXPECT_EQ(code(std::string("--yes ") + arguments), 2) << arguments;
    EXPECT_EQ(code("trash purge --older 30"), 6);
    EXPECT_EQ(code("--no trash purge --all"), 6);
    EXPECT_EQ(code("--answer Keep trash purge --all"), 6);
    EXPECT_EQ(slots().size(), 3u);
    EXPECT_EQ(out("trash purge --older 401"), "0 items deleted\n"); // nothing to ask
    EXPECT_EQ(out("trash purge --older 30 --yes"), "2 items deleted\n");
    EXPECT_EQ(fields("trash list", u"path"), Texts{"new"});
    EXPECT_EQ(out("trash purge --all --yes"), "1 item deleted\n");
    EXPECT_EQ(out("trash list"), "the trash is empty\n");
}

} // namespace
