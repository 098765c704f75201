// The user's language: what chooses it, and that texts of the library, of the command line and of
// its option parser come in one.
#include "zev_program.hpp"

#include <filesystem>
#include <optional>

namespace fs = std::filesystem;

namespace {

using std::string;

// A variable of the environment for as long as this lives; null takes it away.
class Variable {
  public:
    Variable(const char *name, const char *value) : name_(name) {
        if (const char *before = getenv(name)) before_ = before;
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~Variable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;

  private:
    const char *name_;
    std::optional<string> before_;
};

constexpr char kEnglish[] = "nothing has changed\n", kGerman[] = "nichts hat sich geändert\n";

struct Language : CopyTest {
    Outcome german(const string &arguments) {
        const Variable all("LC_ALL", "de_DE.UTF-8");
        return both(arguments);
    }

    // The program over a library and catalogues of its own, which lie in `home`/own.
    fs::path own() {
        const fs::path place = fs::path(home) / "own", built = fs::path(program_directory()) / "..";
        if (fs::exists(place)) return place;
        fs::create_directories(place / "lib");
        fs::copy(built / "conf", place / "conf", fs::copy_options::recursive);
        fs::copy_file(fs::canonical(built / "lib/libzev.so.1"), place / "lib/libzev.so.1");
        return place;
    }
    string by_own(const char *locale, const string &arguments) {
        const string library = (own() / "lib").string();
        return test::run("cd '" + root + "' && LC_ALL=" + locale + " LD_LIBRARY_PATH='" + library +
                         "' '" + program_directory() + "/zev' " + arguments + " 2>&1");
    }
};

TEST_F(Language, IsThatOfTheEnvironment) {
    const struct {
        const char *all, *messages, *lang, *expected;
    } kRows[] = {
        {nullptr, nullptr, "de_DE.UTF-8", kGerman},
        {nullptr, "de_AT@euro", "en_US.UTF-8", kGerman}, // no catalogue of its own, but a relative
        {"", "", "DE_de", kGerman},
        {"C", nullptr, "de_DE.UTF-8", kEnglish},
        {"POSIX", "de_DE.UTF-8", nullptr, kEnglish},
        {nullptr, nullptr, "xx_YY.UTF-8", kEnglish},
        {nullptr, nullptr, "../locales/de-DE", kEnglish},
        {nullptr, nullptr, nullptr, kEnglish},
    };
    for (const auto &row : kRows) {
        const Variable all("LC_ALL", row.all), messages("LC_MESSAGES", row.messages),
            lang("LANG", row.lang);
        EXPECT_EQ(out("status"), row.expected) << (row.lang ? row.lang : "none");
    }
}

TEST_F(Language, IsThatOfTheSettingsBeforeTheEnvironments) {
    const fs::path settings = own() / "conf/lang.conf";
    test::write(settings, R"({"language":"de-DE"})");
    EXPECT_EQ(by_own("C", "status"), kGerman);
    EXPECT_NE(by_own("C", "branch --delete x --json").find("no such branch"), string::npos);
    test::write(settings, R"({"language":"en-US"})");
    EXPECT_EQ(by_own("de_DE.UTF-8", "status"), kEnglish);
    for (const char *none : {R"({"language":""})", R"({"language":"../x"})", "{", ""}) {
        test::write(settings, none);
        EXPECT_EQ(by_own("de_DE.UTF-8", "status"), kGerman) << none;
    }
    fs::remove(settings);
    EXPECT_EQ(by_own("de_DE.UTF-8", "status"), kGerman);
}

// The library's words, its error, the system's, the command line's own.
TEST_F(Language, IsOneForAllThatIsSaid) {
    write("a", "text");
    EXPECT_EQ(german("add a").out, "Hinzugefügt       a\n");
    EXPECT_EQ(german("commit -m x --author '<a'").out,
              "zev: Der Autor braucht einen Namen ohne spitze Klammern: Ungültige Angabe\n");
    EXPECT_TRUE(german("mkdir a/b").out.ends_with("/a/b: Kein Ordner\n"));
    EXPECT_EQ(german("status").out, "+ hinzugefügt    a\n");
    EXPECT_EQ(german("branch --delete x").out, "zev: x: einen solchen Zweig gibt es nicht\n");
    ok("commit -m 'nothing has changed'"); // what users write stays
    EXPECT_NE(german("log").out.find("nothing has changed\n"), string::npos);
    EXPECT_EQ(german("rm a --yes").out.find("Gelöscht          a\n"), 0u);
}

TEST_F(Language, IsThatOfTheOptionParser) {
    const struct {
        const char *arguments, *expected;
    } kRows[] = {
        {"log --frob", "zev: Dieses Argument wurde nicht erwartet: --frob "
                       "(\"zev log --help\" sagt mehr)\n"},
        {"--color blue status", "zev: --color: „blue“ ist keines von {auto,always,never} "
                                "(\"zev status --help\" sagt mehr)\n"},
        {"--yes --no status",
         "zev: --yes geht nicht zusammen mit --no (\"zev status --help\" sagt mehr)\n"},
        {"mv a", "zev: \"zev mv\" braucht to (\"zev mv --help\" sagt mehr)\n"},
        {"trash lst", "zev: „lst“ ist kein Verb; ist es \"zev trash list\"? "
                      "(\"zev trash --help\" sagt mehr)\n"},
    };
    for (const auto &row : kRows) {
        const Outcome outcome = german(row.arguments);
        EXPECT_EQ(outcome.out, row.expected);
        EXPECT_EQ(outcome.code, 2) << row.arguments;
    }
    const string help = german("add --help").out;
    for (const char *part :
         {"Dateien für den nächsten Commit vormerken", "Aufruf: zev add [OPTIONEN]",
          "Optionen:", "Diese Hilfe zeigen", "Beispiele:\n  zev add plan.dwx\n"})
        EXPECT_NE(help.find(part), string::npos) << part << "\n" << help;
    EXPECT_NE(german("--help").out.find("Der Arbeitsordner:"), string::npos);
}

TEST_F(Language, IsEnglishForPrograms) {
    write("a", "text");
    for (const char *arguments :
         {"generate man add", "generate bash", "generate zsh", "status --json", "switch x --json",
          "log --frob --json", "add --help --json", "revert --json=true", "mkdir a/b --json"})
        EXPECT_EQ(german(arguments).out, both(arguments).out) << arguments;
}

TEST_F(Language, IsThatOfQuestionsAndTheirLetters) {
    keep({"a"}, "first");
    const Variable all("LC_ALL", "de_DE.UTF-8");
    const struct {
        const char *typed;
        int code;
    } kRows[] = {
        {"j\n", 0},
        {"y\n", 0},
        {" ALLES zurücksetzen \n", 0},
        {"M\n", 6},
        {"NEIN\n", 6},
        {"2\n", 6},
        {"\n", 6},                 // Enter is the safe answer
        {"\4", 6},                 // the end of input
        {"G\nwas?\n9\nnein\n", 6}, // asked until it is a choice
    };
    for (const auto &row : kRows) {
        write("a", "changed");
        const Outcome outcome = zev_on_terminal(root, "revert", row.typed);
        EXPECT_EQ(outcome.code, row.code) << row.typed << outcome.out;
        EXPECT_EQ(content("a"), row.code ? "changed" : "first a") << row.typed;
        for (const char *shown :
             {"1 Datei ist nicht wie im letzten Commit. Alles zurücksetzen?\r\n",
              "1) Alles zurücksetzen  [A, j, y]\r\n",
              "2) Meine Änderungen behalten  [M, n]  [Eingabe]\r\n",
              "Ihre Wahl, mit Nummer oder Buchstabe: "})
            EXPECT_NE(outcome.out.find(shown), string::npos) << outcome.out;
    }
    write("a", "changed"); // the English text of a button still answers
    EXPECT_EQ(code("revert --answer 'Keep my changes'"), 6);
    EXPECT_EQ(code("revert --answer 'Revert everything'"), 0);
}

// A catalogue is a file from outside.
TEST_F(Language, OfABadCatalogueIsEnglish) {
    const fs::path file = own() / "conf/zev/de-DE.lang";
    const auto status = [&](const string &text) {
        test::write(file, R"({"nothing has changed":")" + text + R"("})");
        return by_own("de_DE.UTF-8", "status");
    };
    EXPECT_EQ(status("100 % gut, %d %n %1$d %"), "100 % gut, %d %n %1$d %\n");
    for (const char *text : {"", "%s", "%1$s", "%9$s and %s", "%%%s"})
        EXPECT_EQ(status(text), kEnglish) << text;
    const auto missing = [&](const string &text) {
        test::write(file, R"({"%s: no such branch":")" + text + R"("})");
        return by_own("de_DE.UTF-8", "branch --delete %s");
    };
    EXPECT_EQ(missing("kein Zweig %%: %1$s, 5 %"), "zev: kein Zweig %: %s, 5 %\n");
    for (const char *text : {"kein Zweig", "%2$s", "%s %s", "%0$s", "%10$s"})
        EXPECT_EQ(missing(text), "zev: %s: no such branch\n") << text;
    for (const char *text : {"", "{", "[1,2]", "{\"nothing has changed\":7}", "\xff\xfe{}"}) {
        test::write(file, text);
        EXPECT_EQ(by_own("de_DE.UTF-8", "status"), kEnglish) << text;
    }
    fs::remove(file);
    EXPECT_EQ(by_own("de_DE.UTF-8", "status"), kEnglish);
}

} // namespace
