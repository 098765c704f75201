// Merge: lists of back references and dictionaries, to which both sides add.
#include "merge_rules.hpp"

#include <algorithm>

namespace {

using namespace merge_test;

std::string list(const char *name, const std::vector<std::string> &handles) {
    std::string out = "102\n{" + std::string(name) + "\n";
    for (const std::string &handle : handles) out += "330\n" + handle + "\n";
    return out + "102\n}\n";
}
std::string wall(const std::string &list, const char *x = "1") {
    return record("LINE", "30", list + "100\nAcDbEntity\n8\n0\n10\n" + x + "\n");
}
std::string reactors(const std::vector<std::string> &handles) {
    return list("ACAD_REACTORS", handles);
}
std::string entry(const std::string &name, const std::string &handle, const char *code = "350") {
    return "3\n" + name + "\n" + code + "\n" + handle + "\n";
}
std::string dictionary(const std::string &entries, const std::string &handle = "C",
                       const std::string &owner = "0") {
    return record("DICTIONARY", handle,
                  "330\n" + owner + "\n100\nAcDbDictionary\n281\n1\n" + entries);
}
std::string group(const std::string &handle, const char *text = "", const char *owner = "C") {
    return record("GROUP", handle, "330\n" + std::string(owner) + "\n300\n" + text + "\n");
}

struct MergeCompose : MergeRules {
    static std::string objects(const std::string &records) {
        return "0\nSECTION\n2\nOBJECTS\n" + records + "0\nENDSEC\n";
    }
    void set_objects(const std::string &of_base, const std::string &of_ours,
                     const std::string &of_theirs) {
        base.rest = objects(of_base), ours.rest = objects(of_ours);
        theirs.rest = objects(of_theirs);
    }
    // Of a wall that stands behind all else, with what both sides' lists name.
    void expect_wall(const std::string &of_base, const std::string &of_ours,
                     const std::string &of_theirs, const std::string &expected) {
        const std::string named = base.entities;
        for (const auto &[side, row] :
             {std::pair(&base, of_base), {&ours, of_ours}, {&theirs, of_theirs}})
            side->entities = named + row;
        const std::string text = result();
        EXPECT_TRUE(text.find(expected) != text.npos) << text << "\n-- not:\n" << expected;
        for (Sections *side : {&base, &ours, &theirs}) side->entities = named;
    }
    // The first dictionary of the result, whichever side is called ours: all its entries.
    void expect_entries(std::vector<std::string> expected) {
        for (int way = 0; way < 2; ++way, std::swap(ours, theirs)) {
            const std::string text = result();
            const size_t at = text.find("0\nDICTIONARY\n");
            ASSERT_NE(at, text.npos) << text;
            std::string_view left = std::string_view(text).substr(at);
            std::vector<std::string> found;
            std::string name;
            dxf::merging::Group value;
            take_group(left, value);
            while (take_group(left, value) && value.code) {
                if (value.code == 3) name = value.value;
                if (value.code == 350 || value.code == 360)
                    found.push_back(name + " " + std::string(value.value));
            }
            std::ranges::sort(found), std::ranges::sort(expected);
            EXPECT_EQ(found, expected) << text;
        }
    }
};

TEST_F(MergeCompose, ListsOfBackReferencesAreUnited) {
    const auto none = std::string();
    expect_wall(wall(reactors({"20", "21"})), wall(reactors({"21", "22", "20"})),
                wall(reactors({"20", "2"})), wall(reactors({"22", "20", "2"})));
    expect_wall(wall(reactors({"20"})), wall(reactors({"22", "20", "22"})),
                wall(reactors({"21", "20", "21"})), wall(reactors({"22", "20", "21"})));
    // One side has a list, and changed what the other left.
    expect_wall(wall(none), wall(reactors({"20"})), wall(reactors({"21"})),
                wall(reactors({"20", "21"})));
    expect_wall(wall(none), wall(reactors({"20"})), wall(none, "5"), wall(reactors({"20"}), "5"));
    expect_wall(wall(none), wall(none, "5"), wall(reactors({"20"})), wall(reactors({"20"}), "5"));
    expect_wall(wall(reactors({"20", "21"})), wall(reactors({"20"})), wall(reactors({"21"})),
                wall(none));
    const std::string in_base = wall(reactors({"20"})), more = wall(reactors({"20", "21"}), "5");
    expect_wall(in_base, more, wall(reactors({"20", "22"}), "6"), "changed by both\n");
    // What only looks like such a list is content.
    const auto data = [](const char *handle) {
        return record("XRECORD", "30", "100\nAcDbXrecord\n" + reactors({handle}));
    };
    expect_wall(data("20"), data("21"), data("22"), "changed by both\n");
    expect_wall(wall("102\n{ACAD_REACTORS\n1\nA\n102\n}\n"), in_base, wall(none),
                "changed by both\n");
    expect_wall(wall(none), in_base, wall("102\n{ACAD_REACTORS\n330\n21\n"), "changed by both\n");
}

TEST_F(MergeCompose, ListsFollowNewHandles) {
    const auto door = [](const std::string &list) {
        return record("BLOCK_RECORD", "40", "2\nDOOR\n" + list + "70\n1\n");
    };
    const auto blkrefs = [&](const std::vector<std::string> &handles) {
        return door(list("BLKREFS", handles));
    };
    base.layers += blkrefs({"20"});
    ours.layers += blkrefs({"20", "100"});
    theirs.layers += blkrefs({"20", "100"});
    ours.entities += line("100", "2");
    theirs.entities += line("100", "3");
    std::string text = result();
    EXPECT_NE(text.find(blkrefs({"20", "100", "101"})), text.npos) << text;
    // The object that both changed alike, and one that only one of them keeps by a decision.
    theirs.entities = line("20", "1") + line("21", "1");
    theirs.layers = layer("10", "0") + blkrefs({});
    base.layers = layer("10", "0") + blkrefs({"20", "22"});
    ours.layers = layer("10", "0") + blkrefs({"20", "22", "100"});
    ours.entities = line("20", "1") + line("21", "1") + line("22", "4") + line("100", "3");
    EXPECT_EQ(result(), "changed by us, deleted by them\n");
    decided = {{0x22, Side::ours}};
    text = result();
    EXPECT_NE(text.find(blkrefs({"22", "100"})), text.npos) << text;
    decided = {{0x22, Side::theirs}};
    text = result();
    EXPECT_NE(text.find(blkrefs({"100"})), text.npos) << text;
}

TEST_F(MergeCompose, EntriesOfDictionariesAreMergedByName) {
    const std::string a = entry("A", "50");
    const auto put = [&](const std::string &of_base, const std::string &of_ours,
                         const std::string &of_theirs) {
        const std::string all = group("50") + group("51") + group("52") + group("53");
        set_objects(dictionary(of_base) + all, dictionary(of_ours) + all,
                    dictionary(of_theirs) + all);
    };
    put(a, a + entry("B", "51"), a + entry("C", "52", "360"));
    expect_entries({"A 50", "B 51", "C 52"});
    put("", a, entry("B", "51"));
    expect_entries({"A 50", "B 51"});
    put(a, entry("B", "51"), a + entry("C", "52"));
    expect_entries({"B 51", "C 52"});
    put(a, entry("B", "51") + entry("A", "53"), a + entry("C", "52"));
    expect_entries({"A 53", "B 51", "C 52"});
    put(a, entry("a", "50") + entry("B", "51"), a + entry("C", "52") + entry("b", "51"));
    EXPECT_EQ(result(), "changed by both\n"); // B and b
    put(a, entry("a", "50"), a + entry("C", "52"));
    expect_entries({"C 52", "a 50"});
    const std::pair<std::string, std::string> conflicts[] = {
        {a + entry("N", "51"), a + entry("N", "52")},              // one name, two values
        {"", entry("A", "51")},                                    // removed and changed
        {entry("B", "50"), entry("C", "50")},                      // one object, two names
        {a + a, a + entry("B", "51")},                             // a name twice
        {a + "3\nB\n", a + entry("B", "51")},                      // no entry
        {a + entry("B", "51"), a + "290\n1\n" + entry("C", "52")}, // not in one piece
    };
    for (const auto &[mine, others] : conflicts) {
        put(a, mine, others);
        EXPECT_EQ(result(), "changed by both\n") << mine << others;
        std::swap(ours, theirs);
        EXPECT_EQ(result(), "changed by both\n") << mine << others;
    }
}

TEST_F(MergeCompose, TheRestOfADictionaryIsOfWhoChangedIt) {
    const auto dictionary = [](const std::string &flag, const std::string &entries,
                               const std::string &standard) {
        return record("ACDBDICTIONARYWDFLT", "C",
                      reactors({"20"}) + "102\n{ACAD_XDICTIONARY\n360\n54\n102\n}\n330\n0\n" +
                          "100\nAcDbDictionary\n281\n" + flag + "\n" + entries +
                          "100\nAcDbDictionaryWithDefault\n340\n" + standard +
                          "\n1001\nACAD\n1005\n20\n");
    };
    const std::string all = group("50") + group("51") + group("52") + group("54"),
                      a = entry("A", "50"), b = entry("B", "51"), c = entry("C", "52");
    set_objects(dictionary("1", a, "50") + all, dictionary("1", a + b, "50") + all,
                dictionary("0", a + c, "51") + all);
    const std::string text = result(), expected = dictionary("0", a + b + c, "51");
    EXPECT_NE(text.find(expected), text.npos) << text;
    std::swap(ours, theirs);
    EXPECT_NE(result().find(dictionary("0", a + c + b, "51")), text.npos);
    base.rest = objects(dictionary("1", a, "52") + all);
    EXPECT_EQ(result(), "changed by both\n");
    base.rest = objects(dictionary("0", "", "51") + all); // no place of its own
    ours.rest = objects(dictionary("0", "", "50") + all);
    theirs.rest = objects(dictionary("0", c, "51") + all);
    EXPECT_NE(result().find(dictionary("0", c, "50")), text.npos);
}

TEST_F(MergeCompose, EntriesFollowNewHandles) {
    set_objects(dictionary(""), dictionary(entry("A", "100")) + group("100", "ours"),
                dictionary(entry("B", "100", "360")) + group("100", "theirs"));
    const std::string text = result();
    EXPECT_NE(text.find(dictionary(entry("A", "100") + entry("B", "101", "360"))), text.npos)
        << text;
    EXPECT_NE(text.find(group("101", "theirs")), text.npos);
    EXPECT_EQ(merge().renumbered, 1u);
    // The same bytes, and two objects.
    theirs.rest = objects(dictionary(entry("A", "100")) + group("100", "theirs"));
    EXPECT_EQ(result(), "changed by both\n");
}

// Theirs' dictionary of its own, with what is in it, and in that.
TEST_F(MergeCompose, WhatADecisionLeavesUnnamedGoesAlong) {
    const std::string mine = group("50", "", "C"),
                      records = group("62", "", "61") + dictionary(entry("X", "61"), "60", "C") +
                                dictionary(entry("Y", "62"), "61", "60") + group("63", "", "C");
    set_objects(dictionary(""), dictionary(entry("N", "50")) + mine,
                dictionary(entry("N", "60") + entry("M", "63")) + records);
    EXPECT_EQ(result(), "changed by both\n");
    decided = {{0xC, Side::ours}};
    EXPECT_EQ(result(), ours.text());
    decided = {{0xC, Side::theirs}};
    EXPECT_EQ(result(), theirs.text());
    decided.clear(), others = Side::ours;
    EXPECT_EQ(result(), ours.text());
    others = Side::theirs;
    EXPECT_EQ(result(), theirs.text());
}

// An object that one side took out of its dictionary and the other changed comes with its entry.
TEST_F(MergeCompose, EntriesFollowTheDecisionsOnTheirObjects) {
    const std::string a = entry("A", "50"), b = entry("B", "51");
    set_objects(dictionary(a) + group("50"), dictionary(a) + group("50", "ours"), dictionary(""));
    EXPECT_EQ(result(), "changed by us, deleted by them\n");
    decided = {{0x50, Side::ours}};
    EXPECT_NE(result().find(dictionary(a) + group("50", "ours")), std::string::npos) << result();
    decided = {{0x50, Side::theirs}};
    EXPECT_NE(result().find(dictionary("")), std::string::npos) << result();
    theirs.rest = objects(dictionary(b) + group("51"));
    ours.rest = objects(dictionary(a + entry("C", "53")) + group("50", "ours") + group("53"));
    EXPECT_NE(result().find(dictionary(entry("C", "53") + b)), std::string::npos) << result();
    decided = {{0x50, Side::ours}};
    EXPECT_NE(result().find(dictionary(a + entry("C", "53") + b)), std::string::npos) << result();
    // Renamed, and deleted.
    ours.rest = objects(dictionary(entry("C", "50")) + group("50"));
    decided.clear();
    EXPECT_EQ(result(), "50, which it names, is gone\n");
    for (const Side side : {Side::ours, Side::theirs}) {
        others = side;
        const std::string expected = side == Side::ours ? entry("C", "50") + b : b;
        EXPECT_NE(result().find(dictionary(expected)), std::string::npos) << result();
    }
}

// A layout is an entry, what that names, its entry in the table of blocks and its block.
TEST_F(MergeCompose, LayoutsOfBothAreInAndGoAsAWhole) {
    const auto add = [](Sections &side, const std::string &name, int first, const char *x) {
        const auto at = [first](int n) {
            return dxf::handle_text(static_cast<uint64_t>(first + n));
        };
        side.layers +=
            record("BLOCK_RECORD", at(0),
                   "330\n1\n100\nAcDbBlockTableRecord\n2\n*Paper_Space1\n340\n" + at(4) + "\n");
        const std::string owner = "330\n" + at(0) + "\n";
        side.blocks += record("BLOCK", at(1), owner + "2\n*Paper_Space1\n3\n*Paper_Space1\n") +
                       record("LINE", at(2), owner + "10\n" + x + "\n") +
                       record("ENDBLK", at(3), owner);
        side.rest =
            objects(dictionary(entry(name, at(4))) +
                    record("LAYOUT", at(4),
                           "330\nC\n100\nAcDbLayout\n1\n" + name + "\n330\n" + at(0) + "\n"));
    };
    base.rest = objects(dictionary(""));
    const Sections start = base;
    for (const int first : {0x100, 0x110}) {
        ours = theirs = start;
        add(ours, "Plan", 0x100, "1");
        add(theirs, "Section", first, "2");
        const std::string text = result();
        EXPECT_NE(text.find("2\n*Paper_Space1\n3\n*Paper_Space1\n"), text.npos) << text;
        EXPECT_NE(text.find("2\n*Paper_Space2\n3\n*Paper_Space2\n"), text.npos) << text;
        EXPECT_NE(text.find("2\n*Paper_Space2\n340\n"), text.npos) << text;
        theirs = start;
        add(theirs, "PLAN", first, "2");
        EXPECT_EQ(result(), "changed by both\n");
        for (const Side side : {Side::ours, Side::theirs}) {
            decided = {{0xC, side}};
            const std::string chosen = result();
            EXPECT_EQ(chosen.find("LAYOUT"), chosen.rfind("LAYOUT")) << chosen;
            for (const char *type : {"\nBLOCK\n", "\nENDBLK\n", "\nBLOCK_RECORD\n"})
                EXPECT_EQ(chosen.find(type), chosen.rfind(type)) << chosen;
            const bool has_own =
                chosen.find(side == Side::ours ? "\nPlan\n" : "\nPLAN\n") != chosen.npos;
            EXPECT_TRUE(has_own) << chosen;
        }
        decided.clear();
    }
    // By a decision about the block the layout goes, too.
    theirs = start;
    add(theirs, "Section", 0x110, "2");
    ours.layers += record("BLOCK_RECORD", "120", "2\nDOOR\n62\n1\n");
    theirs.layers += record("BLOCK_RECORD", "121", "2\nDOOR\n62\n2\n") +
                     record("LAYOUT", "122", "330\n1\n100\nAcDbLayout\n330\n121\n");
    others = Side::ours;
    const std::string text = result();
    EXPECT_EQ(text.find("\n121\n"), text.npos) << text;
}

} // namespace
