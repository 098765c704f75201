// The program under test, and the drawings beside these tests.
#pragma once

#include "support.hpp"

#include <string>
#include <vector>

// Bytes of a file beside this one: from ZEV_TEST_DATA, else from tests/zev below the current
// directory or one above it.
std::string test_data(const std::string &name);

// plan.dxf with another radius of its circle 32.
std::string plan_with(const std::string &radius);

// Names that are patterns, options, comments or formats elsewhere, and what they would match there.
extern const std::vector<std::string> kOddNames, kNeighbours;

struct Outcome {
    int code;
    std::string out; // stdout
};

// Runs `zev ARGUMENTS` by a shell in `directory`; the program is ZEV_BIN, else beside the test.
// What it says on stderr is in `out` too if the arguments send it there.
Outcome zev(const std::string &directory, const std::string &arguments);

// The directory that the program lies in.
std::string program_directory();

// The same on a terminal of its own, on which `typed` was typed ahead; what comes on it is `out`.
Outcome zev_on_terminal(const std::string &directory, const std::string &arguments,
                        const std::string &typed);

std::vector<std::string> lines(const std::string &text);

// A member of a record, as text; what was no record says so.
std::string field(const std::string &line, const char16_t *path);

// A working copy of its own, beside which there is room for other files.
struct CopyTest : testing::Test {
    test::TempDir dir;
    std::string home = dir.path().string(), root = home + "/copy";

    void SetUp() override;
    std::string ok(const std::string &arguments); // what it says, stderr too
    void play(const std::string &commands);       // several, with "; " between them
    int code(const std::string &arguments) { return zev(root, arguments + " 2>/dev/null").code; }
    std::string git(const std::string &arguments); // the same of the system's git
    std::string sh(const std::string &command);    // and of a shell there
    Outcome both(const std::string &arguments) { return zev(root, arguments + " 2>&1"); }
    std::string out(const std::string &arguments) { return zev(root, arguments).out; }
    void keep(const std::vector<std::string> &names, const std::string &message); // a commit
    void draw(const std::string &dxf, const std::string &drawing = "plan.dwx");   // by an import
    bool there(const std::string &name);
    void write(const std::string &name, const std::string &text) {
        test::write(root + "/" + name, text);
    }
    std::string content(const std::string &name); // "(none)" for no file
};
