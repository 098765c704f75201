// The program under test, and the drawings beside these tests.
#pragma once

#include <string>
#include <vector>

// Bytes of a file beside this one: from ZEV_TEST_DATA, else from tests/zev below the current
// directory or one above it.
std::string test_data(const std::string &name);

struct Outcome {
    int code;
    std::string out; // stdout
};

// Runs `zev ARGUMENTS` by a shell in `directory`; the program is ZEV_BIN, else beside the test.
// What it says on stderr is in `out` too if the arguments send it there.
Outcome zev(const std::string &directory, const std::string &arguments);

// The same on a terminal of its own, on which `typed` was typed ahead; what comes on it is `out`.
Outcome zev_on_terminal(const std::string &directory, const std::string &arguments,
                        const std::string &typed);
