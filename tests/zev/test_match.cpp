// Files that another program has saved: what is the same by what it says or by its content, which
// bytes are kept, and that those of the file come back.
#include "dxf/as_imported.hpp"
#include "dxf/match.hpp"
#include "dxf/normal.hpp"
#include "import_fixture.hpp"

#include <gtest/gtest.h>

namespace {

using dxf::Form, dxf::Match;

constexpr uint64_t kLayout = static_cast<uint64_t>(-3);

// A record of "code value" pairs, one a word but for the value's blanks as ~.
std::string record(const std::string &pairs) {
    std::string out, word;
    for (std::istringstream in(pairs); in >> word;) {
        std::replace(word.begin(), word.end(), '~', ' ');
        out += word + "\n";
    }
    return out;
}

bool is_same(const std::string &a, const std::string &b) {
    const bool same = dxf::is_same_in_normal_form(record(a), record(b));
    EXPECT_EQ(same, dxf::is_same_in_normal_form(record(b), record(a)));
    if (same) {
        EXPECT_EQ(dxf::NormalRecord(record(a)).content_hash(),
                  dxf::NormalRecord(record(b)).content_hash())
            << a;
    }
    return same;
}

TEST(Normal, NumbersAndHandlesAreWhatTheyStandFor) {
    for (const char *other : {"1", "1.00E+00", "+1.0", "~1.000~", "0.99999999999999989"})
        EXPECT_TRUE(is_same("0 LINE 11 1.0", "0 LINE 11 " + std::string(other))) << other;
    EXPECT_TRUE(is_same("0 CIRCLE 40 -0.0 62 007", "0 CIRCLE 40 0 62 7"));
    EXPECT_TRUE(is_same("0 LINE 5 00aB 360 0F", "0 LINE 5 AB 360 f"));
    EXPECT_TRUE(is_same("0 HATCH 50 0.0000000027791941", "0 HATCH 50 2.779188434943e-09"));
    for (const char *other : {"1.00000000001", "nan", "1e999", "1,0", "", "x"})
        EXPECT_FALSE(is_same("0 LINE 11 1.0", "0 LINE 11 " + std::string(other) + "~")) << other;
    EXPECT_FALSE(is_same("0 LINE 5 A", "0 LINE 5 B"));
    EXPECT_FALSE(is_same("0 LINE 10 1e7 20 5", "0 LINE 10 10000000.0001 20 5"));
    EXPECT_FALSE(is_same("0 LINE 62 256", "0 LINE 62 7"));
}

TEST(Normal, TextsAreAsTheyAre) {
    EXPECT_FALSE(is_same("0 TEXT 1 Room", "0 TEXT 1 Room~"));
    EXPECT_FALSE(is_same("0 TEXT 1 Room", "0 TEXT 1 room"));
    EXPECT_FALSE(is_same("0 TEXT 1 1.0", "0 TEXT 1 1"));
    EXPECT_TRUE(is_same("~0 ~TEXT~ 1 Room", "0 TEXT ~~1 Room"));
    EXPECT_TRUE(dxf::is_same_in_normal_form("0\r\nTEXT\r\n1\r\na\r\n", "  0\nTEXT\n  1\na\n"));
    EXPECT_TRUE(is_same("0 LINE 999 by~hand 10 1", "0 LINE 10 1"));
}

TEST(Normal, OrderMattersWhereItMeansSomething) {
    EXPECT_TRUE(is_same("0 ARC 100 AcDbEntity 62 1 8 A 100 AcDbCircle 40 1 10 2",
                        "0 ARC 100 AcDbEntity 8 A 62 1 100 AcDbCircle 10 2 40 1"));
    EXPECT_TRUE(is_same("0 LINE 100 AcDbEntity 100 AcDbLine 8 A 10 2",
                        "0 LINE 8 A 100 AcDbEntity 100 AcDbLine 10 2"));
    // A bulge belongs to the vertex in front of it.
    EXPECT_FALSE(is_same("0 LWPOLYLINE 90 2 10 0 20 0 42 1 10 5 20 0",
                         "0 LWPOLYLINE 90 2 10 0 20 0 10 5 20 0 42 1"));
    EXPECT_FALSE(is_same("0 XRECORD 100 AcDbXrecord 1 a 2 b", "0 XRECORD 100 AcDbXrecord 2 b 1 a"));
    EXPECT_FALSE(is_same("0 LINE 10 0 1001 A 1000 x 1001 B", "0 LINE 10 0 1001 B 1001 A 1000 x"));
    EXPECT_TRUE(is_same(
        "0 LINE 102 {ACAD_REACTORS 330 B 330 A 102 } 102 {ACAD_XDICTIONARY 360 C 102 } 8 X",
        "0 LINE 102 {ACAD_XDICTIONARY 360 C 102 } 102 {ACAD_REACTORS 330 A 330 B 102 } 8 X"));
    EXPECT_FALSE(is_same("0 LINE 102 {ACAD_REACTORS 330 B 102 } 8 X", "0 LINE 8 X"));
}

TEST(Normal, WhatSaysNothingIsLeftOut) {
    EXPECT_TRUE(is_same("0 LWPOLYLINE 90 1 43 0.0 10 1 20 1", "0 LWPOLYLINE 90 1 10 1 20 1"));
    EXPECT_TRUE(is_same("0 LINE 62 256 370 -1 6 ByLayer 30 0 10 1", "0 LINE 10 1"));
    EXPECT_FALSE(is_same("0 LINE 62 0 10 1", "0 LINE 10 1"));
    EXPECT_FALSE(is_same("0 LWPOLYLINE 43 0.5 10 1", "0 LWPOLYLINE 10 1"));
    EXPECT_TRUE(is_same("0 TABLE 2 LAYER 70 3", "0 TABLE 2 LAYER 70 4"));
    EXPECT_TRUE(is_same("0 BLOCK 100 AcDbEntity 62 5 2 A", "0 BLOCK 100 AcDbEntity 2 A"));
    EXPECT_FALSE(
        is_same("0 LAYER 100 AcDbSymbolTableRecord 62 5", "0 LAYER 100 AcDbSymbolTableRecord"));
    // The owner, where one of the two has none or the place tells it.
    EXPECT_TRUE(is_same("0 LINE 5 1 330 1F 100 AcDbEntity 8 A", "0 LINE 5 1 100 AcDbEntity 8 A"));
    EXPECT_FALSE(is_same("0 LINE 330 1F 100 AcDbEntity 8 A", "0 LINE 330 1E 100 AcDbEntity 8 A"));
    EXPECT_TRUE(
        is_same("0 VERTEX 330 1F 100 AcDbEntity 8 A", "0 VERTEX 330 1E 100 AcDbEntity 8 A"));
    EXPECT_TRUE(
        is_same("0 DICTIONARYVAR 100 DictionaryVariables 1 0.1~@~2026-11-27T02:50:21.9+00:00",
                "0 DICTIONARYVAR 100 DictionaryVariables 1 0.1~@~2026-11-28T12:00:00Z"));
    EXPECT_FALSE(is_same("0 TEXT 1 2026-11-27T02:50:21", "0 TEXT 1 2026-11-28T02:50:21"));
}

TEST(Normal, HeadersAreTheSameButForMarksOfSaving) {
    const std::string header = record("9 $HANDSEED 5 F0 9 $TDUPDATE 40 2.5 9 $LTSCALE 40 1.0");
    EXPECT_TRUE(dxf::is_same_header(
        header, record("9 $LTSCALE 40 1 9 $TDUPDATE 40 3.5 9 $HANDSEED 5 FF"), 0xA0));
    EXPECT_FALSE(dxf::is_same_header(header, record("9 $HANDSEED 5 FF 9 $LTSCALE 40 1"),
                                     0xF0)); // the kept one would be too low
    EXPECT_FALSE(dxf::is_same_header(header, record("9 $HANDSEED 5 F0 9 $LTSCALE 40 2"), 0xA0));
}

// A kind of blanks only is looked at once, not for each group again.
TEST(Normal, TakesItsTimeOnceForARecordWithoutKind) {
    std::string blank = "0\n\n";
    for (int i = 0; i < 400000; ++i) blank += "1\n\n";
    EXPECT_TRUE(dxf::is_same_in_normal_form(blank, blank));
    EXPECT_FALSE(dxf::is_same_in_normal_form(blank, blank + "1\nx\n"));
}

// ---- Imports

// The same lines as another program writes them.
std::string rewritten(std::string bytes) {
    std::string out;
    std::istringstream in(bytes);
    for (std::string code, value; std::getline(in, code) && std::getline(in, value);) {
        if (code.size() < 3) code.insert(0, 3 - code.size(), ' ');
        if (code == " 10") value += ".0";
        out += code + "\r\n" + value + "\r\n";
    }
    return out;
}

std::string many(int count, int first = 1) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        char handle[16];
        snprintf(handle, sizeof handle, "%X", 0x100 + i);
        out += line(handle, std::to_string(first + i));
    }
    return out;
}

struct MatchImport : Import {
    dxf::ImportResult import_by(Match match, const std::string &bytes) {
        return import(bytes, nullptr, match);
    }
    std::string version() { return exported(drawing); }
    std::string imported() { return exported(drawing, Form::imported); }
    std::string layout() {
        std::string out;
        const host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        dxf::read_rows(table().get(), {*zDrawingDS(read.get())}, zNotifyNull(),
                       [&](size_t, std::string_view value) { out = value; });
        return out;
    }
};

TEST_F(MatchImport, KeepsBytesOfWhatIsOnlyRewritten) {
    const std::string bytes = entities(many(20));
    import(bytes);
    const auto before = keys();
    std::string other = rewritten(entities(many(19) + line("200", "7")));
    other.replace(other.find("\r\n5.0"), 5, "\r\n55.");
    const auto result = import(other);
    EXPECT_EQ(result.match, Match::normal);
    EXPECT_EQ(result.kept, 18u);
    EXPECT_EQ(result.modified, 1u);
    EXPECT_EQ(result.removed, 1u);
    EXPECT_EQ(result.drawn.added, 1u);
    EXPECT_EQ(keys().at(0x100), before.at(0x100));
    EXPECT_EQ(imported(), other);
    EXPECT_EQ(version().find("0\nSECTION\n2\nENTITIES\n" + line("100", "1")), 0u);
    EXPECT_NE(version().find("\r\n55.\r\n"), std::string::npos);
    EXPECT_FALSE(import(other).written);
    // Back in its own form, nothing is kept and the layout is as if it had never been away.
    import(bytes);
    EXPECT_EQ(version(), bytes);
    EXPECT_EQ(imported(), bytes);
    EXPECT_EQ(layout(), dxf::write_layout(dxf::split(bytes, "t").parts));
}

// Those that came with the other program are equal to the byte, and more than the kept ones.
TEST_F(MatchImport, WhatWasKeptIsKeptAgainAmongMoreThatAreEqual) {
    const std::string with_handles = many(12), without = line("", "1") + line("", "2");
    for (const std::string &records :
         {with_handles.substr(0, line("100", "1").size() * 4), without}) {
        import_by(Match::exact, entities(records));
        std::string more = records;
        more += records == without ? line("", "3") + line("", "4") + line("", "5")
                                   : with_handles.substr(records.size());
        import_by(Match::normal, rewritten(entities(more)));
        const auto before = keys();
        EXPECT_FALSE(import(rewritten(entities(more))).written);
        std::string other = rewritten(entities(more + line("200", "7")));
        EXPECT_EQ(import(other).match, Match::normal);
        EXPECT_EQ(imported(), other);
        for (const auto &[number, tag] : before)
            if (number != kLayout) {
                EXPECT_EQ(keys().at(number), tag) << number;
            }
    }
}

TEST_F(MatchImport, EachPolicyIsHeldTo) {
    const std::string bytes = entities(many(8)), other = rewritten(bytes);
    const auto plain = dxf::write_layout(dxf::split(other, "t").parts);
    for (const Match match : {Match::exact, Match::handle}) {
        import_by(Match::exact, bytes);
        const auto result = import_by(match, other);
        EXPECT_EQ(result.match, match);
        EXPECT_EQ(result.modified, 8u);
        EXPECT_EQ(version(), other);
        EXPECT_EQ(layout(), plain);
    }
    for (const Match match : {Match::normal, Match::content, Match::automatic}) {
        import_by(Match::exact, bytes);
        const auto result = import_by(match, other);
        EXPECT_EQ(result.kept, 8u);
        EXPECT_EQ(version(), bytes);
        EXPECT_EQ(imported(), other);
    }
    // A few of many, beside one that is another.
    import_by(Match::exact, bytes);
    const auto few = import(rewritten("0\nSECTION\n2\nENTITIES\n" + many(3)) +
                            bytes.substr(bytes.find(line("103", "4"))));
    EXPECT_EQ(few.kept, 3u);
    EXPECT_EQ(few.modified, 0u);
    // Over what was kept, too.
    EXPECT_EQ(import_by(Match::exact, other).modified, 8u);
    EXPECT_EQ(version(), other);
    EXPECT_EQ(layout(), plain);
}

TEST_F(MatchImport, OfSeveralEqualRecordsEachKeepsItsBytes) {
    // Without handles, and two under one handle.
    const std::string records = line("", "1") + line("", "1.0") + line("A", "2") +
                                line("", "1.00") + line("A", "3") + line("", "1");
    import(entities(records));
    const std::string other = rewritten(entities(records));
    const auto result = import_by(Match::normal, other);
    EXPECT_EQ(result.unchanged, 4u); // .0 behind a number with a point is none
    EXPECT_EQ(imported(), other);
    const std::string once = version();
    EXPECT_FALSE(import_by(Match::normal, other).written);
    // What stands behind the end is as it is.
    import_by(Match::normal, other + " ");
    EXPECT_EQ(version().substr(0, once.rfind("0\nENDSEC")),
              once.substr(0, once.rfind("0\nENDSEC")));
    EXPECT_EQ(imported(), other + " ");
}

TEST_F(MatchImport, SavingAloneIsNoVersion) {
    const auto file = [](const std::string &time, const std::string &x) {
        return "0\nSECTION\n2\nHEADER\n9\n$TDUPDATE\n40\n" + time + "\n0\nENDSEC\n" +
               entities(line("A", x) + line("B", "2"));
    };
    import(file("1.5", "1"));
    EXPECT_FALSE(import(file("2.5", "1")).written);
    EXPECT_EQ(version(), file("1.5", "1"));
    EXPECT_TRUE(import_by(Match::exact, file("3.5", "1")).written);
    EXPECT_EQ(version(), file("3.5", "1"));
    EXPECT_TRUE(import(file("4.5", "7")).written);
    EXPECT_EQ(version(), file("4.5", "7"));
    // Behind a save of another program as well.
    import(rewritten(file("5.5", "7")));
    EXPECT_EQ(imported(), rewritten(file("5.5", "7")));
    const auto again = import(rewritten(file("6.5", "7")));
    EXPECT_FALSE(again.written);
    EXPECT_EQ(again.kept, 2u);
}

// ---- All handles new

std::string insert(const std::string &handle, const std::string &x, const std::string &owner) {
    return "0\nINSERT\n5\n" + handle + "\n330\n" + owner + "\n100\nAcDbEntity\n8\nA\n10\n" + x +
           "\n1005\n" + owner + "\n";
}

TEST_F(MatchImport, GivesOldHandlesBack) {
    const auto file = [](const std::string &seed, const std::string &records) {
        return "0\nSECTION\n2\nHEADER\n9\n$HANDSEED\n5\n" + seed + "\n0\nENDSEC\n" +
               entities(records);
    };
    // 10 owns 11 to 13, two of which are equal.
    const std::string first =
        file("20", line("10", "1") + insert("11", "2", "10") + insert("12", "3", "10") +
                       insert("13", "3", "10") + insert("14", "4", "10"));
    import(first);
    const auto before = keys();
    // Other handles, the owner under the former one of another object; 12 is moved, 14 gone, one
    // new that stands under a former handle.
    const std::string other =
        file("18", line("12", "1") + insert("15", "2", "12") + insert("16", "3.5", "12") +
                       insert("17", "3", "12") + insert("11", "9", "12"));
    const auto result = import(other);
    EXPECT_EQ(result.match, Match::content);
    EXPECT_EQ(result.unchanged, 3u);
    EXPECT_EQ(result.modified + result.added, 2u);
    const std::string version = this->version();
    const auto now = keys();
    EXPECT_EQ(now.at(0x10), before.at(0x10));
    EXPECT_EQ(now.at(0x11), before.at(0x11));
    EXPECT_NE(version.find(insert("11", "2", "10")), version.npos);
    EXPECT_NE(version.find("\n3.5\n1005\n10\n"), version.npos);
    EXPECT_EQ(version.find("\n1005\n12\n"), version.npos);
    EXPECT_EQ(imported(), other);
    EXPECT_EQ(dxf::split(version, "t").parts.size(), dxf::split(other, "t").parts.size());
    EXPECT_FALSE(import(other).written);
    // The seed is above every handle.
    const size_t seed = version.find("$HANDSEED\n5\n") + 12;
    EXPECT_GT(std::stoul(version.substr(seed), nullptr, 16), now.rbegin()->first == kLayout
                                                                 ? std::next(now.rbegin())->first
                                                                 : now.rbegin()->first);
}

// What names nothing in the file names nothing in the drawing; a table of draw orders sorts by
// handles under the code of its own.
TEST_F(MatchImport, NoReferenceComesToNameAnother) {
    const auto order = [](const std::string &own, const std::string &of) {
        return "0\nSORTENTSTABLE\n5\n" + own + "\n100\nAcDbSortentsTable\n331\n" + of + "\n5\n" +
               of + "\n";
    };
    import(entities(line("10", "1") + line("11", "2") + line("12", "3") + order("13", "10")));
    const std::string other = entities(line("20", "1") + line("21", "2") + line("22", "3") +
                                       order("23", "20") + insert("24", "9", "11"));
    EXPECT_EQ(import_by(Match::content, other).match, Match::content);
    EXPECT_NE(version().find(order("13", "10")), std::string::npos);
    EXPECT_NE(version().find("\n1005\n0\n"), std::string::npos) << version();
    EXPECT_EQ(imported(), other);
}

// A VERTEX without widths has those of its POLYLINE, so that zeros mean something there.
TEST_F(MatchImport, WidthsOfAVertexCountUnderWidePolylines) {
    const auto polyline = [](const std::string &width, const std::string &own) {
        return "0\nPOLYLINE\n5\n10\n66\n1\n40\n" + width + "\n0\nVERTEX\n5\n11\n10\n1\n" + own +
               "0\nSEQEND\n5\n12\n";
    };
    const std::string thin = polyline("0", "40\n0\n");
    import(entities(many(20) + thin));
    EXPECT_EQ(import_by(Match::normal, entities(many(20) + polyline("0", ""))).modified, 0u);
    import_by(Match::normal, entities(many(20) + thin));
    const std::string wide = entities(many(20) + polyline("5", ""));
    EXPECT_EQ(import_by(Match::normal, wide).modified, 2u);
    EXPECT_EQ(version(), wide);
}

// Another drawing under the same name has its own bytes, whatever both have in common.
TEST_F(MatchImport, ADrawingInPlaceOfAnotherKeepsNothing) {
    const auto symbols = [](const std::string &end) { return "0\nTABLE\n5\n1\n2\nLAYER\n" + end; };
    import(entities(symbols("0\nENDTAB\n") + many(20)));
    const std::string other = entities(symbols("  0\nENDTAB\n") + rewritten(many(20, 100)));
    const auto result = import(other);
    EXPECT_EQ(result.match, Match::handle);
    EXPECT_EQ(version(), other);
}

// What has no handle of its own names others; its bytes are kept although one of those is another.
TEST_F(MatchImport, KeepsRecordsWithoutHandleUnderExchangedHandles) {
    const auto polyline = [](const std::string &handle, int x) {
        return "0\nPOLYLINE\n5\n" + handle + "\n66\n1\n10\n" + std::to_string(x) +
               "\n0\nSEQEND\n330\n" + handle + "\n";
    };
    import(entities(polyline("10", 1) + polyline("11", 2)));
    const std::string other = entities(polyline("10", 7) + polyline("12", 1) + polyline("13", 2));
    EXPECT_EQ(import_by(Match::content, other).match, Match::content);
    EXPECT_NE(version().find("\n0\nSEQEND\n330\n10\n"), std::string::npos);
    EXPECT_EQ(imported(), other);
}

TEST_F(MatchImport, CountsDrawnOnesThatAreGoneByContent) {
    const auto file = [](int first, int count, int handle) {
        std::string out;
        for (int i = first; i < first + count; ++i) {
            char text[16];
            snprintf(text, sizeof text, "%X", handle + i);
            out += line(text, std::to_string(i));
        }
        return entities(out);
    };
    import(file(0, 40, 0x100));
    const auto result = import(file(3, 37, 0x102)); // each under the handle of another one
    EXPECT_EQ(result.match, Match::content);
    EXPECT_EQ(result.removed, 3u);
    EXPECT_EQ(result.drawn.removed, 3u);
}

TEST_F(MatchImport, KeepsADrawingThatAppearedMeanwhile) {
    test::write(dir.path() / "in.dxf", entities(many(3)));
    static fs::path place;
    place = drawing;
    Notify notify{};
    notify.usrbrk = [](const Notify *) { return test::write(place, "somebody's"), false; };
    dxf::Import request = request_for(&notify); // asked when rows are written
    std::string kept;
    request.keep_former = [&] { kept = test::read(place); };
    EXPECT_TRUE(dxf::import_drawing(request).written);
    EXPECT_EQ(kept, "somebody's");
}

TEST_F(MatchImport, FindsPartnersAmongManyEdits) {
    constexpr int kCount = 400;
    const auto file = [](bool is_new) {
        std::string out;
        for (int i = 0; i < kCount; ++i) {
            if (is_new && i % 40 == 7) continue; // deleted
            char handle[16];
            snprintf(handle, sizeof handle, "%X", is_new ? 0x9000 - i : 0x100 + i);
            const int x = is_new && i % 10 == 3 ? 5000 + i : i;
            out += line(handle, std::to_string(x));
            if (is_new && i % 100 == 50)
                out += "0\nCIRCLE\n5\n" + std::to_string(1 + i) + "\n40\n1\n";
        }
        return entities(out);
    };
    import(file(false));
    const auto result = import(file(true));
    EXPECT_EQ(result.match, Match::content);
    EXPECT_EQ(result.removed, 10u);
    EXPECT_EQ(result.modified, 40u);
    EXPECT_EQ(result.added, 4u);
    EXPECT_EQ(imported(), file(true));
}

// ---- Damage

TEST_F(MatchImport, DamagedDifferencesAreAnError) {
    const std::string bytes = entities(many(6)), other = rewritten(entities(many(5, 3)));
    import(bytes);
    import_by(Match::normal, other);
    const std::string good = layout();
    ASSERT_FALSE(dxf::differences_in(good).empty());
    std::vector<std::string_view> parts;
    const std::string kept = version();
    const dxf::Document document = dxf::split(kept, "t");
    for (const dxf::Part &part : document.parts) parts.push_back(part.bytes);
    const auto play = [&](std::string_view differences, std::string &out) {
        dxf::ImportedParts player(differences);
        for (std::string_view part : parts)
            if (!player.next(part, [&](std::string_view piece) { out += piece; })) return false;
        return player.finish();
    };
    const std::string differences(dxf::differences_in(good));
    std::string out;
    ASSERT_TRUE(play(differences, out));
    EXPECT_EQ(out, other);
    for (size_t i = 0; i < differences.size(); ++i) {
        std::string cut;
        EXPECT_FALSE(play(std::string_view(differences).substr(0, i), cut)) << i;
        std::string flipped = differences, from_flipped;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x41);
        if (play(flipped, from_flipped)) {
            EXPECT_LT(i, 2u) << i; // the style, which the summary's digest covers
        }
    }
    EXPECT_FALSE(play(differences + "x", out));
    // In the table every byte counts.
    const host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
    for (size_t i = 0; i < good.size(); ++i) {
        std::string flipped = good;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x10);
        {
            const host::OwnedTable open = table();
            ASSERT_TRUE(zDrawingKeyPutData(open.get(), zDrawingDS(read.get()), flipped.data(),
                                           flipped.size()));
        }
        EXPECT_THROW(version(), host::Failed) << i;
        EXPECT_THROW(imported(), host::Failed) << i;
    }
    // Importing again heals it.
    import_by(Match::exact, other);
    EXPECT_EQ(version(), other);
}

TEST_F(MatchImport, ADrawingChangedByOthersKnowsNoLastImport) {
    import(entities(many(6)));
    import_by(Match::normal, rewritten(entities(many(6))));
    // As a merge leaves it: other rows, the same layout, no digest that tells.
    {
        const host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        const host::OwnedTable open = table();
        const std::string merged = line("100", "77");
        ASSERT_TRUE(zDrawingKeyPutData(open.get(), zDrawingObjectGetAt(read.get(), 0),
                                       merged.data(), merged.size()));
        ASSERT_TRUE(zDrawingKeyPutData(open.get(), zDrawingSummary(read.get()), "{}", 2));
    }
    EXPECT_NE(version().find("\n77\n"), std::string::npos);
    EXPECT_THROW(imported(), host::Failed);
    const std::string plain = dxf::without_differences(layout());
    EXPECT_TRUE(dxf::differences_in(plain).empty());
    EXPECT_EQ(dxf::without_differences(plain), plain);
    const std::string next = rewritten(entities(many(6)));
    EXPECT_EQ(import(next).modified, 1u);
    EXPECT_EQ(imported(), next);
}

} // namespace
