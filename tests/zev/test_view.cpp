// zev view: pictures as files, as PNG and PDF by the renderer of the system, and what goes wrong.
#include "host.hpp"
#include "picture/raster.hpp"
#include "zev_program.hpp"

#include <filesystem>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// What the process finds programs in, put back at the end.
class Path {
  public:
    explicit Path(const std::string &directories) : before_(getenv("PATH")) {
        setenv("PATH", directories.c_str(), 1);
    }
    ~Path() { setenv("PATH", before_.c_str(), 1); }
    const std::string &before() const { return before_; }

  private:
    std::string before_;
};

struct View : CopyTest {
    void SetUp() override {
        CopyTest::SetUp();
        setenv("XDG_CACHE_HOME", (home + "/cache").c_str(), 1);
        draw(test_data("plan.dxf"));
        play("add .; commit -m one");
    }
    void TearDown() override { unsetenv("XDG_CACHE_HOME"); }

    // A program of our own before those of the system.
    std::string program(const std::string &name, const std::string &script) {
        const std::string path = home + "/programs/" + name;
        test::write(path, "#!/bin/sh\n" + script + "\n");
        fs::permissions(path, fs::perms::owner_all);
        return home + "/programs:" + getenv("PATH");
    }
};

// Whether Python's parser takes it; what it says otherwise.
std::string faults_of_xml(const std::string &file) {
    return test::run("python3 -c 'import sys, xml.dom.minidom as d; d.parse(sys.argv[1])' '" +
                     file + "' 2>&1");
}

TEST_F(View, WritesTheSameSvgForTheSameDrawing) {
    EXPECT_EQ(ok("view plan.dwx -o ../one.svg").substr(0, 12), "../one.svg: ");
    ok("view plan.dwx HEAD -o ../two.SVG");
    const std::string one = test::read(home + "/one.svg");
    EXPECT_EQ(one, test::read(home + "/two.SVG"));
    EXPECT_EQ(one, out("view plan.dwx -o -"));
    EXPECT_EQ(faults_of_xml(home + "/one.svg"), "");
    EXPECT_NE(one.find(">Kitchen</text>"), one.npos);
    EXPECT_NE(one, out("view plan.dwx -o - --dark"));

    draw(plan_with("20"));
    EXPECT_NE(one, out("view plan.dwx -o -"));
    EXPECT_EQ(one, out("view plan.dwx HEAD -o -"));
    const std::string record = out("--json view plan.dwx HEAD -o ../three.svg");
    EXPECT_EQ(field(record, u"revision") + field(record, u"format"), "HEADsvg");
    EXPECT_EQ(fs::file_size(home + "/three.svg"), one.size());
    EXPECT_EQ(field(record, u"bytes"), std::to_string(one.size()));
    EXPECT_EQ(field(record, u"shown"), "4");
}

TEST_F(View, ShowsDxfFilesAnywhere) {
    const std::string in_copy = out("view plan.dwx -o -");
    test::write(home + "/plan.dxf", test_data("plan.dxf"));
    const std::string alone = zev(home, "view plan.dxf -o -").out;
    EXPECT_EQ(alone.substr(alone.find("<desc>")), in_copy.substr(in_copy.find("<desc>")));
    EXPECT_EQ(zev(home, "view none.dxf -o - 2>/dev/null").code, 3);
    EXPECT_EQ(zev(home, "view plan.dxf HEAD -o - 2>/dev/null").code, 2);
    test::write(home + "/bad.dxf", "no drawing");
    EXPECT_EQ(zev(home, "view bad.dxf -o bad.svg 2>/dev/null").code, 1);
    EXPECT_FALSE(fs::exists(home + "/bad.svg"));
}

// Single precision would have put both lines into one place.
TEST_F(View, TellsPlacesFarAwayApart) {
    std::string file = "0\nSECTION\n2\nENTITIES\n";
    for (const char *y : {"7000000.1", "7000000.2", "7000000.35"})
        file += std::string("0\nLINE\n10\n-25000000.5\n20\n") + y + "\n11\n-25000000.0\n21\n" + y +
                "\n";
    test::write(home + "/far.dxf", file + "0\nENDSEC\n0\nEOF\n");
    const std::string svg = zev(home, "view far.dxf -o -").out;
    EXPECT_NE(svg.find("d=\"M-480.769 240.385h961.538m-961.538-192.308h961.538"
                       "m-961.538-288.462h961.538\""),
              svg.npos)
        << svg;
}

TEST_F(View, TellsThatPaperSpaceIsEmpty) {
    const Outcome outcome = both("view plan.dwx -o ../paper.svg --paper");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.out.find("nothing is to be seen in its paper space"), std::string::npos);
    EXPECT_EQ(both("view plan.dwx -o ../model.svg").out.find("warning"), std::string::npos);
}

TEST_F(View, ReplacesNoFileUnasked) {
    ok("view plan.dwx -o plan.svg");
    write("plan.svg", "mine");
    EXPECT_EQ(code("view plan.dwx -o plan.svg"), 6);
    EXPECT_EQ(content("plan.svg"), "mine");
    ok("view plan.dwx -o plan.svg --force");
    EXPECT_EQ(content("plan.svg").substr(0, 5), "<?xml");
    ok("trash restore plan.svg --answer 1");
    EXPECT_EQ(content("plan.svg"), "mine");
    EXPECT_EQ(code("view plan.dwx -o plan.gif"), 2);
    EXPECT_EQ(code("view plan.dwx -o .git/plan.svg"), 2);
    EXPECT_EQ(code("view plan.dwx -o new.svg --size 100"), 2);
    EXPECT_EQ(code("view plan.dwx -o new.png --size 100000000"), 2);
    EXPECT_EQ(code("view none.dwx -o new.svg"), 3);
    EXPECT_EQ(code("view plan.dwx nobody -o new.svg"), 3);
    EXPECT_EQ(code("--json view plan.dwx -o -"), 2);
    EXPECT_FALSE(there("new.svg"));
}

TEST_F(View, MakesPngAndPdf) {
    if (test::run("command -v rsvg-convert").empty()) GTEST_SKIP() << "no renderer here";
    ok("view plan.dwx -o ../plan.png --size 250");
    ok("view plan.dwx -o ../again.png --size 250");
    const std::string png = test::read(home + "/plan.png");
    EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(png.substr(16, 4), std::string("\0\0\0\xfa", 4)); // its width
    EXPECT_EQ(png, test::read(home + "/again.png"));
    ok("view plan.dwx -o ../plan.pdf");
    ok("view plan.dwx -o ../again.pdf");
    const std::string pdf = test::read(home + "/plan.pdf");
    EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
    EXPECT_EQ(pdf, test::read(home + "/again.pdf"));
}

TEST_F(View, SaysWhatIsWrongWithTheRenderer) {
    const struct {
        const char *script, *told;
    } kCases[] = {{"cat >/dev/null; echo 'no such font' >&2; exit 1", "no such font"},
                  {"exec <&-; kill -9 $$", "Killed"},
                  {"exit 0", "no output"}};
    for (const auto &[script, told] : kCases) {
        const Path path(program("rsvg-convert", script));
        const Outcome outcome = both("view plan.dwx -o ../plan.png");
        EXPECT_EQ(outcome.code, 1) << outcome.out;
        EXPECT_NE(outcome.out.find(std::string("rsvg-convert failed: ") + told), std::string::npos)
            << outcome.out;
    }
    EXPECT_EQ(sh("PATH=/none ZEV_AUTHOR=Ada '" + program_directory() +
                 "/zev' view plan.dwx -o ../plan.png || echo $?"),
              "zev: rsvg-convert is not installed; write .svg, or install librsvg\n3\n");
    for (const auto &entry : fs::directory_iterator(home))
        EXPECT_TRUE(entry.path().extension() != ".png" && entry.path().extension() != ".tmp");
}

TEST_F(View, SaysWhatIsWrongWithTheRendererOfChanges) {
    draw(plan_with("20"));
    const Path path(program("rsvg-convert", "exec <&-; exit 1"));
    for (const char *picture : {"../p.png", "../p.pdf"}) {
        const Outcome outcome = both(std::string("diff plan.dwx --svg ") + picture);
        EXPECT_EQ(outcome.code, 1) << outcome.out;
        EXPECT_NE(outcome.out.find("rsvg-convert failed: no output"), std::string::npos)
            << outcome.out;
    }
    program("rsvg-convert", "cat >/dev/null; echo half; exit 1"); // and nobody waits for children
    EXPECT_EQ(sh("trap '' CHLD; ZEV_AUTHOR=Ada '" + program_directory() +
                 "/zev' view plan.dwx -o ../p.png 2>/dev/null || echo $?"),
              "1\n");
    program("rsvg-convert", "echo \"$*\"");
    ok("diff plan.dwx --svg ../s.png --size 300");
    EXPECT_NE(test::read(home + "/s.png").find("--width=300 --height=300"), std::string::npos);
    EXPECT_EQ(code("diff plan.dwx --svg ../s.svg --size 300"), 2);
    program("rsvg-convert", "exec cat");
    EXPECT_EQ(code("diff plan.dwx --svg ../p.png"), 0);
    EXPECT_EQ(test::read(home + "/p.png"), out("diff plan.dwx --svg -"));
    for (const auto &entry : fs::directory_iterator(home))
        EXPECT_TRUE(entry.path().extension() != ".pdf" && entry.path().extension() != ".tmp");
}

// More than pipes hold is on its way both to the renderer and from it.
TEST_F(View, FeedsTheRendererWhileItReads) {
    const Path path(program("rsvg-convert", "exec cat"));
    const std::string piece(100'000, 'x');
    uint64_t size = 0;
    const auto svg = [&](const picture::Write &write) {
        for (int i = 0; i < 50; ++i) write(piece);
    };
    picture::rasterize(svg, {}, [&](std::string_view bytes) { size += bytes.size(); });
    EXPECT_EQ(size, 5'000'000u);
    EXPECT_THROW(picture::rasterize(svg, {}, [](std::string_view) { throw std::bad_alloc(); }),
                 std::bad_alloc);
    const auto failing = [](const picture::Write &) { throw std::bad_alloc(); };
    EXPECT_THROW(picture::rasterize(failing, {}, [](std::string_view) {}), std::bad_alloc);
}

TEST_F(View, EndsARendererThatHangs) {
    const std::string pid = home + "/pid";
    const Path path(program("rsvg-convert", "sleep 600 & echo $! >'" + pid + "'; wait"));
    const auto begun = std::chrono::steady_clock::now();
    const auto svg = [](const picture::Write &write) {
        for (int i = 0; i < 100; ++i) write(std::string(10'000, 'x'));
    };
    picture::Raster raster;
    raster.patience = 1s;
    EXPECT_THROW(picture::rasterize(svg, raster, [](std::string_view) {}), host::Failed);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 60s);
    const std::string state = test::run("cat /proc/$(cat '" + pid + "')/stat 2>/dev/null || true");
    EXPECT_TRUE(state.empty() || state.find(") Z ") != state.npos) << state; // with what it started
}

// The viewer is a pipe's other end here, so that the test waits for what it was given.
TEST_F(View, OpensTheDesktopsViewer) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    const std::string told = ok("view plan.dwx HEAD"), cached = told.substr(0, told.find(": "));
    EXPECT_EQ(cached.find(home + "/cache/zev/plan-"), 0u) << told;
    EXPECT_TRUE(cached.ends_with("@HEAD.svg")) << told;
    EXPECT_EQ(test::read(cached), out("view plan.dwx -o -"));
    EXPECT_EQ(fs::status(home + "/cache/zev").permissions(), fs::perms::owner_all);
    const std::string given = home + "/given";
    ASSERT_EQ(mkfifo(given.c_str(), 0600), 0);
    const Path path(program("xdg-open", "echo \"$1\" >'" + given + "'"));
    setenv("WAYLAND_DISPLAY", "wayland-9", 1);
    ok("view plan.dwx HEAD");
    EXPECT_EQ(test::run("timeout 60 cat '" + given + "'"), cached + "\n");
    unsetenv("WAYLAND_DISPLAY");
    EXPECT_EQ(lines(sh("ls ../cache/zev")).size(), 1u);
    ok("mkdir other");
    draw(plan_with("20"), "other/plan.dwx"); // whose viewer may be open beside the first one's
    ok("view other/plan.dwx");
    ok("view plan.dwx");
    EXPECT_EQ(lines(sh("ls ../cache/zev")).size(), 3u);
}

TEST_F(View, KeepsItsPicturesInADirectoryOfItsOwn) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    fs::create_directories(home + "/cache");
    fs::create_directory_symlink(home, home + "/cache/zev");
    const Outcome outcome = both("view plan.dwx");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.out.find("is no directory of yours"), std::string::npos) << outcome.out;
    fs::remove(home + "/cache/zev");
    fs::create_directory(home + "/cache/zev");
    fs::permissions(home + "/cache/zev", fs::perms::all);
    ok("view plan.dwx");
    EXPECT_EQ(fs::status(home + "/cache/zev").permissions(), fs::perms::owner_all);
}

// Windows of a desktop that open one drawing at once: each finds the picture, none throws it away.
TEST_F(View, MakesAPictureOfTheCacheAtOnceWithOthers) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    const std::string view = "'" + program_directory() + "/zev' view plan.dwx >>../told 2>&1 &";
    sh("for i in 1 2 3 4 5 6; do " + view + view + view + " wait; done");
    EXPECT_EQ(lines(test::read(home + "/told")).size(), 18u);
    EXPECT_EQ(test::read(home + "/told").find("zev: "), std::string::npos);
    size_t pictures = 0;
    for (const auto &entry : fs::recursive_directory_iterator(home))
        pictures += entry.path().filename().string().starts_with("plan-");
    EXPECT_EQ(pictures, 1u); // and none in the trash
    const std::string longest = "벽" + std::string(240, 'x');
    draw(plan_with("20"), longest + ".dwx");
    ok("view " + longest + ".dwx");
}

TEST_F(View, SaysWhyAFileCannotBeWritten) {
    fs::create_symlink("/dev/full", home + "/full.svg");
    const Outcome outcome = both("view plan.dwx -o ../full.svg --force");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.out.find("can't be written: No space left"), std::string::npos)
        << outcome.out;
    // A process that was killed had this number.
    sh("touch ../.zev-$$.tmp; exec '" + program_directory() + "/zev' view plan.dwx -o ../a.svg");
    EXPECT_TRUE(fs::exists(home + "/a.svg"));
}

TEST_F(View, GivesTheDesktopTheSmallPicture) {
    const auto drawing =
        test::guard(zDrawingRead(test::wide(root + "/plan.dwx").c_str()), zDrawingFree);
    ASSERT_OK(zDrawingSetThumbnail(drawing.get(), 0, nullptr));
    ASSERT_OK(zDrawingWrite(drawing.get(), test::wide(home + "/bare.dwx").c_str()));
    EXPECT_EQ(zev(home, "view --thumbnail bare.dwx -o bare.png 2>/dev/null").code, 3);
    EXPECT_FALSE(fs::exists(home + "/bare.png"));
    ASSERT_OK(zDrawingSetThumbnail(drawing.get(), 5, "\0PNG!"));
    ASSERT_OK(zDrawingWrite(drawing.get(), test::wide(home + "/small.dwx").c_str()));
    test::write(home + "/made.png", ""); // by who asks
    EXPECT_EQ(zev(home, "view --thumbnail small.dwx -o made.png").out, "made.png: 5 Bytes\n");
    EXPECT_EQ(test::read(home + "/made.png"), std::string("\0PNG!", 5));
    const std::string record = zev(home, "--json view --thumbnail small.dwx -o told.png").out;
    EXPECT_EQ(field(record, u"file") + field(record, u"format"), "told.pngpng");
    EXPECT_EQ(zev(home, "--json view --thumbnail small.dwx -o - 2>/dev/null").code, 2);
    EXPECT_EQ(zev(home, "view --thumbnail small.dwx -o - --dark 2>/dev/null").code, 2);
    EXPECT_EQ(zev(home, "view --thumbnail small.dwx -o made.png 2>/dev/null").code, 6);
    EXPECT_EQ(zev(home, "view --thumbnail none.dwx -o none.png 2>/dev/null").code, 3);
}

const std::string kAsPng = "printf '\\211PNG\\r\\n\\032\\n'; ";

// A renderer of our own tells how often it was asked.
TEST_F(View, ImportsKeepASmallPictureOfWhatChanged) {
    const std::string runs = home + "/runs";
    const Path path(program("rsvg-convert", "echo \"$*\" >>'" + runs + "'; " + kAsPng + "md5sum"));
    const auto small = [&](const std::string &drawing) {
        return out("view --thumbnail " + drawing + " -o - 2>&1");
    };
    draw(plan_with("20"), "one.dwx");
    draw(plan_with("20"), "two.dwx");
    const std::string first = small("one.dwx");
    EXPECT_EQ(first.substr(40), "  -\n");
    EXPECT_EQ(small("two.dwx"), first);
    draw(plan_with("20"), "one.dwx");
    EXPECT_EQ(lines(test::read(runs)).size(), 2u); // nothing had changed
    EXPECT_NE(lines(test::read(runs))[0].find("--width=256 --height=256"), std::string::npos);
    draw(plan_with("21"), "one.dwx");
    EXPECT_NE(small("one.dwx"), first);
    // Nor where all that differs is that another program's bytes are not those that were kept.
    const std::string other = test::run("sed 's/$/\\r/' '" + home + "/in.dxf'");
    draw(other, "one.dwx");
    const size_t before = lines(test::read(runs)).size();
    draw(other, "one.dwx");
    EXPECT_EQ(lines(test::read(runs)).size(), before);

    ok("config zev.thumbnails off");
    draw(plan_with("22"), "none.dwx");
    EXPECT_EQ(code("view --thumbnail none.dwx -o -"), 3);
    draw(plan_with("24"), "two.dwx"); // had one, of what is no more
    EXPECT_EQ(code("view --thumbnail two.dwx -o -"), 3);
    ok("config zev.thumbnails sometimes");
    EXPECT_EQ(code("import ../in.dxf none.dwx"), 2);
    ok("config --unset zev.thumbnails");
    for (const char *script : {"md5sum", "yes", "exit 1"}) {
        program("rsvg-convert", script);
        fs::remove(root + "/failed.dwx");
        EXPECT_EQ(ok("import ../in.dxf failed.dwx").find("warning"), std::string::npos) << script;
        EXPECT_EQ(code("view --thumbnail failed.dwx -o -"), 3) << script;
    }
    draw(plan_with("23"), "one.dwx"); // its picture would be of the past
    EXPECT_EQ(code("view --thumbnail one.dwx -o -"), 3);
}

// Those of several files are made ahead; each drawing has its own, also behind one that fails.
TEST_F(View, ImportsOfAFolderKeepTheirOwnSmallPictures) {
    const Path path(program("rsvg-convert", kAsPng + "md5sum"));
    std::vector<std::string> alone;
    for (int i = 0; i < 9; ++i) {
        const std::string number = std::to_string(i), plan = plan_with(std::to_string(20 + 3 * i));
        test::write(home + "/plans/p" + number + ".dxf", i == 4 ? "no DXF" : plan);
        draw(plan, "alone.dwx");
        alone.push_back(out("view --thumbnail alone.dwx -o -"));
    }
    EXPECT_EQ(code("import ../plans many"), 1);
    for (int i = 0; i < 9; ++i)
        if (i != 4) {
            EXPECT_EQ(out("view --thumbnail many/p" + std::to_string(i) + ".dwx -o -"),
                      alone[static_cast<size_t>(i)]);
        }
    EXPECT_NE(alone[0], alone[1]);
}

// Who breaks an import off doesn't wait for its picture, and has no drawing of it.
TEST_F(View, ABreakEndsTheSmallPicture) {
    const auto breaking = [&](const std::string &once) { // a second break would end it at once
        return program("rsvg-convert",
                       "mkdir '" + home + "/" + once + "' && kill -INT $PPID; exec sleep 600");
    };
    const Path path(breaking("one"));
    test::write(home + "/plans/a.dxf", plan_with("20"));
    test::write(home + "/plans/b.dxf", plan_with("21"));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(code("import ../plans/a.dxf one.dwx"), 6);
    breaking("two");
    EXPECT_EQ(code("import ../plans many"), 6);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 15s); // it has patience for 20
    EXPECT_FALSE(there("one.dwx") || there("many/a.dwx"));
    EXPECT_EQ(ok("status").find(".dwx"), std::string::npos);
}

std::string line_at(int x, int y, int colour) {
    return "0\nLINE\n8\n0\n62\n" + std::to_string(colour) + "\n10\n" + std::to_string(x) +
           "\n20\n" + std::to_string(y) + "\n11\n" + std::to_string(x + 8) + "\n21\n" +
           std::to_string(y + 3) + "\n";
}

std::string drawing_of(const std::string &blocks, const std::string &entities) {
    return "0\nSECTION\n2\nBLOCKS\n" + blocks + "0\nENDSEC\n0\nSECTION\n2\nENTITIES\n" + entities +
           "0\nENDSEC\n0\nEOF\n";
}

// What came last is red, and is in the picture.
TEST_F(View, ShowsSomeOfEverythingInASmallPicture) {
    // So that the picture is its SVG, behind what a PNG begins with.
    const Path path(program("rsvg-convert", kAsPng + "cat"));
    const auto small = [&](const std::string &drawing, const std::string &name) {
        draw(drawing, name);
        return out("view --thumbnail " + name + " -o -");
    };
    std::string lines, inserts, dense = "0\nLWPOLYLINE\n8\n0\n62\n5\n90\n6000\n";
    for (int i = 0; i < 9000; ++i) lines += line_at(i % 90 * 10, i / 90 * 10, i < 8000 ? 7 : 1);
    EXPECT_NE(small(drawing_of("", lines), "lines.dwx").find("#ff0000"), std::string::npos);

    std::string block = "0\nBLOCK\n2\nB\n10\n0\n20\n0\n";
    for (int i = 0; i < 400; ++i) block += line_at(i % 20, i / 20, 0);
    for (int i = 0; i < 3000; ++i)
        inserts += "0\nINSERT\n8\n0\n62\n" + std::string(i < 2500 ? "7" : "1") + "\n2\nB\n10\n" +
                   std::to_string(i % 50 * 30) + "\n20\n" + std::to_string(i / 50 * 30) + "\n";
    EXPECT_NE(small(drawing_of(block + "0\nENDBLK\n", inserts), "inserts.dwx").find("#ff0000"),
              std::string::npos);

    // One that would keep the renderer busy for seconds hides nothing else.
    for (int i = 0; i < 6000; ++i)
        dense += "10\n" + std::to_string(i % 2 * 6000) + "\n20\n" + std::to_string(i) + "\n";
    const std::string svg = small(drawing_of("", dense + line_at(0, 0, 1)), "dense.dwx");
    EXPECT_NE(svg.find("#ff0000"), std::string::npos);
    EXPECT_EQ(svg.find("#0000ff"), std::string::npos);
}

// As an import of the result would make it; a merge without one is as good.
TEST_F(View, MergesKeepASmallPictureOfTheResult) {
    const Path path(program("rsvg-convert", kAsPng + "md5sum"));
    std::string renamed = test_data("plan.dxf");
    renamed.replace(renamed.find("Kitchen"), 7, "Pantry");
    ok("switch --create side");
    draw(renamed);
    play("commit -m theirs plan.dwx; switch master");
    draw(plan_with("20"));
    play("commit -m ours plan.dwx; branch again; branch third; merge side; export plan.dwx "
         "../merged.dxf");
    ok("import ../merged.dxf alone.dwx");
    const std::string small = out("view --thumbnail plan.dwx -o -");
    EXPECT_EQ(small.size(), 8u + 36);
    EXPECT_EQ(small, out("view --thumbnail alone.dwx -o -"));

    program("rsvg-convert", "exit 1");
    play("add .; commit -m alone; switch again; merge side");
    EXPECT_EQ(code("view --thumbnail plan.dwx -o -"), 3);
    play("switch third; config zev.thumbnails odd; merge side");
}

TEST_F(View, DrawsTheSmallPictureAsPng) {
    if (test::run("command -v rsvg-convert").empty()) GTEST_SKIP() << "no renderer here";
    draw(plan_with("20"), "one.dwx");
    const std::string png = out("view --thumbnail one.dwx -o -");
    EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(png.substr(16, 4), std::string("\0\0\1\0", 4));
}

} // namespace
