#include "support.hpp"

using namespace test;

namespace {

auto make(const zwchar *pattern, uint32_t options = 0) {
    return guard(zPathSpecNew(pattern, options), zPathSpecFree);
}

constexpr uint32_t kLiteral = Z_SPEC_LITERAL;

constexpr struct {
    const zwchar *pattern, *path;
    uint32_t options;
    bool match;
} kMatches[] = {
    {u"docs", u"Docs/a.dwx", 0, true},   // a directory takes in its files, case aside
    {u"docs", u"docs2/a.dwx", 0, false}, // a prefix is no directory
    {u"docs/", u"docs/x/a.dwx", 0, true},
    {u"zeichnung größe.dwx", u"ZEICHNUNG GRÖSSE.dwx", 0, false}, // simple folding keeps ß
    {u"zeichnung größe.dwx", u"ZEICHNUNG GRÖßE.DWX", 0, true},
    {u"*.dwx", u"docs/deep/a.dwx", 0, true}, // a star takes in slashes
    {u"?.dwx", u"ö.dwx", 0, true},           // one character, not one byte
    {u"?.dwx", u"\U0001F4D0.dwx", 0, true},
    {u"a*b*c", u"aXbXbXc", 0, true}, // the last star gives way again
    {u"", u"any/thing", 0, true},    // none is all
    {u".", u"any/thing", 0, true},
    {u"a[1].dwx", u"a[1].dwx", 0, true}, // marks stand for themselves
    {u"a[1].dwx", u"a1.dwx", 0, false},
    {u"#1.dwx", u"#1.dwx", 0, true},
    {u"end ", u"end", 0, false},
    {u"st\\*r.dwx", u"st*r.dwx", 0, true}, // a backslash takes the wildcard's power
    {u"st*r.dwx", u"stair.dwx", kLiteral, false},
    {u"st*r.dwx", u"ST*R.dwx", kLiteral, true},
    {u"*", u"a.dwx", kLiteral, false},
    {u"docs", u"docs/a.dwx", kLiteral, false}, // exactly the file
    {u"docs/", u"Docs/a.dwx", kLiteral, true},
    {u"./", u"any/thing", kLiteral, true},
    {u"/", u"any/thing", 0, false}, // no path of ours
    {u"/", u"any/thing", kLiteral, false},
};

} // namespace

TEST(PathSpec, Matches) {
    for (const auto &row : kMatches) {
        auto spec = make(row.pattern, row.options);
        EXPECT_EQ(zPathSpecMatched(spec.get(), row.path), row.match)
            << narrow(row.pattern) << " on " << narrow(row.path) << " " << row.options;
    }
}

TEST(PathSpec, ChangesAreSeenByTheNextMatch) {
    auto spec = make(nullptr);
    EXPECT_TRUE(zPathSpecMatched(spec.get(), u"b"));
    ASSERT_OK(zPathSpecAdd(spec.get(), u"a*"));
    EXPECT_FALSE(zPathSpecMatched(spec.get(), u"b"));
    EXPECT_TRUE(zPathSpecMatched(spec.get(), u"ab"));
    ASSERT_OK(zPathSpecSetOn(spec.get(), kLiteral));
    EXPECT_FALSE(zPathSpecMatched(spec.get(), u"ab"));
    ASSERT_OK(zVectorPush(reinterpret_cast<Vector *>(spec.get()), u"ab")); // a spec is a vector
    EXPECT_TRUE(zPathSpecMatched(spec.get(), u"ab"));
    ASSERT_OK(zPathSpecReset(spec.get()));
    EXPECT_EQ(zPathSpecOptions(spec.get()), 0u);
    EXPECT_TRUE(zPathSpecMatched(spec.get(), u"b"));
}
