// gc on a working copy with drawings, beside git.
#include "support.hpp"
#include "zev_program.hpp"

#include <map>

namespace {

namespace fs = std::filesystem;

struct Gc : CopyTest {
    std::string second = plan_with("13.5"), last = plan_with("14.5");
    int steps = 0;

    void SetUp() override {
        CopyTest::SetUp();
        draw(test_data("plan.dxf"));
        play("add .; commit -m first");
    }
    // The second state is named by nobody then, and its tag is none that the table stamps with.
    void leave_rows() {
        draw(second);
        play("revert plan.dwx; trash purge --all --yes");
        go_on();
    }
    void go_on() {
        draw(plan_with(std::to_string(300 + ++steps)));
        ok("commit -m on plan.dwx");
    }
    uint64_t rows_dropped(const std::string &arguments) {
        const std::vector<std::string> said = lines(ok(arguments + " --json"));
        return std::stoull(field(said.back(), u"rows"));
    }
    bool comes_out(const std::string &revision, const std::string &bytes) {
        ok("export plan.dwx ../out.dxf --force --rev " + revision);
        return test::read(fs::path(home) / "out.dxf") == bytes;
    }
    std::map<std::string, std::string> store() {
        std::map<std::string, std::string> files;
        for (const auto &entry : fs::recursive_directory_iterator(root + "/.git"))
            if (entry.is_regular_file()) files[entry.path()] = test::read(entry.path());
        return files;
    }
};

TEST_F(Gc, DropsByTwoLooksWhatNothingNames) {
    leave_rows();
    EXPECT_EQ(rows_dropped("gc --days 0"), 0u) << "seen for the first time";
    EXPECT_EQ(rows_dropped("gc"), 0u) << "not for 30 days";
    EXPECT_GT(rows_dropped("gc --days 0 --dry-run"), 0u);
    EXPECT_GT(rows_dropped("gc --days 0"), 0u);
    EXPECT_EQ(rows_dropped("gc --days 0"), 0u);
    EXPECT_TRUE(comes_out("HEAD~1", test_data("plan.dxf")));
    ok("verify");

    // A key of theirs comes never again, and whatever was named in between is new to the notes.
    leave_rows();
    ok("gc --days 0");
    draw(second);
    ok("commit -m second .");
    EXPECT_GT(rows_dropped("gc --days 0"), 0u) << "of the first try";
    EXPECT_EQ(rows_dropped("gc --days 0 --dry-run"), 0u);
    EXPECT_TRUE(comes_out("HEAD", second));
    EXPECT_TRUE(comes_out("HEAD~3", test_data("plan.dxf")));
    ok("verify");

    // What could still be written over under its key stays.
    draw(last);
    play("revert plan.dwx; trash purge --all --yes; gc --days 0");
    EXPECT_EQ(rows_dropped("gc --days 0"), 0u);
}

TEST_F(Gc, KeepsWhatIsNamedAnywhere) {
    const auto drops = [&] {
        ok("gc --days 0");
        return rows_dropped("gc --days 0");
    };
    draw(second);
    ok("revert plan.dwx");
    EXPECT_EQ(drops(), 0u) << "the trash";
    play("trash restore plan.dwx --answer 1; trash purge --all --yes");
    fs::create_directories(root + "/.hidden/backup");
    fs::copy_file(root + "/plan.dwx", root + "/.hidden/backup/plan of May");
    play("revert plan.dwx; trash purge --all --yes");
    EXPECT_EQ(drops(), 0u) << "a copy under another name";
    fs::rename(root + "/.hidden/backup/plan of May", root + "/plan.dwx");
    play("switch --create side; commit -m second .; switch master");
    git("branch -D side");
    ok("trash purge --all --yes");
    EXPECT_EQ(drops(), 0u) << "a commit that no branch leads to";
    git("worktree add -q ../beside -b beside");
    git("reflog expire --expire=now --all");
    git("gc -q --prune=now");
    draw(last);
    fs::copy_file(root + "/plan.dwx", home + "/beside/plan.dwx",
                  fs::copy_options::overwrite_existing);
    play("revert plan.dwx; trash purge --all --yes");
    const uint64_t once = drops();
    EXPECT_GT(once, 0u) << "the commit that is no more";
    fs::copy_file(home + "/beside/plan.dwx", root + "/plan.dwx",
                  fs::copy_options::overwrite_existing);
    ok("export plan.dwx ../out.dxf --force");
    EXPECT_EQ(test::read(fs::path(home) / "out.dxf"), last) << "a linked work directory";
    play("revert plan.dwx; trash purge --all --yes");

    // What can't be looked at may name them.
    const auto refuses = [&] {
        ok("gc --days 0");
        return ok("gc --days 0").find("no rows are dropped") != std::string::npos;
    };
    fs::rename(home + "/beside", home + "/away");
    EXPECT_TRUE(refuses()) << "a work directory that is elsewhere now";
    fs::rename(home + "/away", home + "/beside");
    fs::remove(home + "/beside/plan.dwx");
    write("odd.bin", std::string("VANE ZEV\0cut off", 16));
    EXPECT_TRUE(refuses()) << "a drawing that was cut off";
    fs::remove(root + "/odd.bin");
    go_on();
    EXPECT_GT(drops(), 0u);

    // Rows that a server may lack are in no way garbage.
    leave_rows();
    git("config remote.origin.url http://plant:3001/repos/team/house");
    EXPECT_EQ(drops(), 0u) << "a copy of a server's project";
    EXPECT_TRUE(comes_out("HEAD~2", test_data("plan.dxf")));
}

TEST_F(Gc, TakesATableAwayThatNothingNames) {
    draw(second, "sketch.dwx");
    const auto tables = [&] {
        size_t count = 0;
        for (const auto &entry : fs::recursive_directory_iterator(root + "/.git/tables"))
            count += entry.path().filename() == "CURRENT";
        return count;
    };
    fs::remove(root + "/sketch.dwx");
    play("trash purge --all --yes; gc --days 0");
    EXPECT_EQ(tables(), 2u);
    fs::create_directories(root + "/.git/tables/ab/cdef.removed"); // as a killed one leaves it
    ok("gc --days 0");
    EXPECT_EQ(tables(), 1u);
    EXPECT_FALSE(fs::exists(root + "/.git/tables/ab/cdef.removed"));
    EXPECT_TRUE(comes_out("HEAD", test_data("plan.dxf")));
    ok("verify");
}

TEST_F(Gc, PacksWhatWasCommitted) {
    std::string bytes = test_data("plan.dxf");
    for (int i = 0; i < 20; ++i) {
        draw(plan_with(std::to_string(100 + i)));
        write("note.txt", std::string(5000, 'x') + std::to_string(i));
        ok("add .");
        ok("commit -m " + std::to_string(i));
    }
    const auto count = [&](const std::string &member) {
        const std::string said = git("count-objects -v");
        const size_t at = said.find(member + ": ");
        return std::stoull(said.substr(at + member.size() + 2));
    };
    const auto before = store();
    ok("gc --dry-run");
    for (const auto &[name, content] : before)
        EXPECT_TRUE(name.find("/objects/") == name.npos || test::read(name) == content) << name;
    draw(last);
    play("commit -m last plan.dwx; gc");
    EXPECT_EQ(count("count"), 0u);
    EXPECT_EQ(count("packs"), 1u);
    git("fsck --strict --no-dangling");
    ok("verify");
    EXPECT_TRUE(comes_out("HEAD", last));
    EXPECT_TRUE(comes_out("HEAD~21", bytes));
    EXPECT_TRUE(comes_out("HEAD~1", plan_with("119")));

    // Without a gain all stays as it is; what git is told to keep stays anyhow.
    const auto packed = store();
    ok("gc");
    for (const auto &[name, content] : packed)
        EXPECT_TRUE(name.find("/objects/") == name.npos || test::read(name) == content) << name;
    for (const auto &entry : fs::directory_iterator(root + "/.git/objects/pack"))
        if (entry.path().extension() == ".pack")
            test::write(fs::path(entry.path()).replace_extension(".keep"), "");
    for (int i = 0; i < 9; ++i) {
        draw(plan_with(std::to_string(200 + i)));
        ok("commit -m more plan.dwx");
    }
    ok("gc");
    EXPECT_EQ(count("packs"), 2u);
    git("fsck --strict --no-dangling");
    ok("verify");
}

} // namespace
