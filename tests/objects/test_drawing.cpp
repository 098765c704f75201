// Drawing files byte by byte, and what a reader makes of files that are not as written.
#include "drawing_fixture.hpp"

#include <chrono>
#include <string>
#include <vector>

using namespace zev;
using namespace std::string_literals;
using namespace test;

namespace {

constexpr uint32_t kCheck = 0xD2FD1072;

std::string key(uint64_t tag, uint64_t object) { return raw({tag, object}); }

using Sections = std::vector<std::pair<std::string, std::string>>; // name, body

std::string file(const Sections &sections, uint32_t major = 1, uint32_t minor = 1,
                 uint32_t check = kCheck) {
    std::string head = "VANE ZEV\0"s + be32(major) + be32(minor) + be32(check);
    head += be32(sections.size());
    size_t offset = head.size();
    for (auto &[name, body] : sections) offset += 8 + name.size();
    std::string bodies;
    for (auto &[name, body] : sections) {
        head += be32(name.size()) + name + be32(offset + bodies.size());
        bodies += body;
    }
    return head + bodies;
}

const std::string kId = "abcdefghijklmnopqrst";
const std::string kHeader = kId + key(1, minus(1)) + key(2, minus(2)) + key(3, minus(3));

Sections five() {
    return {{"DWXHEADER", kHeader + key(4, minus(4))},
            {"CLASSES", be32(1) + key(5, minus(101))},
            {"OBJECTS", be32(3) + key(1, 16) + key(1, 17) + key(2, 18)},
            {"THUMBNAIL", be32(5) + "thumb"},
            {"REFERENCE", be32(3) + "ref"}};
}

DrawingPtr decode(const std::string &bytes) { return read_drawing(stream_of(bytes).get()); }

struct DrawingTest : testing::Test {
    TempDir dir;
    std::u16string path = dir / u"a.dwx";
    void save(const std::string &bytes) { write(path, bytes); }
    DrawingPtr load(const std::string &bytes) {
        save(bytes);
        return DrawingPtr{zDrawingRead(path.c_str())};
    }
};

} // namespace

TEST_F(DrawingTest, BlocksAreStampedWithTheTableTag) {
    RepositoryPtr repository{zRepositoryInit((dir / u"copy").c_str(), false)};
    TablePtr table{zTableRand(repository.get())};
    ASSERT_OK(table);
    const uint32_t none = 0;
    DrawingPtr drawing{zDrawingNew(nullptr, &none)}, fresh{zDrawingNew(nullptr, nullptr)};
    ASSERT_OK(zDrawingWrite(fresh.get(), path.c_str()));
    EXPECT_TRUE(read(path) == file({{"DWXHEADER", std::string(84, 0)},
                                    {"CLASSES", be32(0)},
                                    {"OBJECTS", be32(0)},
                                    {"THUMBNAIL", be32(0)},
                                    {"REFERENCE", be32(0)}}));
    Drawing *d = drawing.get();
    Table *t = table.get();
    ASSERT_OK(zDrawingTableIdSet(d, reinterpret_cast<const Oid *>(kId.data())));

    ASSERT_OK(zDrawingHeaderSet(d, t) && zDrawingObjectAdd(d, t, 16));
    ASSERT_OK(zDrawingObjectAdd(d, t, 99) && zDrawingObjectAdd(d, t, 17));
    ASSERT_OK(zDrawingObjectAdd(d, t, 18) && zTableTagIncrement(t));
    ASSERT_OK(zDrawingSummarySet(d, t) && zDrawingObjectModify(d, 3, t, 18));
    ASSERT_OK(zTableTagIncrement(t) && zDrawingDSSet(d, t));
    ASSERT_OK(zTableTagIncrement(t) && zDrawingVbaProjectSet(d, t, "vba", 3));
    ASSERT_OK(zTableTagIncrement(t));
    ASSERT_OK(zDrawingObjectRemove(d, 1));
    ASSERT_OK(zDrawingClassAdd(d, t));
    ASSERT_OK(zDrawingSetThumbnail(d, 5, "thumb"));
    ASSERT_EQ(zStreamWrite(zDrawingReference(d, nullptr, nullptr), "ref", 3), 3u);

    ASSERT_OK(zDrawingWrite(d, path.c_str()));
    EXPECT_TRUE(read(path) == file(five())) << "always as version 1.1";
}

TEST_F(DrawingTest, VersionsAndCheckWords) {
    const struct {
        uint32_t major, minor, check;
        bool detected, read, vba;
    } kRows[] = {
        {1, 1, kCheck, true, true, true},    {1, 0, kCheck, true, true, false},
        {0, 5, kCheck, true, true, true},    {1, 2, kCheck, false, false, false},
        {2, 0, kCheck, false, false, false}, {1, 1, 0, true, true, true},
        {1, 1, 1, true, false, true},
    };
    for (auto &row : kRows) {
        SCOPED_TRACE(row.major * 10 + row.minor);
        Sections sections = five();
        if (!row.vba) sections[0].second = kHeader;
        DrawingPtr drawing = load(file(sections, row.major, row.minor, row.check));
        EXPECT_EQ(drawing != nullptr, row.read);
        EXPECT_EQ(zDrawingDetect(nullptr, path.c_str()), row.detected);
        if (!drawing) continue;
        EXPECT_EQ(zDrawingHasVba(drawing.get()), row.vba);
    }
}

TEST_F(DrawingTest, SectionsStandWhereAndHowTheyLike) {
    Sections mixed = five();
    std::swap(mixed[0], mixed[4]);
    mixed[4].first = "dwxHeader";
    mixed.push_back({"Objects", be32(1) + key(7, 19)}); // lists are joined
    mixed.push_back({"THUMBNAIL", be32(3) + "new"});    // single values: the last one
    mixed.push_back({"DWXHEADER", "ABCDEFGHIJKLMNOPQRST" + (kHeader + key(4, 4)).substr(20)});
    DrawingPtr drawing = load(file(mixed));
    ASSERT_TRUE(drawing);
    EXPECT_EQ(zDrawingObjectCount(drawing.get()), 4u);
    EXPECT_TRUE(same_key(*zDrawingObjectGetAt(drawing.get(), 2), {2, 18}));
    EXPECT_EQ(rest_of(zDrawingReference(drawing.get(), nullptr, nullptr)), "ref");
    uint32_t size = 0;
    Malloced<char> alone{static_cast<char *>(zDrawingFileThumbnail(path.c_str(), &size))};
    EXPECT_EQ(std::string(alone.get(), size), "new");
    EXPECT_EQ(rest_of(StreamPtr{zReadReferenceData(path.c_str(), nullptr, nullptr)}.get()), "ref");
    Oid id;
    ASSERT_TRUE(zDrawingDetect(&id, path.c_str()));
    EXPECT_EQ(memcmp(&id, "ABCDEFGHIJKLMNOPQRST", 20), 0);
    EXPECT_FALSE(zDrawingHasVba(drawing.get()));
}

// Damage ends with null: no crash, no long run, no memory beyond the file's size.
TEST_F(DrawingTest, DamageIsRefused) {
    const std::string whole = file(five());
    const auto start = std::chrono::steady_clock::now();
    for (size_t cut = 0; cut < whole.size(); ++cut)
        EXPECT_FALSE(decode(whole.substr(0, cut))) << "cut at " << cut;
    std::vector<size_t> counts{21}; // where counts, lengths and offsets stand
    for (auto &[name, body] : five()) {
        const size_t entry = whole.find(be32(name.size()) + name);
        counts.insert(counts.end(), {entry, entry + 4 + name.size()});
        if (name != "DWXHEADER") counts.push_back(whole.find(body));
    }
    for (size_t at : counts) {
        std::string bad = whole;
        bad.replace(at, 4, be32(0xFFFFFFFF));
        EXPECT_FALSE(decode(bad)) << "at " << at;
        StreamPtr forward = stream_of(bad); // the size is not known beforehand
        forward->size = nullptr;
        EXPECT_FALSE(read_drawing(forward.get())) << "at " << at;
    }
    for (auto &[name, body] :
         Sections{{"UNKNOWN", ""}, {std::string(257, 'n'), ""}, {"OBJECTS\0"s, be32(0)}}) {
        Sections sections = five();
        sections.push_back({name, body});
        EXPECT_FALSE(decode(file(sections))) << name;
    }
    // One list named again and again.
    std::string list = be32(60000);
    for (uint64_t i = 0; i < 60000; ++i) list += key(1, i);
    std::string many = "VANE ZEV\0"s + be32(1) + be32(1) + be32(kCheck) + be32(60);
    for (int i = 0; i < 60; ++i) many += be32(7) + "OBJECTS" + be32(25 + 60 * 15);
    EXPECT_FALSE(decode(many + list));
    EXPECT_TRUE(decode(file({{"OBJECTS", list}})));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(DrawingTest, IsToldByItsName) {
    const std::pair<const zwchar *, bool> kNames[] = {
        {u"a.dwx", true},         {u"b.DWX", true},        {u"a.dwx.bak", false},
        {u"dir.dwx/file", false}, {u"dir.dwx/.dwx", true}, {u"dwx", false}};
    for (auto &[name, drawing] : kNames) {
        write(dir / name, file(five()));
        zRaiseNotFound(nullptr);
        EXPECT_EQ(zDrawingDetect(nullptr, (dir / name).c_str()), drawing);
        EXPECT_EQ(zErrorClass(), 3) << "nothing raised";
    }
}
