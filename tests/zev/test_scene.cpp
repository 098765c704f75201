// Scenes of drawings: where entities and blocks come to lie, and what is left out of them.
#include "drawn.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

using namespace picture;
using drawn::expect_box;
using drawn::left_out;
using drawn::scene;
using drawn::Sections;

const std::string kLine = "0|LINE|8|0|10|0|20|0|11|4|21|3|";

TEST(Scene, CurvesLieWhereTheirNumbersSay) {
    // A bulge of 1 is half a circle to the right of the way.
    expect_box(scene("0|LWPOLYLINE|8|0|90|2|70|0|10|0|20|0|42|1|10|10|20|0").box, 0, -5, 10, 0);
    expect_box(scene("0|LWPOLYLINE|8|0|70|1|10|0|20|0|42|-1|10|10|20|0").box, 0, 0, 10, 5);
    expect_box(scene("0|ARC|8|0|10|0|20|0|40|2|50|300|51|60").box, 1, -std::sqrt(3.0), 2,
               std::sqrt(3.0));
    expect_box(scene("0|CIRCLE|8|0|10|-25000000|20|3|40|2").box, -25000002, 1, -24999998, 5);
    expect_box(scene("0|ELLIPSE|8|0|10|0|20|0|11|0|21|4|40|0.5|41|0|42|3.14159265358979").box, -2,
               -4, 0, 4);
    // A curve of one piece has its control points.
    const Scene spline =
        scene("0|SPLINE|8|0|71|3|40|0|40|0|40|0|40|0|40|1|40|1|40|1|40|1|10|0|20|0|"
              "10|1|20|3|10|3|20|3|10|4|20|0");
    ASSERT_EQ(spline.points.size(), 4u);
    EXPECT_NEAR(spline.points[1].x, 1, 1e-9);
    EXPECT_NEAR(spline.points[2].y, 3, 1e-9);
    EXPECT_TRUE(spline.left_out.empty());
}

TEST(Scene, ExtrusionsTurnPlanes) {
    expect_box(scene("0|CIRCLE|8|0|10|5|20|1|40|1|210|0|220|0|230|-1").box, -6, 0, -4, 2);
    // From the side a circle is a line.
    expect_box(scene("0|CIRCLE|8|0|10|0|20|0|40|3|210|0|220|-1|230|0").box, -3, 0, 3, 0);
    expect_box(scene("0|ARC|8|0|10|0|20|0|40|1|50|0|51|90|210|0|220|0|230|-1").box, -1, 0, 0, 1);
}

TEST(Scene, BlocksAreTurnedScaledAndMirrored) {
    const std::string arc = "0|BLOCK|2|Arc|10|1|20|0|70|0|0|ARC|8|0|10|1|20|0|40|1|50|0|51|90|"
                            "0|ENDBLK|8|0|";
    const auto insert = [&](const std::string &how) {
        return scene({"0|INSERT|8|0|2|ARC|" + how, arc, "", "", ""}).box;
    };
    expect_box(insert("10|0|20|0"), 0, 0, 1, 1);
    expect_box(insert("10|5|20|5|41|-1"), 4, 5, 5, 6);
    expect_box(insert("10|0|20|0|41|2|42|3|50|90"), -3, 0, 0, 2);
    expect_box(insert("10|7|20|0|210|0|220|0|230|-1"), -8, 0, -7, 1);
    // Scaled in one direction after it was turned: (1, 0) by 45 degrees, twice as wide.
    const Scene nested =
        scene({"0|INSERT|8|0|2|OUTER|10|0|20|0|41|2",
               "0|BLOCK|2|INNER|10|0|20|0|0|LINE|8|0|10|0|20|0|11|1|21|0|0|ENDBLK|"
               "0|BLOCK|2|OUTER|10|0|20|0|0|INSERT|8|0|2|INNER|10|0|20|0|50|45|0|ENDBLK",
               "", "", ""});
    expect_box(nested.box, 0, 0, std::sqrt(2.0), std::sqrt(0.5));
}

TEST(Scene, RowsAndColumnsAreTurnedAndNotScaled) {
    const Scene grid =
        scene({"0|INSERT|8|0|2|L|10|0|20|0|41|10|70|3|71|2|44|20|45|5|50|90",
               "0|BLOCK|2|L|10|0|20|0|0|LINE|8|0|10|0|20|0|11|1|21|0|0|ENDBLK", "", "", ""});
    EXPECT_EQ(grid.shapes.size(), 6u);
    expect_box(grid.box, -5, 0, 0, 50);
}

TEST(Scene, LooksComeFromEntityLayerAndBlock) {
    const std::string tables =
        "0|LTYPE|2|GAPS|70|0|73|3|49|2|49|-1|49|0|"
        "0|LAYER|2|Red|70|0|62|1|6|gaps|370|50|0|LAYER|2|Off|62|-3|6|CONTINUOUS|"
        "0|LAYER|2|Frozen|70|1|62|4|0|LAYER|2|True|62|5|420|255";
    const std::string blocks =
        "0|BLOCK|2|IN|10|0|20|0|0|LINE|8|0|62|0|370|-2|6|BYBLOCK|10|0|20|0|11|1|21|0|"
        "0|LINE|8|0|10|0|20|1|11|1|21|1|0|LINE|8|True|10|0|20|2|11|1|21|2|0|ENDBLK|"
        "0|BLOCK|2|MID|10|0|20|0|0|INSERT|8|0|62|0|370|-2|6|BYBLOCK|2|IN|10|0|20|0|0|ENDBLK";
    const Scene drawing =
        scene({"0|INSERT|8|RED|62|6|2|MID|10|0|20|0|0|LINE|8|off|10|0|20|0|11|9|"
               "21|9|0|LINE|8|Frozen|10|0|20|0|11|9|21|9|0|LINE|8|0|60|1|10|0|20|0|"
               "11|9|21|9|0|TOLERANCE|8|Off|0|INSERT|8|Frozen|2|MID|10|50|20|0",
               blocks, tables, "9|$LTSCALE|40|10", ""});
    ASSERT_EQ(drawing.shapes.size(), 3u);
    const Shape &by_block = drawing.shapes[0], &by_layer = drawing.shapes[1];
    EXPECT_EQ(by_block.ink, Ink{6});
    EXPECT_FLOAT_EQ(by_block.weight, 0.5f);
    EXPECT_EQ(by_layer.ink, Ink{1});
    EXPECT_EQ(drawing.shapes[2].ink, Ink{Ink::kTrue | 255});
    EXPECT_FLOAT_EQ(drawing.shapes[2].weight, 0.25f);
    EXPECT_EQ(by_block.dashes, by_layer.dashes);
    // The dot at the end goes into the line that follows it.
    ASSERT_EQ(drawing.dashes.at(by_block.dashes).size(), 2u);
    EXPECT_GT(drawing.dashes[by_block.dashes][0], 20);
    EXPECT_DOUBLE_EQ(drawing.dashes[by_block.dashes][1], 10);
    EXPECT_EQ(drawing.shapes[2].dashes, 0u);
    EXPECT_TRUE(drawing.left_out.empty());
}

TEST(Scene, LinesWithAWidthAreAreas) {
    const Scene line = scene("0|LWPOLYLINE|8|0|43|2|10|0|20|0|10|10|20|0|10|10|20|10");
    ASSERT_EQ(line.shapes.size(), 2u);
    EXPECT_EQ(line.shapes[0].kind, Shape::fill);
    expect_box(line.box, 0, -1, 11, 10);
    // Two halves of a ring.
    expect_box(
        scene("0|POLYLINE|8|0|66|1|70|1|40|2|41|2|0|VERTEX|8|0|10|0|20|0|42|1|0|VERTEX|8|0|10|"
              "10|20|0|42|1|0|SEQEND|8|0")
            .box,
        -1, -6, 11, 6);
}

TEST(Scene, MeshesShowTheirEdges) {
    std::string mesh = "0|POLYLINE|8|0|66|1|70|16|71|2|72|3|";
    for (const char *place :
         {"10|0|20|0", "10|1|20|0", "10|2|20|0", "10|0|20|1", "10|1|20|1", "10|2|20|1"})
        mesh += std::string("0|VERTEX|8|0|70|64|") + place + "|";
    const Scene net = scene(mesh + "0|SEQEND|8|0");
    ASSERT_EQ(net.shapes.size(), 1u);
    EXPECT_EQ(net.points.size(), 2u * 3 + 3 * 2);
    const Scene face =
        scene("0|POLYLINE|8|0|66|1|70|64|0|VERTEX|70|192|10|0|20|0|0|VERTEX|70|192|10|4|"
              "20|0|0|VERTEX|70|192|10|0|20|4|0|VERTEX|70|128|71|1|72|-2|73|3|"
              "0|VERTEX|70|128|71|1|72|9|73|-2147483648|0|SEQEND");
    EXPECT_EQ(face.points.size(), 4u); // an edge is hidden, and the other face has none
}

TEST(Scene, HatchesKeepTheirHoles) {
    const std::string loops =
        "91|2|92|3|72|0|73|1|93|4|10|0|20|0|10|10|20|0|10|10|20|10|10|0|20|10|97|0|"
        "92|16|93|1|72|2|10|5|20|5|40|2|50|0|51|360|73|0|97|0|75|0|76|1|";
    const Scene solid = scene("0|HATCH|8|0|10|0|20|0|30|0|2|SOLID|70|1|" + loops + "98|0");
    ASSERT_EQ(solid.shapes.size(), 1u);
    EXPECT_EQ(solid.shapes[0].kind, Shape::fill);
    EXPECT_EQ(std::ranges::count(solid.steps, Step::close), 2);
    const Scene lines = scene("0|HATCH|8|0|10|0|20|0|30|0|2|LINES|70|0|" + loops +
                              "52|0|41|1|77|0|78|1|53|0|43|0|44|0.5|45|0|46|1|79|0|98|0");
    double length = 0;
    for (size_t i = 0; i + 1 < lines.points.size(); i += 2) {
        const Point from = lines.points[i], to = lines.points[i + 1];
        length += to.x - from.x;
        EXPECT_GE(std::hypot((from.x + to.x) / 2 - 5, (from.y + to.y) / 2 - 5), 1.99);
    }
    // Ten lines of ten, without the chords of the hole.
    EXPECT_NEAR(length, 100 - 4 * (std::sqrt(3.75) + std::sqrt(1.75)), 0.1);
    const Scene dense = scene("0|HATCH|8|0|10|0|20|0|30|0|2|LINES|70|0|" + loops +
                              "78|1|53|0|43|0|44|0|45|0|46|1e-9|79|0");
    EXPECT_EQ(left_out(dense, reason::kDense), 1u);
    EXPECT_LT(dense.points.size(), 1000u);
}

TEST(Scene, BlocksInThemselvesEnd) {
    const std::string blocks = "0|BLOCK|2|A|10|0|20|0|" + kLine +
                               "0|INSERT|8|0|2|B|10|1|20|0|0|ENDBLK|"
                               "0|BLOCK|2|B|10|0|20|0|0|INSERT|8|0|2|A|10|1|20|0|0|ENDBLK";
    const Scene ring =
        scene({"0|INSERT|8|0|2|A|10|0|20|0|0|INSERT|8|0|2|NONE|10|0|20|0", blocks, "", "", ""});
    EXPECT_EQ(ring.shapes.size(), 1u);
    EXPECT_EQ(left_out(ring, reason::kRecursive), 1u);
    EXPECT_EQ(left_out(ring, reason::kMissing), 1u);

    std::string chain, twice;
    for (int i = 0; i < 40; ++i) {
        const std::string begin = "0|BLOCK|2|D" + std::to_string(i) + "|10|0|20|0|";
        const std::string next = "0|INSERT|8|0|2|D" + std::to_string(i + 1) + "|10|1|20|0|";
        chain += begin + kLine + next + "0|ENDBLK|";
        if (i < 30) twice += begin + next + next + "0|ENDBLK|";
    }
    const Scene deep =
        scene({"0|INSERT|8|0|2|D0|10|0|20|0", chain + "0|BLOCK|2|D40|0|ENDBLK", "", "", ""});
    EXPECT_EQ(deep.shapes.size(), 32u);
    EXPECT_EQ(left_out(deep, reason::kDeep), 1u);
    // A thousand million empty blocks are too much work, however little there is to see.
    SceneOptions few;
    few.most_points = 100'000;
    const Scene many = scene(
        {"0|INSERT|8|0|2|D0|10|0|20|0|" + kLine, twice + "0|BLOCK|2|D30|0|ENDBLK", "", "", ""},
        few);
    EXPECT_GE(left_out(many, reason::kBeyond), 1u);
    EXPECT_EQ(many.shapes.size(), 1u); // the line behind them
}

TEST(Scene, AMillionInsertsEnd) {
    SceneOptions few;
    few.most_points = 50'000;
    const Sections grid{"0|INSERT|8|0|2|L|10|0|20|0|70|32767|71|32767|44|1|45|1",
                        "0|BLOCK|2|L|10|0|20|0|" + kLine + "0|ENDBLK", "", "", ""};
    const Scene drawing = scene(grid, few);
    EXPECT_LE(drawing.points.size(), few.most_points);
    EXPECT_GT(drawing.points.size(), few.most_points / 20);
    EXPECT_EQ(left_out(drawing, reason::kBeyond), 2u); // the line and the insert
}

std::string repeated(const std::string &text, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) out += text;
    return out;
}

// Each is little to write, and would be looked at millions of times.
TEST(Scene, WhatMultipliesWorkEnds) {
    // One of pairs of lists.
    const std::string edges =
        "91|1|92|2|72|0|73|1|93|10000|" + repeated("10|1|20|1|10|0|20|0|", 5000);
    const Scene hatch = scene("0|HATCH|8|0|70|0|" + edges + "98|0|78|10000|" +
                              repeated("53|0|43|0|44|0|45|0|46|1e14|", 10'000));
    EXPECT_EQ(left_out(hatch, reason::kBeyond), 1u);
    const Scene mline = scene("0|MLINE|8|0|11|0|21|0|" + repeated("74|1|41|0|", 10'000) +
                              repeated("11|1|21|1|", 10'000));
    EXPECT_EQ(left_out(mline, reason::kBeyond), 1u);

    // Bytes that are read again for each cell of a grid.
    SceneOptions few;
    few.most_points = 500'000;
    const std::string grid = "|10|0|20|0|70|100|71|100|44|1|45|1";
    const Scene vertex = scene({"0|INSERT|8|0|2|L" + grid,
                                "0|BLOCK|2|L|10|0|20|0|0|POLYLINE|8|0|0|VERTEX|8|0|10|0|20|0|" +
                                    repeated("999|nothing|", 50'000) +
                                    "0|VERTEX|8|0|10|1|20|0|0|SEQEND|8|0|0|ENDBLK",
                                "", "", ""},
                               few);
    EXPECT_GT(vertex.shapes.size(), 0u);
    EXPECT_LT(vertex.shapes.size(), 20u);
    EXPECT_GE(left_out(vertex, reason::kBeyond), 1u);
    const std::string name(1'000'000, 'x');
    const Scene named = scene(
        {"0|INSERT|8|0|2|" + name + grid, "0|BLOCK|2|" + name + "|10|0|20|0|0|ENDBLK", "", "", ""});
    EXPECT_EQ(left_out(named, reason::kBeyond), 1u);
}

// Of paper space only: each window would look through all the others for a model.
TEST(Scene, ViewportsByTheThousandEnd) {
    const std::string windows =
        repeated("0|VIEWPORT|8|0|67|1|69|2|68|1|10|50|20|50|40|20|41|20|45|10|", 20'000);
    const auto begin = std::chrono::steady_clock::now();
    for (const SceneOptions::Space space : {SceneOptions::any, SceneOptions::paper}) {
        SceneOptions options;
        options.space = space;
        const Scene sheet = scene({windows + kLine, "", "", "", ""}, options);
        EXPECT_EQ(sheet.is_paper, space == SceneOptions::paper);
        const Scene bare = scene({windows, "", "", "", ""}, options);
        EXPECT_TRUE(bare.is_paper);
        EXPECT_GE(left_out(bare, reason::kBeyond), 1u);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(took.count(), 20); // also under a sanitizer; it was minutes
}

TEST(Scene, BrokenNumbersLeaveTheirEntityOut) {
    const Scene drawing =
        scene("0|LINE|8|0|10|nan|20|0|11|4|21|3|0|LINE|8|0|10|1e308|20|0|11|4|21|3|"
              "0|LINE|8|0|10|0|20|zero|11|4|21|3|0|CIRCLE|8|0|10|0|20|0|40|-inf|"
              "0|ARC|8|0|10|0|20|0|40|1|50|nan|51|1e300|0|LWPOLYLINE|8|0|10|0|20|0|42|"
              "1e200|10|1|20|1|0|POINT|8|0|10|nan|20|0|0|TEXT|8|0|1|x|10|0|20|0|40|"
              "nan|0|XLINE|8|0|10|0|20|0|11|nan|21|1|" +
              kLine + "0|LINE|8|0|10|+1.5|20| 1e-400|11|4|21|3");
    EXPECT_EQ(drawing.shapes.size(), 2u);
    expect_box(drawing.box, 0, 0, 4, 3);
    EXPECT_EQ(left_out(drawing, reason::kBroken), 9u);
    for (const Point point : drawing.points) EXPECT_TRUE(std::isfinite(point.x + point.y));
}

TEST(Scene, SplinesWithBrokenKnotsRunFromEndToEnd) {
    const std::string points = "10|0|20|0|10|1|20|3|10|3|20|3|10|4|20|0";
    for (const char *knots : {"", "40|0|40|1|", "40|3|40|2|40|1|40|0|40|0|40|0|40|0|40|0|",
                              "40|0|40|0|40|0|40|nan|40|1|40|1|40|1|40|1|",
                              "40|1|40|1|40|1|40|1|40|1|40|1|40|1|40|1|"}) {
        const Scene drawing = scene(std::string("0|SPLINE|8|0|71|3|") + knots + points);
        EXPECT_EQ(left_out(drawing, reason::kKnots), 1u) << knots;
        ASSERT_EQ(drawing.shapes.size(), 1u) << knots;
        EXPECT_NEAR(drawing.points.front().x, 0, 1e-9);
        EXPECT_NEAR(drawing.points.back().x, 4, 1e-9);
    }
    EXPECT_EQ(scene("0|SPLINE|8|0|71|2000000000|" + points).shapes.size(), 1u);
    // A quarter of a circle by its weights.
    const Scene quarter = scene("0|SPLINE|8|0|71|2|40|0|40|0|40|0|40|1|40|1|40|1|41|1|41|"
                                "0.70710678118654752|41|1|10|1|20|0|10|1|20|1|10|0|20|1");
    for (const Point point : quarter.points) EXPECT_NEAR(std::hypot(point.x, point.y), 1, 1e-6);
}

TEST(Scene, ObjectsAreNoEntities) {
    const Scene drawing = scene(
        {"0|3DSOLID|5|A|100|AcDbEntity|8|0|0|REGION|8|0|0|odd kind\x7f|100|AcDbEntity|8|0|0|MESH",
         "0|BLOCK|2|X|70|4|10|0|20|0|0|ENDBLK", "", "",
         "0|DICTIONARY|5|C|100|AcDbDictionary|3|LAYER|350|D|0|LAYER_INDEX|5|D|100|AcDbIndex|8|0"});
    EXPECT_EQ(drawing.left_out,
              (std::map<std::string, uint64_t>{{"3DSOLID", 1}, {"REGION", 1}, {"odd kind?", 1}}));
}

TEST(Scene, WhatIsWantedBringsItsParts) {
    const std::string line =
        "0|POLYLINE|8|0|66|1|70|0|0|VERTEX|8|0|10|0|20|0|0|VERTEX|8|0|10|5|20|0|"
        "0|SEQEND|8|0|";
    const Sections all{line + kLine +
                           "0|INSERT|8|0|2|L|62|3|10|0|20|0|66|1|0|ATTRIB|8|0|62|0|1|value|"
                           "10|0|20|0|40|1|0|SEQEND|8|0",
                       "0|BLOCK|2|L|10|0|20|0|" + kLine +
                           "0|ATTDEF|8|0|2|TAG|1|default|10|0|20|0|40|1|"
                           "0|ENDBLK",
                       "", "", ""};
    const Scene whole = scene(all);
    ASSERT_EQ(whole.shapes.size(),
              4u); // in the block's place the attribute stands for its definition
    // BLOCK, LINE, ATTDEF, ENDBLK, then POLYLINE and its three, LINE, INSERT, ATTRIB.
    EXPECT_EQ(whole.shapes[2].object, 9u);
    EXPECT_EQ(whole.shapes[2].part, 1u);
    EXPECT_EQ(whole.shapes[3].object, 10u);
    SceneOptions some;
    some.wanted = [](size_t object) { return object == 5 || object == 10; };
    const Scene part = scene(all, some);
    ASSERT_EQ(part.shapes.size(), 2u);
    EXPECT_EQ(part.shapes[0].object, 4u); // the polyline, by a vertex of it
    EXPECT_EQ(part.shapes[1].kind, Shape::text);
    EXPECT_EQ(part.shapes[1].ink, Ink{3}); // from the insert, which isn't drawn
}

TEST(Scene, PaperSeesTheModelThroughWindows) {
    const std::string model = "0|LINE|8|0|10|-100|20|0|11|100|21|0|0|CIRCLE|8|0|10|500|20|0|40|1|"
                              "0|SOLID|8|0|10|0|20|0|11|50|21|0|12|0|22|50|13|50|23|50|";
    const std::string window =
        "0|VIEWPORT|8|0|67|1|69|2|68|1|10|50|20|50|40|20|41|20|12|0|22|0|45|10|";
    SceneOptions paper;
    paper.space = SceneOptions::paper;
    const Scene sheet = scene({model + window, "", "", "", ""}, paper);
    EXPECT_TRUE(sheet.is_paper);
    ASSERT_EQ(sheet.shapes.size(), 2u); // the circle is outside
    expect_box(sheet.box_of(sheet.shapes[0]), 40, 50, 60, 50);
    expect_box(sheet.box_of(sheet.shapes[1]), 50, 50, 60, 60);
    // A layer may be frozen in one window.
    const std::string layers = "0|TABLE|2|LAYER|0|LAYER|5|1A|2|WALLS|70|0|62|7|0|ENDTAB|";
    const std::string walls = "0|LINE|8|WALLS|10|-100|20|0|11|100|21|0|";
    for (const auto &[more, count] :
         {std::pair<std::string, size_t>{"", 1}, {"331|1A", 0}, {"341|1A", 0}, {"331|0", 1}})
        EXPECT_EQ(scene({walls + window + more, "", layers, "", ""}, paper).shapes.size(), count)
            << more;
    // Without a word model space is shown, unless there is none.
    EXPECT_FALSE(scene({model + window, "", "", "", ""}).is_paper);
    // A viewport that is the layout's own paper, and a line; a block of a name like it is none.
    const std::string layout = "0|BLOCK|2|*Paper_Space1|0|VIEWPORT|8|0|67|1|69|1|"
                               "0|LINE|8|0|67|1|11|9|0|ENDBLK|";
    const std::string drawer = "0|BLOCK|2|*Paper_Space1a|0|LINE|8|0|11|9|0|ENDBLK";
    const Scene others = scene({model, layout + drawer, "", "", ""});
    EXPECT_EQ(others.left_out, (std::map<std::string, uint64_t>{{reason::kLayouts, 1}}));
    EXPECT_TRUE(scene({"0|LINE|8|0|67|1|10|0|20|0|11|1|21|0", "", "", "", ""}).is_paper);
}

TEST(Scene, EndlessLinesAndPointsFitTheDrawing) {
    const Scene drawing = scene({"0|RAY|8|0|10|0|20|0|11|1|21|1|0|XLINE|8|0|10|0|20|5|11|1|21|0|"
                                 "0|XLINE|8|0|10|0|20|900|11|1|21|0|0|POINT|8|0|10|5|20|5|"
                                 "0|LINE|8|0|10|0|20|0|11|10|21|10",
                                 "", "", "9|$PDMODE|70|3|9|$PDSIZE|40|-10", ""});
    EXPECT_EQ(drawing.left_out.size(), 0u);
    expect_box(drawing.box_of(drawing.shapes[0]), 0, 0, 55, 55); // a little outside
    EXPECT_EQ(drawing.box.high.y, 900);
    const Scene absurd =
        scene({"0|POINT|8|0|10|5|20|5|" + kLine, "", "", "9|$PDMODE|70|3|9|$PDSIZE|40|-1e15", ""});
    EXPECT_LT(absurd.box.high.y, 20);
}

} // namespace
