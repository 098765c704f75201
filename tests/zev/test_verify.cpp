// What verify takes for damage and what not: each a state of a working copy, beside what git says.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct Verify : testing::Test {
    test::TempDir dir;
    std::string root = (dir.path() / "copy").string(), git = root + "/.git/";

    void SetUp() override {
        ASSERT_EQ(zev(dir.path().string(), "init copy").code, 0);
        test::write(root + "/plan.dxf", test_data("plan.dxf"));
        sh("$ZEV import plan.dxf && $ZEV add plan.dwx && $ZEV commit -m First");
    }
    std::string sh(const std::string &command) {
        return test::run("cd " + root + " && export ZEV=${ZEV_BIN:-zev} ZEV_AUTHOR=Ada && (" +
                         command + ") 2>&1");
    }
    std::string first() { return sh("git rev-parse HEAD").substr(0, 40); }
};

TEST_F(Verify, TakesReferencesAsGitDoes) {
    const std::string id = first(), name = "refs/heads/other";
    const struct {
        std::string file, text;
        bool sound;
    } cases[] = {
        {name, id, true},
        {name, id + "\r\n", true},
        {name, id + " \n", true},
        {name, id + "\n\n", true},
        {name, id + "\tfrom elsewhere\n", true},
        {name, "ref: refs/heads/master\r\n", true},
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

TEST_F(Verify, EndsWhereAShallowCloneDoes) {
    sh("git config user.name A; git config user.email a@b");
    for (const char *word : {"b", "c"}) sh(std::string("git commit --allow-empty -m ") + word);
    sh("git clone --depth 2 file://$PWD ../shallow && cp -r .git/tables ../shallow/.git");
    const Outcome found = zev((dir.path() / "shallow").string(), "verify");
    EXPECT_EQ(found.code, 0) << found.out;
    EXPECT_EQ(found.out.substr(0, 10), "2 commits,");
}

// Rows of another copy under this one's keys, and older drawings, which have no digest.
TEST_F(Verify, ComparesRowsWithWhatWasImported) {
    std::string changed = test_data("plan.dxf");
    changed.replace(changed.find("12.5"), 4, "13.5");
    test::write(root + "/plan.dxf", changed);
    sh("$ZEV import plan.dxf && $ZEV commit -m Second plan.dwx");
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
    EXPECT_NE(found.out.find("1 problems"), std::string::npos) << found.out;
    EXPECT_EQ(zev(root, "diff plan.dwx HEAD~1 HEAD 2>/dev/null").code, 1);
    EXPECT_EQ(zev(root, "export plan.dwx - --rev HEAD 2>/dev/null").out, changed);
    sh("$ZEV branch old HEAD~1 && $ZEV switch old");
    EXPECT_NE(sh("$ZEV merge master").find("other blocks"), std::string::npos);
    put({1, UINT64_MAX - 1}, "{}");
    EXPECT_EQ(zev(root, "verify").code, 0);
    EXPECT_EQ(zev(root, "diff plan.dwx HEAD~1 HEAD 2>/dev/null").code, 0);
}

TEST_F(Verify, LooksAtWhatItIsAskedFor) {
    auto repository = test::guard(zRepositoryOpen((dir / u"copy").c_str()), zRepositoryFree);
    const auto damages = [&](uint32_t parts, const Notify *notify = nullptr) {
        VerifySpec spec{};
        spec.parts = parts;
        spec.notify = notify;
        VerifyCounts counts{};
        return zVerify(&counts, repository.get(), &spec) ? static_cast<int>(counts.damages) : -1;
    };
    fs::remove_all(git + "tables");
    EXPECT_EQ(damages(Z_VERIFY_ALL), 1);
    EXPECT_EQ(damages(Z_VERIFY_TABLES), 1);
    EXPECT_EQ(damages(Z_VERIFY_ALL & ~Z_VERIFY_TABLES), 0);
    EXPECT_EQ(damages(0), -1);
    Notify broken{};
    broken.usrbrk = [](const Notify *) { return true; };
    EXPECT_EQ(damages(Z_VERIFY_ALL, &broken), -1);
    EXPECT_EQ(zErrorClass(), 6);
}

TEST_F(Verify, ReadsAnArchive) {
    const std::string list = "find .git -printf '%P %s %T@\n' | sort";
    sh("chmod -R a-w .");
    const std::string before = sh(list);
    EXPECT_EQ(zev(root, "verify").code, 0);
    EXPECT_EQ(zev(root, "export plan.dwx -").out, test_data("plan.dxf"));
    test::write(dir.path() / "other.dxf", "0\nSECTION\n2\nENTITIES\n0\nENDSEC\n0\nEOF\n");
    EXPECT_NE(zev(root, "import ../other.dxf plan.dwx 2>/dev/null").code, 0);
    EXPECT_EQ(sh(list), before);
    sh("chmod -R u+w .");
}

} // namespace
