// Scenes as SVG: colours, frames, paths and texts.
#include "picture/svg.hpp"
#include "support.hpp"

#include <cmath>

namespace {

using namespace picture;

struct SceneOf : Scene {
    SceneOf(Point low, Point high) {
        box.add(low);
        box.add(high);
        dashes.emplace_back();
    }
    // Lines from the first point on; where it is a fill, closed.
    Shape &path(const std::vector<Point> &places, Shape::Kind kind = Shape::stroke) {
        Shape shape;
        shape.kind = kind;
        shape.first = static_cast<uint32_t>(steps.size());
        shape.point = static_cast<uint32_t>(points.size());
        for (const Point &place : places) {
            steps.push_back(points.size() == shape.point ? Step::move : Step::line);
            points.push_back(place);
        }
        if (kind == Shape::fill) steps.push_back(Step::close);
        return add(shape);
    }
    Shape &curve(const std::vector<Point> &places) {
        Shape &shape = path({places[0]});
        for (size_t i = 1; i < places.size(); ++i) points.push_back(places[i]);
        steps.insert(steps.end(), places.size() / 3, Step::curve);
        return shapes.pop_back(), add(shape);
    }
    Shape &text(const Text &line) {
        Shape shape;
        shape.kind = Shape::text;
        shape.first = static_cast<uint32_t>(texts.size());
        texts.push_back(line);
        return add(shape);
    }
    std::string svg(const SvgOptions &options = {}) const {
        std::string out;
        write_svg(*this, options, [&](std::string_view piece) { out += piece; });
        return out;
    }
    // What stands between the ground and the end.
    std::string inner(const SvgOptions &options = {}) const {
        const std::string all = svg(options), group = "stroke-linejoin=\"round\">\n";
        const size_t from = all.find(group) + group.size();
        return all.substr(from, all.rfind("</g>") - from);
    }

  private:
    Shape &add(Shape shape) {
        shape.count = static_cast<uint32_t>(steps.size()) - shape.first;
        shape.points = static_cast<uint32_t>(points.size()) - shape.point;
        shapes.push_back(shape);
        return shapes.back();
    }
};

// A square whose sides have 960 units, so that a unit of it is one of the picture.
SceneOf square() { return SceneOf({0, 0}, {961.5384615384615, 961.5384615384615}); }

std::string number(double value) {
    std::string out;
    put_number(out, value);
    return out;
}

TEST(Svg, WritesNumbersShortAndWithoutExponents) {
    EXPECT_EQ(number(0), "0");
    EXPECT_EQ(number(-0.0), "0");
    EXPECT_EQ(number(0.0004), "0");
    EXPECT_EQ(number(-0.0006), "-.001");
    EXPECT_EQ(number(12.5), "12.5");
    EXPECT_EQ(number(-3.14159), "-3.142");
    EXPECT_EQ(number(0.05), ".05");
    EXPECT_EQ(number(1e300), "1000000000000");
    EXPECT_EQ(number(NAN), "0");
    EXPECT_EQ(number(-INFINITY), "-1000000000000");
}

TEST(Svg, KnowsTheStandardColoursAndKeepsThemLegible) {
    const Theme light, dark{true};
    const struct {
        uint32_t ink, rgb;
    } kCases[] = {{0, 0},          {1, 0xff0000},   {7, 0},
                  {8, 0x808080},   {14, 0x7f0000},  {15, 0x7f3f3f},
                  {42, 0xa57c00},  {134, 0x007f7f}, {36, 0x4c2600},
                  {202, 0x7c00a5}, {250, 0x333333}, {Ink::kTrue | 0x123456, 0x123456}};
    for (const auto &[ink, rgb] : kCases) EXPECT_EQ(rgb_of({ink}, light), rgb) << ink;
    EXPECT_EQ(rgb_of({7}, dark), 0xffffffu);
    const auto brightness = [](uint32_t rgb) {
        const auto square = [&](int shift) { return std::pow((rgb >> shift & 255) / 255.0, 2); };
        return 0.2126 * square(16) + 0.7152 * square(8) + 0.0722 * square(0) + 0.05;
    };
    for (uint32_t ink = 0; ink < 260; ++ink) {
        EXPECT_GE(1.05 / brightness(rgb_of({ink}, light)), 2.3) << ink;
        EXPECT_GE(brightness(rgb_of({ink}, dark)) / brightness(ground_of(dark)), 2.3) << ink;
    }
    const uint32_t yellow = rgb_of({2}, light); // is darkened, and is yellow still
    EXPECT_EQ(yellow >> 16, yellow >> 8 & 255);
    EXPECT_EQ(yellow & 255, 0u);
}

TEST(Svg, FramesWhatThereIs) {
    Box box;
    const Frame none(box);
    EXPECT_EQ(none.width(), 1000);
    EXPECT_EQ(none({0, 0}).x, 0);
    box.add(Point{5, 7});
    const Frame point(box);
    EXPECT_EQ(point.height(), 1000);
    EXPECT_EQ(point({5, 7}).y, 0);
    box.add(Point{5, 17});
    const Frame line(box);
    EXPECT_EQ(line.width(), 100); // it has some ground beside it
    EXPECT_NEAR(line({5, 17}).y, -480.769, 0.001);
    box.add(Point{25, 7});
    EXPECT_NEAR(Frame(box).height(), 519.231, 0.001);
    EXPECT_NEAR(Frame(box).scale(), 1000 / 20.8, 1e-9);
    const Box shown = Frame(box).shown();
    EXPECT_NEAR(shown.low.x, 4.6, 1e-9);
    EXPECT_NEAR(shown.low.y, 6.6, 1e-9);
    EXPECT_NEAR(shown.high.x, 25.4, 1e-9);
    EXPECT_NEAR(shown.high.y, 17.4, 1e-9);
}

TEST(Svg, WritesADocument) {
    SceneOf scene = square();
    scene.path({{0, 0}, {100, 0}, {100, 50}, {160, 90.5}}).ink = {1};
    scene.left_out = {{"ACAD_PROXY_ENTITY", 3}, {"<odd>", 1}};
    SvgOptions options;
    options.title = "a & b";
    EXPECT_EQ(scene.svg(options),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1000\" height=\"1000\" "
              "viewBox=\"-500 -500 1000 1000\" "
              "data-box=\"-19.230769230769226 -19.230769230769226 980.7692307692307 "
              "980.7692307692307\">\n"
              "<title>a &amp; b</title>\n"
              "<desc>Model space; left out: 1 &lt;odd&gt;, 3 ACAD_PROXY_ENTITY</desc>\n"
              "<rect x=\"-500\" y=\"-500\" width=\"1000\" height=\"1000\" fill=\"#ffffff\"/>\n"
              "<g fill=\"none\" fill-rule=\"evenodd\" stroke-linecap=\"round\" "
              "stroke-linejoin=\"round\">\n"
              "<path stroke=\"#ff0000\" stroke-width=\".5\" "
              "d=\"M-480.769 480.769h100v-50l60-40.5\"/>\n"
              "</g>\n</svg>\n");
}

TEST(Svg, JoinsWhatLooksTheSame) {
    SceneOf scene = square();
    scene.path({{0, 0}, {10, 10}});
    scene.path({{20, 0}, {30, 10}});
    scene.path({{20, 0}, {30, 10}}).weight = 1;
    scene.path({{0, 0}, {10, 0}, {10, 10}}, Shape::fill);
    scene.path({{0, 0}, {10, 0}, {10, 10}}, Shape::fill);
    EXPECT_EQ(scene.inner(),
              "<path stroke=\"#000000\" stroke-width=\".5\" "
              "d=\"M-480.769 480.769l10-10m10 10 10-10\"/>\n"
              "<path stroke=\"#000000\" stroke-width=\"2\" d=\"M-460.769 480.769l10-10\"/>\n"
              "<path fill=\"#000000\" d=\"M-480.769 480.769h10v-10z\"/>\n"
              "<path fill=\"#000000\" d=\"M-480.769 480.769h10v-10z\"/>\n");
}

TEST(Svg, DrawsAreasAsLinesThatWouldBeLost) {
    SceneOf scene = square();
    scene.path({{0, 0}, {50, 0}, {50, 0.1}, {0, 0.1}}, Shape::fill);
    scene.path({{60, 0}, {60, 50}});
    scene.path({{0, 0}, {50, 0}, {50, 2}, {0, 2}}, Shape::fill);
    EXPECT_EQ(scene.inner(), "<path stroke=\"#000000\" stroke-width=\".5\" "
                             "d=\"M-480.769 480.769h50v-.1h-50zm60 0v-50\"/>\n"
                             "<path fill=\"#000000\" d=\"M-480.769 480.769h50v-2h-50z\"/>\n");
}

// Both halves of a valve's sign count against each other.
TEST(Svg, FillsAreasWhoseBorderCrossesItself) {
    SceneOf scene = square();
    scene.path({{0, 0}, {40, 20}, {40, 0}, {0, 20}, {0, 0}}, Shape::fill);
    EXPECT_EQ(scene.inner(), "<path fill=\"#000000\" stroke=\"#000000\" stroke-width=\".5\" "
                             "d=\"M-480.769 480.769l40-20v20l-40-20v20z\"/>\n");
}

TEST(Svg, WritesCurvesAndDotsAndSkipsWhatNobodySees) {
    SceneOf scene = square();
    scene.curve({{0, 0}, {0, 10}, {10, 20}, {20, 20}, {30, 20}, {40, 10}, {40, 0}});
    scene.path({{50, 50}, {50, 50.0001}}).ink = {1};
    scene.path({{50, 50}, {50, 50.0001}, {50, 60}});
    EXPECT_EQ(scene.inner(), "<path stroke=\"#000000\" stroke-width=\".5\" d=\"M-480.769 480.769"
                             "c0-10 10-20 20-20 10 0 20 10 20 20\"/>\n"
                             "<path stroke=\"#ff0000\" stroke-width=\".5\" "
                             "d=\"M-430.769 430.769h0\"/>\n"
                             "<path stroke=\"#000000\" stroke-width=\".5\" "
                             "d=\"M-430.769 430.769v-10\"/>\n");
}

// A picture of few pixels needs neither all letters nor all points.
TEST(Svg, LeavesOutOfASmallPictureWhatItCannotShow) {
    SceneOf scene({-480.7692307692307, -480.7692307692307}, {480.7692307692307, 480.7692307692307});
    scene.path({{0, 0}, {0.4, 0.3}, {0.9, 0.4}, {3.4, 8.6}, {4.1, 8.9}});
    scene.text({.text = "low", .font = "", .place = {5, 0, 0, 5, 0, 0}});
    SvgOptions options;
    options.weight = 3;
    options.letters = 6;
    options.grid = 2;
    EXPECT_EQ(scene.inner(options),
              "<path stroke=\"#000000\" stroke-width=\"3\" d=\"M0 0l4-8\"/>\n");
}

TEST(Svg, GivesLinesTheirGapsWhereTheyCanBeSeen) {
    SceneOf scene = square();
    scene.dashes = {{}, {12, 3, 0, 3}, {0.4, 0.4}, {5000, 1}};
    for (uint32_t i = 0; i < 5; ++i) scene.path({{0, 0}, {10, 10}}).dashes = i;
    scene.path({{0, 0}, {1e12, 10}}).dashes = 1; // would have gaps without end
    const std::string out = scene.inner();
    EXPECT_NE(out.find("stroke-dasharray=\"12 3 .5 3\" stroke-linecap=\"butt\" d="), out.npos);
    EXPECT_EQ(out.find("dasharray"), out.rfind("dasharray")) << out;
}

// The field around a picture ends at 100,000 units. What crosses it keeps its direction.
TEST(Svg, KeepsFarLinesAndAreasWithinItsField) {
    SceneOf scene({-480.7692307692307, -480.7692307692307}, {480.7692307692307, 480.7692307692307});
    scene.path({{-1e9, -1e9}, {1e9, 1e9}});
    scene.path({{-1e9, -3e9}, {-1e9, 1e9}, {3e9, 1e9}}, Shape::fill); // the middle is inside
    scene.curve({{-1e7, 0}, {-1e7, 1e7}, {1e7, 1e7}, {1e7, 0}});
    EXPECT_EQ(scene.inner(),
              "<path stroke=\"#000000\" stroke-width=\".5\" "
              "d=\"M-100000 100000l200000-200000\"/>\n"
              "<path fill=\"#000000\" d=\"M-100000 100000v-200000h200000v200000h-200000z\"/>\n"
              "<path stroke=\"#000000\" stroke-width=\".5\" "
              "d=\"M-100000 0v-100000h100000 100000v100000\"/>\n");
}

TEST(Svg, WritesTextsInTheirPlace) {
    SceneOf scene = square();
    Text plain{.text = "A-1", .font = "txt.shx", .place = {7.29, 0, 0, 7.29, 10, 20}};
    scene.text(plain);
    Text turned = plain;
    turned.place = {0, 7.29, -7.29, 0, 10, 20};
    turned.font = "C:\\fonts\\ARIALBD.TTF";
    turned.anchor = Text::middle;
    turned.is_bold = turned.is_italic = turned.is_underlined = true;
    turned.ink = {1};
    scene.text(turned);
    Text wide = plain;
    wide.text = "HH";
    wide.width = 2 * 1504 / 729.0; // twice as wide as it comes
    wide.font = "O'Neill\" onload=\"x.ttf";
    scene.text(wide);
    Text low = plain;
    low.place = {0.001, 0, 0, 0.001, 0, 0};
    scene.text(low);
    EXPECT_EQ(scene.inner(),
              "<text x=\"-470.769\" y=\"460.769\" font-size=\"10\" font-family=\"sans-serif\" "
              "fill=\"#000000\">A-1</text>\n"
              "<text transform=\"matrix(0 -1 1 0 -470.769 460.769)\" font-size=\"10\" "
              "font-family=\"'Arial',sans-serif\" text-anchor=\"middle\" font-weight=\"bold\" "
              "font-style=\"italic\" text-decoration=\"underline\" fill=\"#ff0000\">A-1</text>\n"
              "<text transform=\"matrix(2 0 0 1 -470.769 460.769)\" font-size=\"10\" "
              "textLength=\"15.04\" lengthAdjust=\"spacingAndGlyphs\" "
              "font-family=\"'ONeill&quot; onload=&quot;x',sans-serif\" "
              "fill=\"#000000\">HH</text>\n");
}

TEST(Svg, LetsNoTextOutOfItsElement) {
    EXPECT_EQ(escaped("a]]>b<script>alert('x')</script>\"&amp;"),
              "a]]&gt;b&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&quot;&amp;amp;");
    EXPECT_EQ(escaped("a\tb\nc"), "a b c");
    const std::string mark = "\xef\xbf\xbd";
    EXPECT_EQ(escaped(std::string("a\0b\x1b\x7f", 5)), "a" + mark + "b" + mark + mark);
    EXPECT_EQ(escaped("\xc3\xa4\xe2\x82\xac\xf0\x9f\x93\x90"), "ä€📐");
    EXPECT_EQ(escaped("\xe4 \xc0\xaf"), mark + " " + mark + mark); // Latin-1, too long
    EXPECT_EQ(escaped("\xed\xa0\x80"), mark + mark + mark);        // half a pair
    EXPECT_EQ(escaped("\xef\xbf\xbf|\xc2\x85|\xe2\x82"), mark + "|" + mark + "|" + mark + mark);
}

} // namespace
