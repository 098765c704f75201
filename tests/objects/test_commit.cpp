#include "repo_fixture.hpp"
#include "system/os.hpp"

using namespace test;

namespace {

using CommitTest = RepositoryTest;

struct Syncs {
    decltype(zev::os::calls.syncfs) before = zev::os::calls.syncfs;
    explicit Syncs(decltype(before) call) { zev::os::calls.syncfs = call; }
    ~Syncs() { zev::os::calls.syncfs = before; }
};

} // namespace

TEST_F(CommitTest, TextsFromUsers) {
    TreePtr root = tree({{u"a", "1"}});
    for (const zwchar *author : {u"", u"  ", u"Ada <ada@x>", u"a>b", u"\n"}) {
        EXPECT_REFUSED(zCommitCreate(u"HEAD", author, u"m", root.get()), 2) << narrow(author);
    }
    CommitPtr made(
        zCommitCreate(u"HEAD", u"Zoë\nparent x", u"\u00fcber\x01\ttab\nline", root.get()));
    ASSERT_OK(made);
    EXPECT_EQ(narrow(zCommitAuthor(made.get())), "Zoë parent x"); // no header of its own
    EXPECT_EQ(narrow(zCommitMessage(made.get())), "über \ttab\nline");
    expect_sound();
}

// Somebody else commits between the reading of the tip and the moving of the reference.
TEST_F(CommitTest, NeverDropsACommitThatCameInBetween) {
    CommitPtr first = commit({{u"a", "1"}});
    TreePtr root = tree({{u"a", "2"}});
    static std::filesystem::path where;
    where = place;
    {
        const Syncs meanwhile([](int) {
            git(where, "-c user.name=Bob -c user.email=b@x commit -q --allow-empty -m between");
            return 0;
        });
        EXPECT_EQ(zCommitCreate(u"HEAD", u"Ada", u"lost?", root.get()), nullptr);
    }
    EXPECT_EQ(git(place, "log -1 --format=%s"), "between");
    EXPECT_OK(commit({{u"a", "2"}}, u"again"));
    expect_sound();
}
