// Output: what a verb says, as text for people or as one JSON object a line.
//
// Results go to stdout; in text, warnings, errors and progress go to stderr. With --json
// everything but progress is on stdout, each object with a member "type".
#pragma once

#include "host.hpp"
#include "pager.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace host {

enum class Colour { plain, bold, dim, red, green, yellow, cyan };
enum class ColourMode { automatic, always, never };

// What is below a blank and no white space becomes a blank: no commit holds it.
std::string clean(std::string text);

std::string trimmed(const std::string &text); // of blanks and tabs

std::string grouped(uint64_t number);                    // "4,147"
std::string count_of(uint64_t number, const char *noun); // "4,147 objects"
std::string plural(uint64_t number, const char *noun);   // "4147 items"
std::string bytes_text(uint64_t bytes);                  // "8.7 KB"

// Others' words on one line: control characters, marks that turn the direction of writing and bytes
// that are no UTF-8 as \n, \t, \x1b, \u202e, \xff. What is so already stays.
std::string visible(std::string_view text, std::string_view kept = {}); // but for the `kept` ones

// A keep-file stands for its directory.
std::string shown_path(const zwchar *path);

// A path of the working copy as it can be typed: relative to the directory below the top in which
// the user stands. Before anything is said of that, and with --full, it counts from the top.
void stand_in(const std::string &directory);
void show_full_paths();
std::string typed_path(const std::string &path); // a keep-file stands for its directory here, too
inline std::string typed_path(const zwchar *path) { return typed_path(narrow(path)); }

// One JSON object under way.
class Record {
  public:
    Record(); // a member of another one
    explicit Record(const char *type);
    Record &set(const zwchar *name, const std::string &text);
    Record &set(const zwchar *name, const char *text) { return set(name, std::string(text)); }
    Record &set(const zwchar *name, const zwchar *text) { return set(name, narrow(text)); }
    Record &set(const zwchar *name, const Oid *id) { return put(name, zJsonNewId(id)); }
    Record &set(const zwchar *name, int64_t value) { return put(name, zJsonNewInt(value)); }
    Record &set(const zwchar *name, int value) { return put(name, zJsonNewInt(value)); }
    Record &set(const zwchar *name, uint64_t value) {
        return put(name, zJsonNewInt(static_cast<int64_t>(value)));
    }
    Record &set(const zwchar *name, bool value) { return put(name, zJsonNewBoolean(value)); }
    // Takes the value over.
    Record &set(const zwchar *name, OwnedJson value) { return put(name, value.release()); }
    Record &set(const zwchar *name, const std::vector<std::string> &texts);
    Record &set(const zwchar *name, std::vector<Record> &&members);
    std::string text() const;

  private:
    Record &put(const zwchar *name, Json *value);
    OwnedJson object_;
};

class Output {
  public:
    // Chooses by mode, terminal and NO_COLOR.
    void setup(bool as_json, ColourMode mode);

    // Text on a terminal goes through the pager from here on, unless none is wanted.
    void page();
    void leave_pager_off() { may_page_ = false; }
    // The user has left the pager: nobody reads what else there is to say.
    bool unread() const { return unread_; }

    bool json() const { return json_; }
    std::string paint(Colour colour, const std::string &text) const;

    // What is given as a literal is said in the user's language, here and where warnings are.
    void line(const char *text) { line(say(text)); }
    void warn(const char *text) { warn(say(text)); }
    void line(const std::string &text); // text mode: stdout, what is in it is made visible
    void text(const std::string &text); // the same for several lines
    void record(const Record &record);  // JSON mode: stdout
    void warn(const std::string &text); // either mode
    // Why an operation fails. In text it is said once: by `fail` where that is the end of it, else
    // as a warning in front of the next line.
    void reason(const std::string &text);
    void drop_reason() { reason_.clear(); } // it is told in other words
    void fail(const Failed &failed, int exit_code);
    bool told_failure() const { return told_failure_; }

    // A line on the terminal that the next one replaces; at most ten a second, else nothing. It
    // would be shown now, if it takes some work to make one.
    void progress(const std::string &text);
    bool progress_due() const;
    void clear_progress();

    // Waits for the pager. False when stdout took less than it was given.
    bool finish();

  private:
    void say_reason();
    void print(const std::string &text, std::string_view kept);

    bool json_ = false;
    bool may_page_ = true;
    bool colour_ = false;
    bool colour_errors_ = false;
    bool terminal_ = false; // stderr is one, on which a line can be taken back
    bool progress_shown_ = false;
    bool unread_ = false;
    bool told_failure_ = false;
    std::string reason_; // not said yet
    Pager pager_;
    std::chrono::steady_clock::time_point progress_time_{};
};

} // namespace host
