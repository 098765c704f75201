#include "zev_program.hpp"

#include <algorithm>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A shell's command. Nobody is there to answer a question. It is by Ada, unless ZEV_TEST_AUTHOR
// says otherwise.
std::string command(const std::string &directory, const std::string &arguments) {
    const char *author = getenv("ZEV_TEST_AUTHOR");
    return "cd '" + directory + "' && env -u NO_COLOR ZEV_AUTHOR=" + (author ? author : "Ada") +
           " '" + program_directory() + "/zev' " + arguments;
}

} // namespace

std::string program_directory() {
    const char *given = getenv("ZEV_BIN");
    const fs::path program = given ? given : fs::read_symlink("/proc/self/exe").string();
    return program.parent_path().string();
}

std::string test_data(const std::string &name) {
    fs::path directory;
    if (const char *given = getenv("ZEV_TEST_DATA")) directory = given;
    for (fs::path at = fs::current_path(); directory.empty(); at = at.parent_path()) {
        if (fs::exists(at / "tests/zev/plan.dxf")) directory = at / "tests/zev";
        if (at == at.parent_path()) break;
    }
    if (!fs::exists(directory / name)) throw std::runtime_error(name + ": set ZEV_TEST_DATA");
    return test::read(directory / name);
}

std::string plan_with(const std::string &radius) {
    std::string plan = test_data("plan.dxf");
    return plan.replace(plan.find("12.5"), 4, radius);
}

const std::vector<std::string> kOddNames = {"#1",
                                            "!x",
                                            "a[1]",
                                            "st*r",
                                            "wh?t",
                                            "100%s%n",
                                            "tr ",
                                            "q\"q ",
                                            "図面－１階",
                                            "a\xcc\x88.txt",
                                            std::string(196, 'l')};
const std::vector<std::string> kNeighbours = {
    "1", "x", "a1", "star", "what", "100", "tr", "\xc3\xa4.txt", std::string(195, 'l')};

Outcome zev(const std::string &directory, const std::string &arguments) {
    Outcome outcome{};
    outcome.out = test::run("exec </dev/null; " + command(directory, arguments), &outcome.code);
    return outcome;
}

Outcome zev_on_terminal(const std::string &directory, const std::string &arguments,
                        const std::string &typed) {
    const std::string line = command(directory, arguments);
    int terminal = -1, status = 0;
    const pid_t process = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (process == 0) {
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    if (process < 0) throw std::runtime_error("no pseudo-terminal");
    Outcome outcome{};
    if (write(terminal, typed.data(), typed.size()) < 0) outcome.out = "can't type";
    char block[4096];
    for (ssize_t count; (count = read(terminal, block, sizeof block)) > 0;)
        outcome.out.append(block, static_cast<size_t>(count));
    waitpid(process, &status, 0);
    close(terminal);
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::vector<std::string> lines(const std::string &text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

std::string field(const std::string &line, const char16_t *path) {
    auto json = test::guard(zJsonReadTextual(test::wide(line).c_str()), zJsonFree);
    return json ? test::narrow(zJsonPathGetString(json.get(), path)) : "no JSON: " + line;
}

void CopyTest::SetUp() {
    setenv("XDG_DATA_HOME", (home + "/desktop").c_str(), 1); // its trash
    ASSERT_EQ(zev(home, "init copy").code, 0);
}

std::string CopyTest::ok(const std::string &arguments) {
    Outcome outcome = zev(root, arguments + " 2>&1");
    EXPECT_EQ(outcome.code, 0) << arguments << "\n" << outcome.out;
    return outcome.out;
}

void CopyTest::play(const std::string &commands) {
    for (size_t at = 0, end; at < commands.size(); at = end + 2) {
        end = std::min(commands.find("; ", at), commands.size());
        ok(commands.substr(at, end - at));
    }
}

std::string CopyTest::git(const std::string &arguments) {
    return test::run("git -C '" + root +
                     "' -c core.quotepath=off -c user.name=Ada -c user.email=ada@example.org " +
                     arguments + " 2>&1");
}

std::string CopyTest::sh(const std::string &command) {
    int status = -1;
    const std::string out = test::run("cd '" + root + "' && { " + command + "; } 2>&1", &status);
    EXPECT_EQ(status, 0) << command << out;
    return out;
}

void CopyTest::keep(const std::vector<std::string> &names, const std::string &message) {
    for (const std::string &name : names) write(name, message + " " + name);
    ok("add .");
    ok("commit -m " + message);
}

void CopyTest::draw(const std::string &dxf, const std::string &drawing) {
    test::write(home + "/in.dxf", dxf);
    ok("import ../in.dxf " + drawing);
}

bool CopyTest::there(const std::string &name) {
    return fs::exists(fs::symlink_status(root + "/" + name));
}

std::string CopyTest::content(const std::string &name) {
    return fs::exists(root + "/" + name) ? test::read(root + "/" + name) : "(none)";
}
