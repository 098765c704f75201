// What a PathSpec selects: the one matcher of the object store. libgit2's own pathspec folds
// ASCII only, reads marks such as `#` and `!` in literal patterns, and tries every pattern on
// every path.
#pragma once

#include "common/guard.hpp"
#include "zev/pathspec.h"
#include "zev/vector.h"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zev {
class Matcher;
}

struct PathSpec {
    Vector patterns; // of owned wide strings; first, so that vector calls work on the record
    uint32_t options;
    std::shared_ptr<zev::Matcher> matcher; // made at first use, dropped by every change
    const Notify *notify;                  // lent
};

namespace zev {

using PathSpecPtr = Owned<PathSpec, zPathSpecFree>;

// UTF-8 text as folded wide text: paths that differ only in case give the same.
void fold_path(std::u16string &out, std::string_view path);

// Case is disregarded everywhere.
//   literal     exactly that path; one that ends in a slash, all that lies below it
//   otherwise   `*` is any text, slashes too, `?` one character, `\` takes the next character
//               as it stands; without wildcards the path itself and all that lies below it
// No patterns, `.` and `./` select everything, slashes alone nothing.
class Matcher {
  public:
    // A pattern without wildcards.
    struct Name {
        std::string path; // UTF-8, without a slash at its end
        bool itself;
        bool below;
    };

    Matcher(const Vector *patterns, bool literal);

    bool all() const { return all_; }
    bool matches(std::string_view path);              // UTF-8 with forward slashes
    bool names_itself(std::string_view path);         // by a pattern without wildcards
    bool may_match_below(std::string_view directory); // false: a walk need not enter it
    // The patterns if none has a wildcard, else null.
    const std::vector<Name> *names() const { return all_ || !globs_.empty() ? nullptr : &names_; }
    uint64_t patterns() const { return patterns_; }

  private:
    using Glob = std::u32string; // folded units; wildcards lie above them
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::u16string_view text) const {
            return std::hash<std::u16string_view>{}(text);
        }
    };
    enum : uint8_t { kItself = 1, kBelow = 2, kAbove = 4 };

    void add_literal(std::u16string_view pattern);
    void add_pattern(std::u16string_view pattern);
    void add_name(std::u16string_view path, uint8_t how);
    bool is_marked(std::u16string_view path, unsigned how) const;
    bool named(std::u16string_view path) const;
    bool is_below_named(std::u16string_view path) const;

    bool all_ = false;
    uint64_t patterns_;
    std::vector<Name> names_;
    // The names, and as kAbove the directories above them.
    std::unordered_map<std::u16string, uint8_t, Hash, std::equal_to<>> folded_;
    std::vector<Glob> globs_;
    std::u16string scratch_; // the path at hand, folded
};

// The spec's matcher, made at first use and lent until the spec changes. May throw.
Matcher &spec_matcher(PathSpec *spec);

// Whether a path is selected; a null spec selects everything. May throw.
bool spec_matches(PathSpec *spec, std::string_view path);

// Whether entries of a kind (zev/status.h) are left out.
inline bool spec_leaves_out(const PathSpec *spec, int32_t kind) {
    return spec && kind >= 0 && kind < 12 &&
           (spec->options & uint32_t{Z_SPEC_NO_UNCHANGED} << kind);
}

inline uint32_t spec_options(const PathSpec *spec) { return spec ? spec->options : 0; }

} // namespace zev
