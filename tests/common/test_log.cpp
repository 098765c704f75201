// Log: which line goes where, and what keeps the files whole.
#include "support.hpp"

#include <cerrno>
#include <regex>
#include <thread>
#include <vector>

using namespace test;

namespace {

// The library's log moved into a directory of the test's own.
class Log : public testing::Test {
  protected:
    TempDir dir;
    std::u16string former;

    void SetUp() override {
        zwchar appdata[Z_PATH_MAX];
        zPathGetAppData(appdata);
        former = appdata;
        ASSERT_TRUE(zPathSetAppData((dir / u"data").c_str(), nullptr));
    }
    void TearDown() override { zPathSetAppData(former.c_str(), nullptr); }

    std::filesystem::path file(const char *name) { return dir.path() / "data/logs" / name; }

    template <class F> static std::string console(F work) {
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        work();
        fflush(stdout);
        return "out[" + testing::internal::GetCapturedStdout() + "]err[" +
               testing::internal::GetCapturedStderr() + "]";
    }
};

TEST_F(Log, EachLevelHasItsPlace) {
    const struct {
        int32_t level;
        const char *name, *file;
        bool error;
    } kRows[] = {
        {0, "emerg", "error.log", true},     {4, "warning", "error.log", true},
        {5, "notice", "message.log", false}, {6, "info", "message.log", false},
        {7, "debug", nullptr, false},        {8, "access", "access.log", false},
        {99, "debug", nullptr, false},       {-1, "debug", nullptr, false},
    };
    for (const auto &row : kRows) {
        std::filesystem::remove_all(dir.path() / "data");
        const std::string shown = console([&] {
            EXPECT_TRUE(zLogReport("objects/index", 7, row.level, 4, u"%s %d", u"grün", 5));
        });
        const std::regex line("<zev\\." + std::string(row.name) +
                              R"(>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d test_\w+\[)" +
                              std::to_string(getpid()) + "\\]: gr\xC3\xBCn 5" +
                              (row.error ? " @objects/index\\(7\\)\n" : "\n"));
        const std::string text = shown.substr(4 + (row.error ? 5 : 0));
        EXPECT_TRUE(std::regex_search(text, line, std::regex_constants::match_continuous)) << shown;
        EXPECT_EQ(shown.starts_with("out[]"), row.error);
        const bool directory = exists(dir.path() / "data/logs");
        EXPECT_EQ(directory, row.file != nullptr);
        const std::string logged = row.file ? read(file(row.file)) : text;
        EXPECT_TRUE(std::regex_match(logged, line) || !row.file) << logged;
    }
}

TEST_F(Log, TextIsMadeSafeAndCutAtALine) {
    auto logged = [&](const zwchar *format, const zwchar *text) {
        std::filesystem::remove_all(dir.path() / "data");
        console([&] { zLogReport("a", 1, 6, 9, format, text); });
        const std::string line = read(file("message.log"));
        EXPECT_TRUE(line.starts_with("<ukn.info>")) << line;
        return line.substr(line.find("]: ") + 3);
    };
    EXPECT_EQ(logged(u"%s", u"a\r\nb\t\x1B[2J\x7F\x85"), "a\\r\\nb\\t\\x1b[2J\\x7f\\x85\n");
    EXPECT_EQ(logged(nullptr, nullptr), "Unknown Error\n");

    // A pair at every offset: whichever half would be cut goes with the other.
    for (size_t lead = 0; lead < 2; ++lead) {
        std::u16string text(lead, u'x');
        for (int i = 0; i < 700; ++i) text += u"\U0001F4D0";
        logged(u"%s", text.c_str());
        const std::u16string line = wide(read(file("message.log")));
        EXPECT_TRUE(line.size() == 1024 || line.size() == 1023) << line.size();
        EXPECT_EQ(line.back(), u'\n');
        EXPECT_EQ(line.find(u'\uFFFD'), line.npos);
    }
}

TEST_F(Log, RotatesAbove32MiB) {
    std::filesystem::create_directories(dir.path() / "data/logs");
    const auto log = file("message.log"), old = file("message.old");
    auto size_after_line = [&](uint64_t size) {
        write(log, "");
        resize_file(log, size);
        console([] { zLogReport("a", 1, 6, 4, u"next"); });
        return file_size(log);
    };
    write(old, "former");
    EXPECT_GT(size_after_line(0x2000000), 0x2000000u);
    EXPECT_EQ(read(old), "former");
    EXPECT_LT(size_after_line(0x2000001), 200u);
    EXPECT_EQ(file_size(old), 0x2000001u);

    // What can't be rotated is appended to.
    std::filesystem::remove(old);
    write(old / "inside", "");
    EXPECT_GT(size_after_line(0x2000001), 0x2000001u);
}

TEST_F(Log, AFileThatCannotBeOpenedIsRaisedAndTheConsoleHasTheLine) {
    write(dir.path() / "data", "a file in the way");
    const std::string shown = console([&] {
        zRaiseLocked(nullptr);
        EXPECT_FALSE(zLogReport("a", 1, 3, 4, u"%s", zErrorDetail()));
    });
    EXPECT_NE(zErrorClass(), 7);
    EXPECT_NE(shown.find("Permission denied @a(1)"), std::string::npos) << shown;
}

TEST_F(Log, LinesOfManyThreadsStayWhole) {
    errno = ERANGE;
    console([&] {
        zLogReport("a", 1, 6, 4, u"line of thread");
        EXPECT_EQ(errno, ERANGE);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([i] {
                for (int n = 0; n < 50; ++n) zLogReport("a", 1, 6, 4, u"line of thread %d", i);
            });
        for (std::thread &thread : threads) thread.join();
    });
    std::ifstream lines(file("message.log"));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_TRUE(std::regex_match(line, std::regex("<zev.info>.*: line of thread( \\d)?")))
            << line;
    EXPECT_EQ(count, 201);
}

} // namespace
