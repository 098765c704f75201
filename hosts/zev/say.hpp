// Say: texts in the user's language. They stand in the code in English, and are their own keys in
// the catalogue of another language; what it lacks is said in English.
//
// In a text that is given words, %s stands for the next of them, %2$s for the second, %% for a
// percent sign. Words are put in as they are: what users wrote is never a text of this kind.
#pragma once

#include <concepts>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace host {

// English texts with those of the language. One that does not take the same words is left out, so
// that no catalogue can lose or mix up what a text tells.
using Catalogue = std::unordered_map<std::string, std::string>;
void speak(Catalogue catalogue);

// Whether a translation takes the words of its text, each of them.
bool takes_same_words(std::string_view english, std::string_view translated);

std::string said(const std::string &english);
std::string said(const std::string &english, const std::vector<std::string> &words);

// What others tell by one of these texts, in the user's language; as it is where by none of them.
// The first that fits is taken, so that the more a text says, the further up it has to stand.
std::string retold(const std::string &told, std::span<const char *const> texts);

inline std::string as_word(std::string text) { return text; }
template <std::integral Number> std::string as_word(Number number) {
    return std::to_string(number);
}

template <class... Words> std::string say(const char *english, const Words &...words) {
    if constexpr (sizeof...(words) == 0)
        return said(english);
    else
        return said(english, std::vector<std::string>{as_word(words)...});
}

} // namespace host
