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

TEST_F(CommitTest, MovesTheReferenceThatItWasGiven) {
    CommitPtr base = commit({{u"a", "1"}}, u"base\n\nwith a body");
    EXPECT_EQ(git(place, "log -g --format=%an:%ae:%cn:%ce:%gs%n%b"),
              "Ada:Ada:Ada:Ada:commit (initial): base\nwith a body");
    EXPECT_TRUE(!zCommitParent(base.get()) && zErrorClass() == 3 && zErrorCode() == -3);
    git(place, "branch topic");
    CommitPtr topic = commit({{u"a", "2"}}, u"on topic", u"topic"); // a short name is enough
    CommitPtr fresh = commit({{u"a", "3"}}, u"new line", u"refs/heads/fresh");
    CommitPtr loose = commit({{u"a", "4"}}, u"nowhere", nullptr);
    ASSERT_OK(loose);
    EXPECT_EQ(git(place, "rev-parse topic"), hex(zCommitId(topic.get())));
    EXPECT_EQ(hex(zCommitParentId(topic.get())), hex(zCommitId(base.get())));
    EXPECT_EQ(git(place, "rev-parse fresh"), hex(zCommitId(fresh.get())));
    EXPECT_EQ(zCommitParentId(fresh.get()), nullptr);
    EXPECT_EQ(zCommitParentId(loose.get()), nullptr);
    EXPECT_EQ(git(place, "rev-parse HEAD"), hex(zCommitId(base.get())));
    git(place, "checkout -q --detach");
    CommitPtr detached = commit({{u"a", "5"}}, u"detached");
    EXPECT_EQ(git(place, "rev-parse HEAD"), hex(zCommitId(detached.get())));
    EXPECT_EQ(git(place, "rev-parse master"), hex(zCommitId(base.get())));
    expect_sound();
}

// A merge: the tip stays the first parent, and nobody is a parent twice.
TEST_F(CommitTest, FurtherParentsStandBehindTheTip) {
    CommitPtr base = commit({{u"a", "1"}});
    CommitPtr side = commit({{u"a", "2"}}, u"side", u"refs/heads/side");
    TreePtr root = tree({{u"a", "3"}});
    const Oid others[] = {*zCommitId(side.get()), *zCommitId(base.get()), *zCommitId(side.get())};
    CommitPtr merge(zCommitCreateWith(u"HEAD", u"Ada", u"merge", root.get(), others, 3));
    ASSERT_OK(merge);
    EXPECT_EQ(git(place, "log -1 --format=%P master"),
              hex(zCommitId(base.get())) + " " + hex(zCommitId(side.get())));
    const Oid absent{{1}};
    EXPECT_EQ(zCommitCreateWith(u"HEAD", u"Ada", u"m", root.get(), &absent, 1), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(git(place, "rev-parse master"), hex(zCommitId(merge.get())));
    expect_sound();
}

TEST_F(CommitTest, AWalkEndsWhereItsCallbackSays) {
    std::string told;
    const auto take = [](Commit *commit, void *context) -> int32_t {
        const CommitPtr owned(commit);
        auto *text = static_cast<std::string *>(context);
        *text += narrow(zCommitMessage(commit)) + ";";
        return text->ends_with("two;");
    };
    EXPECT_TRUE(!zCommitWalk(repository.get(), take, &told) && zErrorClass() == 3); // unborn
    for (auto *message : {u"one", u"two", u"three"})
        ASSERT_OK(commit({{u"a", narrow(message)}}, message));
    EXPECT_OK(zCommitWalk(repository.get(), take, &told));
    EXPECT_EQ(told, "three;two;");
}

TEST_F(CommitTest, TextsFromUsers) {
    TreePtr root = tree({{u"a", "1"}});
    for (const zwchar *author : {u"", u"  ", u"Ada <ada@x>", u"a>b", u"\n"}) {
        EXPECT_EQ(zCommitCreate(u"HEAD", author, u"m", root.get()), nullptr) << narrow(author);
        EXPECT_EQ(zErrorClass(), 2);
    }
    CommitPtr made(
        zCommitCreate(u"HEAD", u"Zoë\nparent x", u"\u00fcber\x01\ttab\nline", root.get()));
    ASSERT_OK(made);
    EXPECT_EQ(narrow(zCommitAuthor(made.get())), "Zoë parent x"); // no header of its own
    EXPECT_EQ(narrow(zCommitMessage(made.get())), "über \ttab\nline");
    expect_sound();
}

TEST_F(CommitTest, IsSyncedBeforeTheReferenceMovesAndAfter) {
    CommitPtr first = commit({{u"a", "1"}});
    TreePtr root = tree({{u"a", "2"}});
    static int count;
    static std::string at_first;
    static std::filesystem::path reference;
    count = 0, reference = place / ".git/refs/heads/master";
    {
        const Syncs fail([](int) { return errno = EIO, -1; });
        EXPECT_EQ(zCommitCreate(u"HEAD", u"Ada", u"second", root.get()), nullptr);
        EXPECT_EQ(zErrorCode(), 5);
        EXPECT_EQ(git(place, "rev-parse HEAD"), hex(zCommitId(first.get()))); // nothing has moved
    }
    const Syncs look([](int) {
        if (++count == 1) at_first = read(reference);
        return 0;
    });
    EXPECT_OK(CommitPtr(zCommitCreate(u"HEAD", u"Ada", u"second", root.get())));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(at_first, hex(zCommitId(first.get())) + "\n");
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
