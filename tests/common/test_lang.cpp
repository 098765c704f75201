// Catalogues: which texts a key gives, which texts are refused, and what is shipped.
#include "library_file.hpp"
#include "support.hpp"

#include "common/catalogue.hpp"

#include <cerrno>
#include <map>
#include <regex>
#include <set>
#include <vector>

using namespace test;
using namespace std::string_literals;

namespace {

std::string text(Json *catalogue, const zwchar *key) {
    return narrow(zI18nTextLookup(catalogue, key));
}

// The catalogues of a directory of the test's own in place of the process's.
class Lang : public testing::Test {
  protected:
    TempDir dir;
    std::u16string former;

    void SetUp() override {
        zwchar appdata[Z_PATH_MAX];
        zPathGetAppData(appdata);
        former = appdata;
        restart(dir.path().u16string());
    }
    void TearDown() override {
        restart(former);
        zI18nSetCurrentLang(u"en-US");
    }
    void restart(const std::u16string &appdata) {
        zI18nDeinit();
        zPathSetAppData(appdata.c_str(), nullptr);
        zI18nInit();
    }
    void catalogue(const char *language, const char *json) {
        write(dir.path() / "conf/locales" / (std::string(language) + ".lang"), json);
    }
};

TEST_F(Lang, AMissingKeyGivesItselfAndRaisesNothing) {
    catalogue("en-US", R"({"a":{"sOne":"one","x.y":"no"},"title":"top"})");
    Json *root = zI18nLangLookup(u"en-US");
    ASSERT_OK(root);
    const zwchar *missing = u"a.x.y";
    zRaiseNotFound(nullptr);
    EXPECT_FALSE(zI18nNodeExists(root, u"a.sTwo") || zI18nNodeExists(root, u"title.below"));
    EXPECT_EQ(zErrorClass(), 3);
    errno = ERANGE;
    for (Json *catalogue : {root, (Json *)nullptr})
        EXPECT_EQ(zI18nTextLookup(catalogue, missing), missing);
    EXPECT_EQ(errno, ERANGE); // which the raise around the text is to report
}

TEST_F(Lang, MissingLanguagesShareTheFallback) {
    EXPECT_EQ(zI18nLangLookup(u"fr-FR"), nullptr); // not even en-US
    zRaiseNotFound(nullptr);
    zI18nSetCurrentLang(nullptr);
    catalogue("en-US", R"({"a":"english"})"); // too late for who holds an empty one
    EXPECT_EQ(text(zI18nCurrentLang(), u"a"), "a");
    EXPECT_EQ(zErrorClass(), 3); // a text is looked up for a raise, which stands
    write(dir.path() / "conf/secret.lang", R"({"a":"secret"})");
    Json *french = zI18nLangLookup(u"fr-FR");
    ASSERT_OK(french);
    EXPECT_EQ(text(french, u"a"), "english");
    for (const std::u16string &name :
         {u"fr-FR"s, u"it-IT"s, u"../secret"s, std::u16string(600, u'a')})
        EXPECT_EQ(zI18nLangLookup(name.c_str()), french) << narrow(name.c_str());
    EXPECT_NE(zI18nLangLookup(u"en-US"), french); // asked for by name it is read as itself
    catalogue("it-IT", R"({"a":"italian"})");     // fallbacks are not kept under the name
    EXPECT_EQ(text(zI18nLangLookup(u"it-IT"), u"a"), "italian");
}

// A text is given the arguments that its key's tail names; others would read foreign memory.
TEST(Catalogue, ConversionsFitTheTail) {
    const struct {
        const zwchar *key;
        std::vector<const zwchar *> fitting, others;
    } kRows[] = {
        {u"sDone", {u"Done", u"100 %%"}, {u"100 %", u"%s"}},
        {u"e_s", {u"%s", u"%-20.20s!"}, {u"no", u"%d", u"%S", u"%hs", u"%*s", u"%n"}},
        {u"e_s_d", {u"%s, port %d"}, {u"port %d of %s"}},
        {u"e_d", {u"%u"}, {u"%lld"}},
        {u"s_4d", {u"%d %d %d %d"}, {u"%d %d %d", u"%d %d %d %d %d"}},
        {u"s_2s_d", {u"%s %s %d"}, {}},
        {u"s_16d", {u"%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d"}, {u"more are none"}},
        {u"some_name", {u"no tail"}, {}},
        {u"s_99999999999d", {u"no tail either"}, {}},
    };
    for (const auto &row : kRows) {
        for (auto text : row.fitting)
            EXPECT_TRUE(zev::catalogue_fits(row.key, text)) << narrow(row.key) << narrow(text);
        for (auto text : row.others)
            EXPECT_FALSE(zev::catalogue_fits(row.key, text)) << narrow(row.key) << narrow(text);
    }
}

TEST_F(Lang, ATextThatDoesNotFitCountsAsMissing) {
    catalogue("en-US", R"({"a":{"bad_s":"%d","good_s":"%s","deep":{"bad":"%n"}}})");
    testing::internal::CaptureStderr();
    Json *root = zI18nLangLookup(u"en-US");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("\"bad_s\""), std::string::npos);
    EXPECT_EQ(text(root, u"a.bad_s"), "a.bad_s");
    EXPECT_EQ(text(root, u"a.deep.bad"), "a.deep.bad");
    const std::u16string longer(5000, u'\u00e4');
    EXPECT_EQ(zI18nTextFormat(root, u"a.good_s", longer.c_str()), longer);
}

// ---- What is shipped

void collect(Json *object, const std::u16string &prefix,
             std::map<std::u16string, std::u16string> &all) {
    const auto iter = guard(
        zJsonObjectNewiter(object), +[](HashmapIter *it) { it->free(it); });
    for (iter->first(iter.get()); !iter->done(iter.get()); iter->next(iter.get())) {
        const Variant *entry = iter->current(iter.get());
        Json *node = static_cast<Json *>(entry->next->value.pointer);
        const std::u16string name = prefix + entry->value.wide;
        if (zJsonIsObject(node))
            collect(node, name + u".", all);
        else
            all[name] = zJsonGetString(node);
    }
}

std::map<std::u16string, std::u16string> shipped(const zwchar *language) {
    std::map<std::u16string, std::u16string> all;
    zwchar path[Z_PATH_MAX];
    zPathGetConf(path);
    zPathAppend(path, (u"locales/"s + language + u".lang").c_str());
    auto root = guard(zJsonReadFile(path), zJsonFree); // as it stands, nothing left out
    if (root) collect(root.get(), u"", all);
    return all;
}

TEST(Shipped, LanguagesHaveTheSameKeysAndFittingTexts) {
    const auto english = shipped(u"en-US"), german = shipped(u"de-DE");
    ASSERT_GT(english.size(), 200u);
    for (const auto *one : {&english, &german})
        for (const auto &[key, value] : *one) {
            EXPECT_TRUE(english.contains(key) && german.contains(key)) << narrow(key.c_str());
            EXPECT_TRUE(!value.empty() &&
                        zev::catalogue_fits(key.substr(key.rfind(u'.') + 1), value))
                << narrow(key.c_str());
        }
}

// Keys that the library's code names stand in its file as 16-bit text; this program has only what
// it calls of it.
TEST(Shipped, EveryKeyOfTheCodeHasAText) {
    const auto english = shipped(u"en-US");
    const std::regex key(
        "(action|admin|buttons|conflict|datetime|dialog|zev|http|net|odb|srv|status|sys)"
        "\\.[a-zA-Z0-9_]+");
    const std::string program = read(library_file().parent_path() / "../lib/libzev.so");
    std::set<std::string> named;
    std::string run;
    for (size_t i = 0; i + 1 < program.size(); i += 2) {
        const char unit = program[i];
        if (!program[i + 1] && (isalnum(unit) || unit == '.' || unit == '_')) {
            run += unit;
            continue;
        }
        const bool ended = !unit && !program[i + 1] && run.find('.') != run.npos;
        if (ended && std::regex_match(run, key)) named.insert(run);
        run.clear();
    }
    for (const char *file : {"zev.conf", "zev.simple"}) named.erase(file);
    ASSERT_TRUE(named.contains("datetime.seconds"));
    auto has = [&](const std::string &name) {
        auto at = english.lower_bound(wide(name)); // a text, or a dialog with texts below
        return at != english.end() && at->first.starts_with(wide(name));
    };
    for (const std::string &name : named) EXPECT_TRUE(has(name)) << name;
    for (int status : {100, 200, 226, 304, 308, 400, 417, 421, 431, 451, 500, 508, 510, 511})
        EXPECT_TRUE(has("http." + std::to_string(status))) << status;
}

} // namespace
