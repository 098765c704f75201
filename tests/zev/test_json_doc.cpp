// docs/json.md against what the program prints with --json, either way.
#include "support.hpp"
#include "zev_program.hpp"

#include <map>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::vector<std::string> split(const std::string &text, char at) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, at);) out.push_back(part);
    return out;
}

// What stands between backticks.
std::vector<std::string> ticked(const std::string &text) {
    std::vector<std::string> out;
    const std::vector<std::string> parts = split(text, '`');
    for (size_t i = 1; i < parts.size(); i += 2) out.push_back(parts[i]);
    return out;
}

std::string trimmed(const std::string &text) {
    const size_t begin = text.find_first_not_of(' ');
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

struct Member {
    std::string type;
    bool always = false;
    std::set<std::string> with; // verbs that always give it
    bool seen = false;
};

struct Type {
    std::map<std::string, Member> members;
    bool by_any = false, by_none = false;
    std::set<std::string> by, seen_by; // verbs
    bool seen = false;
};

// The tables of the document. A heading of the third level names a record, or a part of one.
class Document {
  public:
    explicit Document(const std::string &text) {
        Type *type = nullptr;
        for (const std::string &line : split(text, '\n')) {
            if (line.starts_with("#")) type = nullptr;
            if (line.starts_with("### ")) type = &types[ticked(line).at(0)];
            if (type && line.starts_with("| ")) read_member(*type, split(line, '|'));
            if (type && !line.starts_with("|")) read_prose(*type, line);
        }
    }
    std::map<std::string, Type> types;

  private:
    static void read_member(Type &type, const std::vector<std::string> &cells) {
        if (trimmed(cells.at(1)) == "Member") return;
        const std::string there = trimmed(cells.at(3));
        Member member;
        member.type = trimmed(cells[2]);
        member.always = there == "always";
        if (there.starts_with("with "))
            for (const std::string &verb : ticked(there)) member.with.insert(verb);
        EXPECT_TRUE(type.members.emplace(trimmed(cells[1]), member).second) << cells[1];
    }
    static void read_prose(Type &type, const std::string &line) {
        type.by_any |= line.starts_with("By any verb");
        type.by_none |= line.starts_with("By none");
        for (const std::string &name : ticked(line))
            if (name.starts_with("zev ")) type.by.insert(name.substr(4));
    }
};

std::string kind_of(const Json *node) {
    constexpr const char *kNames[] = {"null",   "string", "integer", "real",
                                      "object", "array",  "boolean"};
    return kNames[zJsonType(node)];
}

struct JsonDocument : testing::Test {
    test::TempDir dir;
    std::string home = dir.path().string(), root = home + "/copy";
    Document document{test_data("../../docs/json.md")};

    std::string verb; // that prints

    // ---- Records against the document

    void check_line(const std::string &line) {
        auto json = test::guard(zJsonReadTextual(test::wide(line).c_str()), zJsonFree);
        ASSERT_TRUE(json && zJsonIsObject(json.get())) << line;
        const std::string name = test::narrow(zJsonPathGetString(json.get(), u"type"));
        ASSERT_TRUE(document.types.contains(name)) << line;
        Type &type = document.types[name];
        type.seen_by.insert(verb);
        EXPECT_TRUE(type.by_any || type.by.contains(verb)) << verb << ": " << line;
        check_object(json.get(), type, line);
    }
    void check_object(Json *json, Type &type, const std::string &line) {
        type.seen = true;
        HashmapIter *walk = zJsonObjectNewiter(json);
        for (walk->first(walk); !walk->done(walk); walk->next(walk)) {
            const std::string name = test::narrow(walk->current(walk)->value.wide);
            const bool known = name == "type" || type.members.contains(name);
            EXPECT_TRUE(known) << name << " is not told of: " << line;
        }
        walk->free(walk);
        for (auto &[name, member] : type.members) {
            Json *node = zJsonObjectAt(json, test::wide(name).c_str());
            if (node) check_member(node, member, name, line);
            const bool wanted = member.always || member.with.contains(verb);
            EXPECT_TRUE(node || !wanted) << name << " is missing: " << line;
            EXPECT_TRUE(!node || wanted || member.with.empty()) << name << ": " << line;
        }
    }
    void check_member(Json *node, Member &member, const std::string &name,
                      const std::string &line) {
        member.seen = true;
        EXPECT_EQ(kind_of(node), member.type.substr(0, member.type.find(' '))) << name << line;
        for (const std::string &part : ticked(member.type))
            for (uint64_t i = 0; i < zJsonArraySize(node); ++i)
                check_object(zJsonArrayAt(node, i), document.types.at(part), line);
    }

    // ---- Commands

    void run(const std::string &arguments, int code = 0) {
        const std::vector<std::string> words = split(arguments, ' ');
        verb = words[0] == "trash" ? "trash " + words.at(1) : words[0];
        const Outcome outcome = zev(root, arguments + " --json");
        EXPECT_EQ(outcome.code, code) << arguments << "\n" << outcome.out;
        for (const std::string &line : split(outcome.out, '\n')) check_line(line);
    }
    void git(const std::string &arguments) {
        test::run("git -C '" + root + "' -c user.name=Ben -c user.email= " + arguments + " 2>&1");
    }
    // A drawing file with other values in it.
    void draw(const std::string &name, const std::string &radius, bool dictionary = true) {
        std::string plan = test_data("plan.dxf");
        plan.replace(plan.find("12.5"), 4, radius);
        const std::string entry = "  0\nDICTIONARY\n  5\nD\n330\nC\n";
        if (!dictionary) plan.erase(plan.find(entry), entry.size());
        test::write(home + "/" + name, plan);
    }
    void file(const std::string &name, const std::string &content) {
        test::write(root + "/" + name, content);
    }

    // ---- A project's life, with all that has a record

    void make_history() {
        run("init ."); // by now there is a directory
        run("status");
        run("mkdir docs");
        draw("plan.dxf", "12.5");
        run("import ../plan.dxf");
        file("note.txt", "one");
        file("docs/more.txt", "more");
        run("add .");
        zev(home, "init beside");
        zev(home + "/beside", "import ../plan.dxf far.dwx");
        std::filesystem::copy_file(home + "/beside/far.dwx", root + "/far.dwx");
        run("add far.dwx");
        run("commit -m first");
        draw("plan.dxf", "13.5", false);
        run("import ../plan.dxf");
        run("import ../plan.dxf ../none.dxf", 1);
        run("diff");
        run("diff plan.dwx");
        run("diff plan.dwx --full");
        run("diff plan.dwx --stat");
        run("commit -m second plan.dwx");
        run("mv plan.dwx ground.dwx");
        run("mv docs papers");
        file("note.txt", "two");
        run("status");
        run("changes");
        run("ls");
        run("commit -m third");
    }
    void look_back() {
        run("log --changes");
        run("log --object 32 ground.dwx");
        run("show");
        run("show --stat HEAD~1");
        run("blame ground.dwx");
        run("cat HEAD:ground.dwx");
        run("cat HEAD:note.txt");
        run("export ground.dwx ../back.dxf");
        run("log nowhere", 3);
    }
    void take_and_bring_back() {
        run("revert", 2); // a question that nobody answers
        run("revert --all");
        run("trash purge --all --yes");
        run("rm papers note.txt");
        run("trash find more");
        run("undo");
        run("rm note.txt");
        file("note.txt", "in the way");
        run("trash list");
        run("trash find nowhere", 3);
        run("trash restore note.txt", 1);
        run("trash restore note.txt --answer 1");
        file("note.txt", "three");
        run("revert note.txt");
        file("note.txt", "four");
        run("revert note.txt");
        run("trash restore note.txt", 2); // which of them?
        file("loose.txt", "loose");
        run("cleanup");
    }
    void go_apart_and_together() {
        run("config zev.author Ada");
        run("config zev.author --unset");
        run("branch other");
        run("branch");
        run("switch other");
        file("note.txt", std::string("theirs\0", 7));
        run("commit -m theirs note.txt");
        run("switch master");
        file("note.txt", std::string("ours\0", 5));
        run("commit -m ours note.txt");
        run("merge other", 4);
        run("status");
        run("commit -m early", 4);
        run("conflicts");
        run("resolve --both note.txt");
        run("commit -m settled");
        run("branch side HEAD~1");
        run("branch --delete side");
        run("merge side", 3);
        run("merge other"); // is in by now
        run("switch --create tip");
        file("papers/tip.txt", "tip");
        run("add papers");
        run("commit -m tip");
        run("switch master");
        run("merge tip");
    }
};

TEST_F(JsonDocument, EachRecordIsAsTold) {
    fs::create_directory(root);
    make_history();
    look_back();
    take_and_bring_back();
    go_apart_and_together();
    run("verify");
    run("verify --quick");
    fs::remove_all(root + "/.git/tables");
    run("verify", 1);

    for (const auto &[name, type] : document.types) {
        EXPECT_EQ(type.seen, !type.by_none) << name;
        for (const std::string &by : type.by)
            EXPECT_TRUE(type.seen_by.contains(by)) << name << " never came from " << by;
        for (const auto &[member, told] : type.members) {
            const bool rare = (name == "action" && member == "message") || // takes a broken disk
                              (name == "merge" && member == "left");       // or a file in use
            EXPECT_TRUE(told.seen || type.by_none || rare)
                << name << ": " << member << " was never there";
        }
    }
}

// A verb that is new has its records told of, or prints those that any verb does.
TEST_F(JsonDocument, EachVerbIsTold) {
    const std::string text = test_data("../../docs/json.md");
    const std::set<std::string> silent = {"add", "mkdir", "mv", "rm"}; // `action` and the like
    fs::create_directory(root);
    for (const std::string &name : split(zev(root, "generate verbs").out, ' ')) {
        const std::string word = trimmed(name.substr(0, name.find('\n')));
        EXPECT_TRUE(silent.contains(word) || text.find("`zev " + word) != text.npos) << word;
    }
}

} // namespace
