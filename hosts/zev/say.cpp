// A catalogue is a file from outside: nothing of it reaches printf, and a mark that means nothing
// stays as it is written.
#include "say.hpp"

#include <algorithm>
#include <optional>
#include <utility>

namespace host {

namespace {

Catalogue spoken;

constexpr size_t kMostWords = 9; // of one text, so that a place is one digit

// What a text is made of: letters as they stand, or the place of a word.
struct Piece {
    std::string_view letters;
    size_t word = 0; // counted from 1; 0: letters
};

// The mark at the front of `text`, which begins with a percent sign; `next` is the word of a plain
// %s. Without a length it is none.
struct Mark {
    size_t length = 0, word = 0;
    bool percent = false;
};

Mark mark_of(std::string_view text, size_t next) {
    if (text.starts_with("%%")) return {2, 0, true};
    if (text.starts_with("%s")) return {2, next, false};
    const bool placed = text.size() >= 4 && text[1] >= '1' && text[1] <= '9';
    if (placed && text.substr(2, 2) == "$s") return {4, static_cast<size_t>(text[1] - '0'), false};
    return {};
}

std::vector<Piece> pieces_of(std::string_view text) {
    std::vector<Piece> pieces;
    size_t next = 1;
    while (!text.empty()) {
        const Mark mark = text[0] == '%' ? mark_of(text, next) : Mark{};
        if (mark.word == next) ++next;
        if (mark.word)
            pieces.push_back({{}, mark.word});
        else // up to the next percent sign; of "%%" one
            pieces.push_back({text.substr(0, mark.percent ? 1 : text.find('%', 1)), 0});
        text.remove_prefix(mark.length ? mark.length : pieces.back().letters.size());
    }
    return pieces;
}

// How often each word is taken, by its place.
std::vector<size_t> words_of(std::string_view text) {
    std::vector<size_t> counts(kMostWords + 1);
    for (const Piece &piece : pieces_of(text))
        if (piece.word && piece.word <= kMostWords) ++counts[piece.word];
    return counts;
}

// What stands for the words of a text in what was told by it; nothing where it wasn't.
std::optional<std::vector<std::string>> words_in(std::string_view told, std::string_view text) {
    std::vector<std::string> words;
    size_t mark = text.find("%s");
    if (mark == text.npos && told != text) return {};
    if (!told.starts_with(text.substr(0, mark))) return {};
    told.remove_prefix(std::min(mark, told.size()));
    while (mark != text.npos) {
        text.remove_prefix(mark + 2);
        mark = text.find("%s");
        const std::string_view between = text.substr(0, mark);
        if (mark == text.npos && !told.ends_with(between)) return {};
        const size_t end = mark == text.npos ? told.size() - between.size() : told.find(between);
        if (end == told.npos) return {};
        words.emplace_back(told.substr(0, end));
        told.remove_prefix(end + between.size());
    }
    return words;
}

const std::string &looked_up(const std::string &english) {
    const auto found = spoken.find(english);
    return found == spoken.end() ? english : found->second;
}

} // namespace

// A word that English tells once may be told twice, but each has to be there, and no other.
bool takes_same_words(std::string_view english, std::string_view translated) {
    const std::vector<size_t> wanted = words_of(english), found = words_of(translated);
    for (size_t i = 1; i <= kMostWords; ++i)
        if ((wanted[i] == 0) != (found[i] == 0)) return false;
    return true;
}

void speak(Catalogue catalogue) {
    std::erase_if(catalogue, [](const auto &entry) {
        return entry.second.empty() || !takes_same_words(entry.first, entry.second);
    });
    spoken = std::move(catalogue);
}

std::string said(const std::string &english) { return looked_up(english); }

std::string said(const std::string &english, const std::vector<std::string> &words) {
    std::string text;
    for (const Piece &piece : pieces_of(looked_up(english))) {
        text += piece.letters;
        if (piece.word && piece.word <= words.size()) text += words[piece.word - 1];
    }
    return text;
}

std::string retold(const std::string &told, std::span<const char *const> texts) {
    for (const char *text : texts)
        if (const auto words = words_in(told, text)) return said(text, *words);
    return told;
}

} // namespace host
