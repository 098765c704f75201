// Forms of references, as git takes them:
//   a loose one   40 hexadecimal digits, or "ref: " and a full name; then blanks, or a line's end
//                 and whatever follows, or nothing
//   packed-refs   lines: "# pack-refs with: <words>"; "<hex> <name>"; "^<hex>", of the tag above
//   a log         lines: "<hex> <hex> <who> <when>", perhaps a tab and a message; old and new id
// A file among the references whose name is none of a reference is nobody's: it is passed over.
#include "common/utf.hpp"
#include "system/flock.hpp"
#include "verify/files.hpp"
#include "verify/parts.hpp"

#include <cerrno>
#include <system_error>

namespace zev::verify {

namespace {

constexpr std::string_view kHeads = "refs/heads/", kLink = "ref: ", kBlanks = " \t\n\v\f\r";

// Git takes any bytes in a name, its users none but text: others are taken for damage.
bool is_text(const std::string &name) { return to_utf8(to_wide(name)) == name; }

bool is_reference_name(const std::string &name) {
    int valid = 0;
    return is_text(name) && !git_reference_name_is_valid(&valid, name.c_str()) && valid;
}

bool is_zero(std::string_view digits) { return digits.find_first_not_of('0') == digits.npos; }

// Calls visit for each line, without its end, as long as that gives true.
template <class F> void visit_lines(std::string_view text, F visit) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!visit(line)) return;
    }
}

// Old and new id of the last line of a log, in digits; empty without one.
struct Step {
    std::string from, to;
};

Step last_of_log(const std::u16string &path) {
    const std::string text = read_text(path);
    Step last;
    visit_lines(text, [&last](std::string_view line) {
        if (line.size() > 81) last = {std::string(line.substr(0, 40)), std::string(line, 41, 40)};
        return true;
    });
    return last;
}

class References {
  public:
    explicit References(Report &report)
        : report_(report), own_(own_directory(report.repository->handle.get())),
          shared_(shared_directory(report.repository->handle.get())) {}

    std::vector<Tip> run() {
        read_packed();
        read_loose();
        read_head();
        visit_files(shared_ + u"logs/refs/heads/", true,
                    [this](const std::u16string &path, const std::u16string &name) {
                        check_log(path, std::string(kHeads) + to_utf8(name));
                    });
        std::vector<Tip> tips;
        for (const auto &[name, id] : ids_) tips.push_back({name, id});
        return tips;
    }

  private:
    void damage(const std::string &name, const std::string &what) {
        if (report_.is_wanted(Z_VERIFY_REFERENCES)) report_.damage({.path = name}, what);
    }

    void read_packed() {
        const std::string text = read_text(shared_ + u"packed-refs");
        if (!text.empty() && text.back() != '\n') damage("packed-refs", "ends within a line");
        visit_lines(text, [this](std::string_view line) { return read_packed_line(line); });
    }

    bool read_packed_line(std::string_view line) {
        constexpr std::string_view kHead = "# pack-refs with: ";
        constexpr std::string_view kWords = "abcdefghijklmnopqrstuvwxyz- ";
        Oid id;
        if (line.starts_with(kHead) && line.find_first_not_of(kWords, kHead.size()) == line.npos)
            return true;
        if (line.starts_with('^') && parse_id(line.substr(1), &id)) return true;
        const std::string name(line.substr(std::min<size_t>(line.size(), 41)));
        if (name.starts_with("refs/") && line[40] == ' ' && parse_id(line.substr(0, 40), &id) &&
            is_reference_name(name)) {
            ids_[name] = id;
            return true;
        }
        damage("refs", "packed-refs has a line that is no reference");
        return false;
    }

    void read_loose() {
        const bool complete =
            visit_files(shared_ + u"refs/", true,
                        [this](const std::u16string &path, const std::u16string &name) {
                            const std::string full = "refs/" + to_utf8(name);
                            if (name.ends_with(kLockTail) || !is_reference_name(full)) return;
                            read_one(full, read_text(path), false);
                        });
        if (!complete) damage("refs", std::generic_category().message(errno));
        for (const auto &[name, target] : links_)
            if (!ids_.contains(target)) damage(name, "leads to " + target + ", which there isn't");
    }

    void read_one(const std::string &name, std::string_view text, bool is_head) {
        Oid id;
        const size_t end = text.find_last_not_of(kBlanks);
        text = text.substr(0, end == text.npos ? 0 : end + 1);
        const bool ends = text.size() <= 40 || kBlanks.find(text[40]) != kBlanks.npos;
        if (ends && parse_id(text.substr(0, 40), &id)) {
            ids_[name] = id;
            return;
        }
        const std::string target(text.starts_with(kLink) ? text.substr(kLink.size()) : "");
        if (!target.starts_with("refs/") || !is_reference_name(target))
            return damage(name, "is damaged: no id, and no name of another reference");
        if (is_head)
            check_head(target);
        else
            links_[name] = target;
    }

    void read_head() {
        if (!exists(own_ + u"HEAD")) return damage("HEAD", "is missing");
        read_one("HEAD", read_text(own_ + u"HEAD"), true);
    }

    // A branch that isn't born has never had a commit.
    void check_head(const std::string &target) {
        if (!target.starts_with(kHeads)) return damage("HEAD", "leads to no branch: " + target);
        if (ids_.contains(target)) return;
        if (!ids_.empty() && exists(shared_ + u"logs/" + to_wide(target)))
            return; // told by its log
        const Step last = last_of_log(own_ + u"logs/HEAD");
        if (!last.to.empty() && is_lost(last.to))
            damage("HEAD", "leads to " + target + ", which there isn't");
    }

    // HEAD's last commit is on no reference.
    bool is_lost(const std::string &digits) {
        if (is_zero(digits)) return false;
        for (const auto &[name, id] : ids_)
            if (hex(id) == digits) return true; // HEAD was there, under another name
        return ids_.empty();
    }

    // A branch is where its log says, or one step before, where a recovery put it back: into a
    // file. An older state among the packed ones comes up when that is gone.
    void check_log(const std::u16string &log, const std::string &name) {
        const auto [from, to] = last_of_log(log);
        if (to.empty() || is_zero(to)) return;
        const auto at = ids_.find(name);
        if (at == ids_.end()) {
            if (is_zero(from) && links_.contains(name)) return;
            return damage(name, "is gone; by its log it was at " + to.substr(0, 8));
        }
        const std::string now = hex(at->second);
        if (now != to && (now != from || !exists(shared_ + to_wide(name))))
            damage(name, "is at " + now.substr(0, 8) + ", by its log at " + to.substr(0, 8));
    }

    Report &report_;
    const std::u16string own_, shared_;
    std::map<std::string, Oid> ids_;
    std::map<std::string, std::string> links_;
};

} // namespace

std::vector<Tip> check_references(Report &report) { return References(report).run(); }

} // namespace zev::verify
