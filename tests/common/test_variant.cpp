// Binary and Variant own what they hold.
#include "support.hpp"

#include <cstring>

namespace {

TEST(Binary, OwnsItsBytes) {
    Binary binary;
    ASSERT_OK(zBinaryInit(&binary, "bytes", 5));
    ASSERT_TRUE(zBinarySet(&binary, static_cast<char *>(binary.data) + 1, 3)); // of itself
    EXPECT_EQ(std::string(static_cast<char *>(binary.data), binary.size), "yte");
    auto other = test::guard(zBinaryNew(nullptr, 7), zBinaryFree);
    ASSERT_TRUE(zBinaryCopy(other.get(), &binary));
    EXPECT_EQ(other->size, 3u);

    void *block = zBinaryDeatch(&binary);
    EXPECT_TRUE(block && !binary.data && !binary.size);
    ASSERT_TRUE(zBinaryCopy(other.get(), &binary)); // an empty one empties
    EXPECT_FALSE(other->data || other->size);
    ASSERT_TRUE(zBinaryAttach(other.get(), block, 3) && zBinaryAttach(other.get(), block, 2));
    EXPECT_EQ(memcmp(other->data, "yt", 2), 0);
}

// What travels as a promoted argument comes out in the width of its type.
TEST(Variant, HoldsValuesOfEachWidth) {
    Variant variant;
    ASSERT_TRUE(zVariantInit(&variant));
    ASSERT_TRUE(zVariantSet(&variant, 2, -2));
    EXPECT_EQ(variant.value.u8, 0xFE);
    ASSERT_TRUE(zVariantSet(&variant, 5, -2));
    EXPECT_EQ(variant.value.u16, 0xFFFE);
    ASSERT_TRUE(zVariantSet(&variant, 12, int64_t{-2}));
    EXPECT_EQ(variant.value.u64, 0xFFFFFFFFFFFFFFFE);
    ASSERT_TRUE(zVariantSet(&variant, 10, 0.5));
    EXPECT_EQ(variant.value.f32, 0.5f);
    ASSERT_TRUE(zVariantSet(&variant, 13, 0.5));
    EXPECT_EQ(variant.value.f64, 0.5);
}

TEST(Variant, OwnsCopies) {
    Variant variant, copy;
    ASSERT_TRUE(zVariantInit(&variant) && zVariantInit(&copy));
    zwchar text[] = u"wide";
    ASSERT_TRUE(zVariantSet(&variant, 20, text));
    text[0] = u'W';
    ASSERT_TRUE(zVariantSet(&variant, 20, variant.value.wide)); // its own text
    EXPECT_EQ(std::u16string(variant.value.wide), u"wide");
    ASSERT_TRUE(zVariantCopy(&copy, &variant) && zVariantCopy(&copy, &copy));
    ASSERT_TRUE(zVariantSet(&variant, 19, nullptr));
    EXPECT_FALSE(variant.value.narrow);
    ASSERT_TRUE(zVariantSet(&variant, 21, "bytes", uint64_t{5}));
    EXPECT_EQ(memcmp(variant.value.binary.data, "bytes", 5), 0);
    EXPECT_EQ(std::u16string(copy.value.wide), u"wide");
    ASSERT_TRUE(zVariantCopy(&copy, &variant));
    EXPECT_NE(copy.value.binary.data, variant.value.binary.data);
    ASSERT_TRUE(zVariantCleanup(&variant) && zVariantCleanup(&copy));
}

} // namespace
