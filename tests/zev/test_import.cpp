// Import into a drawing and its table: which keys stay, which rows are written, what a failure
// leaves behind.
#include "dxf/drawing.hpp"
#include "dxf/layout.hpp"
#include "dxf/reader.hpp"
#include "dxf/rows.hpp"
#include "import_fixture.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

TEST_F(Import, KeepsKeysOfWhatIsTheSame) {
    constexpr uint64_t own = dxf::kFirstNumber, layout = static_cast<uint64_t>(-3);
    import(
        entities(line("A", "1") + line("B", "2") + line("A", "3") + line("", "4") + line("", "4")));
    EXPECT_EQ(keys(), (std::map<uint64_t, uint64_t>{
                          {0xA, 1}, {0xB, 1}, {own, 1}, {own + 1, 1}, {own + 2, 1}, {layout, 1}}));

    // B changes, a record without handle goes, another one comes: the number of objects and with
    // it the layout are the same.
    auto result = import(
        entities(line("", "5") + line("B", "9") + line("A", "1") + line("A", "3") + line("", "4")));
    const uint64_t tag = zTableTagGet(table().get());
    EXPECT_GT(tag, 1u);
    EXPECT_EQ(keys(),
              (std::map<uint64_t, uint64_t>{
                  {0xA, 1}, {0xB, tag}, {own, 1}, {own + 1, 1}, {own + 3, tag}, {layout, 1}}));
    EXPECT_EQ(result.unchanged, 3u);
    EXPECT_EQ(result.modified, 1u);
    EXPECT_EQ(result.added, 1u);
    EXPECT_EQ(result.removed, 1u);
    EXPECT_EQ(result.rows, 3u); // and the summary

    // The same file again writes nothing, not even the manifest.
    auto time = fs::last_write_time(fs::path(drawing));
    EXPECT_FALSE(import(exported(drawing)).written);
    EXPECT_EQ(fs::last_write_time(fs::path(drawing)), time);
    EXPECT_EQ(zTableTagGet(table().get()), tag);
}

TEST_F(Import, KeepsEveryByte) {
    const std::string huge(3 << 20, 'x');
    for (const std::string &bytes :
         {std::string("\xEF\xBB\xBF") +
              "999\r\nby hand\n  0\r\nSECTION\n 2\nENTITIES\n0\nTEXT\r\n1\n" +
              std::string("a\0b\x81\xFF\r", 7) + "\n  0  \nENDSEC\r\n0\nEOF\n\x1a\nno group",
          entities("0\nTEXT\n1\n" + huge + "\n0\nTEXT\n1\n\n"),
          entities(line("", "2") + line("", "3") + line("", "2")), std::string("0\nEOF\n")}) {
        import(bytes);
        EXPECT_TRUE(exported(drawing) == bytes) << bytes.substr(0, 60);
    }
}

// Pictures and solids, half a megabyte of them, in sections of their own.
std::string with_sections(const std::string &records) {
    std::string data;
    for (int i = 0; i < 40; ++i)
        data += "0\nACDSRECORD\n5\nA\n310\n" + std::string(16384, char('A' + i % 16)) +
                std::to_string(i) + "\n";
    std::string bytes = entities(records);
    bytes.insert(bytes.rfind("0\nEOF"), "0\nSECTION\n2\nACDSDATA\n70\n2\n" + data +
                                            "0\nENDSEC\n0\nSECTION\n2\nTHUMBNAILIMAGE\n310\n" +
                                            std::string(3000, 'F') + "\n0\nENDSEC\n");
    return bytes;
}

TEST_F(Import, SectionsThatAreNotKnownCostNothingAgain) {
    const std::string bytes = with_sections(line("A", "1") + line("B", "2"));
    EXPECT_GT(import(bytes).bytes, 600000u);
    EXPECT_TRUE(exported(drawing) == bytes);
    const auto less = import(with_sections(line("A", "1")));
    EXPECT_EQ(less.removed, 1u);
    EXPECT_LT(less.bytes, 1000u);
    EXPECT_TRUE(exported(drawing) == with_sections(line("A", "1")));
}

// Once such sections were part of the layout. The drawing comes out as ever, and goes over to the
// new way by the next import.
TEST_F(Import, ReadsLayoutsThatHoldSections) {
    const std::string bytes = with_sections(line("A", "1") + line("B", "2"));
    import(entities(line("A", "1") + line("B", "2")));
    std::vector<dxf::Part> parts = dxf::split(bytes, "t").parts;
    for (dxf::Part &part : parts)
        if (part.kind == dxf::Kind::object && part.handle == 0) part.kind = dxf::Kind::literal;
    const std::string layout = dxf::write_layout(parts);
    {
        const host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        const host::OwnedTable open = table();
        ASSERT_TRUE(
            zDrawingKeyPutData(open.get(), zDrawingDS(read.get()), layout.data(), layout.size()));
        ASSERT_TRUE(zDrawingKeyPutData(open.get(), zDrawingSummary(read.get()), "{}", 2));
    }
    const std::u16string old = dir / u"old.dwx";
    fs::copy_file(fs::path(drawing), fs::path(old));
    EXPECT_TRUE(exported(old) == bytes);
    const auto over = import(bytes);
    EXPECT_EQ(over.unchanged, 2u);
    EXPECT_EQ(over.removed, 0u);
    EXPECT_TRUE(exported(drawing) == bytes);
    EXPECT_TRUE(exported(old) == bytes);
    EXPECT_FALSE(import(bytes).written);
}

TEST_F(Import, OrderAloneIsAChangeOfTheManifest) {
    import(entities(line("A", "1") + line("B", "2")));
    const std::string turned = entities(line("B", "2") + line("A", "1"));
    auto result = import(turned);
    EXPECT_EQ(result.rows, 0u);
    EXPECT_TRUE(result.written);
    EXPECT_EQ(exported(drawing), turned);
}

// Whatever is restored into the work directory, the next import writes over no older row.
TEST_F(Import, NeverWritesOverARow) {
    std::vector<std::string> versions;
    std::vector<std::u16string> manifests;
    for (int i = 0; i < 6; ++i) {
        versions.push_back(entities(line("A", std::to_string(i)) + line("B", "0")));
        import(versions.back());
        manifests.push_back(dir / (u"m" + std::u16string(1, char16_t(u'0' + i)) + u".dwx"));
        fs::copy_file(fs::path(drawing), fs::path(manifests.back()));
        if (i % 2) // back to an old state, as a checkout of an older commit leaves it
            fs::copy_file(fs::path(manifests[0]), fs::path(drawing),
                          fs::copy_options::overwrite_existing);
    }
    for (size_t i = 0; i < versions.size(); ++i) EXPECT_EQ(exported(manifests[i]), versions[i]);
}

TEST_F(Import, StampsAboveACommittedManifestWhoseRowsAreNotHere) {
    import(entities(line("A", "1")));
    host::OwnedDrawing committed(zDrawingRead(drawing.c_str()));
    zDrawingObjectGetAt(committed.get(), 0)->tag = 40; // as a server had handed it out
    import(entities(line("A", "2")), committed.get());
    EXPECT_GT(keys()[0xA], 40u);
    EXPECT_EQ(zTableTagGet(table().get()), keys()[0xA]);
}

// What copies of one copy import apart from each other never stands in one's place in the other.
TEST_F(Import, ForeignRowsAreNotTakenForOnesOwn) {
    import(entities(line("A", "1") + line("B", "2")));
    fs::copy(root, dir.path() / "twin", fs::copy_options::recursive);
    import(entities(line("A", "3") + line("B", "4")));
    const uint64_t here = keys()[0xA];
    const std::u16string manifest = drawing;
    repository.reset(zRepositoryOpen((dir / u"twin").c_str()));
    root = dir.path() / "twin";
    drawing = dir / u"twin/a.dwx";
    import(entities(line("A", "5") + line("B", "6")));
    EXPECT_NE(keys()[0xA], here);
    EXPECT_THROW(exported(manifest), host::Failed);

    const DrawingKey key{keys()[0xA], 0xA};
    ASSERT_OK(zDrawingKeyPutData(table().get(), &key, "0\nLINE\n5\nA\n10\n7\n", 17));
    EXPECT_THROW(exported(drawing), host::Failed);
}

TEST_F(Import, ACopyGetsATableOfItsOwn) {
    import(entities(line("A", "1") + line("B", "2")));
    fs::copy_file(fs::path(drawing), root + "/b.dwx");
    const std::u16string first = drawing;
    drawing = dir / u"copy/b.dwx";
    auto result = import(entities(line("A", "7") + line("B", "2")));
    EXPECT_EQ(result.unchanged, 1u);
    EXPECT_EQ(result.modified, 1u);
    Oid a, b;
    ASSERT_OK(zDrawingDetect(&a, first.c_str()) && zDrawingDetect(&b, drawing.c_str()));
    EXPECT_FALSE(zOidIsEqual(&a, &b));
    EXPECT_EQ(exported(first), entities(line("A", "1") + line("B", "2")));
    EXPECT_EQ(exported(drawing), entities(line("A", "7") + line("B", "2")));
}

TEST_F(Import, LosesNoBlockOfAnotherHost) {
    import(entities(line("A", "1")));
    {
        host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        ASSERT_OK(zDrawingSetThumbnail(read.get(), 5, "thumb"));
        ASSERT_OK(zStreamWrite(zDrawingReference(read.get(), nullptr, nullptr), "refs", 4) == 4);
        ASSERT_OK(zDrawingVbaProjectSet(read.get(), table().get(), "macro", 5));
        ASSERT_OK(zDrawingWrite(read.get(), drawing.c_str()));
    }
    import(entities(line("A", "2") + line("B", "1")));
    host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
    uint32_t size = 0;
    auto *thumbnail = static_cast<const char *>(zDrawingThumbnail(read.get(), &size));
    EXPECT_EQ(std::string(thumbnail, size), "thumb");
    char reference[8] = "";
    zStreamRead(zDrawingReference(read.get(), nullptr, nullptr), reference, sizeof reference);
    EXPECT_STREQ(reference, "refs");
    EXPECT_TRUE(zDrawingHasVba(read.get()));
}

TEST_F(Import, AFailureLeavesNothing) {
    EXPECT_THROW(import("0\nSECTION\n2\nENTITIES\n0\nLINE\n"), host::Failed);
    EXPECT_FALSE(fs::exists(fs::path(drawing)));
    EXPECT_FALSE(has_tables());
    // A break while the rows go in, and a directory that isn't there when the manifest is to be
    // written: the table made for it goes again.
    Notify broken{};
    broken.usrbrk = [](const Notify *) { return true; };
    test::write(dir.path() / "in.dxf", entities(line("A", "1")));
    EXPECT_THROW(dxf::import_drawing(request_for(&broken)), host::Failed);
    drawing = dir / u"copy/none/a.dwx";
    EXPECT_THROW(import(entities(line("A", "1"))), host::Failed);
    EXPECT_FALSE(has_tables());
    // What stands at the name and is no drawing stays.
    test::write(root + "/text.dwx", "my notes");
    drawing = dir / u"copy/text.dwx";
    EXPECT_THROW(import(entities(line("A", "1"))), host::Failed);
    EXPECT_EQ(test::read(root + "/text.dwx"), "my notes");
}

TEST_F(Import, AMissingRowIsNamedNotInvented) {
    import(entities(line("A", "1") + line("B", "2")));
    const uint8_t key[16] = {0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xB};
    ASSERT_OK(zTableDel(table().get(), key, sizeof key));
    try {
        exported(drawing);
        ADD_FAILURE();
    } catch (const host::Failed &failed) {
        EXPECT_STREQ(failed.what(), "a: 1 of its rows are missing from the table");
    }
    // Importing the file again heals it.
    import(entities(line("A", "1") + line("B", "2")));
    EXPECT_EQ(exported(drawing), entities(line("A", "1") + line("B", "2")));
}

} // namespace
