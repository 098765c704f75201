// Conflicts that the system's git provoked, shown and resolved by the program.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct ConflictVerbs : CopyTest {
    void SetUp() override {
        CopyTest::SetUp();
        write("base", "base");
    }
    void commit(const std::string &author, const std::string &message) {
        git("-c user.name=" + author + " add -A");
        git("-c user.name=" + author + " commit -qm " + message);
    }
    // Two lines of history: what `theirs` and `ours` do to the files, each followed by a commit
    // that touches none of them. The merge stops at what they both changed.
    template <class Base, class Theirs, class Ours>
    void merge(Base base, Theirs theirs, Ours ours) {
        base();
        commit("Ada", "base");
        git("checkout -qb other");
        theirs();
        commit("Ben", "theirs");
        write("later", "later");
        commit("Eve", "later");
        git("checkout -q master");
        ours();
        commit("Cy", "ours");
        write("base", "more");
        commit("Eve", "more");
        git("-c user.name=Cy merge other");
        ASSERT_NE(git("ls-files -u"), "");
    }
    void merge_texts(const std::vector<std::string> &names) {
        const auto fill = [&](const char *text) {
            return [this, names, text] { // a zero byte: git puts no marks of both sides into it
                for (const std::string &name : names)
                    write(name, text + std::string(1, '\0') + name);
            };
        };
        merge(fill("base"), fill("theirs"), fill("ours"));
    }
    std::string exported(const std::string &drawing) { return out("export '" + drawing + "' -"); }
    std::vector<std::string> unmerged() { return lines(git("diff --name-only --diff-filter=U")); }
};

TEST_F(ConflictVerbs, TellWhoChangedWhatOnEachSide) {
    merge([&] { write("a", "base"), write("b", "base"); },
          [&] { write("a", "theirs"), write("b", "theirs"); },
          [&] { write("a", "ours"), fs::remove(root + "/b"); });
    const auto id = [&](const std::string &name) { return lines(git("rev-parse " + name))[0]; };
    const std::string text = out("conflicts b");
    EXPECT_EQ(lines(text)[0], "b: deleted/modified");
    EXPECT_NE(lines(text)[2].find(id("other~1").substr(0, 8)), std::string::npos) << text;
    EXPECT_NE(lines(text)[2].find("Ben"), std::string::npos);
    EXPECT_EQ(lines(text).size(), 3u);
    EXPECT_EQ(out("conflicts base"), "no conflicts\n");

    // A commit that is picked has its own history; one that is taken back wants what was before.
    git("merge --abort");
    git("-c user.name=Cy cherry-pick other~1");
    EXPECT_NE(lines(out("conflicts a"))[2].find("Ben"), std::string::npos);
    git("cherry-pick --abort");
    write("a", "again");
    commit("Fay", "again");
    git("-c user.name=Cy revert HEAD~2");
    EXPECT_NE(lines(out("conflicts a"))[1].find("Fay"), std::string::npos);
    EXPECT_NE(lines(out("conflicts a"))[2].find("Ada"), std::string::npos);
    EXPECT_NE(out("resolve --mine a 2>&1").find("a: has both sides"), std::string::npos);
}

TEST_F(ConflictVerbs, ANameIsThatFileOnly) {
    std::vector<std::string> names = kOddNames;
    for (const char *other : {"1", "x", "a1", "star", "what", "100", "tr", "d/in", "d/st*r"})
        names.push_back(other);
    fs::create_directory(root + "/d");
    merge_texts(names);
    size_t left = unmerged().size();
    ASSERT_EQ(left, names.size());
    for (const std::string &name : kOddNames) {
        EXPECT_EQ(lines(zev(root, "conflicts '" + name + "'").out).size(), 3u) << name;
        EXPECT_EQ(zev(root, "resolve --theirs '" + name + "'").code, 0) << name;
        EXPECT_EQ(unmerged().size(), --left) << name;
        EXPECT_EQ(content(name), std::string("theirs\0", 7) + name);
        EXPECT_EQ(zev(root, "resolve --mine '" + name + "' 2>/dev/null").code, 3) << name;
    }
    // From a directory below, as a directory, and as a pattern where nothing has the name.
    EXPECT_EQ(zev(root + "/d", "resolve --mine 'st*r'").code, 0);
    ok("resolve --mine d");
    EXPECT_EQ(unmerged(), (std::vector<std::string>{"1", "100", "a1", "star", "tr", "what", "x"}));
    ok("resolve --mine '1*'");
    EXPECT_EQ(unmerged(), (std::vector<std::string>{"a1", "star", "tr", "what", "x"}));
    ok("resolve --mine --all");
    EXPECT_EQ(git("ls-files -u"), "");
}

TEST_F(ConflictVerbs, BothDrawingsStandSideBySide) {
    const std::string base = plan_with("12.5"), theirs = plan_with("13.5"),
                      ours = plan_with("14.5");
    merge([&] { draw(base); }, [&] { draw(theirs); }, [&] { draw(ours); });
    test::write(root + "/plan (theirs).dwx", "precious"); // somebody's, not tracked
    const Outcome outcome = zev(root, "resolve --both plan.dwx");
    EXPECT_EQ(outcome.out,
              "Resolved   plan.dwx\nKept       plan (theirs 2).dwx\n1 resolved, 0 remain\n");
    EXPECT_EQ(content("plan (theirs).dwx"), "precious");
    EXPECT_EQ(exported("plan.dwx"), ours);
    EXPECT_EQ(exported("plan (theirs 2).dwx"), theirs);
    EXPECT_EQ(git("ls-files plan*"), "plan (theirs 2).dwx\nplan.dwx\n");
    // Each has a table of its own; to change one leaves the other alone.
    Oid one{}, other{};
    ASSERT_OK(zDrawingDetect(&one, (dir / u"copy/plan.dwx").c_str()));
    ASSERT_OK(zDrawingDetect(&other, (dir / u"copy/plan (theirs 2).dwx").c_str()));
    EXPECT_FALSE(zOidIsEqual(&one, &other));
    git("-c user.name=Cy commit -qm merged");
    draw(plan_with("15.5"));
    EXPECT_EQ(exported("plan (theirs 2).dwx"), theirs);
    sh("git fsck --strict");
    ok("verify");
}

TEST_F(ConflictVerbs, BothIsTheOtherSideWhereOneWasDeleted) {
    merge([&] { write("a", "base"), write("b", "base"); },
          [&] { write("a", "theirs"), fs::remove(root + "/b"); },
          [&] { fs::remove(root + "/a"), write("b", "ours"); });
    ok("resolve --both a b");
    EXPECT_EQ(content("a") + content("b"), "theirsours");
    EXPECT_EQ(git("ls-files"), "a\nb\nbase\nlater\n");
    EXPECT_FALSE(fs::exists(root + "/a (theirs)"));
}

// A file of ours where theirs has a directory; names without room for more.
TEST_F(ConflictVerbs, BothKeepsTreesAndLongNames) {
    const std::string long_name = std::string(120, 'x') + "ü" + std::string(125, 'y') + ".dwx";
    merge_texts({long_name});
    sh("blob=$(git rev-parse HEAD:base); for path in base/in/a base/b; do "
       "printf '100644 %s 3\\t%s\\n' $blob $path; done | git update-index --index-info");
    const auto found = lines(out("conflicts base"));
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[0].substr(0, 5), "base:");
    EXPECT_EQ(found[2], "  theirs  2 added");
    ok("resolve --both --all");
    EXPECT_EQ(content("base"), "more");
    EXPECT_EQ(content("base (theirs)/in/a") + content("base (theirs)/b"), "moremore");
    const std::string cut = long_name.substr(0, 242) + " (theirs).dwx";
    EXPECT_EQ(content(cut), std::string("theirs\0", 7) + long_name);
    EXPECT_EQ(git("ls-files -u"), "");
    EXPECT_NE(git("ls-files").find("base (theirs)/in/a\n"), std::string::npos);
}

TEST_F(ConflictVerbs, CodesSayWhatWentWrong) {
    merge_texts({"a", "b"});
    for (const char *arguments : {"resolve a", "resolve --mine --theirs a", "resolve --mine",
                                  "resolve --both --all a", "resolve --mine ../copy/.git/HEAD"})
        EXPECT_EQ(code(arguments), 2) << arguments;
    for (const char *arguments :
         {"resolve --mine a base", "resolve --mine nowhere", "conflicts nowhere"})
        EXPECT_EQ(code(arguments), 3) << arguments;
    EXPECT_EQ(unmerged().size(), 2u); // one wrong name and nothing is done

    // Without their content the one can't be resolved; the other is, and ours stays.
    const std::string id = lines(git("rev-parse other:a"))[0];
    fs::remove(root + "/.git/objects/" + id.substr(0, 2) + "/" + id.substr(2));
    for (const char *side : {"--theirs", "--both"}) {
        const Outcome outcome = zev(root, "resolve --json " + std::string(side) + " --all");
        EXPECT_EQ(outcome.code, 4) << side;
        EXPECT_NE(outcome.out.find("{\"failed\":1,\"remain\":1,"), std::string::npos);
        EXPECT_EQ(content("a"), std::string("ours\0a", 6));
        EXPECT_EQ(unmerged(), std::vector<std::string>{"a"});
    }
    ok("resolve --mine a");
}

} // namespace
