// What verify takes for damage and what not: each a state of a working copy, beside what git says.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct Verify : CopyTest {
    const std::string git = root + "/.git/";

    void SetUp() override {
        CopyTest::SetUp();
        draw(plan_with("12.5"));
        play("add plan.dwx; commit -m First");
    }
};

TEST_F(Verify, TakesReferencesAsGitDoes) {
    const std::string id = sh("git rev-parse HEAD").substr(0, 40), name = "refs/heads/other";
    const struct {
        std::string file, text;
        bool sound;
    } cases[] = {
        {name, id, true},
        {name, id + "\r\n", true},
        {name, id + "\tfrom elsewhere\n", true},
        {name, "ref: refs/heads/master", true},
        {name, id.substr(0, 39), false},
        {name, id + "0\n", false},
        {name, "ref: refs/heads/none\n", false},
        {name, "", false},
        {"refs/heads/.DS_Store", "finder", true}, // no name of a reference
        {"refs/heads/other~", "backup", true},
        {"refs/heads/a..b", "", true},
        {"HEAD", "ref: refs/heads/master \n", true},
    };
    for (const auto &test : cases) {
        test::write(git + test.file, test.text);
        const Outcome found = zev(root, "verify");
        EXPECT_EQ(found.code, test.sound ? 0 : 1) << test.file << ": " << test.text << found.out;
        if (test.file != "HEAD") fs::remove(git + test.file);
    }
}

// What no commit names is looked at, too: it may be what somebody is about to stage.
TEST_F(Verify, ReadsWhatNothingNames) {
    const std::string id = sh("echo loose | git hash-object -w --stdin").substr(0, 40);
    EXPECT_EQ(zev(root, "verify").code, 0);
    const std::string path = git + "objects/" + id.substr(0, 2) + "/" + id.substr(2);
    fs::permissions(path, fs::perms::owner_write, fs::perm_options::add);
    test::write(path, "no object");
    for (const char *verb : {"verify", "verify --quick"}) {
        const Outcome found = zev(root, verb);
        EXPECT_EQ(found.code, 1) << verb;
        EXPECT_NE(found.out.find(id), std::string::npos) << found.out;
    }
}

TEST_F(Verify, EndsWhereAShallowCloneDoes) {
    for (const char *word : {"b", "c"})
        CopyTest::git(std::string("commit --allow-empty -m ") + word);
    sh("git clone --depth 2 file://$PWD ../shallow && cp -r .git/tables ../shallow/.git");
    const Outcome found = zev(home + "/shallow", "verify");
    EXPECT_EQ(found.code, 0) << found.out;
    EXPECT_EQ(found.out.substr(0, 10), "2 commits,");
}

// Rows of another copy under this one's keys, and older drawings, which have no digest.
TEST_F(Verify, ComparesRowsWithWhatWasImported) {
    draw(plan_with("13.5"));
    ok("commit -m Second plan.dwx");
    const auto put = [&](const DrawingKey &key, const std::string &row) {
        auto repository = test::guard(zRepositoryOpen((dir / u"copy").c_str()), zRepositoryFree);
        Oid id;
        ASSERT_OK(zDrawingDetect(&id, (dir / u"copy/plan.dwx").c_str()));
        auto table = test::guard(zTableByid(repository.get(), &id), zTableFree);
        ASSERT_OK(zDrawingKeyPutData(table.get(), &key, row.data(), row.size()));
    };
    put({1, 0x32}, "0\nCIRCLE\n5\n32\n"); // as it was first
    const Outcome found = zev(root, "verify");
    EXPECT_EQ(found.code, 1);
    EXPECT_NE(found.out.find("in commit " + sh("git rev-parse HEAD~1").substr(0, 8)),
              std::string::npos);
    EXPECT_NE(found.out.find("1 problem\n"), std::string::npos) << found.out;
    EXPECT_EQ(code("diff plan.dwx HEAD~1 HEAD"), 1);
    EXPECT_EQ(zev(root, "export plan.dwx - --rev HEAD 2>/dev/null").out, plan_with("13.5"));
    play("branch old HEAD~1; switch old");
    EXPECT_NE(both("merge master").out.find("other rows"), std::string::npos);
    put({1, UINT64_MAX - 1}, "{}");
    EXPECT_EQ(zev(root, "verify").code, 0);
    EXPECT_EQ(code("diff plan.dwx HEAD~1 HEAD"), 0);
}

} // namespace
