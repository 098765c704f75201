// The printf engine. A conversion is %[flags][width][.precision][size]letter:
//   flags     - + blank # 0
//   size      hh h l ll j z t I I32 I64 for numbers; h is narrow and l, ll, w wide for texts
//   d i u o x X        numbers of int, or of what the size says
//   a A e E f F g G    double, with L long double
//   p                  16 upper-case hexadecimal digits
//   c s                the format's own width; C S the other one
// Texts of the other width are converted, and count in the units of the result. %n and unknown
// letters end the work with -1.
#include "common/format.hpp"

#include "common/c_locale.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"

#include "zev/str.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace zev {
namespace {

// What becomes of the text: up to `size` units are kept, all are counted.
template <class C> struct Sink {
    C *buffer;
    uint64_t size;
    uint64_t length = 0;

    uint64_t room(uint64_t count) const {
        if (!buffer || length >= size) return 0;
        return count < size - length ? count : size - length;
    }
    void put(const C *text, uint64_t count) {
        if (uint64_t kept = room(count)) memcpy(buffer + length, text, kept * sizeof(C));
        length += count;
    }
    void fill(C unit, uint64_t count) {
        for (uint64_t i = 0, kept = room(count); i < kept; ++i) buffer[length + i] = unit;
        length += count;
    }
    void terminate() {
        if (buffer && length < size) buffer[length] = 0;
    }
};

enum class Size { none, hh, h, l, ll, w, L, i32 };

struct Spec {
    char flags[6] = {}; // as written, each once
    bool left = false, zero = false;
    int width = 0;
    int precision = -1; // none
    Size size = Size::none;
};

// Numbers have a point, whatever locale the host has set.
class PointLocale {
  public:
    PointLocale() : before_(uselocale(c_locale())) {}
    ~PointLocale() { uselocale(before_); }
    PointLocale(const PointLocale &) = delete;
    PointLocale &operator=(const PointLocale &) = delete;

  private:
    locale_t before_;
};

uint64_t bounded(const char *text, int precision) {
    return precision < 0 ? strlen(text) : strnlen(text, static_cast<size_t>(precision));
}
uint64_t bounded(const zwchar *text, int precision) {
    return precision < 0 ? zStrlenW(text) : zStrnlenW(text, static_cast<uint64_t>(precision));
}

uint64_t convert(const char *text, uint64_t count, zwchar *out) {
    return wide_from_utf8(text, count, out);
}
uint64_t convert(const zwchar *text, uint64_t count, char *out) {
    return utf8_from_wide(text, count, out);
}

// Units of one conversion: a catalogue's text may ask for any width, and all of it would be held in
// memory.
constexpr int kWidest = 1 << 20;

template <class C> class Printer {
  public:
    Printer(C *buffer, uint64_t size, const C *format, va_list arguments)
        : sink_{buffer, size}, at_(format) {
        va_copy(arguments_, arguments);
    }
    ~Printer() { va_end(arguments_); }
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;

    // The length of the whole text, however much of it the buffer holds; -1 for a bad format.
    int64_t run() {
        while (*at_) {
            const C *plain = at_;
            while (*at_ && *at_ != '%') ++at_;
            sink_.put(plain, static_cast<uint64_t>(at_ - plain));
            if (*at_ && !conversion()) return sink_.terminate(), -1;
        }
        sink_.terminate();
        return static_cast<int64_t>(sink_.length);
    }

  private:
    using Other = std::conditional_t<std::is_same_v<C, char>, zwchar, char>;

    bool conversion() {
        Spec spec;
        ++at_;
        if (plain_number()) return true;
        flags(spec);
        return width(spec) && precision(spec) && (size(spec), letter(spec));
    }

    // %d, %u, %llu and %s make up most formats.
    bool plain_number() {
        if (*at_ == 'd') return ++at_, decimal(va_arg(arguments_, int));
        if (*at_ == 'u') return ++at_, decimal(va_arg(arguments_, unsigned));
        if (at_[0] == 'l' && at_[1] == 'l' && at_[2] == 'u')
            return at_ += 3, decimal(va_arg(arguments_, unsigned long long));
        return false;
    }

    template <class T> bool decimal(T value) {
        C digits[24], *first = digits + 24;
        const bool negative = value < 0;
        auto rest = static_cast<uint64_t>(value);
        if (negative) rest = 0 - rest;
        do *--first = static_cast<C>('0' + rest % 10);
        while (rest /= 10);
        if (negative) *--first = '-';
        sink_.put(first, static_cast<uint64_t>(digits + 24 - first));
        return true;
    }

    void flags(Spec &spec) {
        for (uint32_t count = 0; *at_ && strchr("-+ #0", narrow(*at_)); ++at_) {
            const char flag = narrow(*at_);
            if (!strchr(spec.flags, flag)) spec.flags[count++] = flag;
        }
        spec.left = strchr(spec.flags, '-');
        spec.zero = strchr(spec.flags, '0');
    }

    bool width(Spec &spec) {
        if (!number(spec.width)) return false;
        if (spec.width < -kWidest || spec.width > kWidest) return false;
        if (spec.width >= 0) return true;
        spec.width = -spec.width;
        if (!spec.left) spec.flags[strlen(spec.flags)] = '-';
        return spec.left = true;
    }

    bool precision(Spec &spec) {
        if (*at_ != '.') return true;
        ++at_;
        return spec.precision = 0, number(spec.precision);
    }

    // Digits or an asterisk; what isn't there leaves the value as it is.
    bool number(int &value) {
        if (*at_ == '*') return ++at_, value = va_arg(arguments_, int), true;
        for (; *at_ >= '0' && *at_ <= '9'; ++at_) {
            if (value > (INT_MAX - 9) / 10) return false;
            value = value * 10 + (*at_ - '0');
        }
        return true;
    }

    void size(Spec &spec) {
        static constexpr struct {
            const char *name;
            Size size;
        } kSizes[] = {{"hh", Size::hh}, {"h", Size::h},     {"ll", Size::ll},  {"l", Size::l},
                      {"w", Size::w},   {"L", Size::L},     {"j", Size::ll},   {"z", Size::ll},
                      {"t", Size::ll},  {"I32", Size::i32}, {"I64", Size::ll}, {"I", Size::ll}};
        for (const auto &row : kSizes) {
            uint64_t length = 0;
            while (row.name[length] && at_[length] == static_cast<C>(row.name[length])) ++length;
            if (row.name[length]) continue;
            at_ += length;
            spec.size = row.size;
            return;
        }
    }

    bool letter(Spec &spec) {
        const char conversion = narrow(*at_);
        if (conversion) ++at_;
        switch (conversion) {
        case '%':
            return sink_.put(at_ - 1, 1), true;
        case 'd':
        case 'i':
            return integer(spec, 'd', signed_argument(spec.size));
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            return integer(spec, conversion, unsigned_argument(spec.size));
        case 'p':
            return pointer(spec);
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            return real(spec, conversion);
        case 'c':
        case 'C':
            return wide_text(spec, conversion) ? unit<zwchar>(spec) : unit<char>(spec);
        case 's':
        case 'S':
            return wide_text(spec, conversion) ? text<zwchar>(spec) : text<char>(spec);
        default:
            return false;
        }
    }

    static char narrow(C unit) {
        return static_cast<std::make_unsigned_t<C>>(unit) < 0x80 ? static_cast<char>(unit) : '\x7F';
    }

    static bool wide_text(const Spec &spec, char conversion) {
        if (spec.size == Size::h || spec.size == Size::hh) return false;
        if (spec.size != Size::none) return true;
        return std::is_same_v<C, zwchar> == (conversion == 'c' || conversion == 's');
    }

    long long signed_argument(Size size) {
        switch (size) {
        case Size::hh:
            return static_cast<signed char>(va_arg(arguments_, int));
        case Size::h:
            return static_cast<short>(va_arg(arguments_, int));
        case Size::l:
            return va_arg(arguments_, long);
        case Size::ll:
            return va_arg(arguments_, long long);
        default:
            return va_arg(arguments_, int);
        }
    }

    unsigned long long unsigned_argument(Size size) {
        switch (size) {
        case Size::hh:
            return static_cast<unsigned char>(va_arg(arguments_, int));
        case Size::h:
            return static_cast<unsigned short>(va_arg(arguments_, int));
        case Size::l:
            return va_arg(arguments_, unsigned long);
        case Size::ll:
            return va_arg(arguments_, unsigned long long);
        default:
            return va_arg(arguments_, unsigned);
        }
    }

    template <class T> bool integer(const Spec &spec, char letter, T value) {
        return native(spec, "ll", letter, value);
    }

    bool pointer(Spec &spec) {
        spec.precision = 16;
        if (char *hash = strchr(spec.flags, '#')) *hash = ' ';
        return native(spec, "ll", 'X', reinterpret_cast<uintptr_t>(va_arg(arguments_, void *)));
    }

    bool real(const Spec &spec, char letter) {
        PointLocale point;
        if (spec.size != Size::L) return native(spec, "", letter, va_arg(arguments_, double));
        return native(spec, "L", letter, va_arg(arguments_, long double));
    }

    // A number by the C library; width and precision always go as arguments.
    template <class T> bool native(const Spec &spec, const char *size, char letter, T value) {
        if (spec.precision > kWidest) return false;
        char format[16] = "%", local[128];
        strcat(strcat(strcat(format, spec.flags), "*.*"), size);
        format[strlen(format)] = letter;
        const int length = snprintf(local, sizeof local, format, spec.width, spec.precision, value);
        if (length < 0) return false;
        const auto count = static_cast<uint64_t>(length);
        if (count < sizeof local) return ascii(local, count);
        Narrow longer(static_cast<char *>(malloc(count + 1)));
        if (!longer) return false;
        snprintf(longer.get(), count + 1, format, spec.width, spec.precision, value);
        return ascii(longer.get(), count);
    }

    bool ascii(const char *digits, uint64_t count) {
        if constexpr (std::is_same_v<C, char>)
            sink_.put(digits, count);
        else
            put(digits, count);
        return true;
    }

    template <class In> bool unit(const Spec &spec) {
        const In unit = static_cast<In>(va_arg(arguments_, int));
        return padded(spec, &unit, 1);
    }

    template <class In> bool text(const Spec &spec) {
        static constexpr In kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
        const In *text = va_arg(arguments_, const In *);
        if (!text) text = kNull;
        uint64_t count = bounded(text, spec.precision);
        // The precision never cuts a character that is to be converted.
        if (!std::is_same_v<In, C> && static_cast<int64_t>(count) == spec.precision)
            count = whole(text, count);
        return padded(spec, text, count);
    }

    template <class In> bool padded(const Spec &spec, const In *text, uint64_t count) {
        const auto width = static_cast<uint64_t>(spec.width);
        const uint64_t length = width ? measure(text, count) : 0;
        const uint64_t pad = width > length ? width - length : 0;
        if (!spec.left) sink_.fill(spec.zero ? '0' : ' ', pad);
        put(text, count);
        if (spec.left) sink_.fill(' ', pad);
        return true;
    }

    static uint64_t measure(const C *, uint64_t count) { return count; }
    static uint64_t measure(const Other *text, uint64_t count) {
        return convert(text, count, static_cast<C *>(nullptr));
    }

    void put(const C *text, uint64_t count) { sink_.put(text, count); }
    void put(const Other *text, uint64_t count) {
        constexpr uint64_t kBlock = 128;
        while (count) {
            C block[3 * kBlock]; // a unit takes at most 3 bytes
            const uint64_t part = count > kBlock ? whole(text, kBlock) : count;
            sink_.put(block, convert(text, part, block));
            text += part;
            count -= part;
        }
    }

    Sink<C> sink_;
    const C *at_;
    va_list arguments_;
};

// The result of _vsnprintf: an exact fit counts, what is longer does not.
template <class C>
int32_t format_into(C *buffer, uint64_t size, const C *format, va_list arguments) {
    if (!format) return -1;
    const int64_t length = Printer<C>(buffer, size, format, arguments).run();
    if (length > INT32_MAX) return -1;
    if (buffer && length > 0 && static_cast<uint64_t>(length) > size) return -1;
    return static_cast<int32_t>(length);
}

// Most texts fit the stack; a longer one is formatted again, its length known by then.
template <class C> C *format_dup(const C *format, va_list arguments) {
    if (!format) return nullptr;
    C local[512];
    const int64_t result = Printer<C>(local, std::size(local), format, arguments).run();
    if (result < 0) return nullptr;
    const auto length = static_cast<uint64_t>(result);
    auto *copy = static_cast<C *>(malloc((length + 1) * sizeof(C)));
    if (!copy) return nullptr;
    if (length < std::size(local))
        memcpy(copy, local, (length + 1) * sizeof(C));
    else
        Printer<C>(copy, length + 1, format, arguments).run();
    return copy;
}

} // namespace

locale_t c_locale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

int32_t format_wide(zwchar *buffer, uint64_t size, const zwchar *format, va_list arguments) {
    return format_into(buffer, size, format, arguments);
}

int32_t format_narrow(char *buffer, uint64_t size, const char *format, va_list arguments) {
    return format_into(buffer, size, format, arguments);
}

zwchar *format_wide_dup(const zwchar *format, va_list arguments) {
    return format_dup(format, arguments);
}

char *format_narrow_dup(const char *format, va_list arguments) {
    return format_dup(format, arguments);
}

} // namespace zev
