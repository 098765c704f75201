// Encoding: the bytes of a drawing's texts as UTF-8. Older drawings are written in the code page
// that their header names, newer ones in UTF-8; either may have characters by their numbers.
#pragma once

#include <iconv.h>

#include <map>
#include <string>
#include <string_view>

namespace picture {

class Encoding {
  public:
    Encoding() = default; // UTF-8
    // The header's $DWGCODEPAGE. One that nobody knows leaves what isn't ASCII as U+FFFD; without
    // one it is UTF-8 where the bytes are, else the western page.
    explicit Encoding(std::string_view codepage);
    ~Encoding();
    Encoding(Encoding &&) = delete;

    // Good UTF-8. Numbers of characters, \U+XXXX and \M+NXXXX, are taken for them.
    std::string text(std::string_view bytes);

  private:
    std::string converted(std::string_view bytes, const std::string &charset);
    std::string with_numbers(std::string_view text);
    bool take_number(std::string_view &left, std::string &out);

    std::string charset_; // empty for UTF-8
    bool is_guess_ = false;
    std::map<std::string, iconv_t> converters_;
};

// One character behind a UTF-8 text.
void put_character(std::string &out, char32_t character);

// The next character of good UTF-8, which is taken away.
char32_t take_character(std::string_view &text);

// Without control characters, and what is no UTF-8 as U+FFFD.
std::string cleaned(std::string_view text);

} // namespace picture
