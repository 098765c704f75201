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

struct JsonDocument : CopyTest {
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

    // Steps are commands, with the code behind " =" where it isn't 0, and files, "name<text".
    void run(const std::string &arguments, int code = 0) {
        const std::vector<std::string> words = split(arguments, ' ');
        verb = words[0] == "trash" ? "trash " + words.at(1) : words[0];
        const Outcome outcome = zev(root, arguments + " --json");
        EXPECT_EQ(outcome.code, code) << arguments << "\n" << outcome.out;
        for (const std::string &line : split(outcome.out, '\n')) check_line(line);
    }
    void play(const std::vector<std::string> &steps) {
        for (const std::string &step : steps) {
            const size_t text = step.find('<'), code = step.find(" =");
            if (text != step.npos)
                write(step.substr(0, text), step.substr(text + 1));
            else
                run(step.substr(0, code), code == step.npos ? 0 : stoi(step.substr(code + 2)));
        }
    }

    // ---- A project's life, with all that has a record

    void make_history() {
        test::write(home + "/plan.dxf", plan_with("12.5"));
        play({"init .", "status", "mkdir docs", "import ../plan.dxf", "note.txt<one",
              "docs/more.txt<more", "add ."});
        zev(home, "init beside");
        zev(home + "/beside", "import ../plan.dxf far.dwx");
        fs::copy_file(home + "/beside/far.dwx", root + "/far.dwx");
        play({"add far.dwx", "commit -m first"});
        std::string plan = plan_with("13.5");
        const std::string entry = "  0\nDICTIONARY\n  5\nD\n330\nC\n";
        test::write(home + "/plan.dxf", plan.erase(plan.find(entry), entry.size()));
        play({"import ../plan.dxf", "import ../plan.dxf ../none.dxf =1", "diff", "diff plan.dwx",
              "diff plan.dwx --full", "diff plan.dwx --stat", "commit -m second plan.dwx",
              "mv plan.dwx ground.dwx", "mv docs papers", "note.txt<two", "status", "changes", "ls",
              "commit -m third"});
    }
    void look_back() {
        play({"log --changes", "log --object 32 ground.dwx", "show", "show --stat HEAD~1",
              "blame ground.dwx", "cat HEAD:ground.dwx", "cat HEAD:note.txt",
              "export ground.dwx ../back.dxf", "log nowhere =3"});
    }
    void take_and_bring_back() {
        play({"revert =2", // a question that nobody answers
              "revert --all", "trash purge --all --yes", "rm papers note.txt", "trash find more",
              "undo", "rm note.txt", "note.txt<in the way", "trash list", "trash find nowhere =3",
              "trash restore note.txt =1", "trash restore note.txt --answer 1", "note.txt<three",
              "revert note.txt", "note.txt<four", "revert note.txt",
              "trash restore note.txt =2", // which of them?
              "loose.txt<loose", "cleanup"});
    }
    void go_apart_and_together() {
        play({"config zev.author Ada",
              "config zev.author --unset",
              "branch other",
              "branch",
              "switch other",
              std::string("note.txt<theirs\0", 16),
              "commit -m theirs note.txt",
              "switch master",
              std::string("note.txt<ours\0", 14),
              "commit -m ours note.txt",
              "merge other =4",
              "status",
              "commit -m early =4",
              "conflicts",
              "resolve --both note.txt",
              "commit -m settled",
              "branch side HEAD~1",
              "branch --delete side",
              "merge side =3",
              "merge other", // is in by now
              "switch --create tip",
              "papers/tip.txt<tip",
              "add papers",
              "commit -m tip",
              "switch master",
              "merge tip"});
    }
};

TEST_F(JsonDocument, EachRecordIsAsTold) {
    fs::remove_all(root + "/.git"); // to be made with a record
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
    for (const std::string &name : split(zev(root, "generate verbs").out, ' ')) {
        const std::string word = trimmed(name.substr(0, name.find('\n')));
        EXPECT_TRUE(silent.contains(word) || text.find("`zev " + word) != text.npos) << word;
    }
}

} // namespace
