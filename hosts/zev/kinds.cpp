// The words are part of the interface; their order is that of the library's numbers.
#include "kinds.hpp"

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

Colour kind_colour(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].colour : Colour::plain;
}

} // namespace host
