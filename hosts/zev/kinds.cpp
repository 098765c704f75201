// The words are part of the interface; their order is that of the library's numbers.
#include "kinds.hpp"

#include "width.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr struct {
    const char *name;
    Colour colour;
} kKinds[] = {
    {"unchanged", Colour::plain}, {"added", Colour::green},    {"deleted", Colour::red},
    {"modified", Colour::yellow}, {"renamed", Colour::cyan},   {"copied", Colour::cyan},
    {"ignored", Colour::dim},     {"untracked", Colour::dim},  {"typechange", Colour::yellow},
    {"unreadable", Colour::red},  {"conflicted", Colour::red}, {"missing", Colour::red},
};

} // namespace

const char *kind_name(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].name : "unknown";
}

std::string kind_word(int32_t kind) { return say(kind_name(kind)); }

std::string kind_column(int32_t kind) {
    static const size_t widest = [] {
        size_t width = 0;
        for (const auto &known : kKinds) width = std::max(width, columns(say(known.name)));
        return width;
    }();
    return padded(kind_word(kind), widest + 2);
}

Colour kind_colour(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].colour : Colour::plain;
}

} // namespace host
