// The system's converter knows the code pages; a byte that it can't read is U+FFFD, and the text
// goes on behind it.
#include "picture/encoding.hpp"

#include <charconv>
#include <cstdint>
#include <optional>

namespace picture {

namespace {

constexpr char32_t kUnknown = 0xFFFD;

// ANSI_1252, dos850, and what else headers have. The converter is asked for numbers of pages only:
// whatever else a header says is no name that it might look for.
std::string charset_of(std::string_view codepage) {
    std::string name;
    for (const char c : codepage.substr(0, 32))
        name += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    static constexpr struct {
        const char *name, *charset;
    } kNames[] = {{"utf-8", ""},
                  {"utf8", ""},
                  {"ansi_65001", ""},
                  {"ascii", "CP1252"},
                  {"us_ascii", "CP1252"},
                  {"gb2312", "CP936"},
                  {"ksc5601", "CP949"},
                  {"big5", "CP950"},
                  {"johab", "JOHAB"},
                  {"ansi_1361", "JOHAB"},
                  {"mac-roman", "MACINTOSH"}};
    for (const auto &known : kNames)
        if (name == known.name) return known.charset;
    const bool is_iso = name.starts_with("iso8859") || name.starts_with("iso-8859");
    const std::string number = name.substr(name.find_last_not_of("0123456789") + 1);
    if (number.empty() || number.size() > 5) return "unknown";
    return (is_iso ? "ISO-8859-" : "CP") + number;
}

// The length of the good UTF-8 sequence that the text begins with, 0 if it doesn't.
size_t sequence_of(std::string_view text, char32_t &character) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const size_t count = first < 0x80   ? 1
                         : first < 0xC2 ? 0
                         : first < 0xE0 ? 2
                         : first < 0xF0 ? 3
                                        : 4;
    if (!count || first > 0xF4 || text.size() < count) return 0;
    character = count == 1 ? first : first & (0x7Fu >> count);
    for (size_t i = 1; i < count; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        character = character << 6 | (byte(i) & 0x3Fu);
    }
    const bool is_long = (count == 3 && character < 0x800) || (count == 4 && character < 0x10000);
    const bool is_surrogate = character >= 0xD800 && character < 0xE000;
    return is_long || is_surrogate || character > 0x10FFFF ? 0 : count;
}

bool is_control(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) ||
           (character >= 0xFFFE && character <= 0xFFFF);
}

bool is_plain(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        char32_t character = 0;
        const size_t count = sequence_of(text, character);
        if (!count) return false;
        text.remove_prefix(count);
    }
    return true;
}

std::optional<uint32_t> hex_of(std::string_view text, size_t at, size_t count) {
    if (text.size() < at + count) return {};
    uint32_t number = 0;
    const char *from = text.data() + at;
    const auto [end, error] = std::from_chars(from, from + count, number, 16);
    if (error != std::errc() || end != from + count) return {};
    return number;
}

// The character that \U+XXXX at the start stands for, those beyond the first 65,536 by two halves;
// what stands for it is taken away. None for what is no number or half of one.
std::optional<char32_t> take_unicode(std::string_view &left) {
    constexpr size_t kSize = 7;
    const auto number = [&left](size_t at) {
        return left.substr(at).starts_with("\\U+") ? hex_of(left, at + 3, 4) : std::nullopt;
    };
    const auto first = number(0);
    const bool is_half = first && *first >= 0xD800 && *first < 0xE000;
    const auto second = is_half && left.size() > kSize ? number(kSize) : std::nullopt;
    if (second && *first < 0xDC00 && *second >= 0xDC00 && *second < 0xE000) {
        left.remove_prefix(2 * kSize);
        return 0x10000 + ((*first - 0xD800) << 10) + (*second - 0xDC00);
    }
    if (!first || is_half) return {};
    left.remove_prefix(kSize);
    return *first;
}

} // namespace

Encoding::Encoding(std::string_view codepage)
    : charset_(codepage.empty() ? "CP1252" : charset_of(codepage)), is_guess_(codepage.empty()) {}

Encoding::~Encoding() {
    for (const auto &[name, converter] : converters_)
        if (converter != reinterpret_cast<iconv_t>(-1)) iconv_close(converter);
}

std::string Encoding::text(std::string_view bytes) {
    const bool is_converted = !is_plain(bytes) && !charset_.empty();
    if (!is_converted || (is_guess_ && is_utf8(bytes))) return with_numbers(bytes);
    return with_numbers(converted(bytes, charset_));
}

std::string Encoding::converted(std::string_view bytes, const std::string &charset) {
    auto [at, is_new] = converters_.try_emplace(charset);
    if (is_new) at->second = iconv_open("UTF-8", charset.c_str());
    std::string out;
    char *from = const_cast<char *>(bytes.data()); // iconv only reads it
    size_t left = bytes.size();
    const bool is_known = at->second != reinterpret_cast<iconv_t>(-1);
    while (left) {
        char buffer[512], *to = buffer;
        size_t room = sizeof buffer;
        const size_t before = left;
        const size_t result = is_known ? iconv(at->second, &from, &left, &to, &room) : size_t(-1);
        out.append(buffer, to);
        if (result != size_t(-1) || left < before) continue;
        // The buffer was empty, so that it is the byte that stands in the way.
        static_cast<unsigned char>(*from) < 0x80 ? out.push_back(*from)
                                                 : put_character(out, kUnknown);
        ++from, --left;
    }
    if (is_known) iconv(at->second, nullptr, nullptr, nullptr, nullptr);
    return out;
}

std::string Encoding::with_numbers(std::string_view text) {
    if (text.find("\\U+") == text.npos && text.find("\\M+") == text.npos) return std::string(text);
    std::string out;
    while (!text.empty()) {
        if (text[0] == '\\' && take_number(text, out)) continue;
        out += text[0];
        text.remove_prefix(1);
    }
    return out;
}

bool Encoding::take_number(std::string_view &left, std::string &out) {
    if (left.starts_with("\\U+")) {
        const auto character = take_unicode(left);
        if (character) put_character(out, *character);
        return character.has_value();
    }
    static constexpr const char *kPages[] = {"CP932", "CP950", "CP949", "JOHAB", "CP936"};
    const auto number = left.starts_with("\\M+") ? hex_of(left, 4, 4) : std::nullopt;
    if (!number || left[3] < '1' || left[3] > '5') return false;
    const char bytes[] = {static_cast<char>(*number >> 8), static_cast<char>(*number)};
    out += converted({bytes, sizeof bytes}, kPages[left[3] - '1']);
    left.remove_prefix(8);
    return true;
}

void put_character(std::string &out, char32_t character) {
    const auto put = [&](uint32_t byte) { out += static_cast<char>(byte); };
    if (character < 0x80) return put(character);
    if (character < 0x800) {
        put(0xC0 | character >> 6);
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
    } else {
        put(0xF0 | character >> 18);
        put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F));
    }
    put(0x80 | (character & 0x3F));
}

char32_t take_character(std::string_view &text) {
    char32_t character = 0;
    const size_t count = sequence_of(text, character);
    text.remove_prefix(count ? count : 1);
    return count ? character : kUnknown;
}

std::string cleaned(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const char32_t character = take_character(text);
        if (!is_control(character)) put_character(out, character);
    }
    return out;
}

} // namespace picture
