// Writing JSON text: no blanks, members in key order, \u never. The text is collected in a Buffer,
// as UTF-8 or as wide text by the writer's unit.
#include "common/json.hpp"

#include "common/buffer.hpp"
#include "common/failure.hpp"
#include "common/utf.hpp"

#include "zev/error.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

using namespace zev;

namespace {

// For each character below 128 the letter behind the backslash, or 0 where it stands as it is.
constexpr auto kEscapes = [] {
    std::array<char, 128> escapes{};
    constexpr std::string_view characters = "\b\t\n\f\r\"\\", letters = "btnfr\"\\";
    for (size_t i = 0; i < letters.size(); ++i)
        escapes[static_cast<size_t>(characters[i])] = letters[i];
    return escapes;
}();

zwchar *escape(const zwchar *text, zwchar *out) {
    for (; *text; ++text) {
        const char letter = *text < kEscapes.size() ? kEscapes[*text] : '\0';
        if (letter) *out++ = u'\\';
        *out++ = letter ? static_cast<zwchar>(letter) : *text;
    }
    return out;
}

// The same as UTF-8. What lies above 127 is converted run by run: a run holds whole pairs.
char *escape(const zwchar *text, char *out) {
    while (*text) {
        const zwchar *run = text;
        while (*text >= kEscapes.size()) ++text;
        if (text != run) out += utf8_from_wide(run, static_cast<uint64_t>(text - run), out);
        for (; *text && *text < kEscapes.size(); ++text) {
            const char letter = kEscapes[*text];
            if (letter) *out++ = '\\';
            *out++ = letter ? letter : static_cast<char>(*text);
        }
    }
    return out;
}

template <class Unit> class JsonWriter {
  public:
    JsonWriter() = default;
    JsonWriter(const JsonWriter &) = delete;
    ~JsonWriter() { buffer_cleanup(&buffer_); }

    bool write(const Json *root);
    const Buffer &text() const { return buffer_; }
    Unit *release() { return reinterpret_cast<Unit *>(std::exchange(buffer_.data, nullptr)); }

  private:
    bool open(const Json *container);
    bool child(const Json *node);
    bool scalar(const Json *node);
    bool text(const zwchar *text);
    bool plain(std::string_view text);

    // Room for so many units at at_. Doubles, where a Buffer would grow by a fixed step.
    bool room(uint64_t units) {
        if (static_cast<uint64_t>(end_ - at_) >= units) return true;
        sync();
        const uint64_t bytes = std::max(units * sizeof(Unit), buffer_.size);
        if (!buffer_reserve(&buffer_, bytes)) return false;
        at_ = reinterpret_cast<Unit *>(buffer_.cursor);
        end_ = at_ + bytes / sizeof(Unit);
        return true;
    }
    // Brings the Buffer's own account up to what was written.
    void sync() {
        if (!at_) return;
        buffer_.cursor = reinterpret_cast<uint8_t *>(at_);
        buffer_.size = static_cast<uint64_t>(buffer_.cursor - buffer_.data);
        memset(buffer_.cursor, 0, buffer_.terminator);
    }

    Buffer buffer_ = {};
    Unit *at_ = nullptr, *end_ = nullptr; // in buffer_'s block: next unit, end of the room
    std::vector<Children> levels_;
};

template <class Unit> bool JsonWriter<Unit>::write(const Json *root) {
    if (root->type != Z_JSON_OBJECT && root->type != Z_JSON_ARRAY) return false;
    if (!buffer_init(&buffer_, sizeof(Unit) == 1 ? 1 : 2, 0) || !open(root)) return false;
    while (!levels_.empty()) {
        Children &level = levels_.back();
        if (const Json *node = level.next()) {
            if (!child(node)) return false;
            continue;
        }
        if (!plain(level.in_object() ? "}" : "]")) return false;
        levels_.pop_back();
    }
    sync();
    return true;
}

template <class Unit> bool JsonWriter<Unit>::open(const Json *container) {
    levels_.emplace_back(container);
    return plain(container->type == Z_JSON_OBJECT ? "{" : "[");
}

// The next child of the innermost level: comma, name, value.
template <class Unit> bool JsonWriter<Unit>::child(const Json *node) {
    const Children &level = levels_.back();
    if (!level.at_first() && !plain(",")) return false;
    if (level.in_object() && (!text(level.name()) || !plain(":"))) return false;
    const bool container = node->type == Z_JSON_OBJECT || node->type == Z_JSON_ARRAY;
    return container ? open(node) : scalar(node);
}

template <class Unit> bool JsonWriter<Unit>::scalar(const Json *node) {
    char number[32], *const end = std::end(number);
    switch (node->type) {
    case Z_JSON_STRING:
        return text(node->value.string);
    case Z_JSON_INT: {
        const char *stop = std::to_chars(number, end, node->value.integer).ptr;
        return plain({number, static_cast<size_t>(stop - number)});
    }
    case Z_JSON_REAL: {
        // JSON has no text for these, and what we write we must be able to read.
        if (!std::isfinite(node->value.real)) return raise_range();
        const auto form = std::chars_format::general;
        const char *stop = std::to_chars(number, end, node->value.real, form, 6).ptr;
        return plain({number, static_cast<size_t>(stop - number)});
    }
    case Z_JSON_BOOLEAN:
        return plain(node->value.boolean ? "true" : "false");
    default:
        return plain("null");
    }
}

template <class Unit> bool JsonWriter<Unit>::text(const zwchar *text) {
    constexpr uint64_t widest = sizeof(Unit) == 1 ? 3 : 2; // of one unit, escaped or converted
    if (!room(zStrlenW(text) * widest + 2)) return false;
    *at_++ = '"';
    at_ = escape(text, at_);
    *at_++ = '"';
    return true;
}

template <class Unit> bool JsonWriter<Unit>::plain(std::string_view text) {
    if (!room(text.size())) return false;
    for (char c : text) *at_++ = static_cast<Unit>(c);
    return true;
}

} // namespace

zwchar *zJsonWriteTextual(const Json *node) try {
    if (!node) return fail_args();
    JsonWriter<zwchar> writer;
    return writer.write(node) ? writer.release() : fail_raised();
} catch (...) {
    return fail_thrown();
}

Narrow zev::json_utf8(const Json *node, uint64_t *length) {
    JsonWriter<char> writer;
    if (!writer.write(node)) return nullptr;
    *length = writer.text().size;
    return Narrow(writer.release());
}

zwchar *zJsonEscapeString(const zwchar *text) {
    if (!text) return fail_args();
    Wide escaped(zStrnewW(2 * zStrlenW(text)));
    if (!escaped) return fail_memory();
    *escape(text, escaped.get()) = 0;
    return escaped.release();
}
