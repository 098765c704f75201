// Two people's work on one drawing, brought together by the program.
#include "support.hpp"
#include "zev/drawing.h"
#include "zev/stream.h"
#include "zev_program.hpp"

#include <fstream>

namespace {

namespace fs = std::filesystem;

std::string replaced(std::string text, const std::string &what, const std::string &by) {
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

struct DrawingMerges : CopyTest {
    const std::string base = test_data("plan.dxf");
    const std::string radius = replaced(base, "12.5", "13.5"), kitchen = named("Pantry");

    // The text 33 says something else.
    std::string named(const std::string &name) const { return replaced(base, "Kitchen", name); }
    static std::string without_circle(const std::string &plan) {
        const size_t at = plan.find("  0\nCIRCLE"), end = plan.find("  0\nTEXT");
        return plan.substr(0, at) + plan.substr(end);
    }
    static std::string with_line(const std::string &plan, const std::string &handle,
                                 const std::string &layer, const std::string &x) {
        const std::string line = "  0\nLINE\n  5\n" + handle + "\n330\n1F\n100\nEntity\n  8\n" +
                                 layer + "\n 10\n" + x + "\n 20\n0.0\n 30\n0.0\n 11\n7.0\n 21\n" +
                                 "7.0\n 31\n0.0\n";
        return replaced(plan, "  0\nENDSEC\n  0\nSECTION\n  2\nOBJECTS",
                        line + "  0\nENDSEC\n  0\nSECTION\n  2\nOBJECTS");
    }

    void commit(const std::string &dxf, const std::string &message) {
        draw(dxf);
        ok("commit -m " + message + " plan.dwx");
    }
    // One drawing on two branches; we stand on the first.
    void go_apart(const std::string &ours, const std::string &theirs) {
        draw(base);
        ok("add plan.dwx");
        ok("commit -m base");
        ok("switch -c side");
        commit(theirs, "theirs");
        ok("switch master");
        commit(ours, "ours");
    }
    std::string plan() { return out("export plan.dwx -"); }
    std::string state() { return git("rev-parse HEAD") + git("ls-files -s") + content("plan.dwx"); }
    std::string unmerged() { return git("ls-files -u"); }
    static bool has(const std::string &text, const std::string &part) {
        return text.find(part) != text.npos;
    }
};

TEST_F(DrawingMerges, WhatDiffersComesTogetherByItself) {
    go_apart(radius, kitchen);
    const std::string before = content("plan.dwx"), all = state();
    const Outcome told = both("merge side --dry-run");
    EXPECT_EQ(told.code, 0);
    EXPECT_TRUE(has(told.out, "Merged     plan.dwx: 1 object of theirs modified")) << told.out;
    EXPECT_EQ(state(), all);

    const std::string said = ok("merge side");
    EXPECT_TRUE(has(said, "Merged     plan.dwx: 1 object of theirs modified")) << said;
    EXPECT_FALSE(has(said, "Conflict")) << said;
    EXPECT_EQ(plan(), replaced(kitchen, "12.5", "13.5"));
    EXPECT_EQ(lines(git("rev-list --parents -1 HEAD"))[0].size(), 3u * 40 + 2);
    EXPECT_EQ(git("status --porcelain"), "");
    ok("verify");

    // What was displaced is in the trash, and comes back.
    ok("undo --yes");
    EXPECT_EQ(content("plan.dwx"), before);
}

TEST_F(DrawingMerges, TheSameObjectIsDecidedByItsHandle) {
    go_apart(with_line(radius, "34", "WALLS", "1.0"), replaced(kitchen, "12.5", "14.5"));
    const Outcome told = both("merge side --dry-run");
    EXPECT_EQ(told.code, 4);
    EXPECT_TRUE(has(told.out, "plan.dwx: 1 object in conflict; 1 other comes together"))
        << told.out;
    const Outcome merged = both("merge side");
    EXPECT_EQ(merged.code, 4);
    EXPECT_TRUE(has(merged.out, "plan.dwx: 1 object in conflict")) << merged.out;
    EXPECT_EQ(plan(), with_line(radius, "34", "WALLS", "1.0"));

    const std::string listed = ok("conflicts");
    EXPECT_TRUE(has(listed, "  1 object in conflict; 1 other comes together")) << listed;
    EXPECT_FALSE(has(listed, "14.5"));
    const std::string shown = ok("conflicts plan.dwx");
    EXPECT_TRUE(has(shown, "conflict  32        CIRCLE on layer DOORS: ")) << shown;
    EXPECT_TRUE(has(shown, "12.5 -> 13.5") && has(shown, "12.5 -> 14.5")) << shown;
    const std::string record = lines(out("conflicts plan.dwx --json"))[2];
    EXPECT_EQ(field(record, u"type"), "clash");
    EXPECT_EQ(field(record, u"handle"), "32");
    EXPECT_TRUE(has(record, "\"old\":\"12.5\"") && has(record, "\"new\":\"14.5\"")) << record;

    EXPECT_EQ(out("generate words clashes -- resolve --merge plan.dwx --ours"),
              "32\nheader\nclasses\nlayout\n");
    EXPECT_EQ(out("generate words clashes -- resolve --ours"), "");

    const std::string all = state();
    EXPECT_EQ(code("resolve --merge plan.dwx"), 4);
    EXPECT_EQ(code("resolve --merge plan.dwx --ours 33"), 3);       // in no conflict
    EXPECT_EQ(code("resolve --merge plan.dwx --theirs header"), 3); // nor this
    EXPECT_EQ(code("resolve --merge plan.dwx --ours 32 --theirs 32"), 2);
    EXPECT_EQ(code("resolve --merge --ours 3G plan.dwx"), 2);
    EXPECT_EQ(code("resolve --merge --both plan.dwx"), 2);
    EXPECT_EQ(code("resolve --merge plan.dwx --ours 32 --dry-run"), 0);
    EXPECT_EQ(state(), all);
    const std::string said = ok("resolve --merge --theirs 32 plan.dwx");
    EXPECT_TRUE(has(said, "1 resolved, 0 remain")) << said;
    EXPECT_EQ(plan(), with_line(replaced(kitchen, "12.5", "14.5"), "34", "WALLS", "1.0"));
    EXPECT_EQ(unmerged(), "");
    ok("commit -m together");
    EXPECT_EQ(lines(git("rev-list --parents -1 HEAD"))[0].size(), 3u * 40 + 2);
    EXPECT_EQ(git("status --porcelain"), "");
    ok("verify");
}

// What undo brings back in a merge would be committed as if theirs were in it.
TEST_F(DrawingMerges, UndoInAMergeSaysThatItGoesOn) {
    go_apart(radius, replaced(kitchen, "12.5", "14.5"));
    EXPECT_EQ(code("merge side"), 4);
    ok("resolve --merge --theirs 32 plan.dwx");
    const Outcome undone = both("undo --yes");
    EXPECT_EQ(undone.code, 0);
    EXPECT_TRUE(has(undone.out, "\"zev merge --abort\" takes the merge back")) << undone.out;
    EXPECT_EQ(plan(), radius);
    ok("merge --abort");
    EXPECT_EQ(code("merge side"), 4);
}

TEST_F(DrawingMerges, DeletedAgainstChangedIsAConflict) {
    go_apart(radius, without_circle(kitchen));
    EXPECT_EQ(code("merge side"), 4);
    const std::string shown = ok("conflicts plan.dwx");
    EXPECT_TRUE(has(shown, "theirs  removed")) << shown;
    // All the rest of it is one side's where no handle is named.
    ok("resolve --merge plan.dwx --theirs");
    EXPECT_EQ(plan(), without_circle(kitchen));
}

TEST_F(DrawingMerges, NoLayerGoesThatIsUsed) {
    const std::string layer =
        base.substr(base.find("  0\nLAYER\n  5\n11"),
                    base.find("  0\nENDTAB") - base.find("  0\nLAYER\n  5\n11"));
    const std::string moved = replaced(base, "  5\n32\n  8\nDOORS", "  5\n32\n  8\nWALLS");
    go_apart(with_line(base, "34", "DOORS", "1.0"), replaced(moved, layer, ""));
    const Outcome merged = both("merge side");
    EXPECT_EQ(merged.code, 4) << merged.out;
    EXPECT_EQ(plan(), with_line(base, "34", "DOORS", "1.0"));
}

TEST_F(DrawingMerges, NewObjectsUnderOneHandleBothStay) {
    go_apart(with_line(base, "34", "WALLS", "1.0"), with_line(base, "34", "DOORS", "2.0"));
    const std::string said = ok("merge side");
    EXPECT_TRUE(has(said, "1 object of theirs added; 1 under new handles")) << said;
    const std::string both_lines = plan();
    EXPECT_TRUE(has(both_lines, "  5\n34\n330\n1F\n100\nEntity\n  8\nWALLS\n 10\n1.0"));
    EXPECT_TRUE(has(both_lines, "  8\nDOORS\n 10\n2.0"));
    EXPECT_FALSE(has(replaced(both_lines, "  5\n34\n", ""), "  5\n34\n"));
    ok("verify");
}

// As a command that was killed leaves it: the result in the work directory, the index as it was.
TEST_F(DrawingMerges, AMergeThatWasCutShortIsNotDoneTwice) {
    go_apart(with_line(base, "34", "WALLS", "1.0"), with_line(base, "34", "DOORS", "2.0"));
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    const std::string index = content(".git/index");
    ok("resolve --merge --all");
    const std::string result = content("plan.dwx");
    write(".git/index", index);
    ok("resolve --merge --all");
    EXPECT_EQ(content("plan.dwx"), result);
    EXPECT_EQ(unmerged(), "");
    // Changed since, it would get theirs once more.
    write(".git/index", index);
    draw(replaced(plan(), "Kitchen", "Pantry"));
    const Outcome again = both("resolve --merge --all");
    EXPECT_EQ(again.code, 4);
    EXPECT_TRUE(has(again.out, "cut short")) << again.out;
}

// Repeated without the decisions that it had, it is no merge of something else.
TEST_F(DrawingMerges, ADecidedMergeThatWasCutShortIsNotDoneTwice) {
    go_apart(with_line(radius, "34", "WALLS", "1.0"),
             with_line(replaced(base, "12.5", "14.5"), "34", "DOORS", "2.0"));
    EXPECT_EQ(code("merge side"), 4);
    const std::string index = content(".git/index");
    ok("resolve --merge plan.dwx --theirs");
    const std::string result = content("plan.dwx");
    write(".git/index", index);
    const Outcome again = both("resolve --merge plan.dwx");
    EXPECT_EQ(again.code, 4);
    EXPECT_TRUE(has(again.out, "cut short")) << again.out;
    EXPECT_EQ(content("plan.dwx"), result);
    ok("resolve --merge plan.dwx --theirs");
    EXPECT_EQ(content("plan.dwx"), result);
}

// As soon as the index has the conflict: it must not be settled as if nobody merged.
TEST_F(DrawingMerges, AMergeThatIsKilledInItsFilesIsKnown) {
    go_apart(with_line(base, "34", "WALLS", "1.0"), with_line(base, "34", "DOORS", "2.0"));
    const char *program = getenv("ZEV_BIN");
    sh("exec 2>/dev/null; '" + (program ? std::string(program) : program_directory() + "/zev") +
       "' merge side >/dev/null & while kill -0 $! && [ -z \"$(git ls-files -u)\" ]; do :; done; "
       "kill -9 $!; wait || :");
    // Whole by then, or known as a part: that is taken back first.
    if (!unmerged().empty() && both("resolve --merge --all").code == 1) ok("merge --abort");
    both("commit -m merged");
    both("merge side");
    EXPECT_EQ(lines(git("rev-list --parents -1 HEAD"))[0].size(), 3u * 40 + 2);
    EXPECT_EQ(plan().find("  8\nDOORS\n 10\n2.0"), plan().rfind("  8\nDOORS\n 10\n2.0"));
    EXPECT_EQ(git("status --porcelain"), "");
}

// As one that could not write all files: the next merge has theirs to bring once more.
TEST_F(DrawingMerges, AMergeInPartBringsNoDrawingTogether) {
    go_apart(with_line(base, "34", "WALLS", "1.0"), with_line(base, "34", "DOORS", "2.0"));
    const std::string before = content("plan.dwx");
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    git("update-ref ZEV_PART_HEAD side");
    git("update-ref -d MERGE_HEAD");
    const Outcome refused = both("resolve --merge --all");
    EXPECT_EQ(refused.code, 1) << refused.out;
    EXPECT_TRUE(has(refused.out, "zev merge --abort")) << refused.out;
    EXPECT_EQ(content("plan.dwx"), before);
    ok("merge --abort");
    ok("merge side");
    EXPECT_EQ(plan().find("  8\nDOORS\n 10\n2.0"), plan().rfind("  8\nDOORS\n 10\n2.0"));
}

TEST_F(DrawingMerges, AMergeOfOthersIsTakenBackWithItsDrawings) {
    go_apart(radius, kitchen);
    write("note.txt", std::string("ours\0", 5));
    ok("add note.txt");
    ok("commit -m note");
    ok("switch side");
    write("note.txt", std::string("theirs\0", 7));
    ok("add note.txt");
    ok("commit -m note");
    ok("switch master");
    const std::string before = state();
    const Outcome told = both("merge side --dry-run");
    EXPECT_TRUE(has(told.out, "1 file would be in conflict")) << told.out;
    EXPECT_EQ(code("merge side"), 4);
    EXPECT_EQ(plan(), replaced(kitchen, "12.5", "13.5"));
    ok("merge --abort");
    EXPECT_EQ(state(), before);

    // Committed later, the drawing is as it came together.
    EXPECT_EQ(code("merge side"), 4);
    ok("resolve --mine note.txt");
    ok("commit -m settled");
    EXPECT_EQ(plan(), replaced(kitchen, "12.5", "13.5"));
    EXPECT_EQ(git("status --porcelain"), "");
}

// Theirs has no other object, and what a drawing application keeps in the file.
TEST_F(DrawingMerges, ReferenceDataOfTheirsComesIn) {
    const std::u16string file = dir / u"copy/plan.dwx";
    const auto refer = [&](const std::string &data) {
        const auto drawing = test::guard(zDrawingRead(file.c_str()), zDrawingFree);
        Stream *reference = zDrawingReference(drawing.get(), nullptr, nullptr);
        EXPECT_EQ(zStreamWrite(reference, data.data(), data.size()), data.size());
        EXPECT_TRUE(zDrawingWrite(drawing.get(), file.c_str()));
    };
    draw(base);
    ok("add plan.dwx");
    ok("commit -m base");
    ok("switch -c side");
    refer("site 7");
    ok("commit -m site plan.dwx");
    ok("switch master");
    commit(radius, "ours");
    ok("merge side");
    EXPECT_TRUE(has(content("plan.dwx"), "site 7"));
    EXPECT_EQ(plan(), radius);
    // Both, each another: nothing is written.
    refer("site 8");
    ok("commit -m other plan.dwx");
    const std::string ours = content("plan.dwx");
    ok("switch side");
    refer("site 9");
    ok("commit -m third plan.dwx");
    ok("switch master");
    const Outcome refused = both("merge side");
    EXPECT_EQ(refused.code, 4);
    EXPECT_TRUE(has(refused.out, "both sides changed its reference data")) << refused.out;
    EXPECT_EQ(content("plan.dwx"), ours);
}

// What was changed since the conflict came up is ours.
TEST_F(DrawingMerges, TheWorkFileIsOurs) {
    go_apart(radius, kitchen);
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    EXPECT_EQ(plan(), radius);
    draw(replaced(radius, "100.0", "101.5"));
    ok("resolve --merge plan.dwx");
    EXPECT_EQ(plan(), replaced(replaced(kitchen, "12.5", "13.5"), "100.0", "101.5"));
}

TEST_F(DrawingMerges, AMissingFileIsWhatTheMergeMet) {
    go_apart(radius, kitchen);
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    fs::remove(root + "/plan.dwx");
    ok("resolve --merge plan.dwx");
    EXPECT_EQ(plan(), replaced(kitchen, "12.5", "13.5"));
    EXPECT_EQ(git("diff --name-only"), "");
}

TEST_F(DrawingMerges, WhatIsNoDrawingStays) {
    go_apart(radius, kitchen);
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    const std::string drawing = content("plan.dwx"), index = git("ls-files -s");
    const auto refused = [&](const std::string &why) {
        const Outcome outcome = both("resolve --merge plan.dwx");
        EXPECT_EQ(outcome.code, 4) << outcome.out;
        EXPECT_TRUE(has(outcome.out, why)) << outcome.out;
        EXPECT_EQ(git("ls-files -s"), index);
    };
    write("plan.dwx", "precious");
    refused("is no drawing");
    EXPECT_EQ(content("plan.dwx"), "precious");
    fs::remove(root + "/plan.dwx");
    test::write(home + "/elsewhere", drawing);
    fs::create_symlink(home + "/elsewhere", root + "/plan.dwx");
    refused("symbolic link");
    EXPECT_EQ(test::read(home + "/elsewhere"), drawing);
    fs::remove(root + "/plan.dwx");
    fs::create_directory(root + "/plan.dwx");
    refused("no file any more");
    fs::remove(root + "/plan.dwx");
    write("plan.dwx", drawing);
    {
        const std::ifstream somebody(root + "/plan.dwx");
        refused("plan.dwx");
        EXPECT_EQ(content("plan.dwx"), drawing);
    }
    ok("resolve --merge plan.dwx");
}

} // namespace
