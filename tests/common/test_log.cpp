// Log: which line goes where, and what keeps the files whole.
#include "child.hpp"
#include "support.hpp"
#include "system/os.hpp"

#include <cerrno>
#include <fcntl.h>
#include <regex>
#include <thread>
#include <vector>

using namespace test;

namespace {

// The library's log, and this user's, moved into a directory of the test's own.
class Log : public testing::Test {
  protected:
    TempDir dir;
    std::u16string former;

    void SetUp() override {
        zwchar appdata[Z_PATH_MAX];
        zPathGetAppData(appdata);
        former = appdata;
        ASSERT_TRUE(zPathSetAppData((dir / u"data").c_str(), nullptr));
        setenv("XDG_STATE_HOME", (dir.path() / "state").c_str(), 1);
    }
    void TearDown() override {
        zPathSetAppData(former.c_str(), nullptr);
        unsetenv("XDG_STATE_HOME");
    }

    std::filesystem::path file(const char *name) { return dir.path() / "data/logs" / name; }
    // An empty place for the library's log.
    std::filesystem::path renewed(const char *name) {
        std::filesystem::remove_all(dir.path() / "data");
        create_directories(file(name).parent_path());
        return file(name);
    }
    std::filesystem::path own(const char *name) { return dir.path() / "state/zev/logs" / name; }

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
        EXPECT_EQ(exists(dir.path() / "data/logs"), row.file != nullptr);
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
        EXPECT_TRUE(line.ends_with(u'\n') && line.find(u'\uFFFD') == line.npos);
    }
}

TEST_F(Log, RotatesAbove32MiB) {
    const auto log = renewed("message.log"), old = file("message.old");
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
    for (const char *place : {"data", "state"}) write(dir.path() / place, "a file in the way");
    auto refused = [&] {
        const std::string shown = console([&] {
            zRaiseLocked(nullptr);
            EXPECT_FALSE(zLogReport("a", 1, 3, 4, u"%s", zErrorDetail()));
        });
        EXPECT_NE(zErrorClass(), 7);
        EXPECT_NE(shown.find("Permission denied @a(1)"), std::string::npos) << shown;
    };
    refused();
    zLogConsole(false); // then the failure that nobody was shown stays
    zRaiseLocked(nullptr);
    errno = EXDEV;
    EXPECT_FALSE(zLogReport("a", 1, 3, 4, u"%s", zErrorDetail()));
    EXPECT_EQ(std::pair(zErrorClass(), errno), std::pair(7, EXDEV));
    zLogConsole(true);
    const auto state = dir.path() / "state"; // another user's, who leads it elsewhere
    remove(state);
    create_directories(state);
    create_directory_symlink(dir.path(), state / "zev");
    if (chown(state.c_str(), 65534, 65534) == 0) refused();
    EXPECT_FALSE(exists(dir.path() / "logs"));
}

// Where anybody may put a name, none may lead a line elsewhere, or hold it up.
TEST_F(Log, WritesOnlyWhereItMay) {
    const std::filesystem::path victim = dir.path() / "victim", log = file("error.log");
    const struct {
        const char *reason;
        std::function<bool()> lay;
    } kRows[] = {
        {"a link", [&] { return symlink(victim.c_str(), log.c_str()) == 0; }},
        {"one to nothing", [&] { return symlink((victim / "no").c_str(), log.c_str()) == 0; }},
        {"a second name", [&] { return link(victim.c_str(), log.c_str()) == 0; }},
        {"a pipe", [&] { return mkfifo(log.c_str(), 0666) == 0; }},
        {"no room of ours", [&] { return chown(log.parent_path().c_str(), 65534, 65534) == 0; }},
        {"somebody's", [&] { return write(log, ""), chown(log.c_str(), 65534, 65534) == 0; }},
    };
    for (const auto &row : kRows) {
        std::filesystem::remove_all(dir.path() / "state");
        renewed("");
        write(victim, "kept");
        if (!row.lay()) continue; // only root gives away
        console([&] {
            zRaiseLocked(nullptr);
            EXPECT_TRUE(zLogReport("a", 1, 3, 4, u"line")) << row.reason;
        });
        EXPECT_EQ(zErrorClass(), 7) << row.reason; // what the caller reported stands
        EXPECT_EQ(read(victim), "kept") << row.reason;
        EXPECT_NE(read(own("error.log")).find("line"), std::string::npos) << row.reason;
    }
}

TEST_F(Log, ModesOfNewFilesOnly) {
    chmod(renewed("").parent_path().c_str(), 01777);
    chmod(dir.path().c_str(), 0755);
    write(file("access.log"), "");
    chmod(file("access.log").c_str(), 0600);
    console([] { EXPECT_TRUE(zLogReport("a", 1, 8, 4, u"x") && zLogReport("a", 1, 6, 4, u"x")); });
    using std::filesystem::perms, std::filesystem::status;
    EXPECT_EQ(status(file("access.log")).permissions(), perms{0600});
    EXPECT_EQ(status(file("message.log")).permissions(), perms{0666}); // serves all
    if (geteuid() != 0) return;
    Child child([&] { // a plain user has the one, and a place of his own for the other
        if (!unprivileged()) return 1;
        setenv("XDG_STATE_HOME", ("/tmp/zev-state-" + std::to_string(getpid())).c_str(), 1);
        const std::string state = getenv("XDG_STATE_HOME"), logs = state + "/zev/logs";
        const bool both = zLogReport("a", 1, 8, 4, u"y") && zLogReport("a", 1, 6, 4, u"y");
        const bool right = exists(std::filesystem::path(logs) / "access.log") &&
                           status(logs).permissions() == perms{0700} &&
                           !exists(std::filesystem::path(logs) / "message.log");
        std::filesystem::remove_all(state);
        return both && right ? 0 : 2;
    });
    EXPECT_EQ(child.wait(), 0);
}

// Neither a reader that is gone nor a closed console is the host's end, or a data file's.
TEST_F(Log, LostConsoles) {
    const auto reports = [](int32_t level) { return zLogReport("a", 1, level, 4, u"x"); };
    const std::function<bool()> kLosses[] = {
        [&] { // nobody is there any more
            int ends[2];
            if (pipe(ends) != 0) return false;
            close(ends[0]);
            dup2(ends[1], 1);
            dup2(ends[1], 2);
            return reports(3) && reports(6);
        },
        [&] { // it is full, and nobody reads
            int ends[2];
            if (pipe2(ends, O_NONBLOCK) != 0) return false;
            while (write(ends[1], "", 1) == 1) {
            }
            fcntl(ends[1], F_SETFL, 0);
            dup2(ends[1], 1);
            alarm(20);
            return reports(6);
        },
        [&] { // and what it refuses is nothing of the host's
            const std::string later = (dir.path() / "later").string();
            const int taken = open(later.c_str(), O_WRONLY | O_CREAT, 0600);
            dup2(open("/dev/full", O_WRONLY), 1);
            if (!reports(6) || ferror(stdout)) return false;
            dup2(taken, 1);
            printf("own");
            return fflush(stdout) == 0 && read(later) == "own";
        },
        [] {
            zGlobalCleanup();
            for (int fd = 0; fd <= 2; ++fd) close(fd);
            return zGlobalInit(nullptr, nullptr) && open("/dev/null", O_RDONLY) > 2;
        },
        [&] {                                                 // where there is no /dev
            if (chroot(dir.path().c_str()) != 0) return true; // only root may
            for (int fd = 0; fd <= 2; ++fd) close(fd);
            zev::os::occupy_standard();
            return open("/", O_RDONLY) > 2;
        },
        [&] { // the host's own signal is not taken from him
            sigset_t one;
            sigemptyset(&one);
            sigaddset(&one, SIGPIPE);
            sigprocmask(SIG_BLOCK, &one, nullptr);
            raise(SIGPIPE);
            reports(3);
            return sigpending(&one) == 0 && sigismember(&one, SIGPIPE);
        }};
    for (const auto &lose : kLosses)
        EXPECT_EQ(Child([&] { return lose() ? 0 : 1; }).wait(), 0) << &lose - kLosses;
}

TEST_F(Log, LinesOfManyThreadsStayWhole) {
    console([&] {
        errno = ERANGE;
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
