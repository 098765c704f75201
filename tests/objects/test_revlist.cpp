#include "copy_fixture.hpp"

#include "objects/revision.hpp"
#include "zev/revdb.h"
#include "zev/revlist.h"

using namespace test;

namespace {

using BasePtr = Held<RevBase, zRevBaseFree>;
using RevSpecPtr = Held<RevSpec, zRevSpecFree>;
using ListPtr = Held<RevList, zRevListFree>;

class RevListTest : public WorkingCopyTest {
  protected:
    RevSpecPtr wanted{zRevSpecNew()};

    std::filesystem::path records() const { return place / ".git/revisions"; }
    size_t record_count() const {
        size_t count = 0;
        std::error_code none;
        for (auto &entry : std::filesystem::recursive_directory_iterator(records(), none))
            count += entry.is_regular_file();
        return count;
    }
    // Commits by git itself, with everything that a host could not choose.
    void commit_at(int64_t time, const std::string &author, const std::string &message,
                   const std::string &path = "a", const std::string &bytes = "") {
        write(place / path, bytes.empty() ? message : bytes);
        const std::string when = "@" + std::to_string(time) + " +0000";
        git(place, "add -A");
        run("cd '" + place.string() + "' && GIT_CONFIG_GLOBAL=/dev/null GIT_AUTHOR_NAME='" +
            author +
            "' GIT_AUTHOR_EMAIL=a@x GIT_COMMITTER_NAME=c GIT_COMMITTER_EMAIL=c@x "
            "GIT_AUTHOR_DATE='" +
            when + "' GIT_COMMITTER_DATE='" + when + "' git commit -q --allow-empty -m '" +
            message + "'");
    }
    // The messages of a list, or "(null)".
    std::string list(RevSpec *spec) {
        ListPtr built(zRevListBuild(repository.get(), spec));
        std::vector<Oid> ids;
        EXPECT_EQ(zev::revision_ids(repository.get(), spec, ids), built != nullptr);
        if (!built) return "(null)";
        EXPECT_EQ(ids.size(), zRevListLength(built.get()));
        std::string text;
        for (uint64_t i = 0; i < zRevListLength(built.get()); ++i) {
            Revision *revision = zRevListEntry(built.get(), i);
            EXPECT_EQ(hex(&ids.at(i)), hex(zRevisionId(revision)));
            text += narrow(zRevisionMessage(revision));
        }
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text;
    }
    std::string list() { return list(wanted.get()); }
};

} // namespace

TEST_F(RevListTest, Bases) {
    CommitPtr first = commit({{u"a", "1"}}, u"first");
    git(place, "-c user.name=x -c user.email=x tag -a -m tagged v1");
    CommitPtr second = commit({{u"a", "2"}}, u"second");
    const std::string ids[] = {hex(zCommitId(first.get())), hex(zCommitId(second.get()))};
    BasePtr base(zRevBaseNew());
    EXPECT_EQ(zRevBaseType(base.get()), Z_REV_BY_HEAD);
    EXPECT_EQ(narrow(zRevBaseRef(base.get())), "HEAD");
    EXPECT_EQ(narrow(zRevBaseStringfy(base.get())), "HEAD");
    EXPECT_EQ(hex(zRevBaseResolve(base.get(), repository.get())), ids[1]);
    ASSERT_OK(zRevBaseSetByref(base.get(), u"v1"));
    ASSERT_OK(zRevBaseSetByref(base.get(), zRevBaseRef(base.get()))); // its own text
    EXPECT_EQ(narrow(zRevBaseStringfy(base.get())), "v1");
    EXPECT_EQ(zRevBaseId(base.get()), nullptr);
    EXPECT_EQ(hex(zRevBaseResolve(base.get(), repository.get())), ids[0]);
    Oid tag;
    ASSERT_OK(zOidFromStr(&tag, wide(git(place, "rev-parse v1")).c_str()));
    ASSERT_OK(zRevBaseSetByid(base.get(), &tag));
    EXPECT_EQ(zRevBaseRef(base.get()), nullptr);
    EXPECT_EQ(narrow(zRevBaseStringfy(base.get())), hex(&tag).substr(0, 8));
    EXPECT_EQ(hex(zRevBaseResolve(base.get(), repository.get())), ids[0]);
    ASSERT_OK(zRevBaseSetByid(base.get(), zCommitTreeId(first.get())));
    EXPECT_EQ(zRevBaseResolve(base.get(), repository.get()), nullptr);
    ASSERT_OK(zRevBaseSetByref(base.get(), u"none"));
    EXPECT_EQ(zRevBaseResolve(base.get(), repository.get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(RevListTest, OptionsAndTheirPaths) {
    ASSERT_OK(zRevSpecSetOptions(wanted.get(), 0x3C10000 | Z_REV_LITERAL | Z_REV_NO_RENAMES));
    EXPECT_EQ(zPathSpecOptions(zRevSpecPaths(wanted.get())),
              uint32_t{Z_SPEC_NO_UNCHANGED | Z_SPEC_LITERAL | Z_SPEC_NO_RENAMED});
    EXPECT_TRUE(zRevSpecIsOn(wanted.get(), 0x3C10000));
    zRevSpecSetOff(wanted.get(), Z_REV_LITERAL);
    zRevSpecSetOn(wanted.get(), Z_REV_MUST_MATCH | Z_REV_STAY);
    EXPECT_FALSE(zRevSpecIsOn(wanted.get(), Z_REV_STAY | Z_REV_LITERAL));
    EXPECT_EQ(zPathSpecOptions(zRevSpecPaths(wanted.get())),
              uint32_t{Z_SPEC_NO_UNCHANGED | Z_SPEC_MUST_MATCH | Z_SPEC_NO_RENAMED});
    Report report;
    report.stop = true;
    zRevSpecSetNotify(wanted.get(), &report);
    for (auto add : {zRevSpecAddPath, zRevSpecIncludeAuthor, zRevSpecExcludeMessage}) {
        EXPECT_OK(add(wanted.get(), u""));
        EXPECT_FALSE(add(wanted.get(), nullptr));
    }
    EXPECT_EQ(zPathSpecCount(zRevSpecPaths(wanted.get())), 0u);
    zRevSpecAddPath(wanted.get(), u"a");
    zRevBaseSetByref(zRevSpecBase(wanted.get()), u"none");
    zRevSpecSetLimit(wanted.get(), 3);
    ASSERT_OK(zRevSpecReset(wanted.get()));
    EXPECT_EQ(zPathSpecOptions(zRevSpecPaths(wanted.get())), uint32_t{Z_SPEC_NO_UNCHANGED});
    EXPECT_EQ(zPathSpecCount(zRevSpecPaths(wanted.get())), 0u);
    EXPECT_EQ(zRevBaseType(zRevSpecBase(wanted.get())), Z_REV_BY_HEAD);
    ASSERT_OK(commit({{u"a", "1"}}));
    EXPECT_EQ(list(), "(null)"); // the notify stayed, and stops it
    EXPECT_EQ(zErrorClass(), 6);
}

TEST_F(RevListTest, FiltersByTimeAuthorAndMessage) {
    const char *const authors[] = {"Ann", "Annie", "ann/x", "Bob"};
    for (int i = 0; i < 8; ++i) commit_at(1000 + i, authors[i % 4], "m" + std::to_string(i));
    EXPECT_EQ(list(nullptr), "m7 m6 m5 m4 m3 m2 m1 m0 ");
    const Time since{1002, 0}, until{1005, 0}, later{1005, 1}, before{1004, 999999999};
    zRevSpecSetSince(wanted.get(), &since);
    zRevSpecSetUntil(wanted.get(), &until);
    EXPECT_EQ(list(), "m5 m4 m3 m2 "); // both ends belong to it
    zRevSpecSetSince(wanted.get(), &later);
    zRevSpecSetUntil(wanted.get(), nullptr);
    EXPECT_EQ(list(), "m7 m6 ");
    zRevSpecSetSince(wanted.get(), nullptr);
    zRevSpecSetUntil(wanted.get(), &before);
    EXPECT_EQ(list(), "m4 m3 m2 m1 m0 ");
    zRevSpecReset(wanted.get());

    zRevSpecIncludeAuthor(wanted.get(), u"ann");
    EXPECT_EQ(list(), "m6 m4 m2 m0 "); // Ann and ann/x, not Annie
    zRevSpecIncludeAuthor(wanted.get(), u"b?b");
    zRevSpecExcludeAuthor(wanted.get(), u"*/x");
    EXPECT_EQ(list(), "m7 m4 m3 m0 ");
    zRevSpecExcludeMessage(wanted.get(), u"M3*");
    zRevSpecIncludeMessage(wanted.get(), u"m0*");
    zRevSpecIncludeMessage(wanted.get(), u"*4?");
    zRevSpecIncludeMessage(wanted.get(), u"m3*");
    EXPECT_EQ(list(), "m4 m0 ");
    zRevSpecSetLimit(wanted.get(), 1);
    EXPECT_EQ(list(), "m4 ");
    zRevSpecExcludeAuthor(wanted.get(), u"*");
    EXPECT_EQ(list(), "");
    zRevSpecSetOn(wanted.get(), Z_REV_MUST_MATCH);
    EXPECT_EQ(list(), "(null)");
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(RevListTest, FiltersByPathAndFillsTheRecords) {
    for (int i = 0; i < 10; ++i)
        commit_at(1000 + i, "Ann", "m" + std::to_string(i), i % 5 ? "docs/a" : "plans/b");
    git(place, "mv plans old-plans");
    commit_at(1010, "Ann", "m10", "c");
    zRevSpecAddPath(wanted.get(), u"PLANS");
    zRevSpecSetLimit(wanted.get(), 1);
    EXPECT_EQ(list(), "m5 ");      // a rename counts by its new path
    EXPECT_EQ(record_count(), 6u); // of what was asked, not of what lies behind the last match
    zRevSpecSetOn(wanted.get(), Z_REV_NO_RENAMES);
    EXPECT_EQ(list(), "m10 ");
    zRevSpecSetOptions(wanted.get(), 0x3C10000);
    zRevSpecSetLimit(wanted.get(), -1);
    EXPECT_EQ(list(), "m5 m0 ");
    EXPECT_EQ(record_count(), 11u);
    zRevSpecSetOn(wanted.get(), Z_REV_LITERAL);
    EXPECT_EQ(list(), "");
    zRevSpecAddPath(wanted.get(), u"docs/a");
    EXPECT_EQ(list(), "m9 m8 m7 m6 m4 m3 m2 m1 ");
}

TEST_F(RevListTest, OnlyWhatIsListedGetsARecord) {
    for (int i = 0; i < 4; ++i) commit_at(1000 + i, "Ann", "m" + std::to_string(i));
    std::vector<Oid> ids;
    ASSERT_OK(zev::revision_ids(repository.get(), nullptr, ids));
    EXPECT_EQ(ids.size(), 4u);
    EXPECT_EQ(record_count(), 0u);
    const Time until{1000, 0};
    zRevSpecSetUntil(wanted.get(), &until);
    EXPECT_EQ(list(), "m0 ");
    EXPECT_EQ(record_count(), 1u);
}

TEST_F(RevListTest, MendsRecordsThatCannotBeRead) {
    for (int i = 0; i < 3; ++i) commit_at(1000 + i, "Ann", "m" + std::to_string(i));
    ASSERT_EQ(list(), "m2 m1 m0 ");
    std::map<std::filesystem::path, std::string> whole;
    for (auto &entry : std::filesystem::recursive_directory_iterator(records()))
        if (entry.is_regular_file()) whole[entry.path()] = read(entry.path());
    ASSERT_EQ(whole.size(), 3u);
    const char *const damages[] = {"", "{\"author\":\"Eve\"}", "\0\0\0"};
    for (int i = 0; auto &[path, text] : whole) write(path, damages[i++]);
    EXPECT_EQ(list(), "m2 m1 m0 ");
    for (auto &[path, text] : whole) EXPECT_EQ(read(path), text);
    // One that somebody holds is left alone, and its commit told all the same.
    {
        write(whole.begin()->first, "{");
        auto held =
            guard(zShareOpen(whole.begin()->first.u16string().c_str(), u"rb", 0), zShareClose);
        EXPECT_EQ(list(), "m2 m1 m0 ");
    }
    EXPECT_EQ(read(whole.begin()->first), "{");
}

TEST_F(RevListTest, FollowsFirstParentsOnly) {
    commit_at(1000, "Ann", "base");
    git(place, "checkout -q -b side");
    commit_at(1001, "Ann", "side", "s");
    git(place, "checkout -q master");
    commit_at(1002, "Ann", "main", "t");
    git(place, "-c user.name=x -c user.email=x merge -q --no-ff -m merge side");
    EXPECT_EQ(list(), "merge main base ");
    zRevSpecAddPath(wanted.get(), u"s"); // what the side brought shows as the merge
    EXPECT_EQ(list(), "merge ");
}

TEST_F(RevListTest, WhereAWalkStarts) {
    EXPECT_EQ(list(), ""); // unborn
    zRevSpecSetOn(wanted.get(), Z_REV_MUST_MATCH);
    EXPECT_EQ(list(), "(null)");
    zRevSpecReset(wanted.get());
    commit_at(1000, "Ann", "m0");
    commit_at(1001, "Ann", "m1");
    git(place, "-c user.name=x -c user.email=x tag -a -m t v1 HEAD~");
    RevBase *base = zRevSpecBase(wanted.get());
    zRevBaseSetByref(base, u"refs/heads/none");
    EXPECT_EQ(list(), "");
    zRevBaseSetByref(base, u"refs/tags/v1");
    EXPECT_EQ(list(), "m0 ");
    Oid id;
    zOidFromStr(&id, wide(git(place, "rev-parse HEAD")).c_str());
    zRevBaseSetByid(base, &id);
    EXPECT_EQ(list(), "m1 m0 ");
    zOidZero(&id);
    zRevBaseSetByid(base, &id);
    EXPECT_EQ(list(), "(null)");
    EXPECT_EQ(zErrorClass(), 2);
    id.id[3] = 1;
    zRevBaseSetByid(base, &id);
    EXPECT_EQ(list(), "(null)"); // not here, and nobody to ask
    EXPECT_EQ(zErrorClass(), 3);
    zRevBaseSetByhead(base);
    git(place, "checkout -q --detach");
    EXPECT_EQ(list(), "(null)"); // no branch
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(RevListTest, UpstreamOfABranch) {
    commit_at(1000, "Ann", "m0");
    commit_at(1001, "Ann", "m1");
    git(place, "remote add origin /nowhere");
    git(place, "update-ref refs/remotes/origin/master HEAD~");
    ASSERT_OK(zBranchInit(repository.get(), u"master", u"origin", u"refs/heads/master"));
    EXPECT_EQ(list(), "(null)"); // its history is the remote's to tell
    EXPECT_EQ(zErrorCode(), 129);
    zRevSpecSetOn(wanted.get(), Z_REV_LOCAL);
    EXPECT_EQ(list(), "m0 ");
    zRevSpecSetOn(wanted.get(), Z_REV_STAY);
    EXPECT_EQ(list(), "m1 m0 ");
    zRevSpecSetOff(wanted.get(), Z_REV_LOCAL);
    EXPECT_EQ(list(), "m1 m0 ");
}

TEST_F(RevListTest, ATreeThatIsMissingFailsIt) {
    commit_at(1000, "Ann", "m0");
    commit_at(1001, "Ann", "m1");
    const std::string tree = git(place, "rev-parse HEAD~^{tree}");
    std::filesystem::remove(place / ".git/objects" / tree.substr(0, 2) / tree.substr(2));
    ListPtr built(zRevListBuild(repository.get(), nullptr));
    EXPECT_EQ(built, nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(record_count(), 0u);
}
