// Merge in a repository: rows and manifest as they are written, and what a failure leaves.
#include "dxf/drawing.hpp"
#include "dxf/merge.hpp"
#include "dxf/rows.hpp"
#include "merge_edits.hpp"
#include "support.hpp"
#include "zev_program.hpp"

#include <algorithm>

namespace {

namespace fs = std::filesystem;

struct MergeTable : testing::Test {
    test::TempDir dir;
    host::OwnedRepository repository{zRepositoryInit((dir / u"copy").c_str(), false)};
    std::u16string drawing = dir / u"copy/a.dwx";
    std::string base, ours, theirs; // bytes of manifests

    std::string import(const std::string &text) {
        test::write(dir.path() / "in.dxf", text);
        imported = dxf::import_drawing({repository.get(), dir / u"in.dxf", "in.dxf", drawing,
                                        "a.dwx", nullptr, zNotifyNull()});
        return test::read(fs::path(drawing));
    }
    std::string exported(const std::string &manifest) {
        test::write(dir.path() / "out.dwx", manifest);
        const host::OwnedDrawing read(host::check(zDrawingRead((dir / u"out.dwx").c_str())));
        std::string out;
        dxf::export_drawing(repository.get(), read.get(), "a", zNotifyNull(),
                            [&](std::string_view bytes) { out += bytes; });
        return out;
    }
    // What a drawing application puts into the work file, under a tag of its own; gives its bytes.
    std::string put(const std::string &project, const std::string &reference) {
        const host::OwnedDrawing work(host::check(zDrawingRead(drawing.c_str())));
        const host::OwnedTable table =
            dxf::open_table(repository.get(), zDrawingTableId(work.get()), "a");
        host::check(zTableTagIncrement(table.get()));
        zDrawingVbaProjectSet(work.get(), table.get(), project.data(), project.size());
        Stream *stream = host::check(zDrawingReference(work.get(), nullptr, nullptr));
        EXPECT_EQ(zStreamWrite(stream, reference.data(), reference.size()), reference.size());
        host::check(zDrawingWrite(work.get(), drawing.c_str()));
        return test::read(fs::path(drawing));
    }
    // "PROJECT REFERENCE" of a drawing.
    std::string besides(const std::string &bytes) {
        const dxf::Manifest manifest = read(bytes);
        std::string project;
        const host::OwnedTable table = dxf::open_table(repository.get(), &manifest.table, "a");
        if (manifest.vba != dxf::RawKey{})
            dxf::read_rows(table.get(), {dxf::turned(manifest.vba)}, zNotifyNull(),
                           [&](size_t, std::string_view row) { project = row; });
        return project + " " + std::string(manifest.reference);
    }
    // Ours stays as the work file.
    void prepare(const std::string &sheet, uint64_t seed) {
        const auto edited = [&](uint64_t from) {
            merge_test::Random random(from);
            merge_test::Sheet edit(sheet);
            for (int n = 0; n < 3; ++n) edit.edit(random);
            return edit.text();
        };
        base = import(sheet);
        theirs = import(edited(2 * seed));
        test::write(fs::path(drawing), base);
        ours = import(edited(2 * seed + 1));
    }
    dxf::Manifest read(const std::string &bytes) { return *dxf::Manifest::read(bytes); }

    template <class F> void with_request(F work) {
        const dxf::Manifest b = read(base), o = read(ours), t = read(theirs);
        work(dxf::MergeRequest{repository.get(), &b, &o, &t, "a.dwx", zNotifyNull()});
    }
    dxf::ImportResult imported;
};

TEST_F(MergeTable, WritesWhatAnImportOfTheResultWouldWrite) {
    int merged = 0, renumbered = 0;
    const std::string sheet = test_data("plan.dxf");
    for (uint64_t seed = 0; seed < 10 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        prepare(sheet, seed);
        const std::string texts[] = {exported(base), exported(ours), exported(theirs)};
        with_request([&](const dxf::MergeRequest &request) {
            const dxf::Merge merge = dxf::merge_drawings(request);
            if (!merge.conflicts.empty()) {
                EXPECT_THROW(dxf::write_merge(request, merge, {drawing, "a.dwx"}), host::Failed);
                EXPECT_EQ(test::read(fs::path(drawing)), ours);
                return;
            }
            ++merged, renumbered += merge.renumbered != 0;
            bool is_kept = false;
            dxf::write_merge(request, merge,
                             {.drawing = drawing, .path = "a.dwx", .keep_former = [&] {
                                  is_kept = test::read(fs::path(drawing)) == ours;
                              }});
            EXPECT_TRUE(is_kept);
            const std::string text = exported(test::read(fs::path(drawing)));
            import(text);
            EXPECT_FALSE(imported.written);
            EXPECT_EQ(imported.unchanged, imported.objects);
        });
        // No row that a version names was written over.
        EXPECT_EQ(exported(base), texts[0]);
        EXPECT_EQ(exported(ours), texts[1]);
        EXPECT_EQ(exported(theirs), texts[2]);
    }
    EXPECT_GT(merged, 2);
    EXPECT_GT(renumbered, 0);
}

std::string plan_with_line(const std::string &handle, const std::string &x) {
    std::string plan = test_data("plan.dxf");
    const size_t end = plan.find("  0\nENDSEC", plan.find("ENTITIES"));
    return plan.insert(end, "  0\nLINE\n  5\n" + handle + "\n  8\n0\n 10\n" + x + "\n");
}

TEST_F(MergeTable, CarriesWhatOursHasBesides) {
    base = import(test_data("plan.dxf"));
    theirs = import(plan_with_line("F1", "1"));
    test::write(fs::path(drawing), base);
    import(plan_with_line("F1", "2"));
    {
        const host::OwnedDrawing work(zDrawingRead(drawing.c_str()));
        ASSERT_TRUE(zDrawingSetThumbnail(work.get(), 4, "\x89PNG"));
        Stream *reference = zDrawingReference(work.get(), nullptr, nullptr);
        ASSERT_EQ(zStreamWrite(reference, "kept", 4), 4u);
        ASSERT_TRUE(zDrawingWrite(work.get(), drawing.c_str()));
    }
    ours = test::read(fs::path(drawing));
    with_request([&](const dxf::MergeRequest &request) {
        const dxf::Merge merge = dxf::merge_drawings(request);
        EXPECT_EQ(merge.renumbered, 1u);
        EXPECT_EQ(merge.added, 1u);
        // A copy that is further on may have given higher tags, and a server gives them, too.
        const uint64_t asked = uint64_t{1} << 62;
        dxf::MergeTarget target{.drawing = drawing, .path = "a.dwx"};
        target.ask_tag = [&](Table *table) { return zTableTagSet(table, asked); };
        dxf::write_merge(request, merge, target);
        const host::OwnedDrawing written(zDrawingRead(drawing.c_str()));
        uint32_t size = 1; // of a picture of what is no more
        zDrawingThumbnail(written.get(), &size);
        EXPECT_EQ(size, 0u);
        char block[8];
        EXPECT_EQ(zStreamRead(zDrawingReference(written.get(), nullptr, nullptr), block, 8), 4u);
        EXPECT_EQ(zDrawingSummary(written.get())->tag, asked);
    });
    EXPECT_NE(exported(test::read(fs::path(drawing))).find("LINE\n  5\nF2\n  8\n0\n 10\n1\n"),
              std::string::npos);
}

// A project and reference data are taken as a whole, from the side that changed them.
TEST_F(MergeTable, WhatADrawingHasBesidesFollowsTheThreeWayRule) {
    const std::string sheet = test_data("plan.dxf");
    const struct {
        const char *base[2], *ours[2], *theirs[2], *merged;
    } cases[] = {
        {{"", "r0"}, {"", "r0"}, {"p1", "r1"}, "p1 r1"},     // theirs alone
        {{"p0", "r0"}, {"p1", "r1"}, {"p0", "r0"}, "p1 r1"}, // ours alone
        {{"p0", "r0"}, {"p0", "r1"}, {"", "r0"}, " r1"},     // one each
        {{"p0", "r0"}, {"p1", "r1"}, {"p1", "r1"}, "p1 r1"}, // both the same
        {{"p0", "r0"}, {"p1", "r0"}, {"p2", "r0"}, nullptr}, // not the same
        {{"p0", "r0"}, {"", "r0"}, {"p2", "r0"}, nullptr},   // deleted against changed
        {{"", "r0"}, {"", "r1"}, {"", "r2"}, nullptr},
    };
    for (const bool is_edited : {true, false}) // or one side's objects are as they were
        for (const auto &one : cases) {
            SCOPED_TRACE(std::string(one.merged ? one.merged : "refused") + one.ours[0]);
            fs::remove(fs::path(drawing));
            import(sheet);
            base = put(one.base[0], one.base[1]);
            if (is_edited) import(plan_with_line("F1", "1"));
            theirs = put(one.theirs[0], one.theirs[1]);
            test::write(fs::path(drawing), base);
            import(plan_with_line("F2", "2"));
            ours = put(one.ours[0], one.ours[1]);
            with_request([&](const dxf::MergeRequest &request) {
                if (!one.merged) {
                    EXPECT_THROW(dxf::merge_drawings(request), host::Failed);
                    return;
                }
                const dxf::Merge merge = dxf::merge_drawings(request);
                EXPECT_EQ(merge.is_ours, !is_edited && besides(ours) == one.merged);
                dxf::write_merge(request, merge, {drawing, "a.dwx"});
                EXPECT_EQ(besides(test::read(fs::path(drawing))), one.merged);
            });
        }
}

TEST_F(MergeTable, BringsRowsFirstAndFailsWithoutThem) {
    base = import(test_data("plan.dxf"));
    theirs = import(plan_with_line("F1", "1"));
    test::write(fs::path(drawing), base);
    ours = import(plan_with_line("F2", "2"));
    with_request([&](dxf::MergeRequest request) {
        size_t calls = 0, fetched = 0;
        request.fetch_rows = [&](const Oid &, const std::vector<DrawingKey> &keys) {
            ++calls, fetched = keys.size();
            EXPECT_TRUE(std::ranges::is_sorted(keys, dxf::before));
        };
        EXPECT_TRUE(dxf::merge_drawings(request).conflicts.empty());
        EXPECT_EQ(calls, 1u);
        EXPECT_LT(fetched, 13u); // two lines, and three times header, summary and layout
    });
    {
        const host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        const host::OwnedTable table =
            dxf::open_table(repository.get(), zDrawingTableId(read.get()), "a");
        uint8_t key[16] = {};
        const dxf::RawKey raw = dxf::raw(*zDrawingSummary(read.get()));
        memcpy(key, &raw, sizeof key);
        ASSERT_TRUE(zTableDel(table.get(), key, sizeof key));
    }
    with_request([&](const dxf::MergeRequest &request) {
        EXPECT_THROW(dxf::merge_drawings(request), host::Failed);
        EXPECT_EQ(test::read(fs::path(drawing)), ours);
    });
    fs::remove(fs::path(drawing));
    const std::string foreign = import(test_data("plan.dxf"));
    base = foreign;
    with_request([&](const dxf::MergeRequest &request) {
        EXPECT_THROW(dxf::merge_drawings(request), host::Failed);
    });
}

} // namespace
