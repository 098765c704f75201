// Paths of URIs, and their match against the patterns of routes.
#include "common/failure.hpp"
#include "common/pathname.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"

#include <vector>

namespace zev {
namespace {

bool is_capture(UrlView step) { return step.starts_with(u':'); }

bool same(UrlView a, UrlView b) {
    return a.size() == b.size() && zStrncasesameW(a.data(), b.data(), a.size());
}

std::u16string joined_tokens(UrlView path) {
    std::u16string result;
    for (UrlView token = take_token(path); !token.empty(); token = take_token(path))
        result.append(result.empty() ? u"" : u"/").append(token);
    return result;
}

// Whoever parses a captured text anew unescapes it again, so what counts is what it can become.
bool is_name(UrlView text) {
    return text.empty() || path_can_enter(url_unescape_all(to_utf8(text)));
}

// One match of a path with a pattern. The tokens are views into both.
class Route {
  public:
    Route(UrlView path, UrlView pattern) : path_(path), left_(path), pattern_(pattern) {}

    bool enter();
    bool walk();
    bool find_base();
    void store(Uri *uri) const;

  private:
    struct Capture {
        std::u16string name, value;
    };

    UrlView path_;    // all of it
    UrlView left_;    // what of it is still to be matched
    UrlView pattern_; // what of the pattern is still to be matched
    UrlView prefix_;  // what of the path lies before the match
    std::vector<Capture> captures_;
};

// Steps both sides behind the pattern's first literal. Captures before it stay unset; in a pattern
// without literals the last capture stands for one.
bool Route::enter() {
    UrlView literal = take_token(pattern_);
    while (is_capture(literal)) {
        captures_.push_back({std::u16string(literal), {}});
        const UrlView step = take_token(pattern_);
        if (step.empty()) break;
        literal = step;
    }
    for (UrlView token = take_token(left_); !token.empty(); token = take_token(left_)) {
        if (!same(token, literal)) continue;
        prefix_ = path_.substr(0, static_cast<size_t>(token.data() - path_.data()));
        return true;
    }
    return false;
}

// Where the path has run out its token is empty: no literal equals it, captures stay unset.
bool Route::walk() {
    for (UrlView step = take_token(pattern_); !step.empty(); step = take_token(pattern_)) {
        const UrlView token = take_token(left_);
        if (!is_capture(step) && !same(step, token)) return false;
        if (!is_capture(step)) continue;
        if (!is_name(token)) return false;
        captures_.push_back({std::u16string(step), std::u16string(token)});
    }
    captures_.push_back({u":other", joined_tokens(left_)});
    return is_name(captures_.back().value);
}

// The prefix is normalised like any URL, so it is checked as it comes out.
bool Route::find_base() {
    zwchar base[Z_URL_MAX] = {path_.starts_with(u'/') ? u'/' : u'\0'};
    const std::u16string prefix = joined_tokens(prefix_);
    if (!prefix.empty() && !zUrlAppend(base, prefix.c_str())) return false;
    captures_.push_back({u":base", base});
    return is_name(*base == u'/' ? base + 1 : base);
}

// An unset capture goes in as well, with an empty value: that removes what a client has put under
// its name.
void Route::store(Uri *uri) const {
    for (const Capture &capture : captures_)
        uri_set_query(uri, capture.name.c_str(), capture.value.c_str());
}

} // namespace

void uri_set_path(Uri *uri, UrlView path) {
    UrlText text;
    for (UrlView token = take_token(path); !token.empty(); token = take_token(path))
        text.add({u"/", token});
    if (text.empty()) text.add({u"/"});
    uri_store(uri, uri->path, to_wide(url_unescape(to_utf8(text.text()))));
}

} // namespace zev

using namespace zev;

bool zUriCatchPath(Uri *uri, const zwchar *pattern) try {
    if (!uri || !uri->path || !pattern) return fail_args();
    Route route(uri->path, pattern);
    if (!route.enter() || !route.walk() || !route.find_base()) return false;
    return route.store(uri), true;
} catch (...) {
    return fail_thrown();
}
