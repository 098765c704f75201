#include "support.hpp"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>

namespace test {

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "zev-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary directory");
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void write(const std::filesystem::path &path, std::string_view bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string read(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string run(const std::string &command, int *status) {
    FILE *pipe = popen(command.c_str(), "r");
    if (!pipe) return {};
    std::string text;
    char block[4096];
    while (size_t count = fread(block, 1, sizeof block, pipe)) text.append(block, count);
    int result = pclose(pipe);
    if (status) *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    return text;
}

CommaLocale::CommaLocale() : before_(setlocale(LC_NUMERIC, nullptr)) {
    write(dir_.path() / "source", "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                  "grouping 3\nEND LC_NUMERIC\n");
    run("cd " + dir_.path().string() + " && localedef -c -i source ./comma 2>&1");
    setenv("LOCPATH", dir_.path().c_str(), 1);
    char text[8];
    if (!setlocale(LC_NUMERIC, "comma") || snprintf(text, sizeof text, "%.1f", 1.5) != 3 ||
        text[1] != ',')
        throw std::runtime_error("no locale with a decimal comma");
}

CommaLocale::~CommaLocale() {
    unsetenv("LOCPATH");
    setlocale(LC_NUMERIC, before_.c_str());
}

} // namespace test

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!getenv("ZEV_TEST_REPORT")) setenv("LC_ALL", "C.UTF-8", 1); // programs speak English
    if (!zGlobalInit(u"en-US", nullptr)) {
        fprintf(stderr, "zGlobalInit: %s\n", test::narrow(zErrorDetail()).c_str());
        return 1;
    }
    int result = RUN_ALL_TESTS();
    zGlobalCleanup();
    return result;
}
