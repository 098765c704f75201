// Merge: each rule by a drawing of a few records.
#include "merge_rules.hpp"

namespace {

using namespace merge_test;

TEST_F(MergeRules, TakesWhatOneSideDidAndKeepsTheOrder) {
    ours.entities = line("20", "5") + line("30", "8") + line("21", "1") + line("22", "1");
    theirs.entities = line("31", "6") + line("20", "1") + line("22", "7") + line("32", "9");
    Sections expected = base;
    expected.entities =
        line("31", "6") + line("20", "5") + line("30", "8") + line("22", "7") + line("32", "9");
    EXPECT_EQ(result(), expected.text());
    const dxf::Merge merged = merge();
    EXPECT_EQ(merged.added, 2u);
    EXPECT_EQ(merged.modified, 1u);
    EXPECT_EQ(merged.removed, 1u);
    EXPECT_EQ(merged.renumbered, 0u);
}

TEST_F(MergeRules, TellsWhatBothDidAndTakesDecisions) {
    ours.entities = line("20", "5") + line("21", "1");
    theirs.entities = line("20", "6") + line("22", "7");
    const dxf::Merge merged = merge();
    ASSERT_EQ(merged.conflicts.size(), 2u);
    EXPECT_EQ(merged.conflicts[0].number, 0x20u);
    EXPECT_EQ(merged.conflicts[0].kind, "LINE");
    EXPECT_EQ(merged.conflicts[0].base, line("20", "1"));
    EXPECT_EQ(merged.conflicts[0].ours, line("20", "5"));
    EXPECT_EQ(merged.conflicts[0].theirs, line("20", "6"));
    EXPECT_EQ(merged.conflicts[1].reason, "deleted by us, changed by them");
    EXPECT_EQ(merged.conflicts[1].ours, std::nullopt);
    decided = {{0x20, Side::theirs}, {0x22, Side::ours}};
    Sections expected = base;
    expected.entities = line("20", "6");
    EXPECT_EQ(result(), expected.text());
    others = Side::theirs;
    decided = {{0x20, Side::ours}};
    expected.entities = line("20", "5") + line("22", "7");
    EXPECT_EQ(result(), expected.text());
}

// Theirs gets the next free handle above all, also above what a seed reserves, and what names it
// follows; what both made alike but for what it names is two, too.
TEST_F(MergeRules, KeepsAdditionsUnderOneHandleApart) {
    const auto group = [](const char *handle, const char *member) {
        return record("GROUP", handle, "340\n" + std::string(member) + "\n1005\n20\n");
    };
    ours.entities += line("100", "2") + line("101", "3") + group("102", "100");
    theirs.entities += line("100", "7") + line("101", "3") + group("102", "100");
    theirs.header = "9\n$HANDSEED\n5\n200\n";
    Sections expected = ours;
    expected.header = "9\n$HANDSEED\n5\n202\n";
    expected.entities = base.entities + line("200", "7") + line("100", "2") + line("101", "3") +
                        group("201", "200") + group("102", "100");
    EXPECT_EQ(result(), expected.text());
    EXPECT_EQ(merge().renumbered, 2u);
}

TEST_F(MergeRules, RenumbersAPolylineAsAWhole) {
    const auto polyline = [](const char *colour, const std::string &first) {
        return record("POLYLINE", first + "0", "62\n" + std::string(colour) + "\n66\n1\n") +
               record("VERTEX", first + "1", "10\n1\n") + record("SEQEND", first + "2", "");
    };
    ours.entities += polyline("1", "10");
    theirs.entities += polyline("2", "10");
    Sections expected = base;
    expected.header = "9\n$HANDSEED\n5\n106\n";
    expected.entities += record("POLYLINE", "103", "62\n2\n66\n1\n") +
                         record("VERTEX", "104", "10\n1\n") + record("SEQEND", "105", "") +
                         polyline("1", "10");
    EXPECT_EQ(result(), expected.text());
}

// A row that one side changed names what the other took away.
TEST_F(MergeRules, LooksAfterWhatAnObjectNames) {
    Sections drawing;
    drawing.layers += layer("11", "WALLS") + record("LTYPE", "12", "2\nDASHED\n") +
                      record("STYLE", "13", "2\nROMAN\n") + record("APPID", "14", "2\nSURVEY\n") +
                      record("DIMSTYLE", "15", "2\nISO\n");
    drawing.blocks = record("BLOCK", "40", "2\nDOOR\n") + record("ENDBLK", "41", "");
    drawing.entities += record("DICTIONARY", "50", "");
    const struct {
        std::string removed, added, reason;
    } cases[] = {
        {layer("11", "WALLS"), line("30", "1", "walls"), "its layer WALLS is gone\n"},
        {record("LTYPE", "12", "2\nDASHED\n"), record("LINE", "30", "6\nDashed\n"),
         "its linetype DASHED is gone\n"},
        {record("STYLE", "13", "2\nROMAN\n"), record("TEXT", "30", "7\nROMAN\n"),
         "its style ROMAN is gone\n"},
        {record("APPID", "14", "2\nSURVEY\n"), record("LINE", "30", "1001\nSURVEY\n"),
         "the application SURVEY, whose data it has, is gone\n"},
        {record("DIMSTYLE", "15", "2\nISO\n"), record("DIMENSION", "30", "3\nISO\n"),
         "its style ISO is gone\n"},
        {drawing.blocks, record("INSERT", "30", "2\nDoor\n"), "its block DOOR is gone\n"},
        {record("DICTIONARY", "50", ""), record("LINE", "30", "330\n50\n100\nA\n330\n51\n"),
         "its owner 50 is gone\n"},
        {record("DICTIONARY", "50", ""), record("LINE", "30", "100\nA\n340\n50\n"),
         "50, which it names, is gone\n"},
        // Those that are named back, in a list, it can do without.
        {record("DICTIONARY", "50", ""), record("LINE", "30", "102\n{R\n330\n50\n102\n}\n"), ""},
    };
    for (const auto &[removed, added, reason] : cases) {
        for (const bool is_turned : {false, true}) {
            start(drawing);
            Sections &remover = is_turned ? theirs : ours, &adder = is_turned ? ours : theirs;
            for (std::string *part : {&remover.layers, &remover.blocks, &remover.entities})
                if (const size_t at = part->find(removed); at != part->npos)
                    part->erase(at, removed.size());
            adder.entities += added;
            decided.clear();
            if (reason.empty()) {
                EXPECT_NE(result().find("0\nLINE\n5\n30"), std::string::npos);
                continue;
            }
            EXPECT_EQ(result(), reason);
            // Decided for the object, what it names comes back; decided against it, it goes.
            decided = {{0x30, is_turned ? Side::ours : Side::theirs}};
            const std::string kept = result();
            EXPECT_NE(kept.find(added), kept.npos) << kept;
            EXPECT_NE(kept.find(removed), kept.npos) << kept;
            decided = {{0x30, is_turned ? Side::theirs : Side::ours}};
            EXPECT_EQ(result().find(added), std::string::npos);
        }
    }
}

TEST_F(MergeRules, TheFrameOfTheFileIsWorkToo) {
    theirs.rest = "0\nSECTION\n2\nOBJECTS\n0\nENDSEC\n";
    ours.entities = line("20", "5") + line("21", "1") + line("22", "1");
    for (const bool is_turned : {false, true}) {
        Sections expected = is_turned ? theirs : ours;
        expected.rest = is_turned ? ours.rest : theirs.rest;
        EXPECT_EQ(result(), expected.text());
        std::swap(ours, theirs);
    }
}

TEST_F(MergeRules, CountsOfTablesAreAdvice) {
    ours.layers += layer("100", "A");
    ours.count = "2";
    theirs.layers += layer("101", "B") + layer("102", "C");
    theirs.count = "3";
    const std::string text = result();
    EXPECT_NE(text.find("2\nLAYER\n70\n3\n"), text.npos) << text;
}

TEST_F(MergeRules, VariablesAreMergedByTheirNames) {
    const auto header = [](const char *units, const char *saved, const char *seed, const char *low,
                           const char *high) {
        return "9\n$INSUNITS\n70\n" + std::string(units) + "\n9\n$TDUPDATE\n40\n" + saved +
               "\n9\n$HANDSEED\n5\n" + seed + "\n9\n$EXTMIN\n10\n" + low + "\n20\n" + low +
               "\n9\n$EXTMAX\n10\n" + high + "\n20\n" + high + "\n";
    };
    base.header = header("4", "1.0", "100", "0.0", "10.0");
    ours.header = header("4", "2.0", "150", "-5.0", "12.0") + "9\n$USERR1\n40\n1.0\n";
    theirs.header = "9\n$TITLE\n1\nHouse\n" + header("6", "3.0", "120", "-1.0", "20.0");
    EXPECT_NE(result().find("2\nHEADER\n9\n$TITLE\n1\nHouse\n" +
                            header("6", "2.0", "150", "-5.0", "20.0") + "9\n$USERR1\n40\n1.0\n"),
              std::string::npos)
        << result();
    ours.header = header("1", "2.0", "150", "0.0", "10.0");
    const dxf::Merge merged = merge();
    ASSERT_EQ(merged.conflicts.size(), 1u);
    EXPECT_EQ(merged.conflicts[0].what, dxf::MergeConflict::variable);
    EXPECT_EQ(merged.conflicts[0].name, "$INSUNITS");
    EXPECT_EQ(merged.conflicts[0].ours, "9\n$INSUNITS\n70\n1\n");
    others = Side::theirs;
    EXPECT_NE(result().find("$INSUNITS\n70\n6\n"), std::string::npos);
}

TEST_F(MergeRules, TheHeaderDrawsOnWhatIsThere) {
    const auto header = [](const char *name) {
        return "9\n$CLAYER\n8\n" + std::string(name) + "\n9\n$HANDSEED\n5\n100\n";
    };
    Sections drawing;
    drawing.layers += layer("11", "W\u00e4nde") + layer("12", "DOORS");
    drawing.header = header("0");
    start(drawing);
    ours.layers = Sections().layers + layer("12", "DOORS");
    theirs.header = header("W\u00c4NDE");
    theirs.entities += line("30", "1");
    EXPECT_NE(result().find(header("0")), std::string::npos) << result();
    theirs.header = header("DOORS");
    EXPECT_NE(result().find(header("DOORS")), std::string::npos);
    theirs.entities += line("31", "1", "W\u00c4NDE");
    EXPECT_EQ(result(), "its layer W\u00c4NDE is gone\n");
}

TEST_F(MergeRules, TextsOfTwoEncodingsAreNotMixed) {
    const auto saved = [](const char *version) {
        return "9\n$ACADVER\n1\n" + std::string(version) +
               "\n9\n$DWGCODEPAGE\n3\nANSI_1252\n9\n$HANDSEED\n5\n200\n";
    };
    base.header = ours.header = saved("AC1015"), theirs.header = saved("AC1032");
    ours.entities += record("TEXT", "100", "1\nW\xE4nde\n");
    EXPECT_THROW(merge(), host::Failed);
    std::swap(ours, theirs);
    EXPECT_THROW(merge(), host::Failed);
    theirs.entities = base.entities + record("TEXT", "100", "1\nWalls\n");
    EXPECT_NE(result().find("AC1032"), std::string::npos);
    theirs.entities = base.entities + record("TEXT", "100", "1\nW\xE4nde\n");
    ours.header = saved("AC1018");
    EXPECT_NE(result().find("W\xE4nde"), std::string::npos);
}

TEST_F(MergeRules, ClassesAndSectionsAreMergedToo) {
    const auto classes = [](const std::string &records) {
        return "0\nSECTION\n2\nCLASSES\n" + records + "0\nENDSEC\n";
    };
    const auto one = [](const char *name, const char *count) {
        return "0\nCLASS\n1\n" + std::string(name) + "\n91\n" + count + "\n";
    };
    base.rest = classes(one("A", "1"));
    ours.rest = classes(one("A", "5") + one("B", "1"));
    theirs.rest = classes(one("A", "3") + one("C", "1")) +
                  "0\nSECTION\n2\nTHUMBNAILIMAGE\n90\n4\n310\nFF\n0\nENDSEC\n";
    EXPECT_NE(result().find(classes(one("A", "5") + one("C", "1") + one("B", "1")) +
                            "0\nSECTION\n2\nTHUMBNAILIMAGE\n90\n4\n310\nFF\n0\nENDSEC\n0\nEOF\n"),
              std::string::npos)
        << result();
    theirs.rest = classes("0\nCLASS\n1\nB\n91\n7\n280\n1\n");
    base.rest = classes("");
    ours.rest = classes(one("B", "1"));
    EXPECT_EQ(result(), "changed by both\n");
    base.rest = "", ours.rest = classes(""), theirs.rest = "0\nSECTION\n2\nOBJECTS\n0\nENDSEC\n";
    ours.entities += line("30", "2");
    EXPECT_EQ(result(), "both changed the sections of the file\n");
}

// Two polylines without handles, of which theirs deletes the first: its parts are in no other.
TEST_F(MergeRules, RecordsWithoutHandleAreKnownByTheirPlace) {
    const auto polyline = [](const char *x) {
        return record("POLYLINE", "", "62\n" + std::string(x) + "\n") +
               record("VERTEX", "", "10\n0\n") + record("SEQEND", "", "");
    };
    Sections drawing;
    drawing.entities = polyline("1") + line("", "1") + polyline("2") + line("", "2");
    start(drawing);
    theirs.entities = line("", "1") + polyline("2") + line("", "2");
    ours.entities = polyline("1") + line("", "1") + polyline("2") + line("", "3");
    Sections expected = drawing;
    expected.entities = line("", "1") + polyline("2") + line("", "3");
    EXPECT_EQ(result(), expected.text());
    theirs.entities = polyline("1") + line("", "1") + polyline("2") + line("", "4");
    EXPECT_EQ(result(), "changed by both\n");
}

TEST_F(MergeRules, AnEntityThatGoesIntoABlockGoesThereInTheResult) {
    Sections drawing;
    drawing.blocks = record("BLOCK", "40", "2\nDOOR\n") + record("ENDBLK", "41", "");
    start(drawing);
    theirs.blocks =
        record("BLOCK", "40", "2\nDOOR\n") + line("21", "1") + record("ENDBLK", "41", "");
    theirs.entities = line("20", "1") + line("22", "1");
    ours.entities += line("30", "3");
    Sections expected = theirs;
    expected.entities += line("30", "3");
    EXPECT_EQ(result(), expected.text());
}

TEST_F(MergeRules, DamagedRowsAreAFailure) {
    const dxf::Keys b = store.add(base.text(), nullptr);
    ours.entities += line("30", "1"), theirs.entities += line("31", "1");
    const dxf::Keys o = store.add(ours.text(), &b), t = store.add(theirs.text(), &b);
    for (const DrawingKey &key : {o.layout, t.layout, o.objects.back(), o.header}) {
        const std::string row = store.row(key);
        store.damage(key, row + "0\n");
        EXPECT_THROW(store.merge(b, o, t), host::Failed);
        store.damage(key, row);
    }
    EXPECT_TRUE(store.merge(b, o, t).conflicts.empty());
    dxf::Keys twice = o;
    twice.objects.push_back(twice.objects.back());
    EXPECT_THROW(store.merge(b, twice, t), host::Failed);
    // Without what ours' summary tells all rows are counted.
    const std::string summary = store.row(o.summary);
    store.damage(o.summary, "{}");
    dxf::Keys result = store.keep(store.merge(b, o, t));
    std::string text;
    ASSERT_TRUE(store.text(result, text));
    EXPECT_EQ(store.row(store.add(text, &result).summary), store.row(result.summary));
}

} // namespace
