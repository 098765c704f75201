#include "zev_program.hpp"

#include "support.hpp"

namespace fs = std::filesystem;

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

Outcome zev(const std::string &directory, const std::string &arguments) {
    const char *given = getenv("ZEV_BIN");
    fs::path program = given ? given : fs::read_symlink("/proc/self/exe").parent_path() / "zev";
    Outcome outcome{};
    outcome.out = test::run("cd '" + directory + "' && env -u NO_COLOR ZEV_AUTHOR=Ada '" +
                                program.string() + "' " + arguments,
                            &outcome.code);
    return outcome;
}
