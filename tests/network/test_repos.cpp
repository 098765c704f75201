// Projects: lists, the gate, making, renaming and removing them.
#include "service_fixture.hpp"

using test::Answer, test::narrow, test::Service;

namespace {

TEST(Names, FollowOneRule) {
    const std::u16string longest(255, u'n');
    const struct {
        std::u16string name;
        bool strict, loose;
    } cases[] = {{u"", false, false},   {u"Anl\u00e4ge 7.b", true, true},
                 {longest, true, true}, {longest + u"n", false, false},
                 {u"..", true, true},   {u"a@b", false, true},
                 {u"a\tb", true, true}};
    for (const auto &[name, strict, loose] : cases) {
        EXPECT_EQ(zSNValid(name.c_str(), true), strict) << narrow(name.c_str());
        EXPECT_EQ(zSNValid(name.c_str(), false), loose) << narrow(name.c_str());
    }
    for (const zwchar c : std::u16string(u"\\<>/\":;?*|,=`"))
        EXPECT_FALSE(zSNValid(std::u16string{u'a', c}.c_str(), false)) << static_cast<int>(c);
    for (const zwchar c : std::u16string(u"@&#$^~%"))
        EXPECT_FALSE(zSNValid(std::u16string{u'a', c}.c_str(), true)) << static_cast<int>(c);
    zSNValid((longest + u"n").c_str(), true);
    EXPECT_EQ(zErrorCode(), 38);
}

TEST(Blobs, AreNeverThere) {
    Service service;
    EXPECT_EQ(service.get("/repos/ann/plant/blobs/0123").code, 404);
}

} // namespace
