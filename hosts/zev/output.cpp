// Every text that goes out passes here, where control characters that would reach the terminal are
// made visible.
#include "output.hpp"

#include "terminal.hpp"
#include "width.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>
#include <utility>

namespace host {

namespace {

constexpr auto kProgressInterval = std::chrono::milliseconds(100);

const char *code(Colour colour) {
    switch (colour) {
    case Colour::bold:
        return "\033[1m";
    case Colour::dim:
        return "\033[2m";
    case Colour::red:
        return "\033[31m";
    case Colour::green:
        return "\033[32m";
    case Colour::yellow:
        return "\033[33m";
    case Colour::cyan:
        return "\033[36m";
    default:
        return "";
    }
}

bool no_colour() {
    const char *value = getenv("NO_COLOR");
    return value && *value;
}

// Where the user stands, for as long as the program runs.
struct Standing {
    std::string directory; // below the top, "" for the top itself
    bool full = false;     // paths count from the top
} standing;

bool is_hidden(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string escape(char32_t code) {
    if (code == U'\n') return "\\n";
    if (code == U'\t') return "\\t";
    char text[8];
    snprintf(text, sizeof text, code < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(code));
    return text;
}

// Visible, but where there is colour the colours stay.
std::string printable(std::string_view text, bool colour, std::string_view kept) {
    std::string out;
    for (size_t from = 0, at; colour && (at = text.find("\033[", from)) != text.npos;) {
        const size_t end = text.find_first_not_of("0123456789", at + 2);
        if (end == text.npos || text[end] != 'm') {
            from = at + 1;
            continue;
        }
        out += visible(text.substr(0, at), kept);
        out += text.substr(at, end + 1 - at);
        text.remove_prefix(end + 1);
        from = 0;
    }
    return out + visible(text, kept);
}

void push(Json *array, Json *value) {
    OwnedJson node(check(value));
    check(zJsonArrayPush(array, node.get()));
    node.release();
}

void put_line(FILE *file, std::string text) {
    text += '\n';
    fwrite(text.data(), 1, text.size(), file);
}

} // namespace

std::string clean(std::string text) {
    auto control = [](char c) {
        return static_cast<unsigned char>(c) < 32 && !(c >= '\b' && c <= '\r' && c != '\v');
    };
    std::replace_if(text.begin(), text.end(), control, ' ');
    return text;
}

std::string shown_path(const zwchar *path) {
    constexpr std::string_view keep = ".gitkeep";
    std::string shown = narrow(path);
    if (shown.ends_with("/.gitkeep")) shown.resize(shown.size() - keep.size());
    return shown;
}

std::string trimmed(const std::string &text) {
    const size_t begin = text.find_first_not_of(" \t");
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

std::string grouped(uint64_t number) {
    std::string text = std::to_string(number);
    const std::string mark = say(",");
    for (size_t at = text.size(); at > 3;) text.insert(at -= 3, mark);
    return text;
}

namespace {

// "%s object", "%s objects": both stand in the catalogues.
std::string counted(const std::string &number, bool is_one, const char *noun) {
    return say(("%s " + std::string(noun) + (is_one ? "" : "s")).c_str(), number);
}

// The system's own words, of which a failure tells at its end.
std::string in_users_words(const std::string &text) {
    const size_t colon = text.rfind(": ");
    if (colon == text.npos) return text;
    return text.substr(0, colon + 2) + said(text.substr(colon + 2));
}

} // namespace

std::string count_of(uint64_t number, const char *noun) {
    return counted(grouped(number), number == 1, noun);
}

std::string plural(uint64_t number, const char *noun) {
    return counted(std::to_string(number), number == 1, noun);
}

std::string bytes_text(uint64_t bytes) {
    std::string text = narrow(zNumToHumanBytes(bytes));
    if (const size_t point = text.find('.'); point != text.npos) text.replace(point, 1, say("."));
    return text;
}

std::string visible(std::string_view text, std::string_view kept) {
    std::string out;
    while (!text.empty()) {
        const std::string_view rest = text;
        const char32_t code = take(text);
        const std::string_view bytes = rest.substr(0, rest.size() - text.size());
        if (code == kNoCharacter) {
            char broken[8];
            snprintf(broken, sizeof broken, "\\x%02x", static_cast<unsigned char>(rest[0]));
            out += broken;
        } else if (is_hidden(code) && kept.find(bytes) == kept.npos) {
            out += escape(code);
        } else {
            out += bytes;
        }
    }
    return out;
}

void stand_in(const std::string &directory) { standing.directory = directory; }

void show_full_paths() { standing.full = true; }

std::string typed_path(const std::string &path) {
    std::string shown = path.ends_with("/.gitkeep") ? path.substr(0, path.rfind('/') + 1) : path;
    if (standing.full || standing.directory.empty()) return visible(shown);
    const bool directory = shown.ends_with('/');
    if (directory) shown.pop_back();
    shown = std::filesystem::path(shown).lexically_relative(standing.directory).string();
    return visible(directory ? shown + '/' : shown);
}

Record::Record() : object_(check(zJsonNew(Z_JSON_OBJECT))) {}

Record::Record(const char *type) : Record() { set(u"type", type); }

Record &Record::put(const zwchar *name, Json *value) {
    OwnedJson node(check(value));
    check(zJsonObjectPut(object_.get(), name, node.get()));
    node.release();
    return *this;
}

Record &Record::set(const zwchar *name, const std::string &text) {
    return put(name, zJsonNewString(zStrfromutf8(text.c_str())));
}

Record &Record::set(const zwchar *name, const std::vector<std::string> &texts) {
    OwnedJson array(check(zJsonNew(Z_JSON_ARRAY)));
    for (const std::string &text : texts)
        push(array.get(), zJsonNewString(zStrfromutf8(text.c_str())));
    return set(name, std::move(array));
}

Record &Record::set(const zwchar *name, std::vector<Record> &&members) {
    OwnedJson array(check(zJsonNew(Z_JSON_ARRAY)));
    for (Record &member : members) push(array.get(), member.object_.release());
    return set(name, std::move(array));
}

std::string Record::text() const {
    // The library writes what is below a blank and has no letter of its own as it is.
    const Owned<zwchar, zStrfreeW> written(check(zJsonWriteTextual(object_.get())));
    std::string out;
    for (const char c : narrow(written.get())) {
        if (static_cast<unsigned char>(c) >= 32) {
            out += c;
            continue;
        }
        char code[8];
        snprintf(code, sizeof code, "\\u%04x", c);
        out += code;
    }
    return out;
}

void Output::setup(bool as_json, ColourMode mode) {
    json_ = as_json;
    terminal_ = isatty(STDERR_FILENO) && !is_dumb_terminal();
    bool automatic = mode == ColourMode::automatic && !no_colour() && !is_dumb_terminal();
    colour_ = mode == ColourMode::always || (automatic && isatty(STDOUT_FILENO));
    colour_errors_ = mode == ColourMode::always || (automatic && terminal_);
}

std::string Output::paint(Colour colour, const std::string &text) const {
    return colour_ && colour != Colour::plain ? code(colour) + text + "\033[0m" : text;
}

void Output::page() {
    if (json_ || !may_page_ || !isatty(STDOUT_FILENO) || !pager_.start()) return;
    terminal_ = false; // no progress in between
}

void Output::line(const std::string &text) { print(text, {}); }

void Output::text(const std::string &text) { print(text, "\n\t"); }

void Output::print(const std::string &text, std::string_view kept) {
    if (json_) return;
    say_reason();
    clear_progress();
    put_line(stdout, printable(text, colour_, kept));
    unread_ = pager_.running() && ferror(stdout);
}

void Output::record(const Record &record) {
    if (!json_) return;
    clear_progress();
    put_line(stdout, record.text());
}

void Output::warn(const std::string &text) {
    if (json_) return record(Record("warning").set(u"message", text));
    say_reason();
    clear_progress();
    fflush(stdout);
    std::string warning = say("warning:");
    if (colour_errors_) warning = "\033[33m" + warning + "\033[0m";
    put_line(stderr, warning + " " + visible(in_users_words(text)));
}

void Output::reason(const std::string &text) {
    if (json_) return warn(text);
    say_reason();
    reason_ = text;
}

void Output::say_reason() {
    if (!reason_.empty()) warn(std::exchange(reason_, {}));
}

void Output::fail(const Failed &failed, int exit_code) {
    told_failure_ = true;
    if (json_)
        return record(Record("error")
                          .set(u"class", failed.error_class)
                          .set(u"code", failed.code)
                          .set(u"exit", exit_code)
                          .set(u"message", failed.what()));
    if (std::string_view(failed.what()).find(reason_) != std::string_view::npos) reason_.clear();
    say_reason();
    clear_progress();
    fflush(stdout);
    put_line(stderr, (colour_errors_ ? "\033[31mzev:\033[0m " : "zev: ") +
                         visible(in_users_words(failed.what())));
}

void Output::progress(const std::string &text) {
    if (!progress_due()) return;
    progress_time_ = std::chrono::steady_clock::now();
    progress_shown_ = true;
    fflush(stdout);
    fprintf(stderr, "\r\033[K%s", visible(text).c_str());
    fflush(stderr);
}

bool Output::progress_due() const {
    return terminal_ && std::chrono::steady_clock::now() - progress_time_ >= kProgressInterval;
}

void Output::clear_progress() {
    if (!progress_shown_) return;
    progress_shown_ = false;
    fputs("\r\033[K", stderr);
    fflush(stderr);
}

bool Output::finish() {
    say_reason();
    clear_progress();
    if (pager_.running()) return pager_.finish(), true;
    return fflush(stdout) == 0 && !ferror(stdout);
}

} // namespace host
