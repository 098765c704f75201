// The splitter: every byte of a file has its part, every record its handle.
#include "dxf/reader.hpp"
#include "dxf/summary.hpp"
#include "host.hpp"
#include "support.hpp"
#include "zev_program.hpp"

namespace {

using dxf::Document;
using dxf::Kind;
using dxf::Part;

std::string parts_of(const Document &document) {
    std::string out;
    for (const Part &part : document.parts) {
        if (!out.empty()) out += ' ';
        if (part.kind == Kind::literal) out += '.';
        if (part.kind == Kind::header) out += 'H';
        if (part.kind == Kind::symbol) out += 'C';
        if (part.kind != Kind::object) continue;
        char handle[20];
        snprintf(handle, sizeof handle, "%llX", static_cast<unsigned long long>(part.handle));
        out.append(part.type).append("=").append(handle);
    }
    return out;
}

std::string entities(const std::string &records) {
    return "0\nSECTION\n2\nENTITIES\n" + records + "0\nENDSEC\n0\nEOF\n";
}

TEST(DxfSplit, CutsAtRecordsAndFindsTheirHandles) {
    const struct {
        std::string bytes;
        const char *parts;
    } cases[] = {
        {"0\nSECTION\n2\nHEADER\n0\nENDSEC\n0\nEOF\n", ". H ."}, // empty, but it is there
        {"0\nSECTION\n2\nHEADER\n9\n$A\n1\nx\n0\nENDSEC\n"
         "0\nSECTION\n2\nHEADER\n9\n$B\n0\nENDSEC\n0\nEOF",
         ". H . HEADER=0 ."}, // the second is no block
        {"0\nSECTION\n2\nCLASSES\n0\nCLASS\n1\nA\n0\nOTHER\n1\nB\n0\nCLASS\n1\nC\n"
         "0\nENDSEC\n0\nEOF\n",
         ". C . C ."},
        {entities("0\nLINE\n5\n1f\n0\nARC\n5\n 2A \n"), ". LINE=1F ARC=2A ."},
        {entities("999\nremark\n0\nLINE\n5\nA\n999\nremark\n"), ". LINE=A ."},
        {entities("0\nLINE\n102\n{LIST\n5\nFF\n102\n}\n5\nA\n"), ". LINE=A ."},
        {entities("0\nLINE\n1001\nAPP\n5\nFF\n"), ". LINE=0 ."}, // application data
        {entities("0\nLINE\n5\nA\n5\nB\n"), ". LINE=A ."},       // the first counts
        {entities("0\nDIMSTYLE\n5\nBLOCKNAME\n105\nC\n"), ". DIMSTYLE=C ."},
        {entities("0\nLINE\n5\n0\n0\nLINE\n5\nxyz\n0\nLINE\n5\n\n"), ". LINE=0 LINE=0 LINE=0 ."},
        {entities("0\nLINE\n5\n3FFFFFFFFFFFFFFF\n0\nLINE\n5\n4000000000000000\n"
                  "0\nLINE\n5\n10000000000000001\n"),
         ". LINE=3FFFFFFFFFFFFFFF LINE=0 LINE=0 ."}, // our own numbers begin at 2^62
        {"0\nSECTION\n2\nOTHER\n90\n4\n0\nLINE\n5\nA\n8\nL\n0\nENDSEC\n0\nEOF\n",
         ". OTHER=0 LINE=0 ."}, // not known: no handle is looked for
        {"0\nSECTION\n999\nremark\n2\nPICTURE\n310\nFF\n0\nENDSEC\n0\nSECTION\n0\nENDSEC\n"
         "0\nSECTION\n70\n1\n0\nLINE\n0\nENDSEC\n0\nEOF\n",
         ". PICTURE=0 ."}, // and two without a name
        {"0\nSECTION\n2\nTABLES\n0\nTABLE\n2\nDIMSTYLE\n5\n7\n0\nENDTAB\n0\nEOF\n",
         ". TABLE=7 ENDTAB=0 ."}, // ENDSEC is missing, nothing else
    };
    for (const auto &test : cases) {
        EXPECT_EQ(parts_of(dxf::split(test.bytes, "t.dxf")), test.parts) << test.bytes;
    }
}

TEST(DxfSplit, SaysWhereAFileIsNoDxf) {
    const struct {
        std::string bytes;
        const char *message;
    } cases[] = {
        {"", "t.dxf:1: this is no DXF file: it is empty"},
        {"%PDF-1.4\n%\n", "t.dxf:1: this is no DXF file: a group code is expected here"},
        {"1\nx\n", "t.dxf:2: this is no DXF file: a section is expected here, not \"x\""},
        {std::string("Any Binary DXF\r\n\x1a\0\0SECTION", 26), "t.dxf:1: this is binary DXF"},
        {entities("0\nLINE\n5\nA\nten\n1.0\n"),
         "t.dxf:9: a group code is expected here, not \"ten\""},
        {"0\nSECTION\n2\nENTITIES\n0\nLINE\n", "t.dxf:6: the file is cut: its EOF mark is missing"},
        {"0\nSECTION\n2\nENTITIES\n0\n", "t.dxf:5: the file is cut in the middle of a group"},
    };
    for (const auto &test : cases) {
        try {
            dxf::split(test.bytes, "t.dxf");
            ADD_FAILURE() << "accepted: " << test.bytes;
        } catch (const host::Failed &failed) {
            EXPECT_EQ(std::string(failed.what()).find(test.message), 0u) << failed.what();
        }
    }
}

TEST(DxfSplit, RefusesEveryTruncation) {
    const std::string bytes = test_data("plan.dxf");
    size_t complete = bytes.rfind("EOF") + 3;
    for (size_t length = 0; length < complete; ++length)
        EXPECT_THROW(dxf::split(std::string_view(bytes).substr(0, length), "t"), host::Failed)
            << length;
    EXPECT_NO_THROW(dxf::split(std::string_view(bytes).substr(0, complete), "t"));
}

TEST(DxfSummary, CountsKindsAndLayers) {
    const std::string bytes = test_data("plan.dxf");
    std::string text = dxf::summary_text(dxf::summarize(dxf::split(bytes, "t")).get());
    auto json = test::guard(zJsonReadTextual(test::wide(text).c_str()), zJsonFree);
    ASSERT_TRUE(json) << text;
    EXPECT_EQ(zJsonPathGetInt(json.get(), u"objects"), 15);
    EXPECT_EQ(zJsonPathGetInt(json.get(), u"kinds.LINE"), 2);
    EXPECT_EQ(zJsonPathGetInt(json.get(), u"kinds.ENDTAB"), 2);
    EXPECT_EQ(zJsonPathGetInt(json.get(), u"layers.WALLS"), 3);
    EXPECT_EQ(test::narrow(zJsonPathGetString(json.get(), u"title")), "A small plan");
    EXPECT_EQ(zJsonGetReal(zJsonArrayAt(zJsonPathGet(json.get(), u"extents.max"), 0)), 420.0);
}

} // namespace
