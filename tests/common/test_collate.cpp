// Collation: the fast road for ASCII and the ranks order as ICU does.
#include "support.hpp"

#include "common/collate.hpp"

#include <random>

namespace {

std::u16string random_text(std::mt19937 &random, uint32_t most) {
    std::u16string text;
    for (size_t n = 1 + random() % 4; n > 0; --n) text += static_cast<zwchar>(1 + random() % most);
    return text;
}

// ICU compares as soon as one letter isn't ASCII; a like letter before both changes nothing.
TEST(Collation, AsciiStandsAsIcuWouldOrderIt) {
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        const std::u16string a = random_text(random, 127), b = random_text(random, 127);
        const std::string narrow_a = test::narrow(a.c_str()), narrow_b = test::narrow(b.c_str());
        const int32_t plain = zStricollW(a.c_str(), b.c_str());
        ASSERT_EQ(plain, zStricollW((u"é" + a).c_str(), (u"é" + b).c_str()))
            << narrow_a << narrow_b;
        ASSERT_EQ(plain, zStricollA(narrow_a.c_str(), narrow_b.c_str()));
    }
}

TEST(Collation, RanksStandInTheOrderOfComparing) {
    std::mt19937 random(4);
    for (const uint32_t most : {127u, 0x250u, 0xffffu}) {
        std::vector<std::u16string> texts{u"a", u"A", most == 127 ? u"b" : u"ä",
                                          std::u16string(400, u'x')};
        for (int i = 0; i < 100; ++i) texts.push_back(random_text(random, most));
        std::vector<const zwchar *> pointers;
        for (const auto &text : texts) pointers.push_back(text.c_str());
        const auto ranks = zev::collation_ranks(pointers);
        for (size_t a = 0; a < texts.size(); ++a)
            for (size_t b = 0; b < texts.size(); ++b)
                ASSERT_EQ((ranks[a] > ranks[b]) - (ranks[a] < ranks[b]),
                          zStricollW(pointers[a], pointers[b]))
                    << test::narrow(pointers[a]) << " " << test::narrow(pointers[b]);
    }
}

} // namespace
