// The texts of a catalogue against their keys: a conversion that the key's tail doesn't name would
// read an argument that isn't there.
#include "common/catalogue.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/hashmap.h"
#include "zev/json.h"
#include "zev/log.h"
#include "zev/variant.h"

#include <string>
#include <vector>

namespace zev {

namespace {

constexpr uint32_t kMostArguments = 16; // of one text; longer tails are no tails
constexpr std::u16string_view kFlags = u"-+ #0";

bool is_digit(zwchar unit) { return unit >= u'0' && unit <= u'9'; }

// The letters of one piece of a tail, "4d" giving "dddd"; empty if it is none.
std::u16string piece_letters(std::u16string_view piece) {
    if (piece.empty() || (piece.back() != u's' && piece.back() != u'd')) return {};
    uint32_t count = piece.size() == 1 ? 1 : 0;
    for (zwchar unit : piece.substr(0, piece.size() - 1)) {
        if (!is_digit(unit) || count > kMostArguments) return {};
        count = count * 10 + (unit - u'0');
    }
    return count <= kMostArguments ? std::u16string(count, piece.back()) : std::u16string();
}

// "sCheckout_s_s_s" gives "sss". What stands before the first underscore is the name proper.
std::u16string tail_letters(std::u16string_view name) {
    std::u16string letters;
    for (size_t at; (at = name.rfind(u'_')) != name.npos; name = name.substr(0, at)) {
        std::u16string piece = piece_letters(name.substr(at + 1));
        if (piece.empty()) break;
        letters.insert(0, piece);
    }
    return letters.size() <= kMostArguments ? letters : std::u16string();
}

// One conversion behind its percent sign, which is taken off `rest`: 's', 'd', '%', or 0 for
// anything that the tail can't name (sizes, narrow strings, width by argument).
zwchar take_conversion(std::u16string_view &rest) {
    auto skip = [&](auto wanted) {
        while (!rest.empty() && wanted(rest.front())) rest.remove_prefix(1);
    };
    skip([](zwchar unit) { return kFlags.find(unit) != kFlags.npos; });
    skip(is_digit);
    if (rest.starts_with(u'.')) {
        rest.remove_prefix(1);
        skip(is_digit);
    }
    const zwchar letter = rest.empty() ? zwchar(0) : rest.front();
    if (!rest.empty()) rest.remove_prefix(1);
    switch (letter) {
    case u's':
        return u's';
    case u'd':
    case u'i':
    case u'u':
        return u'd';
    default:
        return 0;
    }
}

void clean_object(Json *object);

// Names of the members that don't fit; objects below are cleaned on the way.
std::vector<std::u16string> unfit_members(Json *object) {
    std::vector<std::u16string> unfit;
    HashmapIter *iter = zJsonObjectNewiter(object);
    if (!iter) return unfit;
    Finally release([&] { iter->free(iter); });
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        Variant *entry = iter->current(iter);
        const zwchar *name = entry->value.wide;
        Json *node = static_cast<Json *>(entry->next->value.pointer);
        if (zJsonIsObject(node)) clean_object(node);
        if (zJsonIsString(node) && !catalogue_fits(name, zJsonGetString(node)))
            unfit.emplace_back(name);
    }
    return unfit;
}

void clean_object(Json *object) {
    for (const std::u16string &name : unfit_members(object)) {
        const Here here;
        zLogReport(here.file, here.line, kWarning, kFacilityZev,
                   u"the text of \"%s\" does not fit its key and is left out", name.c_str());
        zJsonObjectRemove(object, name.c_str());
    }
}

} // namespace

bool catalogue_fits(std::u16string_view name, std::u16string_view text) {
    const std::u16string wanted = tail_letters(name);
    size_t found = 0;
    for (size_t at; (at = text.find(u'%')) != text.npos;) {
        text.remove_prefix(at + 1);
        if (text.starts_with(u'%')) {
            text.remove_prefix(1);
            continue;
        }
        const zwchar letter = take_conversion(text);
        if (!letter || found == wanted.size() || letter != wanted[found++]) return false;
    }
    return found == wanted.size();
}

void catalogue_clean(Json *catalogue) {
    if (zJsonIsObject(catalogue)) clean_object(catalogue);
}

} // namespace zev
