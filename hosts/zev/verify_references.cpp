// Forms of references:
//   a loose one   40 hexadecimal digits, or "ref: " and a full name; a line feed
//   packed-refs   lines: "# pack-refs with: <words>"; "<hex> <name>"; "^<hex>", of the tag above
//   a log         lines: "<hex> <hex> <who> <when>", perhaps a tab and a message; old and new id
// Git passes over a file among the references that is none. Here it is told.
#include "verify.hpp"

#include <fstream>
#include <iterator>
#include <sstream>

namespace host {

namespace fs = std::filesystem;

namespace {

std::string read_text(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool parse_id(std::string_view text, Oid *id) {
    return text.size() == 40 && text.find_first_not_of("0123456789abcdef") == text.npos &&
           zOidFromStr(id, wide(std::string(text)).c_str());
}

class References {
  public:
    References(Report &report, const WorkingCopy &copy)
        : report_(report), own_(own_directory(copy)), shared_(shared_directory(copy)) {}

    std::vector<Tip> run() {
        read_packed();
        read_loose();
        read_head();
        std::error_code ignored;
        for (const auto &entry :
             fs::recursive_directory_iterator(shared_ / "logs/refs/heads", ignored))
            if (entry.is_regular_file())
                check_log(entry.path(),
                          fs::path(entry.path().lexically_relative(shared_ / "logs")).string());
        std::vector<Tip> tips;
        for (const auto &[name, id] : ids_) tips.push_back({name, id});
        return tips;
    }

  private:
    void problem(const std::string &name, const std::string &what) {
        report_.problem({.path = name}, what);
    }

    void read_packed() {
        std::string text = read_text(shared_ / "packed-refs");
        if (!text.empty() && text.back() != '\n') problem("packed-refs", "ends within a line");
        std::istringstream in(text);
        bool ended = false;
        for (std::string line; std::getline(in, line) && !ended;) ended = !packed_line(line);
    }

    bool packed_line(const std::string &line) {
        Oid id;
        if (line.starts_with("# pack-refs with: ") && is_words(line.substr(18))) return true;
        if (line.starts_with('^') && parse_id(std::string_view(line).substr(1), &id)) return true;
        if (line.size() > 41 && line[40] == ' ' && parse_id(line.substr(0, 40), &id) &&
            is_text(line) && line.compare(41, 5, "refs/") == 0) {
            ids_[line.substr(41)] = id;
            return true;
        }
        problem("refs", "packed-refs has a line that is no reference");
        return false;
    }

    static bool is_words(const std::string &text) {
        return text.find_first_not_of("abcdefghijklmnopqrstuvwxyz- ") == text.npos;
    }

    void read_loose() {
        std::error_code error;
        for (const auto &entry : fs::recursive_directory_iterator(shared_ / "refs", error)) {
            const std::string file = entry.path().filename().string();
            if (entry.is_directory() || file.ends_with(".lock") || file.ends_with(".zlck"))
                continue;
            const std::string name = entry.path().lexically_relative(shared_).string();
            read_one(name, read_text(entry.path()), false);
        }
        if (error) problem("refs", error.message());
        for (const auto &[name, target] : links_)
            if (!ids_.contains(target)) problem(name, "leads to " + target + ", which there isn't");
    }

    void read_one(const std::string &name, const std::string &text, bool is_head) {
        Oid id;
        if (text.size() == 41 && text.back() == '\n' && parse_id(text.substr(0, 40), &id)) {
            ids_[name] = id;
        } else if (text.starts_with("ref: refs/") && text.back() == '\n' && is_text(text) &&
                   text.find('\n') == text.size() - 1) {
            const std::string target = text.substr(5, text.size() - 6);
            is_head ? check_head(target) : void(links_[name] = target);
        } else {
            problem(name, "is damaged: no id, and no name of another reference");
        }
    }

    void read_head() {
        std::error_code ignored;
        if (!fs::exists(own_ / "HEAD", ignored)) return problem("HEAD", "is missing");
        read_one("HEAD", read_text(own_ / "HEAD"), true);
    }

    // A branch that isn't born has never had a commit.
    void check_head(const std::string &target) {
        if (!target.starts_with(kHeads)) return problem("HEAD", "leads to no branch: " + target);
        if (ids_.contains(target)) return;
        if (!ids_.empty() && fs::exists(shared_ / "logs" / target)) return; // told by its log
        if (const auto [from, to] = last_of_log(own_ / "logs/HEAD"); !to.empty() && is_lost(to))
            problem("HEAD", "leads to " + target + ", which there isn't");
    }

    // HEAD's last commit is on no reference.
    bool is_lost(const std::string &digits) {
        if (digits.find_first_not_of('0') == digits.npos) return false;
        for (const auto &[name, id] : ids_)
            if (hex(&id) == digits) return true; // HEAD was there, under another name
        return ids_.empty();
    }

    static std::pair<std::string, std::string> last_of_log(const fs::path &path) {
        std::istringstream in(read_text(path));
        std::string last;
        for (std::string line; std::getline(in, line);)
            if (line.size() > 81) last = line;
        if (last.empty()) return {};
        return {last.substr(0, 40), last.substr(41, 40)};
    }

    // A branch is where its log says, or one step before, where a recovery put it back: into a
    // file. An older state among the packed ones comes up when that is gone.
    void check_log(const fs::path &log, const std::string &name) {
        const auto [from, to] = last_of_log(log);
        if (to.empty() || to.find_first_not_of('0') == to.npos) return;
        const auto at = ids_.find(name);
        if (at == ids_.end()) {
            if (from.find_first_not_of('0') == from.npos && links_.contains(name)) return;
            return problem(name, "is gone; by its log it was at " + to.substr(0, 8));
        }
        const std::string now = hex(&at->second);
        if (now != to && (now != from || !fs::exists(shared_ / name)))
            problem(name, "is at " + now.substr(0, 8) + ", by its log at " + to.substr(0, 8));
    }

    Report &report_;
    fs::path own_, shared_;
    std::map<std::string, Oid> ids_;
    std::map<std::string, std::string> links_;
};

} // namespace

std::vector<Tip> check_references(Report &report, const WorkingCopy &copy) {
    return References(report, copy).run();
}

} // namespace host
