// Error record, ring and start: what a thread reads after a failure, and what a start makes of
// the files beside the library.
#include "library_file.hpp"
#include "support.hpp"

#include "common/errno.hpp"
#include "common/global.hpp"

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include <pthread.h>

using namespace test;

namespace {

template <class F> void on_thread(F work) { std::thread(work).join(); }

// In a process of its own, where nothing was raised before the host took all keys.
TEST(Error, NeedsNoKeyAfterTheStart) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto raise = [] {
        for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;) {
        }
        on_thread([] {
            zRaiseLocked(nullptr);
            exit(zErrorClass() == 7 && zStrtoutf8(u"x") ? 0 : 1);
        });
    };
    EXPECT_EXIT(raise(), testing::ExitedWithCode(0), "");
}

// Arguments that point into the record are read before it is written.
TEST(Error, RaisesFromItsOwnTexts) {
    zRaiseError(1, 1, u"first", u"second");
    zRaiseError(2, 2, zErrorReason(), zErrorMsg());
    EXPECT_EQ(narrow(zErrorDetail()), "second: first");
    zRaiseOtherErr(zErrorMsg(), u"[%s]", zErrorDetail());
    EXPECT_EQ(narrow(zErrorDetail()), "[second: first]: second");
    zSetErrorMsg(u"%s, %s", zErrorReason(), zErrorMsg());
    EXPECT_EQ(narrow(zErrorMsg()), "second, [second: first]");
}

// A host number that means something else outside must not leak: 103, 104 and 131 overlap.
TEST(Errno, RaisedOutsideKeptInside) {
    errno = ECONNRESET;
    EXPECT_FALSE(bool(zev::fail_system(u"100%s")));
    EXPECT_TRUE(zErrorClass() == 9 && zErrorCode() == 108 && errno == ECONNRESET);
    EXPECT_EQ(narrow(zErrorMsg()), "100%s");
}

// Each number of the host that has one outside comes back as itself; a full quota is a full disk.
TEST(Errno, ThereAndBack) {
    int told = 0;
    for (int number = 1; number < 200; ++number) {
        const zev::Err err = zev::err_from_host(number);
        if (err == zev::Err::other || number == EDQUOT) continue;
        EXPECT_EQ(zev::host_from_err(err), number) << strerror(number);
        ++told;
    }
    EXPECT_GT(told, 70);
    EXPECT_EQ(zev::err_from_host(EDQUOT), zev::Err::nospc);
    EXPECT_EQ(zev::host_from_err(zev::Err::wouldblock), EAGAIN);
}

TEST(Error, LongTextsAreCut) {
    const std::u16string text(3000, u'x');
    zRaiseOtherErr(text.c_str(), u"<%s>", text.c_str());
    EXPECT_EQ(std::u16string(zErrorMsg()), u"<" + text.substr(0, 1022));
    EXPECT_EQ(std::u16string(zErrorReason()), text.substr(0, 1023));
    EXPECT_EQ(std::u16string(zErrorDetail()), zErrorMsg());
}

TEST(Ring, ReleasesAtThe1024thFurtherParkingAndAtTheThreadsEnd) {
    static std::string released;
    released.clear();
    on_thread([] {
        const auto release = [](void *slot) { released += *static_cast<char *>(slot); };
        static char first = '1', last = '2';
        EXPECT_TRUE(zGlobalRecyclePut(nullptr, release) && zGlobalRecyclePut(&first, release));
        const char *text = zStrtoutf8(u"first"); // conversions are parked there too
        for (int i = 0; i < 1022; ++i) zStrfromutf8("x");
        EXPECT_STREQ(text, "first");
        EXPECT_EQ(released, ""); // nothing is parked for none
        zGlobalRecyclePut(&last, release);
        EXPECT_EQ(released, "1");
    });
    EXPECT_EQ(released, "12");
}

// The test program holds one start of its own.
TEST(Global, StartsNestAndStopOnlyAtTheLast) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 50; ++n)
                EXPECT_TRUE(zGlobalInit(u"de-DE", nullptr) && zGlobalCleanup());
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(narrow(zI18nTextLookup(zI18nCurrentLang(), u"action.sDone")), "Done");

    static std::string stopped;
    zev::at_stop([] { stopped += "lower "; });
    zev::at_stop([] { stopped += "upper "; });
    zRaiseLocked(nullptr);
    EXPECT_TRUE(zGlobalCleanup());
    EXPECT_EQ(stopped, "upper lower ");
    EXPECT_TRUE(!zI18nCurrentLang() && zErrorClass() == 0);
    EXPECT_TRUE(zGlobalCleanup()); // one too many does no harm
    ASSERT_OK(zGlobalInit(u"de-DE", u"xx-NONE"));
    EXPECT_EQ(narrow(zI18nTextLookup(zI18nCurrentLang(), u"action.sDone")), "Fertig");
    zGlobalCleanup();
    ASSERT_OK(zGlobalInit(u"en-US", nullptr));
}

// What a start says of itself; a test of this program only where it is asked for, in a copy that
// stands in a directory of its own.
class Report : public testing::Test {
    void TestBody() override {
        zGlobalCleanup();
        ASSERT_OK(zGlobalInit(nullptr, nullptr));
        zwchar appdata[Z_PATH_MAX];
        zPathGetAppData(appdata);
        printf("appdata=%s\nlocal=%s\norder=%d %d\ndone=%s\n", narrow(appdata).c_str(),
               narrow(zLangLocal()).c_str(), zStricollW(u"ä", u"z"), zStricollW(u"é", u"É"),
               narrow(zI18nTextLookup(zI18nCurrentLang(), u"action.sDone")).c_str());
    }
};
const auto *const kReport =
    getenv("ZEV_TEST_REPORT")
        ? testing::RegisterTest("Installed", "Report", nullptr, nullptr, __FILE__, __LINE__,
                                []() -> testing::Test * { return new Report; })
        : nullptr;

class Start : public testing::Test {
  protected:
    TempDir dir;
    std::filesystem::path root = std::filesystem::canonical(dir.path());

    std::string command;

    // The program stands in app/bin, and the library too where it is a file of its own.
    void SetUp() override {
        const auto self = std::filesystem::canonical("/proc/self/exe"), library = library_file();
        command = "'" + place(self).string() + "'";
        if (library != self) command = "LD_PRELOAD='" + place(library).string() + "' " + command;
    }
    std::filesystem::path place(const std::filesystem::path &file) {
        const auto to = root / "app/bin" / file.filename();
        std::filesystem::create_directories(to.parent_path());
        std::error_code other_device;
        create_hard_link(file, to, other_device);
        if (other_device) copy_file(file, to);
        return to;
    }
    // What the program in app/bin says when it is started; the value of one of its lines.
    std::string start(const std::string &environment = {}) {
        return run("ZEV_TEST_REPORT=1 " + environment + " " + command +
                   " --gtest_filter=Installed.* 2>&1");
    }
    static std::string value(const std::string &said, const std::string &name) {
        const size_t at = said.find("\n" + name + "=");
        if (at == said.npos) return said;
        const size_t from = at + name.size() + 2;
        return said.substr(from, said.find('\n', from) - from);
    }
    static std::string done_at(const std::string &said) {
        return value(said, "done") + " @ " + value(said, "appdata");
    }
    void conf_at(const std::string &place, const char *language = nullptr) {
        std::filesystem::create_directories(root / place / "conf");
        if (language) write(root / place / "conf/lang.conf", language);
        write(root / place / "conf/locales/en-US.lang", R"({"action":{"sDone":"Ready"}})");
        write(root / place / "conf/locales/de-DE.lang", R"({"action":{"sDone":"Bereit"}})");
    }
};

TEST_F(Start, FindsItsApplicationData) {
    std::filesystem::create_directories(root / "app/conf");
    EXPECT_EQ(done_at(start()), "action.sDone @ " + (root / "app").string()); // no catalogue at all
    EXPECT_TRUE(is_directory(root / "app/logs"));
    conf_at("data", R"({"language":"de-DE"})");
    conf_at("%HOME%");
    const std::string data = (root / "data").string(), odd = (root / "%HOME%").string();
    const struct {
        std::string conf, expected;
        const char *reason;
    } kRows[] = {
        {R"({"appdata":")" + data + R"("})", "Bereit @ " + data, "absolute"},
        {R"({"appdata":"..\\../data"})", "Bereit @ " + data, "relative, with either slash"},
        {R"({"appdata":"%ZEV_TEST_DATA%"})", "Bereit @ " + data, "absolute once expanded"},
        {R"({"appdata":"%ZEV_TEST_ODD%"})", "Ready @ " + odd, "expanded once"},
        {R"({"appdata":7})", "action.sDone @ " + (root / "app").string(), "no string"},
        {R"({"appdata":)", "action.sDone @ " + (root / "app").string(), "no JSON"},
    };
    for (const auto &row : kRows) {
        write(root / "app/bin/zev.conf", row.conf);
        EXPECT_EQ(done_at(start("ZEV_TEST_DATA='" + data + "' ZEV_TEST_ODD='" + odd + "'")),
                  row.expected)
            << row.reason;
    }
}

// In C nothing tells upper case from lower either.
TEST_F(Start, LanguageAndCollationFollowTheEnvironment) {
    conf_at("app");
    const struct {
        const char *environment, *name, *order;
    } kRows[] = {
        {"LC_ALL=de_DE.UTF-8@euro LANG=sv_SE", "de-DE", "-1 0"},
        {"LC_ALL= LC_COLLATE= LC_MESSAGES=sr_RS@latin LANG=sv_SE.UTF-8", "sr-RS", "1 0"},
        {"LC_ALL= LC_COLLATE=de_DE LC_MESSAGES= LANG=sv_SE.UTF-8", "sv-SE", "-1 0"},
        {"LC_ALL=C.UTF-8 LANG=sv_SE", "en-US", "-1 0"},
        {"LC_ALL=/usr/share/x", "en-US", "1 0"},
    };
    for (const auto &row : kRows) {
        const std::string said = start(row.environment);
        EXPECT_EQ(value(said, "local"), row.name) << row.environment;
        EXPECT_EQ(value(said, "order"), row.order) << row.environment;
    }
}

TEST_F(Start, SaysWhyItFailed) {
    EXPECT_NE(start().find((root / "app/conf").string() + ": No such file"), std::string::npos);
    conf_at("app");
    write(root / "app/logs", "a file in the way");
    EXPECT_NE(start().find((root / "app/logs").string()), std::string::npos);
}

} // namespace
