// Completion as the shells ask for it: by their own engines where they are installed.
#include "zev_program.hpp"

#include <filesystem>

namespace {

namespace fs = std::filesystem;

struct Completion : CopyTest {
    // What a shell offers for the last word of a line, one a line.
    using Shell = std::string (*)(Completion &, const std::string &line);

    std::string run(const std::string &command) {
        return sh("export PATH='" + program_directory() + "':\"$PATH\"; " + command);
    }

    static std::string bash(Completion &test, const std::string &line) {
        test::write(test.home + "/ask", "source <(zev generate bash)\n"
                                        "IFS=' ' read -ra COMP_WORDS <<<\"$1\"\n"
                                        "[[ $1 == *' ' ]] && COMP_WORDS+=('')\n"
                                        "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                                        "_zev\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n");
        return test.run("bash ../ask '" + line + "'");
    }
    static std::string fish(Completion &test, const std::string &line) {
        return test.run("HOME=.. fish --no-config -c 'zev generate fish | source; complete -C \"" +
                        line + "\"'");
    }
    // On a terminal that zsh makes. Keys count from where its line editor is ready: before, the
    // terminal itself would edit the line.
    static std::string zsh(Completion &test, const std::string &line) {
        test::write(test.home + "/_zev", test.run("zev generate zsh"));
        test::write(test.home + "/inner", "PS1= PROMPT_EOL_MARK= LISTMAX=9999 fpath=(.. $fpath)\n"
                                          "autoload -U compinit; compinit -u -d ../dump\n"
                                          "zle-line-init() { print begun }\n"
                                          "finish() { print ended; exit }\n"
                                          "zle -N zle-line-init; zle -N finish\n"
                                          "bindkey '^I' list-choices; bindkey '^G' finish\n");
        test::write(test.home + "/ask",
                    "zmodload zsh/zpty\n"
                    "zpty z zsh -f -i\n"
                    "zpty -w z 'source ../inner'\n"
                    "while zpty -r z part && [[ $part != *begun* ]]; do :; done\n"
                    "zpty -n -w z \"$1\"$'\\t\\a'\n"
                    "while zpty -r z part; do print -r -- $part; "
                    "[[ $part == *ended* ]] && break; done\n");
        return test.run("timeout 60 zsh -f ../ask '" + line + "'");
    }

    void expect_all(Shell shell) {
        struct {
            const char *line;
            std::vector<const char *> offered, not_offered;
        } const kCases[] = {
            {"zev sw", {"switch"}, {"status"}},
            {"zev -C .. sw", {"switch"}, {"status"}},
            {"zev trash re", {"restore"}, {"revert"}},
            {"zev trash ", {"restore", "purge"}, {"gone.dwx", "switch"}},
            {"zev ci --am", {"--amend"}, {"--answer"}},
            {"zev trash --json restore --n", {"--newest"}, {"--create"}},
            {"zev add ", {"ground.dwx"}, {"side/one", "v1.0"}},
            {"zev switch ", {"side/one", "v1.0", "HEAD"}, {"ground.dwx"}},
            {"zev diff ground.dwx v", {"v1.0"}, {"side/one", "v1.0v1.0", "HEAD"}},
            {"zev view ground.dwx v", {"v1.0"}, {"side/one"}},
            {"zev export ground.dwx --rev si", {"side/one"}, {"HEAD"}},
            {"zev export gr", {"ground.dwx"}, {"side/one"}},
            {"zev trash restore ", {"gone.dwx"}, {"ground.dwx", "purge"}},
            {"zev log ground.dwx --object 3", {"32"}, {"side/one"}},
        };
        for (const auto &[line, offered, not_offered] : kCases) {
            const std::string out = shell(*this, line);
            for (const char *word : offered)
                EXPECT_NE(out.find(word), std::string::npos) << line << "\n" << out;
            for (const char *word : not_offered)
                EXPECT_EQ(out.find(word), std::string::npos) << line << "\n" << out;
        }
    }

    void SetUp() override {
        CopyTest::SetUp();
        draw(test_data("plan.dxf"), "ground.dwx");
        keep({"gone.dwx"}, "first");
        ok("branch side/one");
        git("tag v1.0");
        ok("rm gone.dwx");
    }
};

TEST_F(Completion, OfBash) {
    expect_all(bash);
    // A name is no command, whatever it holds.
    git("branch 'a$(touch${IFS}run)b'");
    write("two words.dwx", "x");
    EXPECT_NE(bash(*this, "zev switch ").find("a$(touch"), std::string::npos);
    EXPECT_NE(bash(*this, "zev add two").find("two words.dwx"), std::string::npos);
    EXPECT_FALSE(there("run"));
    EXPECT_EQ(zev(home, "generate words revisions 2>&1").out, "");
}

TEST_F(Completion, OfFishAndZsh) {
    if (!system("command -v fish >/dev/null")) expect_all(fish);
    if (!system("command -v zsh >/dev/null")) expect_all(zsh);
}

} // namespace
