#include "copy_fixture.hpp"

#include "objects/history/revision.hpp"
#include "zev/revdb.h"
#include "zev/revlist.h"

using namespace test;

namespace {

class RevListTest : public WorkingCopyTest {
  protected:
    Held<RevSpec, zRevSpecFree> wanted{zRevSpecNew()};

    // Bytes by path of the records that were written.
    std::map<std::filesystem::path, std::string> records() const {
        std::map<std::filesystem::path, std::string> found;
        std::error_code none;
        for (auto &entry :
             std::filesystem::recursive_directory_iterator(place / ".git/revisions", none))
            if (entry.is_regular_file()) found[entry.path()] = read(entry.path());
        return found;
    }
    // Commits by git itself, with a time that a host could not choose.
    void commit_at(int64_t time, const std::string &message, const std::string &path = "a",
                   const std::string &author = "Ann") {
        write(place / path, message);
        git(place, "add -A");
        const std::string when = "='@" + std::to_string(time) + " +0000' ";
        run("cd '" + place.string() + "' && GIT_AUTHOR_DATE" + when + "GIT_COMMITTER_DATE" + when +
            "GIT_CONFIG_GLOBAL=/dev/null GIT_COMMITTER_NAME=c GIT_COMMITTER_EMAIL=c@x git commit " +
            "-q --author='" + author + " <a@x>' -m '" + message + "'");
    }
    void commits(int count) { // m0, m1 ...
        for (int i = 0; i < count; ++i) commit_at(1000 + i, "m" + std::to_string(i));
    }
    // The messages of a list, or "(null)".
    std::string list() {
        RevSpec *spec = wanted.get();
        Held<RevList, zRevListFree> built(zRevListBuild(repository.get(), spec));
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
};

} // namespace

TEST_F(RevListTest, FiltersByPathAndFillsTheRecords) {
    for (int i = 0; i < 10; ++i)
        commit_at(1000 + i, "m" + std::to_string(i), i % 5 ? "docs/a" : "plans/b");
    git(place, "mv plans old-plans");
    commit_at(1010, "m10", "c");
    std::vector<Oid> ids;
    ASSERT_OK(zev::revision_ids(repository.get(), nullptr, ids));
    EXPECT_EQ(records().size(), 0u); // ids alone need none
    const Time until{1000, 0};
    zRevSpecSetUntil(wanted.get(), &until);
    EXPECT_EQ(list(), "m0 ");
    EXPECT_EQ(records().size(), 1u); // nor does what a commit's own words leave out
    zRevSpecReset(wanted.get());
    zRevSpecAddPath(wanted.get(), u"PLANS");
    zRevSpecSetLimit(wanted.get(), 1);
    EXPECT_EQ(list(), "m5 ");        // a rename counts by its new path
    EXPECT_EQ(records().size(), 7u); // and what lies behind the last match
    zRevSpecSetOn(wanted.get(), Z_REV_NO_RENAMES);
    EXPECT_EQ(list(), "m10 ");
    zRevSpecSetOptions(wanted.get(), 0x3C10000);
    zRevSpecSetLimit(wanted.get(), -1);
    EXPECT_EQ(list(), "m5 m0 ");
    EXPECT_EQ(records().size(), 11u);
    zRevSpecSetOn(wanted.get(), Z_REV_LITERAL);
    EXPECT_EQ(list(), "");
    zRevSpecAddPath(wanted.get(), u"docs/a");
    EXPECT_EQ(list(), "m9 m8 m7 m6 m4 m3 m2 m1 ");
}

TEST_F(RevListTest, FiltersByAuthorAndMessage) {
    const char *const authors[] = {"Ann", "ann/x", "Annie", "Ben"};
    for (int i = 0; i < 4; ++i) commit_at(1000 + i, "m" + std::to_string(i), "a", authors[i]);
    commit_at(1004, "Draft", "a", "Ben");
    const auto of = [this](auto... filters) {
        zRevSpecReset(wanted.get());
        (filters(wanted.get()), ...);
        return list();
    };
    const auto author = [](const zwchar *text) {
        return [text](RevSpec *spec) { EXPECT_OK(zRevSpecIncludeAuthor(spec, text)); };
    };
    const auto message = [](const zwchar *text) {
        return [text](RevSpec *spec) { EXPECT_OK(zRevSpecIncludeMessage(spec, text)); };
    };
    const auto no_author = [](RevSpec *spec) { EXPECT_OK(zRevSpecExcludeAuthor(spec, u"annie")); };
    const auto no_draft = [](RevSpec *spec) { EXPECT_OK(zRevSpecExcludeMessage(spec, u"draft")); };
    EXPECT_EQ(of(author(u"ann")), "m1 m0 ");
    EXPECT_EQ(of(author(u"ann*")), "m2 m1 m0 ");
    EXPECT_EQ(of(author(u"ann*"), no_author), "m1 m0 ");
    EXPECT_EQ(of(author(u"ben"), author(u"annie")), "Draft m3 m2 ");
    EXPECT_EQ(of(author(u"ben"), no_draft), "m3 ");
    EXPECT_EQ(of(message(u"M?")), "m3 m2 m1 m0 ");
    EXPECT_EQ(of(message(u"m?"), author(u"ben")), "m3 ");
    EXPECT_EQ(of(author(u"")), "Draft m3 m2 m1 m0 ");
}

TEST_F(RevListTest, MendsRecordsThatCannotBeRead) {
    commits(3);
    ASSERT_EQ(list(), "m2 m1 m0 ");
    const auto whole = records();
    ASSERT_EQ(whole.size(), 3u);
    const char *const damages[] = {"", "{\"author\":\"Eve\"}", "["};
    for (int i = 0; auto &[path, text] : whole) write(path, damages[i++]);
    EXPECT_EQ(list(), "m2 m1 m0 ");
    EXPECT_EQ(records(), whole);
    // One that somebody holds is left alone, and its commit told all the same.
    const auto path = whole.begin()->first;
    write(path, "{");
    {
        const auto held = guard(zShareOpen(path.u16string().c_str(), u"rb", 0), zShareClose);
        EXPECT_EQ(list(), "m2 m1 m0 ");
    }
    EXPECT_EQ(read(path), "{");
}

TEST_F(RevListTest, FollowsFirstParentsOnly) {
    commit_at(1000, "base");
    git(place, "checkout -q -b side");
    commit_at(1001, "side", "s");
    git(place, "checkout -q master");
    commit_at(1002, "main", "t");
    git(place, "-c user.name=x -c user.email=x merge -q --no-ff -m merge side");
    EXPECT_EQ(list(), "merge main base ");
    zRevSpecAddPath(wanted.get(), u"s"); // what the side brought shows as the merge
    EXPECT_EQ(list(), "merge ");

    ASSERT_OK(zRevdbDestroy(repository.get()));
    lose("HEAD~2^{tree}");
    repository = opened();
    EXPECT_EQ(list(), "(null)");
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(records().size(), 1u); // of the merge
}

TEST_F(RevListTest, WhereAWalkStarts) {
    EXPECT_EQ(list(), ""); // unborn
    commits(2);
    git(place, "-c user.name=x -c user.email=x tag -a -m t v1 HEAD~");
    RevBase *base = zRevSpecBase(wanted.get());
    zRevBaseSetByref(base, u"refs/heads/none");
    EXPECT_EQ(list(), "");
    zRevBaseSetByref(base, u"refs/tags/v1");
    zRevBaseSetByref(base, zRevBaseRef(base)); // its own text
    EXPECT_EQ(list(), "m0 ");
    Oid id = named("v1"); // the tag itself
    zRevBaseSetByid(base, &id);
    EXPECT_EQ(narrow(zRevBaseStringfy(base)), hex(&id).substr(0, 8));
    EXPECT_EQ(list(), "m0 ");
    id = named("HEAD");
    zRevBaseSetByid(base, &id);
    EXPECT_EQ(list(), "m1 m0 ");
    for (const int32_t code : {2, 3}) { // no id at all; not here, and nobody to ask
        id = {};
        id.id[3] = code == 3;
        zRevBaseSetByid(base, &id);
        EXPECT_EQ(list(), "(null)");
        EXPECT_EQ(zErrorClass(), code);
    }
    zRevBaseSetByhead(base);
    git(place, "checkout -q --detach");
    EXPECT_EQ(list(), "(null)"); // no branch
    EXPECT_EQ(zErrorClass(), 3);
    git(place, "checkout -q master");

    git(place, "remote add other /nowhere");
    git(place, "update-ref refs/remotes/other/master HEAD~");
    ASSERT_OK(zBranchInit(repository.get(), u"master", u"other", u"refs/heads/master"));
    EXPECT_EQ(list(), "(null)"); // its history is the remote's to tell
    EXPECT_EQ(zErrorCode(), 129);
    zRevSpecSetOptions(wanted.get(), Z_REV_LOCAL);
    EXPECT_EQ(list(), "m0 ");
}
