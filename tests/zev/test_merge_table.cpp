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
