#include "conflict_fixture.hpp"

using namespace test;

namespace fs = std::filesystem;

namespace {

class ConflictNodes : public ConflictFixture {
  protected:
    AnalysisPtr analyze(Index *index, PathSpec *wanted = nullptr) {
        AnalysisPtr made(zConflictAnalyze(index, wanted));
        EXPECT_OK(made);
        return made;
    }

    // Analyses under the lock, as a host does; resolves under another one.
    AnalysisPtr analyze() { return analyze(lock().get()); }
    bool resolve(ConflictAnalysis *analysis) {
        IndexPtr index = lock();
        return zConflictResolve(index.get(), analysis);
    }
    static void choose(ConflictAnalysis *analysis, uint32_t solution, uint32_t options = 0) {
        for (uint64_t i = 0; i < zConflictAnalysisLength(analysis); ++i) {
            zConflictNodeSetSolution(zConflictAnalysisEntry(analysis, i), solution);
            zConflictNodeSetOptions(zConflictAnalysisEntry(analysis, i), options);
        }
    }

    // A conflict as a checkout records it: in the index, while the files stay as they are.
    void record(Index *index, const char *path, const char *ancestor, const char *ours,
                const char *theirs) {
        auto made = [&](const char *text) { return text ? entry(path, text) : EntryPtr(); };
        ASSERT_OK(zConflictAdd(index, made(ancestor).get(), made(ours).get(), made(theirs).get()));
    }
};

} // namespace

// ---- Grouping

TEST_F(ConflictNodes, AFileOfOursStandsAboveTheirs) {
    put("a", "1"), put("d", "1"), put("e/f", "1");
    git_commit("base");
    put("untracked", "1");
    IndexPtr index = lock();
    record(index.get(), "a/b", nullptr, nullptr, "2");
    for (auto *path : {"d/1", "d/x/2", "D/3"}) record(index.get(), path, nullptr, nullptr, "2");
    record(index.get(), "e/f/g/h", nullptr, nullptr, "2");
    record(index.get(), "untracked/1", nullptr, nullptr, "2");
    AnalysisPtr analysis = analyze(index.get());
    // The first of d, by the order of bytes, is the one in upper case, which is no file's name.
    EXPECT_EQ(told(analysis.get()),
              "D/3: ours, theirs D/3=1;a: ours a=0, theirs a/b=1;"
              "d: ours d=0, theirs d/1=1 d/x/2=1;e/f: ours e/f=0, theirs e/f/g/h=1;"
              "untracked: ours untracked=7, theirs untracked/1=1;");
    EXPECT_EQ(narrow(zConflictNodeType(zConflictAnalysisEntry(analysis.get(), 2))),
              text(u"conflict.sDirectoryObstructed"));
    AnalysisPtr one = analyze(index.get(), spec({u"d/*"}).get()); // a path of them in any case
    EXPECT_EQ(told(one.get()), "D/3: ours, theirs D/3=1;d: ours d=0, theirs d/1=1 d/x/2=1;");
}

TEST_F(ConflictNodes, ADirectoryOfOursStandsInPlaceOfTheirs) {
    write(place / ".gitignore", "*.bak\n");
    put("d/1", "1"), put("d/2", "base"), put("d.x", "1"), put("dd", "1");
    git_commit("base");
    put("d/2", "changed"), put("d/new", "1"), put("d/old.bak", "1");
    fs::create_directories(place / "d/empty");
    git(place, "init -q d/other");
    IndexPtr index = lock();
    record(index.get(), "d", nullptr, nullptr, "theirs");
    AnalysisPtr analysis = analyze(index.get());
    EXPECT_EQ(told(analysis.get()), "d: ours d/1=0 d/2=0 d/new=7 d/old.bak=7, theirs d=1;");

    // One below is in conflict itself: it counts once, with the ancestor of the merge.
    record(index.get(), "d/2", "other base", "changed", nullptr);
    analysis = analyze(index.get());
    EXPECT_EQ(told(analysis.get()), "d: ours d/1=0 d/2=3 d/new=7 d/old.bak=7, theirs d=1 d/2=2;");
    AnalysisPtr only = analyze(index.get(), spec({u"d"}, kLiteral).get());
    EXPECT_EQ(told(only.get()), "d: ours d/1=0 d/2=3 d/new=7 d/old.bak=7, theirs d=1;");
}

// ---- Carrying out

// Where ours deleted and theirs changed, git has put theirs into the work directory.
TEST_F(ConflictNodes, UseTheirs) {
    for (auto *path : {"d/both", "gone-here", "gone-there", "same"}) put(path, "base");
    git_commit("base");
    merge(
        [&] {
            for (auto *path : {"d/both", "gone-here", "new"}) put(path, "theirs");
            take("gone-there");
        },
        [&] {
            for (auto *path : {"d/both", "gone-there", "new"}) put(path, "ours");
            take("gone-here");
        });
    AnalysisPtr analysis = analyze();
    EXPECT_EQ(told(analysis.get()),
              "d/both: ours d/both=3, theirs d/both=3;gone-here: ours gone-here=2, "
              "theirs gone-here=3;gone-there: ours gone-there=3, theirs gone-there=2;"
              "new: ours new=1, theirs new=1;");
    choose(analysis.get(), Z_CONFLICT_USE_THEIRS);
    zConflictNodeSetOptions(zConflictAnalysisEntry(analysis.get(), 3), Z_CONFLICT_NO_TRASH);
    ASSERT_OK(resolve(analysis.get()));
    EXPECT_EQ(porcelain(), "A  d/.gitkeep\nM  d/both\nA  gone-here\nD  gone-there\nM  new");
    for (auto *path : {"d/both", "gone-here", "new"}) EXPECT_EQ(at(path), "theirs") << path;
    EXPECT_EQ(trashed(), "both=ours;gone-here=theirs;gone-there=ours;");
}

TEST_F(ConflictNodes, ADirectoryMakesWayAndComesBack) {
    put("d/1", "1"), put("d/2", "2"), put("f", "file");
    git_commit("base");
    put("d/new", "3");
    for (uint32_t solution : {Z_CONFLICT_USE_OURS, Z_CONFLICT_USE_THEIRS}) {
        IndexPtr index = lock();
        record(index.get(), "d", nullptr, nullptr, "theirs");
        record(index.get(), "f/below/1", nullptr, nullptr, "theirs");
        AnalysisPtr analysis = analyze(index.get());
        choose(analysis.get(), solution);
        ASSERT_OK(zConflictResolve(index.get(), analysis.get()));
        EXPECT_EQ(porcelain() == "?? d/new", solution == Z_CONFLICT_USE_OURS);
    }
    EXPECT_EQ(at("d") + at("f/below/1"), "theirstheirs");
    EXPECT_EQ(tracked(),
              (std::vector<std::string>{"d", "f/.gitkeep", "f/below/.gitkeep", "f/below/1"}));
    EXPECT_EQ(trashed(), "1=1;2=2;f=file;new=3;");
}

// Ours did not change and only theirs did, which a merge by hand may record: the file stays.
TEST_F(ConflictNodes, AnUnchangedSideStaysTracked) {
    put("a", "1"), put("b", "1");
    git_commit("base");
    fs::permissions(place / "b", fs::perms::owner_exec, fs::perm_options::add);
    {
        IndexPtr index = lock();
        record(index.get(), "a", "1", "1", "2");
        EntryPtr base = entry("b", "1"), ours = entry("b", "2", 0100755),
                 theirs = entry("b", "3", 0100755);
        ASSERT_OK(zConflictAdd(index.get(), base.get(), ours.get(), theirs.get()));
        ASSERT_OK(zIndexResolve(index.get(), nullptr));
    }
    EXPECT_EQ(git(place, "ls-files -s b").substr(0, 6), "100755"); // a mode is not the disk's
    EXPECT_EQ(git(place, "diff --cached --name-only"), "b");
    EXPECT_EQ(git(place, "diff --name-only"), "");
}

// ---- Failures, and what is left for later

// Somebody else settles the conflict and works on while the user thinks: nothing of that is undone.
TEST_F(ConflictNodes, WhatOthersDidMeanwhileStays) {
    put("a", "base"), put("d/x", "base");
    git_commit("base");
    merge([&] { put("a", "theirs"); }, [&] { put("a", "ours"); });
    {
        IndexPtr index = lock();
        record(index.get(), "d", nullptr, nullptr, "theirs");
        ASSERT_OK(zIndexWrite(index.get()));
    }
    const auto others = [&](std::initializer_list<uint32_t> solutions, auto work) {
        AnalysisPtr analysis = analyze();
        work();
        const std::string before = porcelain();
        for (uint32_t solution : solutions)
            for (uint32_t options : {0, int(Z_CONFLICT_NO_TRASH)}) {
                choose(analysis.get(), Z_CONFLICT_UNDECIDED);
                ConflictNode *node = zConflictAnalysisEntry(analysis.get(), 0);
                zConflictNodeSetSolution(node, solution);
                zConflictNodeSetOptions(node, options);
                ASSERT_OK(resolve(analysis.get()));
                EXPECT_FALSE(zConflictNodeIsResolved(node));
                EXPECT_EQ(porcelain(), before);
            }
    };
    others({Z_CONFLICT_USE_OURS, Z_CONFLICT_USE_THEIRS},
           [&] { put("a", "settled"), git(place, "add a"), put("a", "settled, and edited"); });
    EXPECT_EQ(at("a"), "settled, and edited");
    others({Z_CONFLICT_USE_THEIRS},
           [&] { put("d/new", "tracked since"), git(place, "add d/new"); });
    EXPECT_EQ(at("d/new"), "tracked since");
    EXPECT_EQ(trashed(), "");
}

// The files changed after the conflict was shown: no entry is lost over it.
TEST_F(ConflictNodes, AFailureInTheMiddleTakesNoEntries) {
    put("a", "1"), put("z", "1");
    git_commit("base");
    IndexPtr index = lock();
    record(index.get(), "a", "1", "2", "3");
    record(index.get(), "z", "1", "2", "3");
    AnalysisPtr analysis(zConflictAnalysisNew(index.get()));
    NodePtr node(zConflictNodeNew(u"both"));
    for (auto *path : {u"a", u"z"})
        ASSERT_OK(zConflictNodeAddPair(node.get(), index.get(),
                                       ConflictPtr(zConflictGet(index.get(), path)).get()));
    take("z");
    zConflictNodeSetSolution(node.get(), Z_CONFLICT_USE_OURS);
    EXPECT_FALSE(zConflictNodeResolve(index.get(), node.get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(unmerged(), "1 a;2 a;3 a;1 z;2 z;3 z;");
}

TEST_F(ConflictNodes, ATwinInCaseIsNotMade) {
    put("Plan", "ours"), put("x", "1");
    git_commit("base");
    IndexPtr index = lock();
    record(index.get(), "plan", "1", nullptr, "theirs");
    AnalysisPtr analysis = analyze(index.get());
    ConflictNode *node = zConflictAnalysisEntry(analysis.get(), 0);
    EXPECT_REFUSED(zConflictNodeResolve(index.get(), node), 4);
    EXPECT_EQ(at("plan"), "(none)");
    // With the other spelling in the node it goes.
    EntryPtr other(zIndexEntryDup(zIndexEntryBypath(index.get(), u"Plan")));
    ASSERT_OK(zConflictNodeAddOurs(node, index.get(), other.get(), other.get()));
    ASSERT_OK(zConflictNodeResolve(index.get(), node));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(tracked(), (std::vector<std::string>{"plan", "x"}));
}

TEST_F(ConflictNodes, LinksAreTheirs) {
    const auto link = [&](const char *to) {
        take("link");
        fs::create_symlink(to, place / "link");
    };
    link("base");
    git_commit("base");
    merge([&] { link("theirs"); }, [&] { link("ours"); });
    ASSERT_OK(resolve(analyze().get()));
    EXPECT_EQ(fs::read_symlink(place / "link"), "theirs");
}

// A directory that became a link leads out: nothing is written or taken behind it.
TEST_F(ConflictNodes, NothingIsTouchedBehindALink) {
    put("d/a", "base");
    git_commit("base");
    merge([&] { put("d/a", "theirs"); }, [&] { put("d/a", "ours"); });
    take("d");
    write(dir.path() / "outside/a", drawing("not ours"));
    fs::create_directory_symlink(dir.path() / "outside", place / "d");
    for (uint32_t solution : {Z_CONFLICT_USE_OURS, Z_CONFLICT_USE_THEIRS}) {
        AnalysisPtr analysis = analyze();
        EXPECT_EQ(told(analysis.get()), "d: ours d/a=11 d=7, theirs d/a=3;");
        choose(analysis.get(), solution, Z_CONFLICT_NO_TRASH);
        resolve(analysis.get());
        EXPECT_EQ(read(dir.path() / "outside/a"), drawing("not ours"));
    }
}
