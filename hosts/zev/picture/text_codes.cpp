// A code that isn't known shows its letter, as editors do. Braces nest as deep as they like, which
// is a stack of formats, of limited height.
#include "picture/text_codes.hpp"

#include "picture/groups.hpp"
#include "picture/widths.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace picture {

namespace {

constexpr size_t kDeepest = 64; // braces in braces, beyond which they don't matter

// A code behind %%, if it is one that shows something; what it takes is taken away.
bool take_percent(std::string_view &left, std::string &out, bool &is_underlined) {
    if (!left.starts_with("%%") || left.size() < 3) return false;
    const char code = left[2] >= 'A' && left[2] <= 'Z' ? char(left[2] + 32) : left[2];
    size_t taken = 3;
    if (code == 'd') {
        put_character(out, 0xB0);
    } else if (code == 'c') {
        put_character(out, 0xD8);
    } else if (code == 'p') {
        put_character(out, 0xB1);
    } else if (code == '%') {
        out += '%';
    } else if (code == 'u') {
        is_underlined = true;
    } else if (code >= '0' && code <= '9' && left.size() >= 5) {
        put_character(out,
                      static_cast<char32_t>(std::clamp(integer_of(left.substr(2, 3)), 1, 255)));
        taken = 5;
    } else if (code != 'o' && code != 'k') {
        return false;
    }
    left.remove_prefix(taken);
    return true;
}

// A control character behind a caret: a tab or the end of a line count, others are gone.
char caret(std::string_view left) {
    if (left.size() < 2) return '^';
    return left[1] == 'I' ? '\t' : left[1] == 'J' ? '\n' : left[1] == ' ' ? '^' : '\0';
}

class Reader {
  public:
    Reader(std::string_view text, const Format &first) : left_(text), now_(first) { put_format(); }

    MText run() {
        while (!left_.empty()) {
            bool is_underlined = now_.is_underlined;
            if (left_[0] == '\\' && left_.size() > 1)
                code(left_[1]);
            else if (left_[0] == '{' || left_[0] == '}')
                brace(left_[0]);
            else if (left_[0] == '^')
                control(caret(left_));
            else if (!take_percent(left_, word_, is_underlined))
                letter();
        }
        end_word();
        return std::move(result_);
    }

  private:
    void letter() {
        if (left_[0] == '\t' || left_[0] == '\n') return control(left_[0], 1);
        std::string_view rest = left_;
        const char32_t character = take_character(rest);
        if (character == ' ') {
            end_word();
            result_.words.push_back({" ", format_});
        } else {
            word_ += left_.substr(0, left_.size() - rest.size());
            if (is_wide(character)) end_word();
        }
        left_ = rest;
    }

    void control(char character, size_t taken = 2) {
        left_.remove_prefix(std::min(taken, left_.size()));
        if (character == '^') word_ += '^';
        if (character == '\n') end_line();
        if (character != '\t') return;
        end_word();
        for (int i = 0; i < 4; ++i) result_.words.push_back({" ", format_});
    }

    void brace(char which) {
        left_.remove_prefix(1);
        if (which == '{' && outer_.size() < kDeepest) outer_.push_back(now_);
        if (which == '{' || outer_.empty()) return;
        change([&] { now_ = outer_.back(); });
        outer_.pop_back();
    }

    void code(char name) {
        left_.remove_prefix(2);
        switch (name) {
        case 'P':
        case 'X':
        case 'N':
            return end_line();
        case '~':
            return put_character(word_, 0xA0);
        case 'L':
        case 'l':
            return change([&] { now_.is_underlined = name == 'L'; });
        case 'O':
        case 'o':
        case 'K':
        case 'k':
            return;
        case 'S':
            return stack(argument());
        default:
            if (std::string_view("ACcFfHpQTW").find(name) == std::string_view::npos)
                word_ += name; // a backslash, a brace, or nothing that is known
            else
                change([&, value = argument()] { set(name, value); });
        }
    }

    // Up to the semicolon, which is gone.
    std::string_view argument() {
        const size_t end = left_.find(';');
        const std::string_view value = left_.substr(0, end);
        left_.remove_prefix(end == left_.npos ? left_.size() : end + 1);
        return value;
    }

    void set(char name, std::string_view value) {
        if (name == 'H') factor(now_.height, value, now_.height);
        if (name == 'W') factor(now_.width, value, 1);
        if (name == 'Q') angle(now_.oblique, value);
        if (name == 'f' || name == 'F') font(value);
        if (name == 'p') paragraph(value);
        if (name == 'C') {
            const int number = integer_of(value);
            now_.ink.value = number > 0 && number < 256 ? uint32_t(number) : 0;
        }
        if (name == 'c') {
            const auto bgr = static_cast<uint32_t>(integer_of(value));
            now_.ink.value = Ink::kTrue | (bgr & 0xFF) << 16 | (bgr & 0xFF00) | (bgr >> 16 & 0xFF);
        }
    }

    // 2.5 is a value, 2.5x a multiple.
    static void factor(double &to, std::string_view value, double of) {
        const bool is_multiple = value.ends_with('x') || value.ends_with('X');
        if (is_multiple) value.remove_suffix(1);
        const double number = number_of(value) * (is_multiple ? of : 1);
        if (std::isfinite(number) && std::abs(number) < 1e12 && number != 0) to = number;
    }

    // None of it is upright again.
    static void angle(double &to, std::string_view value) {
        const double degrees = number_of(value);
        if (std::isfinite(degrees) && std::abs(degrees) <= 85) to = degrees;
    }

    // Arial|b1|i0|c0|p34
    void font(std::string_view value) {
        const size_t end = value.find('|');
        now_.font = cleaned(value.substr(0, std::min<size_t>(end, 64)));
        const std::string_view rest = end == value.npos ? std::string_view() : value.substr(end);
        now_.is_bold = rest.find("|b1") != rest.npos;
        now_.is_italic = rest.find("|i1") != rest.npos;
    }

    void paragraph(std::string_view value) {
        const size_t at = value.find('q');
        if (at == value.npos || at + 1 == value.size()) return;
        const char how = value[at + 1];
        now_.align = how == 'c'   ? Format::middle
                     : how == 'r' ? Format::right
                     : how == 'l' ? Format::left
                                  : Format::usual;
    }

    // A fraction or a pair of tolerances, one beside the other.
    void stack(std::string_view value) {
        for (const char c : value) {
            if (c == '^')
                word_ += ' ';
            else if (c != '\\')
                word_ += c == '#' ? '/' : c;
        }
    }

    template <class Change> void change(const Change &make) {
        end_word();
        make();
        put_format();
    }

    void put_format() {
        format_ = static_cast<uint32_t>(result_.formats.size());
        result_.formats.push_back(now_);
    }

    void end_word() {
        std::string text = cleaned(word_);
        if (!text.empty()) result_.words.push_back({std::move(text), format_});
        word_.clear();
    }

    void end_line() {
        end_word();
        result_.words.push_back({"", format_});
    }

    std::string_view left_;
    Format now_;
    std::vector<Format> outer_;
    std::string word_;
    uint32_t format_ = 0;
    MText result_;
};

} // namespace

std::string plain_text(std::string_view text, bool &is_underlined) {
    std::string out;
    while (!text.empty()) {
        if (text[0] == '%' && take_percent(text, out, is_underlined)) continue;
        if (text[0] == '^' && text.size() > 1) {
            const char character = caret(text);
            if (character) out += character == '^' ? '^' : ' ';
            text.remove_prefix(2);
            continue;
        }
        out += text[0] == '\t' ? ' ' : text[0];
        text.remove_prefix(1);
    }
    return cleaned(out);
}

MText read_mtext(std::string_view text, const Format &first) { return Reader(text, first).run(); }

} // namespace picture
