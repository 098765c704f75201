// The scanf engine. A conversion is %[*][width][size]letter, an asterisk stores nothing:
//   d i u o x X p n    whole numbers, of the sizes hh h l ll j z t I I32 I64
//   a e f g            float, with l double, with L long double
//   c s [set]          text of the format's own width; C S, h and l as for printf
// The width bounds the units read, and in texts of the other width those stored.
#include "common/c_locale.hpp"
#include "common/utf.hpp"

#include "zev/str.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace zev {
namespace {

enum class Size { none, hh, h, l, ll, L };

struct Spec {
    bool skip = false; // read but not stored
    uint64_t width = UINT64_MAX;
    Size size = Size::none;
};

uint64_t convert(const char *text, uint64_t count, zwchar *out) {
    return wide_from_utf8(text, count, out);
}
uint64_t convert(const zwchar *text, uint64_t count, char *out) {
    return utf8_from_wide(text, count, out);
}

template <class C> bool is_blank(C unit) { return unit == ' ' || (unit >= '\t' && unit <= '\r'); }

// The inside of brackets: units and ranges, all others after a leading ^.
template <class C> struct Set {
    const C *first, *last;
    bool inverted;

    bool contains(C unit) const {
        using Unit = std::make_unsigned_t<C>; // ranges of bytes go on beyond ASCII
        const auto value = static_cast<Unit>(unit);
        for (const C *at = first; at < last; ++at) {
            if (at + 2 < last && at[1] == '-') {
                if (value >= static_cast<Unit>(at[0]) && value <= static_cast<Unit>(at[2]))
                    return !inverted;
                at += 2;
            } else if (*at == unit)
                return !inverted;
        }
        return inverted;
    }
};

template <class C> class Scanner {
  public:
    Scanner(const C *text, const C *format, va_list arguments)
        : start_(text), at_(text), format_(format) {
        va_copy(arguments_, arguments);
    }
    ~Scanner() { va_end(arguments_); }
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    // Conversions stored; -1 when the text ended before the first.
    int32_t run() {
        while (*format_ && step()) {
        }
        return !stored_ && ended_ ? -1 : stored_;
    }

  private:
    using Other = std::conditional_t<std::is_same_v<C, char>, zwchar, char>;

    bool step() {
        if (is_blank(*format_)) return ++format_, skip_blanks(), true;
        if (*format_ != '%') return literal();
        ++format_;
        Spec spec;
        if (*format_ == '*') spec.skip = true, ++format_;
        width(spec);
        size(spec);
        return conversion(spec);
    }

    void skip_blanks() {
        while (is_blank(*at_)) ++at_;
    }

    bool literal() {
        ended_ = !*at_;
        return *at_ == *format_ ? (++at_, ++format_, true) : false;
    }

    void width(Spec &spec) {
        uint64_t width = 0;
        for (; *format_ >= '0' && *format_ <= '9'; ++format_)
            width = std::min<uint64_t>(width * 10 + static_cast<uint64_t>(*format_ - '0'), INT_MAX);
        if (width) spec.width = width;
    }

    bool take(const char *name) {
        uint64_t length = 0;
        while (name[length] && format_[length] == static_cast<C>(name[length])) ++length;
        if (!name[length]) format_ += length;
        return !name[length];
    }

    void size(Spec &spec) {
        if (take("hh"))
            spec.size = Size::hh;
        else if (take("h"))
            spec.size = Size::h;
        else if (take("I32"))
            spec.size = Size::none;
        else if (take("ll") || take("I64") || take("I") || take("j") || take("z") || take("t"))
            spec.size = Size::ll;
        else if (take("l") || take("w"))
            spec.size = Size::l;
        else if (take("L"))
            spec.size = Size::L;
    }

    bool conversion(Spec &spec) {
        const C letter = *format_;
        if (!letter) return false;
        if (!find(u"cC[n", letter)) skip_blanks();
        if (letter == 'n')
            return ++format_, store_integer(spec, static_cast<uint64_t>(at_ - start_)), true;
        if (letter == '%') return literal();
        if (ended_ = !*at_; ended_) return false;
        ++format_;
        switch (letter) {
        case 'd':
        case 'u':
            return integer(spec, 10);
        case 'i':
            return integer(spec, 0);
        case 'o':
            return integer(spec, 8);
        case 'x':
        case 'X':
            return integer(spec, 16);
        case 'p':
            return spec.size = Size::ll, integer(spec, 16);
        case 'c':
        case 'C':
            return characters(spec, is_wide(spec, letter == 'c'));
        case 's':
        case 'S':
            return word(spec, is_wide(spec, letter == 's'));
        case '[':
            return bracket(spec);
        default:
            return find(u"aAeEfFgG", letter) && real(spec);
        }
    }

    static bool find(const zwchar *set, C letter) {
        return static_cast<std::make_unsigned_t<C>>(letter) < 0x80 &&
               zStrchrW(set, static_cast<zwchar>(letter));
    }

    static bool is_wide(const Spec &spec, bool own) {
        if (spec.size == Size::h || spec.size == Size::hh) return false;
        if (spec.size != Size::none) return true;
        return std::is_same_v<C, zwchar> == own;
    }

    // ---- Numbers, read by the C library from an ASCII copy

    const char *digits(const Spec &spec, const zwchar *alphabet) {
        const uint64_t most = std::min<uint64_t>(spec.width, sizeof copy_ - 1);
        uint64_t length = 0;
        for (; length < most && at_[length] && find(alphabet, at_[length]); ++length)
            copy_[length] = static_cast<char>(at_[length]);
        copy_[length] = 0;
        return copy_;
    }

    bool integer(const Spec &spec, int base) {
        const char *text = digits(spec, u"+-0123456789abcdefABCDEFxX");
        char *end;
        // Out of range ends at the limits, of the negative ones at the signed.
        const uint64_t value = *text == '-' ? static_cast<uint64_t>(strtoll(text, &end, base))
                                            : strtoull(text, &end, base);
        if (end == text) return false;
        at_ += end - text;
        return store_integer(spec, value), count(spec);
    }

    void store_integer(const Spec &spec, uint64_t value) {
        if (spec.skip) return;
        void *target = va_arg(arguments_, void *);
        switch (spec.size) {
        case Size::hh:
            *static_cast<uint8_t *>(target) = static_cast<uint8_t>(value);
            break;
        case Size::h:
            *static_cast<uint16_t *>(target) = static_cast<uint16_t>(value);
            break;
        case Size::l:
            *static_cast<unsigned long *>(target) = value;
            break;
        case Size::ll:
            *static_cast<uint64_t *>(target) = value;
            break;
        default:
            *static_cast<uint32_t *>(target) = static_cast<uint32_t>(value);
        }
    }

    bool real(const Spec &spec) {
        const char *text = digits(spec, u"+-.0123456789abcdefABCDEFxXpPiInNtTyY");
        char *end;
        const long double value = strtold_l(text, &end, c_locale());
        if (end == text) return false;
        at_ += end - text;
        if (spec.skip) return true;
        void *target = va_arg(arguments_, void *);
        if (spec.size == Size::L)
            *static_cast<long double *>(target) = value;
        else if (spec.size == Size::none)
            *static_cast<float *>(target) = strtof_l(text, nullptr, c_locale());
        else
            *static_cast<double *>(target) = strtod_l(text, nullptr, c_locale());
        return count(spec);
    }

    bool count(const Spec &spec) {
        if (!spec.skip) ++stored_;
        return true;
    }

    // ---- Text

    bool characters(Spec &spec, bool wide) {
        if (spec.width == UINT64_MAX) spec.width = 1;
        const uint64_t length = available(spec.width);
        ended_ = length < spec.width;
        return !ended_ && text(spec, length, wide, false);
    }

    bool word(const Spec &spec, bool wide) {
        uint64_t length = 0;
        while (length < spec.width && at_[length] && !is_blank(at_[length])) ++length;
        return text(spec, length, wide, true);
    }

    bool bracket(const Spec &spec) {
        Set<C> set{format_, format_, false};
        if (*set.first == '^') set.inverted = true, ++set.first;
        // A closing bracket right at the start belongs to the set.
        set.last = set.first + (*set.first == ']');
        while (*set.last && *set.last != ']') ++set.last;
        if (!*set.last) return false;
        format_ = set.last + 1;
        uint64_t length = 0;
        while (length < spec.width && at_[length] && set.contains(at_[length])) ++length;
        return length && text(spec, length, is_wide(spec, true), true);
    }

    uint64_t available(uint64_t most) const {
        uint64_t length = 0;
        while (length < most && at_[length]) ++length;
        return length;
    }

    // Takes `length` units in, at most `width` of what they become.
    bool text(const Spec &spec, uint64_t length, bool wide, bool terminate) {
        if (!spec.skip) {
            void *target = va_arg(arguments_, void *);
            if (wide == std::is_same_v<C, zwchar>)
                copy(static_cast<C *>(target), length, terminate);
            else
                length = copy_other(static_cast<Other *>(target), spec, length, terminate);
        }
        at_ += length;
        return count(spec);
    }

    void copy(C *target, uint64_t length, bool terminate) {
        memcpy(target, at_, length * sizeof(C));
        if (terminate) target[length] = 0;
    }

    uint64_t copy_other(Other *target, const Spec &spec, uint64_t length, bool terminate) {
        while (convert(at_, length, static_cast<Other *>(nullptr)) > spec.width)
            length = whole(at_, length - 1);
        const uint64_t made = convert(at_, length, target);
        if (terminate) target[made] = 0;
        return length;
    }

    const C *start_, *at_, *format_;
    va_list arguments_;
    int32_t stored_ = 0;
    bool ended_ = false;
    char copy_[512];
};

} // namespace
} // namespace zev

int32_t zSscanfA(const char *text, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t stored = zev::Scanner<char>(text, format, arguments).run();
    va_end(arguments);
    return stored;
}

int32_t zSscanfW(const zwchar *text, const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t stored = zev::Scanner<zwchar>(text, format, arguments).run();
    va_end(arguments);
    return stored;
}
