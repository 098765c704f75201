// Texts of scenes: what codes and code pages make of them, and where they stand.
#include "drawn.hpp"

#include <cmath>

namespace {

using namespace picture;
using drawn::expect_box;
using drawn::scene;
using drawn::Sections;

std::vector<std::string> texts_of(const Scene &scene) {
    std::vector<std::string> texts;
    for (const Text &text : scene.texts) texts.push_back(text.text);
    return texts;
}

std::vector<std::string> mtext(const std::string &text, const std::string &more = "") {
    return texts_of(scene("0|MTEXT|8|0|10|0|20|0|40|1|71|1|" + more + "1|" + text));
}

using Lines = std::vector<std::string>;

TEST(SceneTexts, CodesOfALine) {
    const auto text = [](const std::string &value) {
        return texts_of(scene("0|TEXT|8|0|10|0|20|0|40|1|1|" + value)).at(0);
    };
    EXPECT_EQ(text("%%c12 %%D %%p1 50%%% %%065"), "Ø12 ° ±1 50% A");
    EXPECT_EQ(text("\\U+00E4\\U+20ac"), "ä€");
    EXPECT_EQ(text("\\U+D840\\U+DC0B\\U+D840"), "𠀋\\U+D840"); // two halves, and one
    EXPECT_EQ(text("a^Ib^ c %%"), "a b^c %%");
    EXPECT_EQ(text("x\x01\x7f\xff<y>"), "xÿ<y>"); // no page, and no UTF-8: western
    EXPECT_TRUE(scene("0|TEXT|8|0|10|0|20|0|40|1|1|%%uunder").texts.at(0).is_underlined);
}

TEST(SceneTexts, CodePages) {
    const auto text = [](const std::string &header, const std::string &value) {
        return texts_of(scene(Sections{"0|TEXT|8|0|10|0|20|0|40|1|1|" + value, "", "", header, ""}))
            .at(0);
    };
    const std::string old = "9|$ACADVER|1|AC1015|9|$DWGCODEPAGE|3|";
    EXPECT_EQ(text(old + "ANSI_1252", "\xFC\x80"), "ü€");
    EXPECT_EQ(text(old + "ANSI_1251", "\xC4\xEE\xEC"), "Дом");
    EXPECT_EQ(text(old + "ANSI_949", "\xBA\xAE\xC3\xBC"), "벽체");
    EXPECT_EQ(text(old + "ansi_936", "\xC7\xBD"), "墙");
    EXPECT_EQ(text(old + "ANSI_932", "\x95\x5C"), "表"); // whose second byte is a backslash
    EXPECT_EQ(text(old + "ANSI_949", "a\xBA"), "a\xEF\xBF\xBD");
    EXPECT_EQ(text(old + "nothing", "a\xBA"
                                    "b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(text(old + "ANSI_1252", "\\M+3BAAE"), "벽");
    EXPECT_EQ(text("9|$ACADVER|1|AC1021|9|$DWGCODEPAGE|3|ANSI_949", "Bär"), "Bär");
    EXPECT_EQ(text("9|$ACADVER|1|AC1009", "Bär"), "Bär");
    EXPECT_EQ(text("9|$ACADVER|1|AC1009", "B\xE4r"), "Bär");
}

TEST(SceneTexts, CodesOfParagraphs) {
    EXPECT_EQ(mtext("one\\Ptwo \\S1/2;"), (Lines{"one", "two 1/2"}));
    EXPECT_EQ(mtext("a\\~b \\\\ \\{c\\} \\U+00B0"), (Lines{"a\xC2\xA0"
                                                           "b \\ {c} °"}));
    EXPECT_EQ(mtext("\\A1;{\\fArial||b1||i0;bold} plain"), (Lines{"bold", " plain"}));
    EXPECT_EQ(mtext("open { \\H2x; never closed"), (Lines{"open  ", " never closed"}));
    EXPECT_EQ(mtext("}}} \\"), (Lines{" \\"}));
    EXPECT_EQ(mtext("end", "3|begin and |"), (Lines{"begin and end"}));
    const Scene styled =
        scene("0|MTEXT|8|0|62|5|10|0|20|0|40|2|1|{\\C1;\\H3;\\Lred\\l} back\\c255;x");
    ASSERT_EQ(styled.texts.size(), 3u);
    EXPECT_EQ(styled.texts[0].ink, Ink{1});
    EXPECT_TRUE(styled.texts[0].is_underlined);
    EXPECT_NEAR(styled.texts[0].place.d, 3, 1e-9);
    EXPECT_EQ(styled.texts[1].ink, Ink{0});
    EXPECT_NEAR(styled.texts[1].place.d, 2, 1e-9);
    EXPECT_EQ(styled.texts[2].ink, Ink{Ink::kTrue | 0xFF0000}); // blue comes first in the file
    const Scene slanted = scene("0|MTEXT|8|0|10|0|20|0|40|1|1|\\Q45;slanted\\Q0;upright");
    EXPECT_NEAR(slanted.texts.at(0).place.c, 1, 1e-9);
    EXPECT_NEAR(slanted.texts.at(1).place.c, 0, 1e-9);
}

TEST(SceneTexts, ParagraphsAreWrappedAndPlaced) {
    EXPECT_EQ(mtext("some words that are wide", "41|9|"),
              (Lines{"some words", "that are", "wide"}));
    EXPECT_EQ(mtext("벽체구조", "41|3|"), (Lines{"벽체", "구조"}));
    EXPECT_EQ(mtext("unbreakable", "41|2|"), (Lines{"unbreakable"}));
    const auto first = [](const std::string &how) {
        return scene("0|MTEXT|8|0|10|10|20|20|40|3|" + how + "|1|a\\Pb").texts.at(0);
    };
    EXPECT_NEAR(first("71|1").place.f, 17, 1e-9);
    EXPECT_EQ(first("71|3").anchor, Text::end);
    const Text middle = first("71|5");
    EXPECT_EQ(middle.anchor, Text::middle);
    EXPECT_NEAR(middle.place.f, 20 + 5.0 / 2 - 3.0 / 2, 1e-9);
    const Text turned = first("71|1|50|45|11|0|21|1|31|0");
    EXPECT_NEAR(turned.place.b, 3, 1e-9); // the direction counts, not the angle
    EXPECT_NEAR(turned.place.e, 13, 1e-9);
}

TEST(SceneTexts, LinesArePlacedByTheirPoints) {
    const auto text = [](const std::string &how) {
        return scene("0|TEXT|8|0|1|abc|10|1|20|2|40|2|" + how).texts.at(0);
    };
    EXPECT_NEAR(text("11|9|21|9").place.e, 1, 1e-9);
    const Text middle = text("11|9|21|9|72|1|73|2|50|90");
    EXPECT_EQ(middle.anchor, Text::middle);
    EXPECT_NEAR(middle.place.e, 10, 1e-9); // half of the height beside the point
    EXPECT_NEAR(middle.place.b, 2, 1e-9);
    const Text fit = text("72|5|11|1|21|12");
    EXPECT_NEAR(fit.width * std::hypot(fit.place.a, fit.place.b), 10, 1e-9);
    EXPECT_NEAR(fit.place.b, 2, 1e-9); // upwards, as high as it was
    EXPECT_LT(text("71|2").place.a, 0);
    EXPECT_LT(text("71|4").place.d, 0);
    EXPECT_NEAR(text("41|0.5|51|45").place.c, 2, 1e-9);
    EXPECT_NEAR(text("210|0|220|0|230|-1").place.e, -1, 1e-9);
}

TEST(SceneTexts, AttributesShowTheirValues) {
    const std::string attribute = "8|0|2|TAG|1|value|10|0|20|0|40|1|";
    EXPECT_EQ(texts_of(scene("0|ATTDEF|" + attribute + "70|0")), Lines{"TAG"});
    EXPECT_EQ(texts_of(scene("0|ATTRIB|" + attribute + "70|0")), Lines{"value"});
    EXPECT_EQ(texts_of(scene("0|ATTRIB|" + attribute + "70|1")), Lines{});
    // A part of an object inside it is none of the entity's groups.
    EXPECT_EQ(texts_of(scene("0|MTEXT|8|0|10|0|20|0|40|1|1|own|101|Embedded Object|1|other|10|9")),
              Lines{"own"});
    const Scene constant =
        scene({"0|INSERT|8|0|2|B|10|0|20|0",
               "0|BLOCK|2|B|10|0|20|0|0|ATTDEF|" + attribute + "70|2|0|ENDBLK", "", "", ""});
    EXPECT_EQ(texts_of(constant), Lines{"value"});
}

TEST(SceneTexts, StylesNameFonts) {
    const std::string tables = "0|STYLE|2|Own|70|0|3|romans.shx|41|0.8|"
                               "0|STYLE|2|Family|3|arialbd.ttf|1001|ACAD|1000|Arial|1071|33554432";
    const Scene drawing =
        scene({"0|TEXT|8|0|7|own|1|a|10|0|20|0|40|1|0|TEXT|8|0|7|FAMILY|1|b|10|0|20|0|"
               "40|1|0|MTEXT|8|0|7|Own|1|c|10|0|20|0|40|1",
               "", tables, "", ""});
    EXPECT_EQ(drawing.texts.at(0).font, "romans.shx");
    EXPECT_EQ(drawing.texts.at(1).font, "Arial");
    EXPECT_TRUE(drawing.texts.at(1).is_bold);
    EXPECT_NEAR(drawing.texts.at(2).place.a, 0.8, 1e-9);
}

TEST(SceneTexts, LongOnesAreCut) {
    const Scene drawing = scene("0|TEXT|8|0|10|0|20|0|40|1|1|" + std::string(100'000, 'x'));
    EXPECT_EQ(drawing.texts.at(0).text.size(), 4096u);
    EXPECT_EQ(drawn::left_out(drawing, reason::kBeyond), 1u);
    EXPECT_LT(mtext(std::string(200'000, '{') + "x").size(), 2u);
}

// Two lines that meet, a short one from there, and the words beside it.
TEST(SceneTexts, NotesHaveLinesAndWords) {
    const std::string
        begin = "0|MULTILEADER|8|0|100|AcDbEntity|300|CONTEXT_DATA{|41|2|140|3|",
        words = "304|one\\Ptwo|11|0|21|0|31|1|12|30|22|10|13|1|23|0|171|3|90|-1023410175|",
        line = "304|LEADER_LINE{|10|0|20|0|305|}|304|LEADER_LINE{|10|5|20|0|305|}|";
    const auto note = [&](const std::string &more) {
        return scene(begin + words + "302|LEADER{|10|10|20|10|11|1|21|0|40|15|" + line +
                     "303|}|301|}|170|1|291|1|" + more);
    };
    const Scene shown = note("172|2");
    EXPECT_EQ(texts_of(shown), (Lines{"one", "two"}));
    EXPECT_EQ(shown.texts[0].anchor, Text::end);
    EXPECT_NEAR(shown.texts[0].place.f, 8, 1e-9); // its top is at the place
    EXPECT_EQ(shown.shapes.back().ink, Ink{1});
    ASSERT_EQ(shown.shapes.size(), 6u); // with two arrows
    expect_box(shown.box_of(shown.shapes[0]), 0, 0, 25, 10);
    expect_box(shown.box_of(shown.shapes[2]), 5, 0, 25, 10);
    EXPECT_TRUE(shown.left_out.empty());
    EXPECT_EQ(texts_of(note("172|0")), Lines{});
    EXPECT_TRUE(note("172|0|170|0").shapes.empty()); // of no lines
    // What is cut off, or has numbers that are none, leaves the rest.
    EXPECT_EQ(drawn::left_out(scene("0|MULTILEADER|8|0|302|LEADER{|304|LEADER_LINE{|10|1"),
                              "MULTILEADER"),
              1u);
    EXPECT_TRUE(scene(begin + "302|LEADER{|304|LEADER_LINE{|10|1|20|nan|302|LEADER{|303|}|303|}")
                    .texts.empty());
}

} // namespace
