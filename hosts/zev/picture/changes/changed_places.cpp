// Records are looked at once a version; names of blocks only where a part of some block changed.
#include "picture/changes/changed_places.hpp"

#include "dxf/fields.hpp"

#include <algorithm>

namespace picture {

namespace {

using dxf::ObjectChange;
using Numbers = std::unordered_map<uint64_t, State>;

State state_of(ObjectChange::Kind kind) {
    constexpr State kStates[] = {State::added, State::modified, State::removed};
    return kStates[kind];
}

std::string_view trimmed(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(" \t"), text.size());
    const size_t last = text.find_last_not_of(" \t\r");
    return last == text.npos ? std::string_view() : text.substr(first, last + 1 - first);
}

std::string_view name_in(std::string_view record) {
    for (const dxf::Field &field : dxf::split_fields(record))
        if (field.code == 2) return trimmed(field.value);
    return {};
}

bool shows_block(std::string_view type) {
    return type == "INSERT" || type.ends_with("DIMENSION") || type == "ACAD_TABLE";
}

// Walks the records of one version in their order.
class Walk {
  public:
    Walk(const dxf::Content &content, const Numbers &changed)
        : content_(content), changed_(changed) {}

    Places run() {
        const size_t count = content_.objects.size();
        places_.states.resize(count, State::same);
        places_.blocks.resize(count, kNone);
        for (uint32_t at = 0; at < count; ++at) step(at);
        return std::move(places_);
    }

  private:
    void step(uint32_t at) {
        const std::string_view type = dxf::record_type(content_.objects[at].record);
        if (type == "BLOCK") block_ = at;
        places_.blocks[at] = block_;
        if (type == "ENDBLK") block_ = kNone;
        if (const auto found = changed_.find(content_.objects[at].key.object);
            found != changed_.end())
            change(at, type, found->second);
        if (type == "POLYLINE")
            polyline_ = at;
        else if (type != "VERTEX" && type != "SEQEND")
            polyline_ = kNone;
    }

    void change(uint32_t at, std::string_view type, State state) {
        places_.states[at] = state;
        const bool is_vertex = polyline_ != kNone && type == "VERTEX";
        if (!is_vertex) return;
        State &head = places_.states[polyline_];
        if (head == State::same) head = State::modified;
    }

    const dxf::Content &content_;
    const Numbers &changed_;
    Places places_;
    uint32_t block_ = kNone, polyline_ = kNone;
};

// From the blocks with changed parts up to those that insert them.
class Spread {
  public:
    void add(const dxf::Content &content, const Places &places) {
        for (uint32_t at = 0; at < places.states.size(); ++at)
            if (places.blocks[at] != kNone && places.blocks[at] != at) add(content, places, at);
    }

    ChangedBlocks run() {
        climb(blocks_.dirty);
        climb(blocks_.whole);
        return std::move(blocks_);
    }

  private:
    void add(const dxf::Content &content, const Places &places, uint32_t at) {
        const std::string_view record = content.objects[at].record;
        const std::string_view type = dxf::record_type(record);
        const bool is_changed = places.states[at] != State::same && type != "ENDBLK";
        const bool is_insert = shows_block(type);
        if (!is_changed && !is_insert) return;
        const std::string &block = name_of(content, places.blocks[at]);
        if (is_changed) blocks_.dirty.insert(block);
        if (!is_insert) return;
        if (is_changed) blocks_.whole.insert(block);
        inserted_in_[shown_block(record)].push_back(block);
    }

    const std::string &name_of(const dxf::Content &content, uint32_t block) {
        if (block != last_ || &content != last_content_)
            last_name_ = capitals(block_name(content.objects[block].record));
        last_ = block, last_content_ = &content;
        return last_name_;
    }

    void climb(std::unordered_set<std::string> &names) const {
        std::vector<std::string> left(names.begin(), names.end());
        while (!left.empty()) {
            const auto above = inserted_in_.find(left.back());
            left.pop_back();
            if (above == inserted_in_.end()) continue;
            for (const std::string &name : above->second)
                if (names.insert(name).second) left.push_back(name);
        }
    }

    ChangedBlocks blocks_;
    std::unordered_map<std::string, std::vector<std::string>> inserted_in_;
    uint32_t last_ = kNone;
    const dxf::Content *last_content_ = nullptr;
    std::string last_name_;
};

bool has_changed_part(const Places &places) {
    for (size_t at = 0; at < places.states.size(); ++at)
        if (places.blocks[at] != kNone && places.states[at] != State::same) return true;
    return false;
}

} // namespace

std::string capitals(std::string_view text) {
    std::string out(text);
    for (char &c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return out;
}

std::string block_name(std::string_view record) { return std::string(name_in(record)); }

std::string shown_block(std::string_view record) {
    return shows_block(dxf::record_type(record)) ? capitals(name_in(record)) : std::string();
}

ChangedPlaces changed_places(const dxf::Content &older, const dxf::Content &newer,
                             const std::vector<ObjectChange> &changes) {
    Numbers changed;
    changed.reserve(changes.size());
    for (const ObjectChange &change : changes) changed[change.number] = state_of(change.kind);
    ChangedPlaces places{Walk(older, changed).run(), Walk(newer, changed).run(), {}};
    if (!has_changed_part(places.older) && !has_changed_part(places.newer)) return places;
    Spread spread;
    spread.add(older, places.older);
    spread.add(newer, places.newer);
    places.blocks = spread.run();
    return places;
}

} // namespace picture
