// A layer is off when its colour is below zero, and frozen or locked by a flag.
#include "picture/changes/layer_words.hpp"

#include "dxf/fields.hpp"
#include "picture/changes/diff_words.hpp"
#include "picture/tables.hpp"
#include "say.hpp"

#include <cstdlib>
#include <unordered_map>

namespace picture {

namespace {

using host::say;
using Records = std::unordered_map<uint64_t, std::string_view>; // by number

constexpr size_t kMostLayers = 8, kMostFields = 4, kMostOfName = 60; // characters
constexpr size_t kLongest = 4096; // bytes of a record whose fields are compared

Records layers_of(const dxf::Content &content) {
    Records layers;
    for (const dxf::Object &object : content.objects)
        if (dxf::record_type(object.record) == "LAYER") layers[object.key.object] = object.record;
    return layers;
}

class Sides {
  public:
    Sides(const dxf::Content &older, const dxf::Content &newer)
        : older_words_(encoding_of(read_header(older.header))),
          newer_words_(encoding_of(read_header(newer.header))), older_(layers_of(older)),
          newer_(layers_of(newer)) {}

    // Empty for what is no layer, or hasn't changed in what counts.
    std::string note(uint64_t number) {
        const auto from = older_.find(number), to = newer_.find(number);
        const bool was = from != older_.end(), is = to != newer_.end();
        if (!was && !is) return {};
        const std::string what = !was  ? say("added")
                                 : !is ? say("removed")
                                       : difference(from->second, to->second);
        if (what.empty()) return {};
        return say("Layer %s: %s.",
                   is ? name_in(to->second, newer_words_) : name_in(from->second, older_words_),
                   what);
    }

  private:
    static std::string name_in(std::string_view record, Encoding &words) {
        Groups groups;
        groups.read(record);
        return fitted(cleaned(words.text(groups.name(2).substr(0, kLongest))), kMostOfName);
    }

    std::string difference(std::string_view from, std::string_view to) {
        if (from.size() > kLongest || to.size() > kLongest) return {};
        std::vector<std::string> parts;
        for (const dxf::FieldChange &field : dxf::compare_fields(from, to)) add(field, parts);
        std::string text;
        for (size_t i = 0; i < std::min(parts.size(), kMostFields); ++i)
            text += (i ? ", " : "") + parts[i];
        return parts.size() > kMostFields ? text + ", ..." : text;
    }

    void add(const dxf::FieldChange &field, std::vector<std::string> &parts) {
        constexpr int kName = 2, kLine = 6, kColour = 62, kFlags = 70, kTrue = 420, kWeight = 370;
        constexpr int kFrozen = 1, kLocked = 4;
        const int from = integer_of(field.from.value_or("0")),
                  to = integer_of(field.to.value_or("0"));
        const auto put = [&](bool was, bool is, const char *on, const char *off) {
            if (was != is) parts.push_back(is ? say(on) : say(off));
        };
        if (field.code == kColour) {
            put(from < 0, to < 0, "off", "on");
            if (std::abs(int64_t{from}) == std::abs(int64_t{to})) return;
        }
        if (field.code == kFlags) {
            put(from & kFrozen, to & kFrozen, "frozen", "thawed");
            put(from & kLocked, to & kLocked, "locked", "unlocked");
            return;
        }
        for (const int code : {kName, kLine, kColour, kTrue, kWeight})
            if (field.code == code)
                parts.push_back(host::said(std::string(dxf::field_name("LAYER", code))) + " " +
                                value(field.from, older_words_) + " -> " +
                                value(field.to, newer_words_));
    }

    static std::string value(const std::optional<std::string_view> &field, Encoding &words) {
        if (!field) return say("(none)");
        return fitted(cleaned(words.text(trimmed(*field))), kMostOfName);
    }

    Encoding older_words_, newer_words_;
    const Records older_, newer_;
};

} // namespace

std::vector<std::string> layer_notes(const dxf::Content &older, const dxf::Content &newer,
                                     const std::vector<dxf::ObjectChange> &changes) {
    std::vector<std::string> notes;
    Sides sides(older, newer);
    for (const dxf::ObjectChange &change : changes) {
        std::string note = sides.note(change.number);
        if (!note.empty()) notes.push_back(std::move(note));
    }
    if (notes.size() <= kMostLayers) return notes;
    const size_t more = notes.size() - kMostLayers;
    notes.resize(kMostLayers);
    notes.push_back(say("and %s more", more));
    return notes;
}

} // namespace picture
