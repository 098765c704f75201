// What the files of the URI family share. All of it throws std::bad_alloc where memory ran out.
#pragma once

#include "common/guard.hpp"
#include "zev/uri.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace zev {

using UrlView = std::u16string_view;

// A record on the stack, cleaned up at scope's end.
struct ScopedUri : Uri {
    ScopedUri() : Uri{} {}
    ScopedUri(const ScopedUri &) = delete;
    ScopedUri &operator=(const ScopedUri &) = delete;
    ~ScopedUri() { zUriCleanup(this); }
};

// A text within the limit of URLs. Parts added together go in together or, with class 5 raised,
// not at all. That is logged once, lest a request fill the log.
class UrlText {
  public:
    explicit UrlText(UrlView start = {}) : text_(start) {}
    bool add(std::initializer_list<UrlView> parts);
    bool empty() const { return text_.empty(); }
    bool is_whole() const { return !logged_; } // nothing was left out
    const std::u16string &text() const { return text_; }

  private:
    std::u16string text_;
    bool logged_ = false;
};

// The next piece of a text between any number of separators, taken off its start; empty at the end.
UrlView take_token(UrlView &rest, zwchar separator = u'/');

// Escaped UTF-8; nothing when it exceeds the limit.
std::optional<std::string> url_escape(UrlView text);
// One round, up to the limit of 2,048 bytes, and as many rounds as change something.
std::string url_unescape(std::string_view text);
std::string url_unescape_all(std::string_view text);

// Replaces a field by a copy and drops the cached text.
void uri_store(Uri *uri, zwchar *&field, UrlView text);
void uri_set_path(Uri *uri, UrlView path);
void uri_set_query(Uri *uri, const zwchar *key, const zwchar *value);
void uri_parse_query(Uri *uri, UrlView text);

// Drops the keys of the query that begin with a character.
void uri_drop_queries(Uri *uri, zwchar first);
// Whether the text of a URI holds all of its fields; else class 5 is raised, and logged.
bool uri_fits(const Uri *uri);

// Fills an empty record from a text; false, with nothing raised, when that is no URI.
bool uri_read(Uri *uri, UrlView text);

} // namespace zev
