#include "support.hpp"

#include "common/errno.hpp"
#include "system/path.hpp"

using test::narrow, test::TempDir;

namespace {

constexpr struct {
    const zwchar *path, *base, *made;
} kAbsolute[] = {
    {u"../b/", u"/a/c", u"/a/b"}, {u"/b", u"/a", u"/a/b"}, // below the base, whatever it looks like
    {u"/b/../c", nullptr, u"/c"}, {u"/b", u"", u"/b"},
    {u"/", nullptr, u"/"},        {u"a", nullptr, u"a"}, // the current directory never matters
    {u"a", u"/", u"/a"},
};

constexpr struct {
    const zwchar *file, *directory, *made; // null: there is no way
} kRelative[] = {
    {u"/w/a/b", u"/w", u".\\a\\b"},      {u"/w", u"/w/", u"."},
    {u"/x/y", u"/w/v", u"..\\..\\x\\y"}, {u"/w", u"/w/v", u".."},
    {u"/wide/a", u"/w", u"..\\wide\\a"}, // a beginning of letters is no directory
    {u"/W/a", u"/w", u"..\\W\\a"},       // names on disk are exact
    {u"C:/a", u"D:/", nullptr},
};

TEST(Path, AbsoluteAndRelative) {
    zwchar text[Z_PATH_MAX];
    for (auto [path, base, made] : kAbsolute) {
        EXPECT_TRUE(zPathMakeAbsolute(text, path, base));
        EXPECT_EQ(narrow(text), narrow(made)) << narrow(path);
    }
    for (auto [file, directory, made] : kRelative) {
        const bool found = zPathMakeRelative(text, file, directory);
        EXPECT_EQ(found ? narrow(text) : narrow(nullptr), narrow(made)) << narrow(file);
    }
}

// A host names the working copy through a link that the store below has resolved.
TEST(Path, RelativeThroughLink) {
    TempDir dir;
    zwchar text[Z_PATH_MAX];
    std::filesystem::create_directories(dir.path() / "real/docs");
    std::filesystem::create_directory_symlink("real", dir.path() / "link");
    ASSERT_TRUE(
        zPathMakeRelative(text, (dir / u"link/docs/new.dwx").c_str(), (dir / u"real").c_str()));
    EXPECT_EQ(narrow(text), ".\\docs\\new.dwx");
}

constexpr struct {
    bool (*function)(zwchar *, const zwchar *);
    const zwchar *path, *made;
    bool result = true;
} kParts[] = {
    {zPathCanonicalized, u"", u""},
    {zPathCanonicalized, u"a\\..\\b", u"b"},
    {zPathCanonicalized, u"a/b/../", u"a/"}, // a trailing slash stays
    {zPathCanonicalized, u"../a", u"a"},     // nor above a relative beginning
    {zPathCanonicalized, u"C:\\..\\x", u"C:/x"},
    {zPathCanonicalized, u"//srv/share/..", u"//srv/share/"},
    {zPathCanonicalized, u"//srv/share/../x", u"//srv/share/x"},
    {zPathCanonicalized, u"///a/../b", u"/b"},
    {zPathCanonicalized, u"a/.../b", u"a/.../b"},
    {zPathRemoveName, u"a/b/", u"a/b/"}, // nothing follows the separator
    {zPathRemoveName, u"/a", u"/"},      // never the current directory
    {zPathRemoveLast, u"a/b/", u"a/b"},
    {zPathRemoveExt, u"a.b/c", u"a.b/c"}, // the dot is the directory's
    {zPathRemoveExt, u"a/.c", u"a/"},
};

TEST(Path, Parts) {
    for (auto [function, path, made, result] : kParts) {
        zwchar text[Z_PATH_MAX];
        EXPECT_EQ(function(text, path), result) << narrow(path);
        EXPECT_EQ(narrow(text), narrow(made)) << narrow(path);
    }
    EXPECT_EQ(zPathFindExt(u"a.b/c"), nullptr);
    EXPECT_TRUE(zPathIsSame(u"/\u00C4/x/..", u"/\u00E4") && !zPathIsSame(u"/a", u"/ab"));
}

// Text is cut silently; what a cut path names is never touched.
TEST(Path, CutPathsAreRefused) {
    const std::u16string more(600, u'x');
    zwchar text[Z_PATH_MAX] = u"/tmp";
    EXPECT_TRUE(zPathAppend(text, more.c_str()));
    EXPECT_EQ(zStrlenW(text), 511u);
    EXPECT_TRUE(!zDirMake(text, true) && zErrorCode() == 38 && errno == ENAMETOOLONG);
    EXPECT_TRUE(!zev::path_join(text, u"/tmp", more.c_str()) && zErrorCode() == 38);
    EXPECT_TRUE(!zPathAppendExt(text, text, u".dwx") && zErrorCode() == 38);
}

} // namespace
