// Every text that goes out passes here, and is rid of control characters that would reach the
// terminal.
#include "output.hpp"

#include <algorithm>
#include <cstdio>
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

// Names and messages of others reach the terminal: of control characters only line feeds, tabs
// and, where there is colour, the colours stay.
std::string printable(std::string text, bool colour) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte >= 32 && byte != 127) || byte == '\n' || byte == '\t') continue;
        size_t end = text.find_first_not_of("0123456789", i + 2);
        if (colour && text.compare(i, 2, "\033[") == 0 && end != text.npos && text[end] == 'm')
            i = end;
        else
            text[i] = '?';
    }
    return text;
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

Record::Record() : object_(check(zJsonNew(Z_JSON_OBJECT))) {}

Record::Record(const char *type) : Record() { set(u"type", type); }

Record &Record::put(const zwchar *name, Json *value) {
    OwnedJson node(check(value));
    check(zJsonObjectPut(object_.get(), name, node.get()));
    node.release();
    return *this;
}

Record &Record::set(const zwchar *name, const std::string &text) {
    return put(name, zJsonNewString(zStrfromutf8(clean(text).c_str())));
}

Record &Record::set(const zwchar *name, const std::vector<std::string> &texts) {
    OwnedJson array(check(zJsonNew(Z_JSON_ARRAY)));
    for (const std::string &text : texts)
        push(array.get(), zJsonNewString(zStrfromutf8(clean(text).c_str())));
    return set(name, std::move(array));
}

Record &Record::set(const zwchar *name, std::vector<Record> &&members) {
    OwnedJson array(check(zJsonNew(Z_JSON_ARRAY)));
    for (Record &member : members) push(array.get(), member.object_.release());
    return set(name, std::move(array));
}

std::string Record::text() const {
    Owned<zwchar, zStrfreeW> written(check(zJsonWriteTextual(object_.get())));
    return narrow(written.get());
}

void Output::setup(bool as_json, ColourMode mode) {
    json_ = as_json;
    terminal_ = isatty(STDERR_FILENO);
    bool automatic = mode == ColourMode::automatic && !no_colour();
    colour_ = mode == ColourMode::always || (automatic && isatty(STDOUT_FILENO));
    colour_errors_ = mode == ColourMode::always || (automatic && terminal_);
}

std::string Output::paint(Colour colour, const std::string &text) const {
    return colour_ && colour != Colour::plain ? code(colour) + text + "\033[0m" : text;
}

void Output::page() {
    if (json_ || !isatty(STDOUT_FILENO) || !pager_.start()) return;
    terminal_ = false; // no progress in between
}

void Output::line(const std::string &text) {
    if (json_) return;
    say_reason();
    clear_progress();
    put_line(stdout, printable(text, colour_));
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
    put_line(stderr, (colour_errors_ ? "\033[33mwarning:\033[0m " : "warning: ") + clean(text));
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
    put_line(stderr, (colour_errors_ ? "\033[31mzev:\033[0m " : "zev: ") + clean(failed.what()));
}

void Output::progress(const std::string &text) {
    if (!progress_due()) return;
    progress_time_ = std::chrono::steady_clock::now();
    progress_shown_ = true;
    fflush(stdout);
    fprintf(stderr, "\r\033[K%s", clean(text).c_str());
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
