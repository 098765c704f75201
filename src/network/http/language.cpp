// Chooses among the catalogues that are installed. The field is a peer's: of a list no more than
// some ranges are looked at, and no name of it is part of a path.
#include "network/http/language.hpp"

#include "common/catalogue.hpp"
#include "zev/lang.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace zev {

namespace {

constexpr size_t kLanguageMax = 84; // units of a language's name
constexpr size_t kRangesMax = 16;   // browsers send some
constexpr std::u16string_view kBlanks = u" \t";

bool is_language(std::u16string_view name) {
    const auto fits = [](zwchar c) {
        return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
               c == u'-';
    };
    return !name.empty() && name.size() <= kLanguageMax && std::ranges::all_of(name, fits);
}

struct Range {
    std::u16string name;
    int weight; // thousandths
};

std::u16string_view trimmed(std::u16string_view text) {
    const size_t from = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(from);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// "q=0.75", or nothing; what is no weight is none.
int weight_of(std::u16string_view text) {
    text = trimmed(text);
    if (text.empty()) return 1000;
    if (text.size() < 3 || (text[0] | 0x20) != u'q' || text[1] != u'=') return 0;
    int weight = 0, place = 1000;
    for (const zwchar unit : text.substr(2)) {
        if (unit == u'.' && place == 100) continue;
        if (unit < u'0' || unit > u'9') return 0;
        weight += (unit - u'0') * place;
        place /= 10;
    }
    return std::min(weight, 1000);
}

// Most wanted first.
std::vector<Range> ranges_of(std::u16string_view list) {
    std::vector<Range> ranges;
    while (!list.empty() && ranges.size() < kRangesMax) {
        const std::u16string_view one = list.substr(0, list.find(u','));
        list.remove_prefix(std::min(one.size() + 1, list.size()));
        const size_t end = std::min(one.find(u';'), one.size());
        const int weight = weight_of(one.substr(std::min(end + 1, one.size())));
        const std::u16string_view name = trimmed(one.substr(0, end));
        if (weight && (name == u"*" || is_language(name)))
            ranges.push_back({std::u16string(name), weight});
    }
    std::stable_sort(ranges.begin(), ranges.end(),
                     [](const Range &a, const Range &b) { return a.weight > b.weight; });
    return ranges;
}

std::u16string best_of(std::u16string_view list) {
    const std::vector<std::u16string> names = installed_languages();
    for (const Range &range : ranges_of(list)) {
        if (range.name == u"*") break;
        if (const std::u16string *found = find_language(names, range.name)) return *found;
    }
    return zLangProduct();
}

} // namespace

std::u16string language_of(HttpRequest *request) {
    const zwchar *wanted = request ? zHttpRequestAcceptLanguage(request) : nullptr;
    if (!wanted || !*wanted) return zLangProduct();
    return is_language(wanted) ? wanted : best_of(wanted);
}

} // namespace zev
