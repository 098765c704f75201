// Merge: what goes and comes together, and entries of one name.
#include "merge_rules.hpp"

namespace {

using namespace merge_test;

struct MergeNeeds : MergeRules {};

TEST_F(MergeNeeds, ARenamedLayerIsGoneByItsFormerName) {
    Sections drawing;
    drawing.layers += layer("11", "WALLS");
    drawing.entities += line("23", "1", "WALLS");
    start(drawing);
    ours.layers = layer("10", "0") + layer("11", "MASONRY");
    ours.entities =
        base.entities.substr(0, base.entities.rfind("0\nLINE")) + line("23", "1", "MASONRY");
    theirs.entities += line("30", "1", "WALLS");
    EXPECT_EQ(result(), "its layer WALLS is gone\n");
    theirs.entities = line("24", "3") + base.entities;
    EXPECT_NE(result().find("MASONRY"), std::string::npos);
}

TEST_F(MergeNeeds, EntriesOfOneNameAreOneOrAConflict) {
    ours.layers += layer("100", "WALLS");
    theirs.layers += layer("101", "walls");
    theirs.entities += line("102", "4", "walls") + record("VIEWPORT", "103", "341\n101\n");
    EXPECT_EQ(result(), "both have a LAYER of the name WALLS\n");
    EXPECT_EQ(merge().conflicts[0].ours, layer("100", "WALLS"));
    decided = {{0x101, Side::ours}};
    std::string text = result();
    EXPECT_EQ(text.find(layer("101", "walls")), text.npos);
    EXPECT_NE(text.find("341\n100\n"), text.npos) << text;
    decided = {{0x101, Side::theirs}};
    text = result();
    EXPECT_EQ(text.find(layer("100", "WALLS")), text.npos) << text;
    EXPECT_NE(text.find(layer("101", "walls")), text.npos);
    // The same but for its handle.
    decided.clear();
    theirs.layers = base.layers + layer("101", "WALLS");
    text = result();
    EXPECT_NE(text.find("341\n100\n"), text.npos) << text;
    EXPECT_EQ(text.find(layer("101", "WALLS")), text.npos);
}

TEST_F(MergeNeeds, ABlockThatBothBroughtInIsOne) {
    const auto block = [](int first, const char *x) {
        const auto handle = [first](int n) { return dxf::handle_text(first + n); };
        return record("BLOCK", handle(0), "2\nDOOR\n") + line(handle(1), x) +
               record("ENDBLK", handle(2), "");
    };
    ours.blocks = block(0x100, "1");
    theirs.blocks = block(0x110, "1");
    theirs.entities += record("INSERT", "113", "2\nDOOR\n");
    std::string text = result();
    EXPECT_NE(text.find(block(0x100, "1") + "0\nENDSEC"), text.npos) << text;
    theirs.blocks = block(0x110, "2");
    EXPECT_EQ(result(), "both have a BLOCK of the name DOOR\n");
    others = Side::theirs;
    text = result();
    EXPECT_NE(text.find(block(0x110, "2") + "0\nENDSEC"), text.npos) << text;
    EXPECT_EQ(text.find(block(0x100, "1")), text.npos);
}

// Both numbered theirs alike. An older one, of which no row differs, counts, too.
TEST_F(MergeNeeds, AnonymousBlocksOfTheirsGetFreeNumbers) {
    const auto block = [](const std::string &first, const std::string &name, const char *x) {
        return record("BLOCK", first + "0", "2\n" + name + "\n3\n" + name + "\n") +
               line(first + "1", x) + record("ENDBLK", first + "2", "");
    };
    const auto dimension = [](const char *handle, const char *name) {
        return record("DIMENSION", handle, "2\n" + std::string(name) + "\n");
    };
    Sections drawing;
    drawing.blocks = block("4", "*D7", "1");
    start(drawing);
    ours.blocks += block("6", "*D1", "2");
    ours.entities += dimension("63", "*D1");
    theirs.blocks += block("7", "*D1", "3") + block("8", "*U1", "3");
    theirs.entities += dimension("73", "*D1") + dimension("74", "*D7");
    const std::string text = result();
    for (const std::string &part :
         {block("6", "*D1", "2"), block("7", "*D8", "3"), block("8", "*U1", "3"),
          dimension("63", "*D1"), dimension("73", "*D8"), dimension("74", "*D7")})
        EXPECT_NE(text.find(part), text.npos) << part << text;
}

// What is added to a block, or to an insert, that the other side deleted has no place.
TEST_F(MergeNeeds, WhatIsWithinGoesWithIt) {
    Sections drawing;
    drawing.blocks =
        record("BLOCK", "40", "2\nDOOR\n") + line("41", "1") + record("ENDBLK", "42", "");
    drawing.entities += record("INSERT", "50", "66\n1\n") + record("ATTRIB", "51", "1\nA\n") +
                        record("SEQEND", "52", "");
    start(drawing);
    ours.blocks.clear();
    theirs.blocks = record("BLOCK", "40", "2\nDOOR\n") + line("41", "1") + line("43", "2") +
                    record("ENDBLK", "42", "");
    EXPECT_EQ(result(), "the BLOCK that it is part of is gone\n");
    decided = {{0x43, Side::theirs}};
    EXPECT_EQ(result(), theirs.text());
    decided.clear();
    start(drawing);
    theirs.entities = Sections().entities;
    ours.entities = Sections().entities + record("INSERT", "50", "66\n1\n") +
                    record("ATTRIB", "51", "1\nA\n") + record("ATTRIB", "60", "1\nB\n") +
                    record("SEQEND", "52", "");
    EXPECT_EQ(result(), "the INSERT that it is part of is gone\n");
}

// Polylines, inserts with attributes and blocks come back whole.
// A block of theirs under handles of ours' takes along what is in it, and nothing behind its end.
TEST_F(MergeNeeds, ABlockEndsWhereItEnds) {
    const auto block = [](const char *name, const char *more, const char *end) {
        return record("BLOCK", "50", "2\n" + std::string(name) + "\n") + line("51", name) + more +
               record("ENDBLK", end, "");
    };
    ours.blocks = block("DOOR", "", "52");
    theirs.blocks = block("GATE", line("53", "3").c_str(), "60");
    ours.entities += line("70", "919");
    theirs.entities += line("70", "919");
    const std::string text = result();
    EXPECT_NE(text.find("2\nGATE\n"), text.npos) << text;
    EXPECT_NE(text.find(line("70", "919")), text.npos) << text;
    EXPECT_EQ(text.find("919"), text.rfind("919")) << text;
}

TEST_F(MergeNeeds, OrdersOfDrawingFollowNewHandles) {
    start(Sections());
    const auto order = [](const char *pairs) {
        return "0\nSECTION\n2\nOBJECTS\n" + record("SORTENTSTABLE", "80", pairs) + "0\nENDSEC\n";
    };
    for (Sections *sections : {&base, &ours, &theirs}) sections->rest = order("331\n20\n5\n20\n");
    ours.entities += line("100", "1");
    theirs.entities += line("100", "2");
    theirs.rest = order("331\n20\n5\n20\n331\n100\n5\n21\n331\n21\n5\n100\n");
    const std::string text = result();
    EXPECT_NE(text.find("331\n101\n5\n21\n331\n21\n5\n101\n"), text.npos) << text;
}

TEST_F(MergeNeeds, ADecisionBringsBackAllThatIsWithin) {
    const auto blocks = [](const char *name) {
        return record("BLOCK", "40", "2\nDOOR\n1\n" + std::string(name) + "\n") + line("41", "1") +
               record("ENDBLK", "42", "");
    };
    const auto entities = [](const char *colour) {
        return record("POLYLINE", "50", "62\n" + std::string(colour) + "\n") +
               record("VERTEX", "51", "10\n1\n") + record("SEQEND", "52", "") +
               record("INSERT", "60", "66\n1\n62\n" + std::string(colour) + "\n") +
               record("ATTRIB", "61", "1\nA\n") + record("SEQEND", "62", "");
    };
    Sections drawing;
    drawing.blocks = blocks("a"), drawing.entities = entities("1");
    start(drawing);
    theirs.blocks = blocks("b"), theirs.entities = entities("2");
    ours.blocks = "", ours.entities = line("70", "1");
    for (const bool is_turned : {false, true}) {
        const Side side = is_turned ? Side::ours : Side::theirs;
        Sections expected = is_turned ? ours : theirs;
        expected.entities = line("70", "1") + entities("2");
        decided = {{0x40, side}, {0x50, side}, {0x60, side}}, others.reset();
        const std::string by_name = result();
        decided.clear(), others = side;
        const std::string by_rest = result();
        if (is_turned) expected.entities = entities("2") + line("70", "1");
        EXPECT_EQ(by_name.size(), expected.text().size()) << by_name;
        for (const std::string &part : {expected.blocks, entities("2"), line("70", "1")}) {
            EXPECT_NE(by_name.find(part), std::string::npos) << part << by_name;
            EXPECT_NE(by_rest.find(part), std::string::npos) << part << by_rest;
        }
        std::swap(ours, theirs);
    }
}

TEST_F(MergeNeeds, AttributesAndTheirEndGoTogether) {
    const auto insert = [](const char *x, const char *marks) {
        return record("INSERT", "50", std::string(marks) + "10\n" + x + "\n");
    };
    const std::string first = record("ATTRIB", "51", "1\nA\n"), end = record("SEQEND", "52", ""),
                      more = record("ATTRIB", "60", "1\nB\n");
    base.entities = insert("1", "66\n1\n") + first + end;
    ours = base;
    ours.entities = insert("1", "66\n1\n") + first + more + end;
    theirs.entities = insert("1", "");
    EXPECT_EQ(result(), "the INSERT that it is part of is gone\n");
    decided = {{0x60, Side::ours}};
    EXPECT_EQ(result(), ours.text());
    decided = {{0x60, Side::theirs}};
    EXPECT_EQ(result(), theirs.text());
    // The insert itself is decided, its attributes with it.
    decided.clear();
    ours.entities = insert("2", "66\n1\n") + first + end;
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(result(), "changed by both\n");
        decided = {{0x50, Side::theirs}};
        EXPECT_EQ(result(), theirs.text());
        decided = {{0x50, Side::ours}};
        EXPECT_EQ(result(), ours.text());
        decided.clear();
        std::swap(ours, theirs);
    }
    // The first attributes by both.
    base.entities = insert("1", "");
    ours.entities = insert("1", "66\n1\n") + first + end;
    theirs.entities =
        insert("1", "66\n1\n") + record("ATTRIB", "61", "1\nB\n") + record("SEQEND", "62", "");
    EXPECT_EQ(result(), "changed by both\n");
    decided = {{0x50, Side::theirs}};
    EXPECT_EQ(result(), theirs.text());
    decided = {{0x50, Side::ours}};
    EXPECT_EQ(result(), ours.text());
}

TEST_F(MergeNeeds, ARenamedEntryIsARivalToo) {
    Sections drawing;
    drawing.layers += layer("11", "A") + layer("12", "B");
    start(drawing);
    ours.layers = layer("10", "0") + layer("11", "X") + layer("12", "B");
    theirs.layers = layer("10", "0") + layer("11", "A") + layer("12", "X");
    theirs.entities += record("VIEWPORT", "30", "341\n12\n");
    EXPECT_EQ(result(), "both have a LAYER of the name X\n");
    decided = {{0x12, Side::theirs}};
    EXPECT_EQ(result(), theirs.text());
    decided = {{0x12, Side::ours}};
    Sections expected = ours;
    expected.entities = theirs.entities;
    EXPECT_EQ(result(), expected.text());
    // One is new.
    decided.clear();
    theirs.layers = drawing.layers + layer("13", "x");
    EXPECT_EQ(result(), "both have a LAYER of the name X\n");
    decided = {{0x13, Side::ours}};
    EXPECT_EQ(result().find(layer("13", "x")), std::string::npos);
    // Two of one name that a side has already are its own affair.
    decided.clear();
    drawing.layers = layer("10", "0") + layer("11", "A") + layer("12", "A");
    start(drawing);
    ours.layers = layer("10", "0") + layer("11", "A", "1") + layer("12", "A");
    theirs.layers = layer("10", "0") + layer("11", "A") + layer("12", "A", "2");
    EXPECT_NE(result().find(layer("11", "A", "1") + layer("12", "A", "2")), std::string::npos);
}

// By the same handles each, from one template.
TEST_F(MergeNeeds, EntriesThatNameOthersAreNotOne) {
    const auto styles = [](const char *name, const char *first, const char *second) {
        return record("STYLE", first, "2\n" + std::string(name) + "\n") +
               record("DIMSTYLE", second, "2\nISO\n340\n" + std::string(first) + "\n");
    };
    ours.layers += styles("A", "100", "101");
    theirs.layers += styles("B", "100", "101");
    EXPECT_EQ(result(), "both have a DIMSTYLE of the name ISO\n");
    // Of the same style under two handles they are.
    theirs.layers = base.layers + styles("A", "102", "103");
    const std::string text = result();
    EXPECT_NE(text.find(styles("A", "100", "101")), text.npos) << text;
    EXPECT_EQ(text.find("2\nA\n"), text.rfind("2\nA\n")) << text;
    EXPECT_EQ(text.find("2\nISO\n"), text.rfind("2\nISO\n")) << text;
    // What theirs alone owns isn't left behind.
    ours.layers = base.layers + layer("100", "WALLS");
    theirs.layers = base.layers + layer("102", "WALLS") + "360\n103\n";
    EXPECT_EQ(result(), "both have a LAYER of the name WALLS\n");
}

// Both added 100: theirs is another one, and to be decided like any other.
TEST_F(MergeNeeds, WhatComesUnderANewHandleIsDecidedByItsOwn) {
    Sections drawing;
    drawing.layers += layer("11", "WALLS");
    start(drawing);
    ours.layers = Sections().layers;
    ours.entities += line("100", "2");
    theirs.entities += line("100", "3", "WALLS");
    EXPECT_EQ(result(), "its layer WALLS is gone\n");
    decided = {{0x100, Side::theirs}};
    std::string text = result();
    EXPECT_NE(text.find(layer("11", "WALLS")), text.npos) << text;
    EXPECT_NE(text.find(line("100", "2")), text.npos) << text;
    decided = {{0x100, Side::ours}};
    text = result();
    EXPECT_NE(text.find(ours.entities), text.npos) << text;
    EXPECT_EQ(text.find("WALLS"), text.npos) << text;
}

// Arrows of old dimension styles, newer kinds of dimensions, what bounds a hatch.
TEST_F(MergeNeeds, NothingGoesThatIsNamed) {
    Sections drawing;
    drawing.blocks = record("BLOCK", "40", "2\nTICK\n") + record("ENDBLK", "41", "");
    start(drawing);
    ours.blocks = "";
    theirs.layers += record("DIMSTYLE", "30", "2\nOLD\n5\nTICK\n6\n\n");
    EXPECT_EQ(result(), "its block TICK is gone\n");
    theirs.layers = base.layers;
    theirs.entities += record("ARC_DIMENSION", "30", "2\nTICK\n");
    EXPECT_EQ(result(), "its block TICK is gone\n");
    start(drawing);
    ours.entities = line("21", "1") + line("22", "1");
    theirs.entities += record("HATCH", "30", "330\n1F\n100\nEntity\n97\n1\n330\n20\n");
    EXPECT_EQ(result(), "20, which it names, is gone\n");
}

} // namespace
