// Fields are compared as `zev diff` does it, and cut as there.
#include "picture/changes/tooltips.hpp"

#include "dxf/fields.hpp"
#include "object_names.hpp"
#include "picture/tables.hpp"
#include "say.hpp"

#include <algorithm>

namespace picture {

namespace {

using host::say;

constexpr size_t kMostFields = 12, kMostBytes = 160; // of one tooltip, of a value

std::string shown(std::string_view value, Encoding &words) {
    constexpr size_t kBytesOfCharacter = 8; // that a record has for one, by its number
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    const std::string text = words.text(value.substr(0, kMostBytes * kBytesOfCharacter));
    if (text.size() <= kMostBytes) return text;
    size_t cut = kMostBytes;
    while (cut && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return text.substr(0, cut) + "...";
}

std::string shown(const std::optional<std::string_view> &value, Encoding &words) {
    return value ? shown(*value, words) : say("(none)");
}

// Pairing two lists of groups takes their product in time; a group has some ten bytes.
uint64_t cells_of(std::string_view from, std::string_view to) {
    return (from.size() / 10 + 1) * (to.size() / 10 + 1);
}

// "40 radius: ", what stands in front of both values.
std::string name_of(const dxf::FieldChange &field, std::string_view kind) {
    const std::string_view name = dxf::field_name(kind, field.code);
    std::string text = std::to_string(field.code);
    if (!name.empty()) text += " " + host::said(std::string(name));
    return text + ": ";
}

const char *word_of(Mark::Kind kind) {
    constexpr const char *kWords[] = {"added", "modified", "removed", "moved"};
    return kWords[kind];
}

} // namespace

Tooltips::Tooltips(const dxf::Content &older, const dxf::Content &newer)
    : older_(older), newer_(newer), older_words_(encoding_of(read_header(older.header))),
      newer_words_(encoding_of(read_header(newer.header))) {}

std::string_view Tooltips::record_of(const Mark &mark) const {
    if (mark.newer != kNone) return newer_.objects[mark.newer].record;
    return mark.older == kNone ? std::string_view() : older_.objects[mark.older].record;
}

std::string Tooltips::kind_of(const Mark &mark) const {
    return mark.block.empty() ? std::string(dxf::record_type(record_of(mark))) : std::string();
}

std::string Tooltips::layer_of(const Mark &mark) const {
    Encoding &words = mark.newer != kNone ? newer_words_ : older_words_;
    return mark.block.empty() ? words.text(dxf::record_layer(record_of(mark))) : std::string();
}

std::string Tooltips::name_of(const Mark &mark) const {
    if (!mark.block.empty()) return say("block %s", mark.block);
    const std::string name = kind_of(mark) + " " + host::object_name(mark.number);
    const std::string layer = layer_of(mark);
    return layer.empty() ? name : say("%s on %s", name, layer);
}

std::string Tooltips::words_of(const Mark &mark) const {
    constexpr int kText = 1;
    constexpr size_t kLongest = 40;
    if (mark.older == kNone || mark.newer == kNone || !mark.block.empty()) return {};
    if (mark.is_in_place) return first_field_of(mark);
    const std::string kind = kind_of(mark);
    if (kind != "TEXT" && kind != "ATTRIB") return {};
    const auto words = [](const dxf::Object &object, Encoding &encoding) -> std::string {
        for (const dxf::Field &field : dxf::split_fields(object.record))
            if (field.code == kText) return encoding.text(field.value);
        return {};
    };
    const std::string from = words(older_.objects[mark.older], older_words_);
    const std::string to = words(newer_.objects[mark.newer], newer_words_);
    if (from == to || from.size() > kLongest || to.size() > kLongest) return {};
    return "\"" + from + "\" -> \"" + to + "\"";
}

std::string Tooltips::of(const Mark &mark) {
    if (!left_) return {};
    --left_;
    if (!mark.block.empty()) return say("changed through block %s", mark.block);
    const std::string name = kind_of(mark) + " " + host::object_name(mark.number);
    std::string text = say("%s: %s, layer %s", say(word_of(mark.kind)), name, layer_of(mark));
    return text + fields_of(mark);
}

// "colour: 7 -> 1", and dots if there is more.
std::string Tooltips::first_field_of(const Mark &mark) const {
    constexpr uint64_t kMostCells = 1'000'000;
    const std::string_view from = older_.objects[mark.older].record;
    const std::string_view to = newer_.objects[mark.newer].record;
    if (cells_of(from, to) > kMostCells) return {};
    const auto fields = dxf::compare_fields(from, to);
    if (fields.empty()) return {};
    const std::string_view name = dxf::field_name(dxf::record_type(to), fields[0].code);
    const std::string text =
        (name.empty() ? std::to_string(fields[0].code) : host::said(std::string(name))) + ": " +
        shown(fields[0].from, older_words_) + " -> " + shown(fields[0].to, newer_words_);
    return fields.size() > 1 ? text + ", ..." : text;
}

std::string Tooltips::fields_of(const Mark &mark) {
    if (mark.older == kNone || mark.newer == kNone) return {};
    const std::string_view from = older_.objects[mark.older].record;
    const std::string_view to = newer_.objects[mark.newer].record;
    const uint64_t cells = cells_of(from, to);
    if (cells > cells_left_) return {};
    cells_left_ -= cells;
    const std::string_view kind = dxf::record_type(to);
    const auto fields = dxf::compare_fields(from, to);
    std::string text;
    for (size_t i = 0; i < std::min(fields.size(), kMostFields); ++i)
        text += "\n" + picture::name_of(fields[i], kind) + shown(fields[i].from, older_words_) +
                " -> " + shown(fields[i].to, newer_words_);
    if (fields.size() > kMostFields) text += "\n" + say("and %s more", fields.size() - kMostFields);
    return text;
}

} // namespace picture
