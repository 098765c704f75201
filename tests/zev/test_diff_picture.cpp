// Pictures of a diff: which change each shape shows, moves and arrows, regions, words, and the
// verb.
#include "dxf/manifest.hpp"
#include "dxf/reader.hpp"
#include "picture/changes/clusters.hpp"
#include "picture/changes/diff_scene.hpp"
#include "picture/changes/diff_svg.hpp"
#include "picture/changes/regions.hpp"
#include "zev_program.hpp"

#include <chrono>
#include <map>

namespace {

using dxf::ObjectChange;

// Entities by their handles; what begins with a blank stands in front, as tables and blocks.
using Records = std::map<std::string, std::string>;

std::string number(double value) { return std::to_string(value); }

std::string hex(int value) {
    char digits[16];
    snprintf(digits, sizeof digits, "%X", static_cast<unsigned>(value));
    return digits;
}

std::string line(double x1, double y1, double x2, double y2, const std::string &layer = "WALLS") {
    return "LINE\n8\n" + layer + "\n10\n" + number(x1) + "\n20\n" + number(y1) + "\n11\n" +
           number(x2) + "\n21\n" + number(y2) + "\n";
}

std::string circle(double x, double y, double radius) {
    return "CIRCLE\n8\nHOLES\n10\n" + number(x) + "\n20\n" + number(y) + "\n40\n" + number(radius) +
           "\n";
}

std::string insert(const std::string &block, double x, double y) {
    return "INSERT\n8\n0\n2\n" + block + "\n10\n" + number(x) + "\n20\n" + number(y) + "\n";
}

std::string text(double x, double y, const std::string &words) {
    return "TEXT\n8\nNOTES\n10\n" + number(x) + "\n20\n" + number(y) + "\n40\n2.5\n1\n" + words +
           "\n";
}

// What else there is to a drawing: groups of its header, the name of its block.
struct Form {
    std::string header = "9\n$ACADVER\n1\nAC1027\n", block = "Chair";
};

// One version of a drawing.
struct Version {
    explicit Version(const Records &entities, const Records &parts = {},
                     const std::string &tables = {}, const Form &form = {}) {
        const auto put = [this](const Records &records) {
            for (const auto &[handle, record] : records) {
                const size_t type = record.find('\n') + 1;
                bytes +=
                    "0\n" + record.substr(0, type) + "5\n" + handle + "\n" + record.substr(type);
            }
        };
        bytes = "0\nSECTION\n2\nHEADER\n" + form.header +
                "0\nENDSEC\n0\nSECTION\n2\nTABLES\n0\nTABLE\n2\nLAYER\n5\nF0\n" + tables +
                "0\nENDTAB\n0\nENDSEC\n0\nSECTION\n2\nBLOCKS\n0\nBLOCK\n5\nB0\n8\n0\n2\n" +
                form.block +
                "\n"
                "10\n0\n20\n0\n";
        put(parts);
        bytes += "0\nENDBLK\n5\nB1\n8\n0\n0\nENDSEC\n0\nSECTION\n2\nENTITIES\n";
        put(entities);
        bytes += "0\nENDSEC\n0\nEOF\n";
        content = dxf::content_of(dxf::split(bytes, "t.dxf"));
    }
    Version(const Version &) = delete;
    std::string bytes;
    dxf::Content content;
};

std::vector<ObjectChange> changes_of(const dxf::Content &older, const dxf::Content &newer) {
    std::map<uint64_t, std::string_view> left;
    for (const dxf::Object &object : older.objects)
        if (object.key.object) left[object.key.object] = object.record;
    std::vector<ObjectChange> changes;
    for (const dxf::Object &object : newer.objects) {
        if (!object.key.object) continue;
        const auto found = left.find(object.key.object);
        if (found == left.end())
            changes.push_back({ObjectChange::added, object.key.object, {}, {}});
        else if (found->second != object.record)
            changes.push_back({ObjectChange::modified, object.key.object, {}, {}});
        if (found != left.end()) left.erase(found);
    }
    for (const auto &[handle, record] : left)
        changes.push_back({ObjectChange::removed, handle, {}, {}});
    return changes;
}

struct Picture {
    Picture(const Version &older, const Version &newer,
            picture::SceneOptions::Space space = picture::SceneOptions::any)
        : changes(changes_of(older.content, newer.content)),
          scene(picture::diff_scene(older.content, newer.content, changes, space)) {
        counts = picture::write_diff(
            older.content, newer.content, changes,
            {.theme = {}, .title = "t", .older = "a", .newer = "b", .space = space},
            [this](std::string_view piece) { svg += piece; });
    }
    size_t count(const std::string &what) const {
        size_t found = 0;
        for (size_t at = svg.find(what); at != svg.npos; at = svg.find(what, at + 1)) ++found;
        return found;
    }
    bool has(const std::string &what) const { return count(what); }
    std::vector<ObjectChange> changes;
    picture::DiffScene scene;
    picture::DiffCounts counts;
    std::string svg;
};

// Lines apart from each other, for something to be in the middle of.
Records grid(int count, double x = 0, double y = 0) {
    Records records;
    for (int i = 0; i < count; ++i) {
        const std::string handle = hex(0x1000 + i);
        const double at = i % 20 * 50, row = i / 20 * 50;
        records[handle] = line(x + at, y + row, x + at + 20, y + row + 10);
    }
    return records;
}

Records with(Records records, const Records &more) {
    for (const auto &[handle, record] : more) records[handle] = record;
    return records;
}

TEST(DiffPicture, ShowsEachChangeInItsOwnWay) {
    const Version older(with(grid(60), {{"A1", line(0, 200, 30, 200)},
                                        {"A2", line(300, 200, 330, 200)},
                                        {"A3", line(600, 200, 630, 200)}}));
    const Version newer(with(grid(60), {{"A1", line(0, 200, 30, 230)},
                                        {"A3", line(600, 200, 630, 200)},
                                        {"A4", line(900, 200, 930, 200)}}));
    const Picture picture(older, newer);
    EXPECT_EQ(picture.counts.added, 1u);
    EXPECT_EQ(picture.counts.modified, 1u);
    EXPECT_EQ(picture.counts.removed, 1u);
    EXPECT_EQ(picture.counts.moved, 0u);
    EXPECT_EQ(picture.counts.regions, 3u);
    const std::string removed =
        picture.svg.substr(picture.svg.find("class=\"removed\" data-handle=\"A2\""));
    const std::string group = removed.substr(0, removed.find("</g>"));
    EXPECT_NE(group.find("stroke-dasharray"), group.npos) << group;
    EXPECT_EQ(group.find("#0072b2"), group.npos) << group;
    EXPECT_TRUE(picture.has("class=\"added\" data-handle=\"A4\" data-kind=\"LINE\""));
    EXPECT_TRUE(picture.has("21 y 2: 200.000000 -&gt; 230.000000"));
    EXPECT_FALSE(picture.has("data-handle=\"A3\"")); // stayed
    EXPECT_EQ(picture.count("<svg "), 4u);           // the page, and a part for each region
    EXPECT_EQ(picture.svg, Picture(older, newer).svg);
}

TEST(DiffPicture, JoinsWhatWasMovedByArrows) {
    const Version older(with(grid(60), {{"C1", circle(100, 200, 10)}}));
    const Version newer(with(grid(60), {{"C1", circle(180, 240, 10)}}));
    const Picture picture(older, newer);
    EXPECT_EQ(picture.counts.moved, 1u);
    EXPECT_EQ(picture.counts.added + picture.counts.removed + picture.counts.modified, 0u);
    EXPECT_NEAR(picture.scene.marks.at(0).shift.x, 80, 1e-6);
    const picture::Regions regions = picture::find_regions(picture.scene);
    ASSERT_EQ(regions.arrows.size(), 1u);
    EXPECT_NEAR(regions.arrows[0].from.x, 100, 1e-6);
    EXPECT_NEAR(regions.arrows[0].to.y, 240, 1e-6);
    ASSERT_EQ(regions.shown.size(), 1u); // where it was and where it is

    // Two by one vector are one arrow, one that grew besides is none.
    const Version apart(with(
        grid(60),
        {{"C1", circle(180, 240, 10)}, {"C2", circle(210, 240, 5)}, {"C3", circle(240, 240, 6)}}));
    const Version before(with(
        grid(60),
        {{"C1", circle(100, 200, 10)}, {"C2", circle(130, 200, 5)}, {"C3", circle(160, 200, 5)}}));
    const Picture group(before, apart);
    EXPECT_EQ(group.counts.moved, 2u);
    EXPECT_EQ(group.counts.modified, 1u);
    EXPECT_EQ(picture::find_regions(group.scene).arrows.size(), 1u);
}

TEST(DiffPicture, SaysThatAWholeDrawingWasMoved) {
    const Version older(with(grid(60), {{"A1", line(5, 5, 9, 9)}}));
    const Version newer(with(grid(60, 1000, -30), {{"A1", line(1005, -25, 1009, -21)},
                                                   {"1003", line(1150, -30, 1180, -20)},
                                                   {"A2", circle(1100, 0, 3)}}));
    const Picture picture(older, newer);
    ASSERT_TRUE(picture.scene.whole);
    EXPECT_EQ(picture.counts.carried, 60u);
    EXPECT_EQ(picture.counts.moved, 0u);
    EXPECT_EQ(picture.counts.modified, 1u); // 1003 is longer, too
    EXPECT_EQ(picture.counts.added, 1u);
    EXPECT_TRUE(picture.has("The whole drawing was moved by 1000, -30: 60 of its entities."));

    Records turned;
    for (int i = 0; i < 60; ++i) {
        const std::string handle = hex(0x1000 + i);
        const double at = i % 20 * 50, row = i / 20 * 50;
        turned[handle] = line(-2 * row, 2 * at, -2 * (row + 10), 2 * (at + 20));
    }
    const Picture second(Version(grid(60)), Version(turned));
    EXPECT_TRUE(second.has("scaled by 2 and turned by 90 degrees: 60 of"));
    EXPECT_EQ(second.counts.modified, 0u);
}

TEST(DiffPicture, TellsABlockThatChangedOnce) {
    Records chairs = grid(60);
    for (int i = 0; i < 30; ++i) {
        const std::string handle = hex(0x2000 + i);
        chairs[handle] = insert("CHAIR", i % 10 * 100 + 30, i / 10 * 50 + 25);
    }
    const Records legs{{"B5", line(0, 0, 4, 0)}, {"B6", line(0, 4, 4, 4)}};
    const Version older(chairs, legs);
    const Version newer(chairs, with(legs, {{"B6", line(0, 4, 4, 6)}}));
    const Picture picture(older, newer);
    ASSERT_EQ(picture.scene.marks.size(), 1u);
    EXPECT_EQ(picture.scene.marks[0].block, "Chair");
    EXPECT_EQ(picture.counts.modified, 1u);
    EXPECT_EQ(picture.counts.unseen, 0u);
    EXPECT_TRUE(picture.has("changed through block Chair"));
    const picture::Regions regions = picture::find_regions(picture.scene);
    EXPECT_EQ(regions.shown.size(), 1u);
    EXPECT_GT(regions.more, 0u);
    size_t changed = 0;
    for (const uint32_t mark : picture.scene.newer_marks) changed += mark != picture::kNone;
    EXPECT_EQ(changed, 30u); // one line in each place
}

TEST(DiffPicture, ListsWhatHasNoPicture) {
    const std::string layer = "0\nLAYER\n5\nF1\n2\nWALLS\n70\n0\n62\n";
    const Version older(grid(20), {}, layer + "3\n");
    const Version newer(with(grid(20), {{"1005", line(250, 0, 270.0, 10, "WALLS") + "1001\nX\n"},
                                        {"1006", line(300, 0, 320, 10, "GATES")}}),
                        {}, layer + "4\n");
    const Picture picture(older, newer);
    EXPECT_TRUE(picture.has("Changes that have no picture: 1 LAYER."));
    EXPECT_TRUE(picture.has("Layer WALLS: colour 3 -&gt; 4."));
    EXPECT_TRUE(picture.has("modified: layer: WALLS -&gt; GATES")); // which nobody sees
    EXPECT_EQ(picture.counts.unseen, 1u);
    EXPECT_EQ(picture.counts.modified, 2u); // in place: drawn once, not also with gaps
    EXPECT_FALSE(picture.has("stroke-dasharray=\"6 3.5\" d=\"M-"));

    const Picture same(older, older);
    EXPECT_TRUE(same.has("Nothing changed."));
    EXPECT_EQ(same.count("<svg "), 1u);

    const std::string two =
        "0\nLAYER\n5\nF1\n2\nWALLS\n70\n1\n62\n-3\n0\nLAYER\n5\nF2\n2\n<NEW>\n70\n0\n62\n1\n";
    const Picture hidden(older, Version(grid(20), {}, two));
    EXPECT_EQ(hidden.counts.removed, 0u); // off and frozen: still there
    EXPECT_TRUE(hidden.has("Layer WALLS: frozen, off."));
    EXPECT_TRUE(hidden.has("Layer &lt;NEW&gt;: added."));

    // The same numbers in other characters.
    std::string other = line(250, 0, 270, 10);
    other.replace(other.find("270.000000"), 10, " 270.0");
    const Picture rewritten(older, Version(with(grid(20), {{"1005", other}}), {}, layer + "3\n"));
    EXPECT_EQ(rewritten.counts.modified + rewritten.counts.unseen, 0u);
    EXPECT_EQ(rewritten.counts.alike, 1u);
    EXPECT_TRUE(rewritten.has("with the same look: 1 LINE."));
    EXPECT_FALSE(rewritten.has("Nothing changed."));
    const Picture layers(older, Version(grid(20), {}, layer + " 3\n"));
    EXPECT_EQ(layers.counts.alike, 1u);
    EXPECT_EQ(layers.counts.unseen, 0u);
}

// The title block is in paper space, where no model's change is looked for.
TEST(DiffPicture, ShowsPaperSpaceWhereTheModelStayed) {
    const auto sheet = [](const std::string &revision, double end, int count = 20) {
        return with(grid(count),
                    {{"A1", line(0, 200, end, 200)}, {"A2", text(10, 10, revision) + "67\n1\n"}});
    };
    const Version older(sheet("rev A", 30)), titled(sheet("rev B", 30)), both(sheet("rev B", 40));
    const Picture paper(older, titled), model(older, both);
    EXPECT_TRUE(paper.counts.is_paper);
    EXPECT_EQ(paper.counts.modified, 1u);
    EXPECT_EQ(paper.counts.unseen, 0u);
    EXPECT_TRUE(paper.has("Paper space, from a to b"));
    EXPECT_FALSE(model.counts.is_paper);
    EXPECT_EQ(model.counts.modified, 1u);
    EXPECT_TRUE(model.has("no picture: 1 objects of paper space."));
    const Picture asked(older, both, picture::SceneOptions::paper);
    EXPECT_TRUE(asked.has("rev A") && asked.has("no picture: 1 objects of the model."));

    // All that the model had is gone, which is its change.
    const Picture emptied(Version(sheet("rev A", 30)),
                          Version({{"A2", text(10, 10, "rev A") + "67\n1\n"}}));
    EXPECT_FALSE(emptied.counts.is_paper);
    EXPECT_EQ(emptied.counts.removed, 21u);
}

TEST(DiffPicture, TellsWhatChangedInOtherLayouts) {
    const Form layout{Form().header, "*Paper_Space0"};
    const Version older(grid(20), {{"B5", line(0, 0, 4, 0)}}, {}, layout);
    const Version newer(grid(20), {{"B5", line(0, 0, 5, 0)}}, {}, layout);
    const Picture picture(older, newer);
    EXPECT_EQ(picture.counts.modified, 0u);
    EXPECT_TRUE(picture.has("no picture: 1 objects of other layouts."));
    EXPECT_TRUE(picture.has("Not drawn: 1 objects of other layouts."));
}

// The points that a dimension hangs on are not drawn, the arrow in its block is one of another.
TEST(DiffPicture, CountsADimensionAsOne) {
    const auto version = [](double at) {
        return Version(with(grid(20), {{"A1", "DIMENSION\n8\n0\n2\nchair\n10\n0\n20\n0\n"
                                              "13\n" +
                                                  number(at) + "\n"}}),
                       {{"B5", line(at, 200, at + 40, 200)},
                        {"B6", "POINT\n8\nDefpoints\n10\n" + number(at) + "\n20\n0\n"},
                        {"B7", insert("NONE", at, 0)}});
    };
    const Picture picture(version(0), version(30));
    EXPECT_EQ(picture.counts.moved, 1u);
    EXPECT_EQ(picture.counts.unseen, 0u);
}

TEST(DiffPicture, KeepsThinAreasThatStayed) {
    const std::string band = "LWPOLYLINE\n8\nROADS\n43\n0.01\n10\n0\n20\n300\n10\n900\n20\n300\n";
    const Version older(with(grid(20), {{"A1", band}}));
    const Version newer(with(grid(20), {{"A1", band}, {"A2", circle(100, 200, 10)}}));
    const Picture picture(older, newer);
    EXPECT_FALSE(picture.has("fill=\"#dddddd\">\n<path")); // the group has none
    EXPECT_EQ(picture.counts.added, 1u);
}

TEST(DiffPicture, TakesWhatIsOneSidedOrAbsurd) {
    const Version none{Records{}}, some(grid(20));
    EXPECT_EQ(Picture(none, some).counts.added, 20u);
    EXPECT_EQ(Picture(some, none).counts.removed, 20u);
    EXPECT_TRUE(Picture(none, none).has("Nothing changed."));
    EXPECT_EQ(Picture(Version(with(grid(20), {{"A1", line(0, 0, 1e300, 5)}})),
                      Version(with(grid(20), {{"A1", line(0, 0, -1e300, 1e-300)}})))
                  .count("inf"),
              0u);
    const dxf::Content nothing;
    std::string svg;
    const auto counts =
        picture::write_diff(nothing, some.content, changes_of(nothing, some.content), {},
                            [&](std::string_view piece) { svg += piece; });
    EXPECT_EQ(counts.added, 20u);
}

TEST(DiffPicture, EscapesWhatDrawingsSay) {
    const std::string evil = "</title><script>x</script>&\"'\x01";
    const Version older(with(grid(20), {{"A1", text(100, 20, evil)}}));
    const Version newer(
        with(grid(20), {{"A1", text(100, 20, evil + "2")}, {"A2", line(0, 50, 9, 60, evil)}}));
    const Picture picture(older, newer);
    EXPECT_EQ(picture.counts.modified, 1u);
    EXPECT_EQ(picture.count("<script"), 0u);
    EXPECT_GT(picture.count("&lt;script&gt;"), 3u);
    EXPECT_FALSE(picture.has("\x01"));
    EXPECT_TRUE(picture.has("data-layer=\"&lt;/title&gt;"));
}

TEST(DiffPicture, SaysOldNamesInTheirCodePage) {
    const Form western{"9\n$ACADVER\n1\nAC1015\n9\n$DWGCODEPAGE\n3\nANSI_1252\n", "St\xfchle"};
    const Form eastern{"9\n$ACADVER\n1\nAC1015\n9\n$DWGCODEPAGE\n3\nANSI_1250\n", "St\xfchle"};
    const Records chair{{"C1", insert("ST\xfcHLE", 400, 25)}};
    const auto version = [&](const char *words, double leg) {
        return with(with(grid(20), chair),
                    {{"A1", text(100, 20, words)}, {"A2", line(0, 50, 9, 60 + leg, "W\xe4nde")}});
    };
    const Version older(version("K\374che", 0), {{"B5", line(0, 0, 4, 0)}}, {}, western);
    const Version newer(version("ku\x9f", 1), {{"B5", line(0, 0, 4, 3)}}, {}, eastern);
    const Picture picture(older, newer);
    EXPECT_TRUE(picture.has("data-layer=\"W\u00e4nde\""));
    EXPECT_TRUE(picture.has("1 text: K\u00fcche -&gt; ku\u017a"));
    EXPECT_TRUE(picture.has("\"K\u00fcche\" -&gt; \"ku\u017a\"") ||
                picture.has("&quot;K\u00fcche&quot; -&gt; &quot;ku\u017a&quot;"));
    EXPECT_TRUE(picture.has("data-block=\"St\u00fchle\""));
    EXPECT_FALSE(picture.has("\ufffd"));
}

TEST(DiffPicture, CutsNamesWithoutAnEnd) {
    std::string kind;
    for (int i = 0; i < 50'000; ++i) kind += "X ";
    const Version older(grid(20)), newer(with(grid(20), {{"A1", kind + "\n8\n0\n"}}));
    EXPECT_LT(Picture(older, newer).count("<text"), 30u);
}

// In the middle of a page, and when its end is written.
TEST(DiffPicture, GivesBackWhatItsReaderThrows) {
    const Version none{Records{}}, few(grid(20)), many(grid(4000));
    for (const Version *version : {&few, &many}) {
        size_t pieces = 0;
        const auto failing = [&](std::string_view) {
            ++pieces;
            throw std::runtime_error("full");
        };
        EXPECT_THROW(picture::write_diff(none.content, version->content,
                                         changes_of(none.content, version->content), {}, failing),
                     std::runtime_error);
        EXPECT_EQ(pieces, 1u);
    }
}

TEST(DiffPicture, IsFastWhereEverythingChanged) {
    Records before, after;
    for (int i = 0; i < 10'000; ++i) {
        const std::string handle = hex(0x1000 + i);
        before[handle] = line(i % 100, i / 100, i % 100 + 1, i / 100);
        after[handle] = line(i % 100, i / 100, i % 100 + 1, i / 100 + (i % 7 + 1) * 0.1);
    }
    const Version older(before), newer(after);
    const auto start = std::chrono::steady_clock::now();
    const Picture picture(older, newer);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 10); // also under a sanitizer
    EXPECT_EQ(picture.counts.modified, 10'000u);
    EXPECT_EQ(picture.count("<svg "), 1u); // nothing to enlarge
    EXPECT_LE(picture.count("<title>"), 3001u);
}

TEST(Clusters, JoinWhatIsWithinReach) {
    picture::Box box;
    box.add(picture::Point{0, 0});
    box.add(picture::Point{96, 96});
    picture::Clusters clusters(box, 5);
    clusters.add(0, {1, 1}, {10, 1});
    clusters.add(1, {12, 1}, {12, 8});
    clusters.add(2, {40, 40}, {50, 50});
    clusters.add(4, {50, 40}, {40, 50}); // crosses it
    const std::vector<uint32_t> near = clusters.groups(1), far = clusters.groups(3);
    EXPECT_NE(near[0], near[1]);
    EXPECT_EQ(far[0], far[1]);
    EXPECT_EQ(near[2], near[4]);
    EXPECT_EQ(near[3], picture::Clusters::kNowhere);
}

struct DiffVerb : CopyTest {};

TEST_F(DiffVerb, DrawsIntoAFile) {
    draw(test_data("plan.dxf"));
    play("add .; commit -m one");
    draw(plan_with("20.0"));
    const std::string told = ok("diff plan.dwx --svg ../p.svg");
    EXPECT_EQ(told.find("../p.svg: "), 0u) << told;
    EXPECT_NE(told.find("0 added, 1 modified, 0 removed, 0 moved"), told.npos) << told;
    const std::string svg = test::read(home + "/p.svg");
    EXPECT_NE(svg.find("40 radius: 12.5 -&gt; 20.0"), svg.npos);
    EXPECT_EQ(out("diff plan.dwx --svg -"), svg);
    EXPECT_EQ(out("diff plan.dwx HEAD --svg -"), svg);
    EXPECT_NE(out("diff plan.dwx --svg - --dark"), svg);
    EXPECT_EQ(field(out("--json diff plan.dwx --svg ../paper.svg --paper"), u"paper"), "true");
    EXPECT_EQ(field(out("--json diff plan.dwx --svg ../q.svg"), u"modified"), "1");
    EXPECT_EQ(code("diff plan.dwx --svg ../p.svg"), 6) << "it is there already";
    EXPECT_EQ(code("diff plan.dwx --svg ../p.svg --force"), 0);
    EXPECT_EQ(code("diff --svg ../r.svg"), 2);
    for (const char *idle : {"--dark", "--paper", "--force", "--size 300", "--svg ../r.svg --stat",
                             "--svg ../r.svg --brief", "--svg ../r.svg --full"})
        EXPECT_EQ(code(std::string("diff plan.dwx ") + idle), 2) << idle;
    EXPECT_EQ(code("diff plan.dwx --svg ../r.txt"), 2);
    EXPECT_EQ(code("diff plan.dwx HEAD HEAD --svg ../same.svg"), 0);
    EXPECT_NE(test::read(home + "/same.svg").find("Nothing changed."), std::string::npos);
}

// The question about a file that is there needs the terminal.
TEST_F(DiffVerb, DrawsNothingOfWhatWasPutBack) {
    draw(test_data("plan.dxf"));
    play("add .; commit -m one");
    draw(plan_with("20.0"));
    draw(test_data("plan.dxf"));
    const std::string told = ok("diff plan.dwx --svg ../p.svg");
    EXPECT_NE(told.find("0 added, 0 modified, 0 removed, 0 moved\n"), told.npos) << told;
}

TEST_F(DiffVerb, KeepsThePagerAwayFromPictures) {
    draw(test_data("plan.dxf"));
    play("add .; commit -m one");
    draw(plan_with("20.0"));
    setenv("ZEV_PAGER", "tr a-z A-Z", 1);
    const auto said = [&](const char *arguments) {
        return zev_on_terminal(root, arguments, "y\n").out;
    };
    const std::string all = said("diff plan.dwx"), plain = said("--no-pager diff plan.dwx");
    const std::string picture = said("diff plan.dwx --svg ../p.svg");
    const std::string again = said("diff plan.dwx --svg ../p.svg");
    unsetenv("ZEV_PAGER");
    EXPECT_NE(all.find("MODIFIED"), all.npos) << all;
    EXPECT_NE(plain.find("modified"), plain.npos) << plain;
    EXPECT_NE(picture.find("1 modified"), picture.npos) << picture;
    EXPECT_NE(again.find("1 modified"), again.npos) << again;
}

// In words as in the picture.
TEST_F(DiffVerb, ShowsADrawingThatIsNewOrGone) {
    draw(test_data("plan.dxf"));
    const std::string told = ok("diff plan.dwx");
    EXPECT_NE(told.find("added     32        CIRCLE\n"), told.npos) << told;
    EXPECT_NE(told.find(" added, 0 modified, 0 removed"), told.npos) << told;
    EXPECT_EQ(told.find("the header"), told.npos) << told;
    EXPECT_NE(ok("diff plan.dwx --svg ../p.svg").find(" added, 0 modified"), std::string::npos);
    EXPECT_NE(code("diff none.dwx --svg ../q.svg"), 0);
    EXPECT_NE(code("diff plan.dwx nowhere --svg ../q.svg"), 0);
    EXPECT_FALSE(there("../q.svg"));
    play("add .; commit -m one");
    std::filesystem::remove(root + "/plan.dwx");
    EXPECT_NE(ok("diff plan.dwx").find("0 added, 0 modified, "), std::string::npos);
    EXPECT_NE(code("diff none.dwx"), 0);
}

} // namespace
