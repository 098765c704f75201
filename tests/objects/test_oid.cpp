#include "repo_fixture.hpp"

using namespace test;

TEST(Oid, TextOrderAndDigests) {
    constexpr char kHex[] = "00ff10a5b7c9d3e100112233445566778899aabb";
    Oid id = parsed(kHex);
    for (const zwchar *no_id :
         {u"", u"12345", u"zz", u"00ff10a5b7c9d3e100112233445566778899aab\u00e9"})
        EXPECT_FALSE(zOidFromStr(&id, no_id));
    EXPECT_EQ(hex(&id), kHex);
    zwchar text[42], path[Z_PATH_MAX] = u"tables";
    ASSERT_OK(zOidNFormat(text, 7, &id));
    EXPECT_EQ(narrow(text), std::string(kHex, 7));
    ASSERT_OK(zOidNFormat(text, 50, &id)); // more than there is
    EXPECT_EQ(narrow(text), kHex);
    ASSERT_OK(zOidPathAppend(path, &id));
    EXPECT_EQ(narrow(path), "tables/" + std::string(kHex).insert(2, "/"));

    const Oid low = parsed(std::string(39, '0') + "1"), high = parsed("ff" + std::string(38, '0'));
    EXPECT_EQ(zOidCompare(&low, &high), -1);            // bytes are unsigned
    EXPECT_FALSE(zOidIsEqual(nullptr, zOidIdentity())); // null is no id, not even the zero one

    TempDir dir;
    write(dir.path() / "file", "hello\n");
    Oid file{}, bytes{};
    ASSERT_OK(zOidFromFile(&file, (dir / u"file").c_str()));
    ASSERT_OK(zOidFromBuffer(&bytes, "hello\n", 6));
    EXPECT_EQ(hex(&file), git(dir.path(), "hash-object file"));
    EXPECT_EQ(hex(&bytes), run("printf 'hello\\n' | sha1sum").substr(0, 40));
    EXPECT_FALSE(zOidFromFile(&file, (dir / u"missing").c_str()));
}
