#include "repo_fixture.hpp"

#include <zev/transaction.h>

using namespace test;

namespace {

using TransactionPtr = Held<Transaction, zTransactionFree>;
namespace fs = std::filesystem;

class TransactionTest : public RepositoryTest {
  protected:
    fs::path file(const char *name) const { return place / ".git" / name; }
    void SetUp() override {
        ASSERT_OK(repository);
        write(file("index"), "old index");
        write(file("refs/heads/master"), "old master");
    }
};

constexpr const zwchar *kMaster = u"refs/heads/master", *kNew = u"refs/remotes/far/deep/new";

} // namespace

TEST_F(TransactionTest, RollsBackToTheByteOrStays) {
    const auto state = [&] {
        std::string all;
        for (const char *name : {"index", "refs/heads/master", "refs/remotes/far/deep/new",
                                 ".index.zlck", "refs/heads/.master.zlck"})
            all += (fs::exists(file(name)) ? read(file(name)) : "-") + ";";
        return all;
    };
    for (const bool undo : {true, false}) {
        TransactionPtr transaction(zTransactionNew(repository.get()));
        EXPECT_OK(zTransactionRollback(transaction.get())); // nothing is locked
        ASSERT_OK(zTransactionLockIndex(transaction.get()));
        for (auto *name : {kMaster, kNew}) ASSERT_OK(zTransactionLockRef(transaction.get(), name));
        for (auto *name : {"index", "refs/heads/master", "refs/remotes/far/deep/new"})
            write(file(name), "new");
        if (undo) { // who is refused waits
            TransactionPtr second(zTransactionNew(repository.get()));
            EXPECT_REFUSED(zTransactionLockRef(second.get(), kMaster), 7);
            EXPECT_OK(zTransactionRollback(transaction.get()));
        }
        transaction.reset();
        EXPECT_EQ(state(), undo ? "old index;old master;-;-;-;" : "new;new;new;-;-;");
    }
}

TEST_F(TransactionTest, RefusesWhatIsNoReference) {
    TransactionPtr transaction(zTransactionNew(repository.get()));
    for (auto name : {u"", u"../x", u"refs/heads/../../x", u"/etc/x", u"refs/heads/a.lock"})
        EXPECT_FALSE(zTransactionLockRef(transaction.get(), name)) << narrow(name);
}

// What a process left that died after it had changed everything.
TEST_F(TransactionTest, RecoversFromCompleteCopies) {
    write(file(".index.zlck"), "index before");
    write(file("refs/heads/.master.zlck"), "master before");
    write(file("refs/heads/.gone.zlck"), "gone before"); // its file went
    write(file("refs/heads/fresh"), "came with it");
    write(file("refs/heads/.fresh.zlck"), "");
    write(file(".HEAD.zlck"), "ref: refs/heads/half"); // never completed
    fs::permissions(file(".HEAD.zlck"), fs::perms::owner_exec, fs::perm_options::add);
    const std::string head = read(file("HEAD"));
    write(file(".config.zlck"), "not of a transaction");
    const std::string config = read(file("config"));
    for (int times = 0; times < 2; ++times) { // the copies stay
        EXPECT_OK(zTransactionRecover(repository.get()));
        EXPECT_EQ(read(file("index")), "index before");
        EXPECT_EQ(read(file("refs/heads/master")), "master before");
        EXPECT_EQ(read(file("refs/heads/gone")), "gone before");
        EXPECT_FALSE(fs::exists(file("refs/heads/fresh")));
        EXPECT_EQ(read(file("HEAD")), head);
        EXPECT_EQ(read(file("config")), config);
    }
}

// A first commit, over what a process left that died while it made one.
TEST_F(TransactionTest, ACommitOutlivesTheCopyOfAnUnbornBranch) {
    fs::remove(file("index"));
    fs::remove(file("refs/heads/master"));
    write(file("refs/heads/.master.zlck"), "");
    {
        const Held<Index, zIndexFree> index(zIndexHead(repository.get(), true));
        ASSERT_OK(CommitPtr(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"first")));
    }
    EXPECT_OK(zTransactionRecover(repository.get()));
    EXPECT_FALSE(zRepositoryHeadUnborn(repository.get()));
}
