// A text stands in a system of its own, in which its letters have their height in units, so that
// renderers that round sizes of fonts meet usual ones.
#include "picture/svg_text.hpp"

#include "picture/widths.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace picture {

namespace {

// Capitals of the common sans-serif families, in thousandths of the font's size.
constexpr double kCapital = 729;

// Bytes of the character at the start, 0 if they are no UTF-8.
size_t character(std::string_view text, char32_t &code) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return code = first, 1;
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
    code = first & (0x7f >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
        code = code << 6 | (byte(i) & 0x3f);
    }
    const bool is_short = code < (length == 4 ? 0x10000u : length == 3 ? 0x800u : 0x80u);
    return is_short || code > 0x10ffff || (code >= 0xd800 && code < 0xe000) ? 0 : length;
}

// Whether a document may hold it, and a text should.
bool is_plain(char32_t code) {
    const bool is_control = code < 0x20 || (code >= 0x7f && code < 0xa0);
    return !is_control && (code & 0xfffe) != 0xfffe && !(code >= 0xfdd0 && code < 0xfdf0);
}

void put_character(std::string &out, char32_t code, std::string_view bytes) {
    switch (code) {
    case '&':
        out += "&amp;";
        break;
    case '<':
        out += "&lt;";
        break;
    case '>':
        out += "&gt;";
        break;
    case '"':
        out += "&quot;";
        break;
    case '\'':
        out += "&#39;";
        break;
    case '\t':
    case '\n':
    case '\r':
        out += ' ';
        break;
    default:
        out += is_plain(code) ? bytes : std::string_view("\xef\xbf\xbd");
    }
}

// ---- Families

// In any language: one picture is the same everywhere.
std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    });
    return text;
}

// Of the files that drawing programs bring, by how their letters look.
const char *family_of_strokes(const std::string &stem) {
    if (stem.starts_with("mono")) return "monospace";
    for (const char *serif : {"romanc", "romand", "romant", "italicc", "italict", "complex"})
        if (stem == serif) return "serif";
    return "sans-serif";
}

constexpr struct {
    const char *begin, *family, *generic;
} kFiles[] = {{"arial", "Arial", "sans-serif"},
              {"times", "Times New Roman", "serif"},
              {"cour", "Courier New", "monospace"}};

// A family as a list of a style sheet, without what would end its quotes.
std::string family_of(const std::string &font) {
    std::string name = font.substr(font.find_last_of("/\\") + 1);
    const size_t dot = name.rfind('.');
    const std::string suffix = dot == name.npos ? "" : lowered(name.substr(dot));
    const bool is_file = suffix == ".ttf" || suffix == ".otf" || suffix == ".ttc";
    if (is_file || suffix == ".shx") name.resize(dot);
    const std::string stem = lowered(name);
    if (name.empty() || suffix == ".shx" || (dot == name.npos && stem == "txt"))
        return family_of_strokes(stem);
    for (const auto &[begin, family, generic] : kFiles)
        if (is_file && stem.starts_with(begin)) return "'" + std::string(family) + "'," + generic;
    std::erase_if(name, [](char letter) { return letter == '\'' || letter == '\\'; });
    return "'" + escaped(name) + "',sans-serif";
}

// ---- Numbers

void put_attribute(std::string &out, const char *name, double value) {
    out += ' ';
    out += name;
    out += "=\"";
    put_number(out, value);
    out += '"';
}

// A part of a turn, which needs more digits than a place.
void put_share(std::string &out, double value) {
    char digits[48];
    const double whole = std::round(std::clamp(value, -1e6, 1e6) * 1e6) / 1e6 + 0.0;
    out.append(digits,
               std::to_chars(digits, digits + sizeof digits, whole, std::chars_format::fixed).ptr);
}

void put_matrix(std::string &out, const Matrix &place) {
    out += " transform=\"matrix(";
    for (const double share : {place.a, place.b, place.c, place.d}) {
        put_share(out, share);
        out += ' ';
    }
    put_number(out, place.e);
    out += ' ';
    put_number(out, place.f);
    out += ")\"";
}

void put_style(std::string &out, const Text &text, const std::string &family) {
    constexpr const char *kAnchors[] = {"", " text-anchor=\"middle\"", " text-anchor=\"end\""};
    out += " font-family=\"" + family + "\"";
    out += kAnchors[text.anchor];
    if (text.is_bold) out += " font-weight=\"bold\"";
    if (text.is_italic) out += " font-style=\"italic\"";
    if (text.is_underlined) out += " text-decoration=\"underline\"";
    const bool has_gaps = text.text.starts_with(' ') || text.text.ends_with(' ') ||
                          text.text.find("  ") != text.text.npos;
    if (has_gaps) out += " xml:space=\"preserve\"";
}

// From the text's system, whose y points down, to the picture's.
Matrix turned(const Matrix &place, const Frame &frame, double height) {
    const double scale = frame.scale() / height;
    const Point origin = frame({place.e, place.f});
    return {place.a * scale, -place.b * scale, -place.c * scale,
            place.d * scale, origin.x,         origin.y};
}

} // namespace

std::string escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        char32_t code = 0;
        const size_t length = character(text, code);
        put_character(out, length ? code : 0, text.substr(0, length));
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

std::string hex_of(uint32_t rgb) {
    std::string out = "#000000";
    for (size_t i = 6; i; --i, rgb >>= 4) out[i] = "0123456789abcdef"[rgb & 15];
    return out;
}

std::string text_element(const Text &text, uint32_t colour, const Frame &frame, double least,
                         const std::string &more) {
    constexpr double kLeast = 0.02, kMost = 1e5; // units of height
    const double height = std::hypot(text.place.c, text.place.d) * frame.scale();
    if (text.text.empty() || !(height >= std::max(kLeast, least) && height <= kMost)) return {};
    Matrix place = turned(text.place, frame, height);
    if (!(std::fabs(place.e) <= kMost && std::fabs(place.f) <= kMost)) return {};
    std::string out = "<text";
    const double length = text.width > 0 ? width_of(text.text) : 0;
    if (length > 0) { // for renderers that don't space letters the whole is drawn wider
        const double stretch = std::clamp(text.width / length, 0.01, 100.0);
        place.a *= stretch;
        place.b *= stretch;
    }
    const auto is = [](double value, double wanted) { return std::fabs(value - wanted) < 1e-6; };
    if (is(place.a, 1) && is(place.b, 0) && is(place.c, 0) && is(place.d, 1)) {
        put_attribute(out, "x", place.e);
        put_attribute(out, "y", place.f);
    } else {
        put_matrix(out, place);
    }
    put_attribute(out, "font-size", height * 1000 / kCapital);
    if (length > 0) {
        put_attribute(out, "textLength", length * height);
        out += " lengthAdjust=\"spacingAndGlyphs\"";
    }
    put_style(out, text, family_of(text.font));
    return out + " fill=\"" + hex_of(colour) + "\"" + more + ">" + escaped(text.text) + "</text>\n";
}

} // namespace picture
