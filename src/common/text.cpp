// Control characters of user texts.
#include "common/text.hpp"

#include "zev/str.h"

#include <string_view>

void zev::blank_controls(zwchar *text) {
    constexpr std::u16string_view kept = u"\b\t\n\f\r";
    for (; *text; ++text)
        if (*text < u' ' && kept.find(*text) == kept.npos) *text = u' ';
}

std::u16string zev::without_controls(const zwchar *text) {
    std::u16string copy = zStrsafeW(text);
    blank_controls(copy.data());
    return copy;
}
