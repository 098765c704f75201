#include "repo_fixture.hpp"

#include "objects/store/repository.hpp"
#include "objects/store/strict.hpp"

#include <zev/transaction.h>

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

TEST_F(ReferenceTest, PointsAtWhatIsNotHere) {
    const Oid absent = parsed(std::string(40, 'a')), other = parsed(std::string(40, 'b'));
    // A client that holds a part of the history points at what it has never seen.
    ReferencePtr direct(zReferenceCreate(repository.get(), u"refs/remotes/origin/master", &absent));
    ReferencePtr again(zReferenceCreate(repository.get(), u"refs/remotes/origin/master", &other));
    EXPECT_EQ(git(place, "rev-parse --verify refs/remotes/origin/master"), hex(&other));
    const zev::StrictOff outer; // another one's, on whatever thread
    ASSERT_OK(ReferencePtr(zReferenceCreate(repository.get(), u"refs/heads/x", &other)));
    EXPECT_OK(zReferenceSetTarget(again.get(), &absent));
}

TEST_F(ReferenceTest, GoesWithItsLogAndOnlyFromWhereItWasSeen) {
    CommitPtr first = commit({{u"a", "1"}}, u"one", u"refs/heads/deep/topic");
    ReferencePtr topic(zReferenceLookup(repository.get(), u"refs/heads/deep/topic"));
    git(place, "pack-refs --all");
    CommitPtr second = commit({{u"a", "2"}}, u"two", u"refs/heads/deep/topic");
    EXPECT_FAILS_WITH(zReferenceDelete(topic.get()), -15); // somebody moved it
    topic.reset(zReferenceLookup(repository.get(), u"refs/heads/deep/topic"));
    ASSERT_OK(zReferenceDelete(topic.get()));
    EXPECT_EQ(git(place, "for-each-ref"), "");
    EXPECT_FALSE(std::filesystem::exists(place / ".git/logs/refs/heads/deep/topic"));
}

// Else the next commit would take away all that it doesn't change.
TEST_F(ReferenceTest, WhatCantBeReadIsNotAbsent) {
    ASSERT_OK(commit({{u"a", "1"}}, u"one"));
    const std::string branch = git(place, "symbolic-ref HEAD");
    write(place / ".git" / branch, "damaged\n");
    const Held<Branch, zBranchFree> head(zBranchHead(repository.get()));
    EXPECT_FALSE(zBranchUnborn(head.get()));
    const Held<RevSpec, zRevSpecFree> all(zRevSpecNew());
    EXPECT_FALSE((Held<RevList, zRevListFree>(zRevListBuild(repository.get(), all.get()))));
    const auto index = [&] {
        return Held<Index, zIndexFree>(zIndexByref(repository.get(), nullptr));
    };
    EXPECT_FALSE(index());
    std::filesystem::remove(place / ".git" / branch);
    EXPECT_TRUE(zBranchUnborn(head.get()));
    EXPECT_OK(index());
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

// Branches are shared, HEAD and the notes of a bisection are not: who locks and undoes the wrong
// file moves another worktree's head, or leaves his own behind.
TEST_F(ReferenceTest, AWorktreeHasAHeadOfItsOwn) {
    CommitPtr made = commit({{u"a", "1"}});
    const std::filesystem::path side = dir.path() / "side", own = place / ".git/worktrees/side";
    git(place, "worktree add -q ../side");
    RepositoryPtr linked(zRepositoryOpen(side.u16string().c_str()));
    ASSERT_OK(linked);
    ASSERT_OK(
        ReferencePtr(zReferenceCreate(linked.get(), u"refs/bisect/bad", zCommitId(made.get()))));
    using TransactionPtr = Held<Transaction, zTransactionFree>;
    TransactionPtr here(zTransactionNew(repository.get())), there(zTransactionNew(linked.get()));
    ASSERT_OK(zTransactionLockRef(here.get(), u"HEAD"));
    for (auto name : {u"HEAD", u"refs/bisect/bad"})
        ASSERT_OK(zTransactionLockRef(there.get(), name));
    const std::string head = read(own / "HEAD"), bad = read(own / "refs/bisect/bad");
    ASSERT_OK(zReferenceSetHead(linked.get(), u"refs/heads/new"));
    ReferencePtr gone(zReferenceLookup(linked.get(), u"refs/bisect/bad"));
    ASSERT_OK(zReferenceDelete(gone.get()));
    ASSERT_OK(zTransactionRollback(there.get()));
    EXPECT_EQ(read(own / "HEAD"), head);
    EXPECT_EQ(read(own / "refs/bisect/bad"), bad);
    there.reset();
    write(own / ".HEAD.zlck", head); // of a process that died
    write(own / "HEAD", "ref: refs/heads/new\n");
    EXPECT_OK(zTransactionRecover(linked.get()));
    EXPECT_EQ(read(own / "HEAD"), head);
}
