#include "repo_fixture.hpp"

#include "objects/store/strict.hpp"

#include <git2.h>

using namespace test;

namespace {

using ReferenceTest = RepositoryTest;

std::string names(Repository *repository) {
    std::string text;
    zReferenceForeach(
        repository,
        [](Reference *reference, void *context) {
            *static_cast<std::string *>(context) += narrow(zReferenceName(reference)) + ";";
            return true;
        },
        &text);
    return text;
}

} // namespace

TEST_F(ReferenceTest, CreatesAndResolves) {
    Oid absent{}, other{};
    ASSERT_OK(zOidRand(&absent));
    ASSERT_OK(zOidRand(&other));
    // A client that holds a part of the history points at what it has never seen.
    ReferencePtr direct(zReferenceCreate(repository.get(), u"refs/remotes/origin/master", &absent));
    ASSERT_OK(direct);
    ReferencePtr link(zReferenceSymlink(repository.get(), u"refs/remotes/origin/HEAD",
                                        u"refs/remotes/origin/master"));
    ASSERT_OK(link);
    EXPECT_EQ(hex(zReferenceResolve(link.get())), hex(&absent));
    ReferencePtr again(zReferenceCreate(repository.get(), u"refs/remotes/origin/master", &other));
    ASSERT_OK(again); // overwrites
    EXPECT_EQ(git(place, "rev-parse --verify refs/remotes/origin/master"), hex(&other));
    EXPECT_EQ(zReferenceLookup(repository.get(), u"refs/heads/none"), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    const zev::StrictOff outer; // another one's, on whatever thread
    ASSERT_OK(ReferencePtr(zReferenceCreate(repository.get(), u"refs/heads/x", &other)));
    EXPECT_OK(zReferenceSetTarget(again.get(), &absent));
}

TEST_F(ReferenceTest, MovesItsHandleAlong) {
    CommitPtr first = commit({{u"a", "1"}}), second = commit({{u"a", "2"}});
    ReferencePtr topic(
        zReferenceCreate(repository.get(), u"refs/heads/topic", zCommitId(first.get())));
    ASSERT_OK(zReferenceSetTarget(topic.get(), zCommitId(second.get())));
    EXPECT_EQ(hex(zReferenceTarget(topic.get())), hex(zCommitId(second.get())));
    ASSERT_OK(zReferenceSetTarget(topic.get(), zCommitId(first.get()))); // from the new state on
    EXPECT_EQ(git(place, "rev-parse topic"), hex(zCommitId(first.get())));
    auto tip = guard(zReferencePeel(topic.get(), Z_OBJECT_TREE), zObjectFree);
    ASSERT_OK(tip);
    EXPECT_EQ(hex(zObjectId(tip.get())), hex(zCommitTreeId(first.get())));
    ASSERT_OK(zReferenceSetHead(repository.get(), u"refs/heads/topic"));
    EXPECT_EQ(git(place, "symbolic-ref HEAD"), "refs/heads/topic");
}

TEST_F(ReferenceTest, GoesWithItsLogAndOnlyFromWhereItWasSeen) {
    CommitPtr first = commit({{u"a", "1"}}, u"one", u"refs/heads/deep/topic");
    ReferencePtr topic(zReferenceLookup(repository.get(), u"refs/heads/deep/topic"));
    git(place, "pack-refs --all");
    CommitPtr second = commit({{u"a", "2"}}, u"two", u"refs/heads/deep/topic");
    EXPECT_FALSE(zReferenceDelete(topic.get())); // somebody moved it
    EXPECT_EQ(zErrorCode(), -15);
    topic.reset(zReferenceLookup(repository.get(), u"refs/heads/deep/topic"));
    ASSERT_OK(zReferenceDelete(topic.get()));
    EXPECT_EQ(git(place, "for-each-ref"), "");
    EXPECT_FALSE(std::filesystem::exists(place / ".git/logs/refs/heads/deep/topic"));
}

TEST_F(ReferenceTest, WalkSkipsLockFiles) {
    CommitPtr made = commit({{u"a", "1"}});
    git(place, "tag v1");
    const std::string target = hex(zCommitId(made.get())) + "\n";
    write(place / ".git/refs/heads/.master.zlck", target); // a lock keeps a copy of the reference
    write(place / ".git/refs/heads/master.lock", target);
    EXPECT_EQ(names(repository.get()), "refs/heads/master;refs/tags/v1;");
    auto stop = [](Reference *, void *) { return false; };
    EXPECT_FALSE(zReferenceForeach(repository.get(), stop, nullptr));
}

TEST_F(ReferenceTest, BranchesBornAndUnborn) {
    BranchPtr head(zBranchHead(repository.get()));
    ASSERT_OK(head);
    EXPECT_TRUE(zBranchUnborn(head.get()));
    EXPECT_EQ(zBranchCommit(head.get()), nullptr);
    CommitPtr made = commit({{u"a", "1"}});
    EXPECT_FALSE(zBranchUnborn(head.get()));
    EXPECT_EQ(hex(zBranchResolve(head.get())), hex(zCommitId(made.get())));
    BranchPtr same(zBranchLookup(repository.get(), u"head")),
        none(zBranchLookup(repository.get(), u"refs/heads/x"));
    ASSERT_OK(same);
    ASSERT_OK(none);
    EXPECT_EQ(narrow(zBranchMerge(same.get())), "refs/heads/master");
    EXPECT_TRUE(zBranchUnborn(none.get()));
    git(place, "checkout -q --detach");
    EXPECT_EQ(zBranchHead(repository.get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
}

TEST(Branch, Shorthand) {
    constexpr struct {
        const zwchar *full, *name;
    } kRows[] = {{u"refs/heads/a/b", u"a/b"},
                 {u"refs/remotes/origin/x", u"origin/x"},
                 {u"refs/tags/v1", u"v1"},
                 {u"refs/heads/refs/tags/y", u"refs/tags/y"}};
    for (auto &row : kRows) EXPECT_EQ(narrow(zBranchShorthand(row.full)), narrow(row.name));
}

TEST_F(ReferenceTest, UpstreamThroughTheRemotesRefspecs) {
    BranchPtr local(zBranchLookup(repository.get(), u"refs/heads/master"));
    EXPECT_EQ(zBranchUpstream(local.get()), nullptr); // not linked
    EXPECT_EQ(zErrorClass(), 3);
    git(place, "remote add origin http://localhost/x");
    ASSERT_OK(zBranchInit(repository.get(), u"master", u"origin", u"refs/heads/master"));
    EXPECT_EQ(git(place, "config branch.master.remote"), "origin");
    BranchPtr upstream(zBranchUpstream(local.get()));
    ASSERT_OK(upstream);
    EXPECT_EQ(narrow(zBranchMerge(upstream.get())), "refs/remotes/origin/master");
    EXPECT_EQ(narrow(zBranchOrigin(upstream.get())), "refs/heads/master");
    EXPECT_TRUE(zBranchIsRemote(upstream.get()));
    git(place, "config remote.origin.fetch +refs/heads/other:refs/remotes/origin/other");
    RepositoryPtr anew(zRepositoryOpen(place.u16string().c_str()));
    BranchPtr outside(zBranchLookup(anew.get(), u"refs/heads/master"));
    EXPECT_EQ(zBranchUpstream(outside.get()), nullptr); // no refspec takes it in
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(ReferenceTest, NamesBetweenLocalAndTracking) {
    git(place, "remote add origin http://localhost/x");
    git_repository *handle = nullptr;
    git_remote *remote = nullptr;
    ASSERT_EQ(git_repository_open(&handle, place.c_str()), 0);
    auto repository_guard = guard(handle, git_repository_free);
    ASSERT_EQ(git_remote_lookup(&remote, handle, "origin"), 0);
    auto remote_guard = guard(remote, git_remote_free);
    constexpr struct {
        const zwchar *from, *to;
    } kRows[] = {{u"refs/heads/a", u"refs/remotes/origin/a"},
                 {u"refs/remotes/origin/a", u"refs/heads/a"},
                 {u"refs/tags/v1", u"refs/tags/v1"},
                 {u"HEAD", u"HEAD"}};
    zwchar buffer[64];
    for (auto &row : kRows) {
        ASSERT_TRUE(zReferenceXform(buffer, 64, remote, row.from)) << narrow(row.from);
        EXPECT_EQ(narrow(buffer), narrow(row.to));
    }
    EXPECT_FALSE(zReferenceXform(buffer, 64, remote, u"refs/remotes/elsewhere/a"));
    EXPECT_TRUE(zReferenceXform(buffer, 5, remote, u"refs/tags/v1"));
    EXPECT_EQ(narrow(buffer), "refs");
}
