// Reading JSON text: one pushdown automaton for wide text and for UTF-8, in one pass.
//
// Text form, beyond what is usual:
//   - the top is an object or an array; containers nest 255 deep
//   - "1." is a number; an exponent may not follow a whole number that begins with 0
//   - characters below 32 are refused in strings; 128 and above stand in strings only
//   - \u and its four digits, and \/, are accepted and stay as they are
//   - of members with one name the last one counts
// Malformed UTF-8 within a string becomes U+FFFD.
#include "common/json.hpp"

#include "common/failure.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"

#include "zev/vector.h"

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

using namespace zev;

namespace {

// clang-format off
enum Class : uint8_t {
    Space, White, BraceOpen, BraceClose, BracketOpen, BracketClose, ColonSign, CommaSign, Quote,
    Backslash, Slash, Plus, Minus, Point, Zero, Digit,
    LowA, LowB, LowC, LowD, LowE, LowF, LowL, LowN, LowR, LowS, LowT, LowU,
    HexUpper, // A B C D F
    UpE,
    Other,    // in strings only
    Control,  // below 32 and not white: refused everywhere
    kClasses
};

enum State : uint8_t {
    Start,  // nothing but blanks yet
    Done,   // behind a value
    Object, // behind {
    Key,    // a name must come
    Colon,
    Value,  // a value must come
    Array,  // behind [
    String,
    Escape, // behind a backslash
    Hex1, Hex2, Hex3, Hex4,
    Sign,   // behind -
    Nought, // behind a leading 0
    Whole, Fraction, Exp, ExpSign, ExpDigits,
    T, Tr, Tru, F, Fa, Fal, Fals, N, Nu, Nul,
    kStates
};
// clang-format on
static_assert(kStates == 30 && kClasses == 32);

// What ends with the character before this one, or begins with this one.
enum class Token : uint8_t { none, begin, integer, real, yes, no, null };
// What the character does beyond the change of state.
enum class Act : uint8_t {
    none,
    refuse,
    escape,
    unicode,
    text,
    comma,
    colon,
    open_object,
    open_array,
    close_empty,
    close_object,
    close_array
};
enum Mode : uint8_t { TopMode, KeyMode, ObjectMode, ArrayMode };

struct alignas(4) Cell {
    State next = Start;
    Token token = Token::none;
    Act act = Act::none;

    constexpr bool quiet() const { return (static_cast<int>(token) | static_cast<int>(act)) == 0; }
};
constexpr Cell kRefused = {Start, Token::none, Act::refuse};

constexpr std::array<uint8_t, 128> make_classes() {
    std::array<uint8_t, 128> classes{};
    for (size_t i = 0; i < classes.size(); ++i) classes[i] = i < 32 ? Control : Other;
    const auto set = [&](std::string_view characters, int first, int step) {
        for (char c : characters) {
            classes[static_cast<size_t>(c)] = static_cast<uint8_t>(first);
            first += step;
        }
    };
    set(" ", Space, 0);
    set("\t\n\r", White, 0);
    set("{}[]:,\"\\/+-.0", BraceOpen, 1);
    set("123456789", Digit, 0);
    set("abcdeflnrstu", LowA, 1);
    set("ABCDF", HexUpper, 0);
    set("E", UpE, 0);
    return classes;
}
constexpr auto kClassOf = make_classes();

using Cells = std::array<std::array<Cell, kClasses>, kStates>;

constexpr void on(Cells &cells, State state, std::string_view characters, Cell cell) {
    for (char c : characters) cells[state][kClassOf[static_cast<size_t>(c)]] = cell;
}

constexpr void add_values(Cells &cells, State state) {
    on(cells, state, "{", {Object, Token::none, Act::open_object});
    on(cells, state, "[", {Array, Token::none, Act::open_array});
    on(cells, state, "\"", {String, Token::begin});
    on(cells, state, "-", {Sign, Token::begin});
    on(cells, state, "0", {Nought, Token::begin});
    on(cells, state, "1", {Whole, Token::begin});
    on(cells, state, "t", {T, Token::begin});
    on(cells, state, "f", {F, Token::begin});
    on(cells, state, "n", {N, Token::begin});
}

// What may stand behind a value; `ended` is the number that ends there.
constexpr void add_ends(Cells &cells, State state, Token ended) {
    on(cells, state, " \t", {Done, ended});
    on(cells, state, ",", {Value, ended, Act::comma});
    on(cells, state, "]", {Done, ended, Act::close_array});
    on(cells, state, "}", {Done, ended, Act::close_object});
}

constexpr void add_numbers(Cells &cells) {
    on(cells, Sign, "0", {Nought});
    on(cells, Sign, "1", {Whole});
    on(cells, Nought, ".", {Fraction});
    on(cells, Whole, "01", {Whole});
    on(cells, Whole, ".", {Fraction});
    on(cells, Whole, "eE", {Exp});
    on(cells, Fraction, "01", {Fraction});
    on(cells, Fraction, "eE", {Exp});
    on(cells, Exp, "+-", {ExpSign});
    for (State state : {Exp, ExpSign, ExpDigits}) on(cells, state, "01", {ExpDigits});
    add_ends(cells, Nought, Token::integer);
    add_ends(cells, Whole, Token::integer);
    add_ends(cells, Fraction, Token::real);
    add_ends(cells, ExpDigits, Token::real);
}

constexpr void add_words(Cells &cells) {
    on(cells, T, "r", {Tr});
    on(cells, Tr, "u", {Tru});
    on(cells, Tru, "e", {Done, Token::yes});
    on(cells, F, "a", {Fa});
    on(cells, Fa, "l", {Fal});
    on(cells, Fal, "s", {Fals});
    on(cells, Fals, "e", {Done, Token::no});
    on(cells, N, "u", {Nu});
    on(cells, Nu, "l", {Nul});
    on(cells, Nul, "l", {Done, Token::null});
}

constexpr void add_strings(Cells &cells) {
    for (uint8_t kind = 0; kind < Control; ++kind) cells[String][kind] = {String};
    on(cells, String, "\t", kRefused);
    on(cells, String, "\"", {Done, Token::none, Act::text});
    on(cells, String, "\\", {Escape, Token::none, Act::escape});
    on(cells, Escape, "\"\\/bfnrt", {String});
    on(cells, Escape, "u", {Hex1, Token::none, Act::unicode});
    for (char c : std::string_view("01abcdefAE")) {
        const std::string_view digit(&c, 1);
        on(cells, Hex1, digit, {Hex2});
        on(cells, Hex2, digit, {Hex3});
        on(cells, Hex3, digit, {Hex4});
        on(cells, Hex4, digit, {String});
    }
}

constexpr Cells make_cells() {
    Cells cells;
    for (auto &row : cells) row.fill(kRefused);
    for (State state : {Start, Done, Object, Key, Colon, Value, Array})
        on(cells, state, " \t", {state});
    on(cells, Start, "{", {Object, Token::none, Act::open_object});
    on(cells, Start, "[", {Array, Token::none, Act::open_array});
    on(cells, Object, "\"", {String, Token::begin});
    on(cells, Object, "}", {Done, Token::none, Act::close_empty});
    on(cells, Key, "\"", {String, Token::begin});
    on(cells, Colon, ":", {Value, Token::none, Act::colon});
    add_ends(cells, Done, Token::none);
    add_values(cells, Value);
    add_values(cells, Array);
    on(cells, Array, "]", {Done, Token::none, Act::close_array});
    add_strings(cells);
    add_numbers(cells);
    add_words(cells);
    return cells;
}
constexpr Cells kCells = make_cells();

// Units of a string up to the next one that the automaton must see: below 32, quote, backslash.
const char *skip_plain(const char *at, const char *end) {
    constexpr uint64_t ones = 0x0101010101010101, tops = 0x8080808080808080;
    for (uint64_t word; end - at >= 8; at += 8) {
        memcpy(&word, at, 8);
        const uint64_t quotes = word ^ ones * '"', slashes = word ^ ones * '\\';
        const uint64_t found = ((word - ones * 32) & ~word) | ((quotes - ones) & ~quotes) |
                               ((slashes - ones) & ~slashes);
        if (found & tops) break;
    }
    while (at != end && static_cast<uint8_t>(*at) >= 32 && *at != '"' && *at != '\\') ++at;
    return at;
}

const zwchar *skip_plain(const zwchar *at, const zwchar *end) {
    while (at != end && *at >= 32 && *at != u'"' && *at != u'\\') ++at;
    return at;
}

// A token's text as wide text; `out` has room for as many units as the token has.
uint64_t widen(const char *from, uint64_t count, zwchar *out) {
    uint8_t all = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const auto byte = static_cast<uint8_t>(from[i]);
        all |= byte;
        out[i] = byte;
    }
    return all < 128 ? count : wide_from_utf8(from, count, out);
}

uint64_t widen(const zwchar *from, uint64_t count, zwchar *out) {
    memcpy(out, from, count * sizeof(zwchar));
    return count;
}

template <class Unit> int64_t to_integer(const Unit *at, const Unit *end) {
    const bool minus = *at == '-';
    int64_t value = 0;
    for (at += minus; at != end; ++at) {
        const int64_t digit = *at - '0';
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_add_overflow(value, minus ? -digit : digit, &value))
            return minus ? INT64_MIN : INT64_MAX;
    }
    return value;
}

template <class Unit> double to_real(const Unit *at, const Unit *end) {
    const std::string text(at, end); // ASCII, the automaton saw to it
    double value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    // Too large or too small: the limits of strtod.
    return error == std::errc() ? value : zStrtodA(text.c_str(), nullptr);
}

template <class Unit> class JsonReader {
  public:
    bool run(const Unit *at, const Unit *end);
    const Unit *token() const { return token_; }
    void resume(const Unit *token) {
        if (token_) token_ = token;
    }

    void set_most(uint64_t nodes) { left_ = nodes; }
    void set_plain(bool plain) { plain_ = plain; }
    bool is_bounded() const { return bounded_; }

    // The tree, if the text was whole.
    Json *finish() { return state_ == Done && mode_ == TopMode ? root_.release() : nullptr; }

  private:
    bool step(const Cell &cell, const Unit *at);
    bool end_token(Token token, const Unit *end);
    bool act(Act act, const Unit *at);
    bool open(int32_t type, Mode mode);
    bool close(Mode mode);
    bool end_text(const Unit *end);
    bool comma();
    bool take(Json *node);
    zwchar *put_text(const Unit *end, zwchar *out);

    State state_ = Start;
    bool escaped_ = false; // the string has a backslash
    const Unit *token_ = nullptr;
    uint32_t depth_ = 0;
    Mode mode_ = TopMode;
    Mode outer_[limits::json_depth]; // modes below mode_
    uint64_t left_ = UINT64_MAX;     // nodes that there may still be
    bool bounded_ = false;           // one more was to be
    bool plain_ = false;             // takes no \u
    NodePool nodes_;
    JsonGuard root_;
    Json *current_ = nullptr;  // lent from root_
    Member *member_ = nullptr; // has its name, waits for its value
};

template <class Unit> bool JsonReader<Unit>::run(const Unit *at, const Unit *end) {
    for (; at != end; ++at) {
        if (state_ == String && (at = skip_plain(at, end)) == end) break;
        const auto unit = static_cast<std::make_unsigned_t<Unit>>(*at);
        const uint8_t kind = unit < kClassOf.size() ? kClassOf[unit] : static_cast<uint8_t>(Other);
        const Cell &cell = kCells[state_][kind];
        if (cell.quiet()) {
            state_ = cell.next;
        } else if (!step(cell, at)) {
            return false;
        }
    }
    return true;
}

template <class Unit> bool JsonReader<Unit>::step(const Cell &cell, const Unit *at) {
    if (cell.token == Token::begin) {
        token_ = at;
        escaped_ = false;
    } else if (cell.token != Token::none && !end_token(cell.token, at)) {
        return false;
    }
    state_ = cell.next;
    return cell.act == Act::none || act(cell.act, at);
}

template <class Unit> bool JsonReader<Unit>::end_token(Token token, const Unit *end) {
    const Unit *begin = std::exchange(token_, nullptr);
    const int32_t type = token == Token::integer ? Z_JSON_INT
                         : token == Token::real  ? Z_JSON_REAL
                         : token == Token::null  ? Z_JSON_NULL
                                                 : Z_JSON_BOOLEAN;
    Json *node = nodes_.make(type);
    if (!node) return false;
    if (type == Z_JSON_INT) node->value.integer = to_integer(begin, end);
    if (type == Z_JSON_REAL) node->value.real = to_real(begin, end);
    if (type == Z_JSON_BOOLEAN) node->value.boolean = token == Token::yes;
    return take(node);
}

template <class Unit> bool JsonReader<Unit>::act(Act act, const Unit *at) {
    switch (act) {
    case Act::refuse:
        return false;
    case Act::escape:
        return escaped_ = true;
    case Act::unicode:
        return !plain_;
    case Act::text:
        return end_text(at);
    case Act::comma:
        return comma();
    case Act::colon:
        mode_ = ObjectMode;
        return true;
    case Act::open_object:
        return open(Z_JSON_OBJECT, KeyMode);
    case Act::open_array:
        return open(Z_JSON_ARRAY, ArrayMode);
    case Act::close_empty:
        return close(KeyMode);
    case Act::close_object:
        return close(ObjectMode);
    default:
        return close(ArrayMode);
    }
}

template <class Unit> bool JsonReader<Unit>::open(int32_t type, Mode mode) {
    if (depth_ == limits::json_depth) return false;
    outer_[depth_++] = mode_;
    mode_ = mode;
    Json *node = nodes_.make(Z_JSON_NULL);
    if (!take(node) || !zJsonSetType(node, type)) return false;
    current_ = node;
    return true;
}

// An object is put in order here, once, so that later readers change nothing in it.
template <class Unit> bool JsonReader<Unit>::close(Mode mode) {
    if (mode_ != mode) return false;
    mode_ = outer_[--depth_];
    if (mode == ObjectMode) members(current_)->settle();
    if (current_->parent) current_ = current_->parent;
    return true;
}

template <class Unit> bool JsonReader<Unit>::comma() {
    if (mode_ == ArrayMode) return true;
    if (mode_ != ObjectMode) return false;
    mode_ = KeyMode;
    state_ = Key;
    return true;
}

// Writes the text of the string token, whose closing quote is at `end`, with its terminator.
template <class Unit> zwchar *JsonReader<Unit>::put_text(const Unit *end, zwchar *out) {
    const Unit *begin = std::exchange(token_, nullptr) + 1;
    uint64_t units = widen(begin, static_cast<uint64_t>(end - begin), out);
    if (escaped_) units = json_unescape(out, units);
    out[units] = 0;
    return out;
}

template <class Unit> bool JsonReader<Unit>::end_text(const Unit *end) {
    const auto room = static_cast<uint64_t>(end - token_ - 1);
    if (mode_ == KeyMode) {
        state_ = Colon;
        member_ = members(current_)->append(room);
        return member_ && put_text(end, member_->name());
    }
    Json *node = nodes_.make_text(room);
    return node && put_text(end, node->value.string) && take(node);
}

// A new value goes where the text has come to.
template <class Unit> bool JsonReader<Unit>::take(Json *node) {
    if (!node) return false;
    if (!left_--) {
        bounded_ = true;
        return json_drop(node), false;
    }
    node->parent = current_;
    if (!current_) {
        root_.reset(node);
        current_ = node;
    } else if (current_->type == Z_JSON_OBJECT) {
        members(current_)->fill(std::exchange(member_, nullptr), node);
    } else if (!zVectorPush(current_->value.array, node)) {
        json_drop(node);
        return false;
    }
    return true;
}

} // namespace

Json *zJsonReadTextual(const zwchar *text) try {
    if (!text) return fail_args();
    JsonReader<zwchar> reader;
    Json *tree = reader.run(text, text + zStrlenW(text)) ? reader.finish() : nullptr;
    return tree ? tree : fail_raised();
} catch (...) {
    return fail_thrown();
}

struct JsonBlocks::Reader : JsonReader<char> {};

JsonBlocks::JsonBlocks() : reader_(std::make_unique<Reader>()) {}
JsonBlocks::~JsonBlocks() = default;
bool JsonBlocks::run(const char *at, const char *end) { return reader_->run(at, end); }
const char *JsonBlocks::token() const { return reader_->token(); }
void JsonBlocks::resume(const char *token) { reader_->resume(token); }
Json *JsonBlocks::finish() { return reader_->finish(); }
void JsonBlocks::set_most(uint64_t nodes) { reader_->set_most(nodes); }
void JsonBlocks::set_plain(bool plain) { reader_->set_plain(plain); }
bool JsonBlocks::is_bounded() const { return reader_->is_bounded(); }

uint64_t zev::json_unescape(zwchar *text, uint64_t units) {
    constexpr WideView escapes = u"\"\\bfnrt", characters = u"\"\\\b\f\n\r\t";
    const zwchar *at = text, *end = text + units;
    zwchar *out = text;
    while (at != end) {
        zwchar unit = *at++;
        if (unit == u'\\' && at != end) {
            const uint64_t known = escapes.find(*at);
            if (known == escapes.npos) *out++ = unit;
            unit = known == escapes.npos ? *at : characters[known];
            ++at;
        }
        *out++ = unit;
    }
    return static_cast<uint64_t>(out - text);
}

zwchar *zJsonUnescapeString(const zwchar *text) {
    if (!text) return fail_args();
    zwchar *copy = zStrdupW(text);
    if (!copy) return fail_memory();
    copy[json_unescape(copy, zStrlenW(copy))] = 0;
    return copy;
}
