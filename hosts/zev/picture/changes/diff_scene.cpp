// Marks are made while shapes are looked at, so that each has something to see.
#include "picture/changes/diff_scene.hpp"

#include "dxf/fields.hpp"
#include "picture/changes/unseen.hpp"
#include "picture/tables.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>

namespace picture {

namespace {

using dxf::Content;
using dxf::ObjectChange;

Mark::Kind kind_of(State state) {
    if (state == State::added) return Mark::added;
    return state == State::removed ? Mark::removed : Mark::modified;
}

std::optional<double> number_in(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(" \t+"), text.size());
    text.remove_prefix(first);
    text = text.substr(0, text.find_last_not_of(" \t") + 1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return {};
    return value;
}

// But for how numbers are written.
bool have_same_fields(std::string_view from, std::string_view to) {
    const auto is_same = [](const dxf::Field &a, const dxf::Field &b) {
        if (a.code != b.code) return false;
        if (a.value == b.value) return true;
        const auto x = number_in(a.value), y = number_in(b.value);
        return x && y && *x == *y;
    };
    const auto a = dxf::split_fields(from), b = dxf::split_fields(to);
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), is_same);
}

bool is_plain_entity(std::string_view type) {
    static constexpr std::string_view kTypes[] = {
        "3DFACE",     "ARC",    "CIRCLE", "DIMENSION", "ELLIPSE", "HATCH",
        "INSERT",     "LEADER", "LINE",   "MTEXT",     "POINT",   "POLYLINE",
        "LWPOLYLINE", "SOLID",  "SPLINE", "TEXT",      "TRACE"};
    return std::ranges::find(kTypes, type) != std::end(kTypes);
}

// A version without the entities, outside of blocks, that are not wanted, so that nothing is read
// for them. Those that follow another one, as a vertex, stay or go with it.
struct Thinned {
    template <class F> Thinned(const Content &whole, F is_wanted) : content(whole) {
        content.objects.clear();
        bool is_in_block = false;
        for (size_t at = 0; at < whole.objects.size();) {
            const std::string_view type = type_at(whole, at);
            if (type == "BLOCK") is_in_block = true;
            if (type == "ENDBLK") is_in_block = false;
            const size_t end = is_in_block ? at + 1 : end_of(whole, at);
            bool is_kept = is_in_block || !is_plain_entity(type);
            for (size_t i = at; i < end && !is_kept; ++i) is_kept = is_wanted(i);
            for (; at < end; ++at)
                if (is_kept) keep(whole, at);
        }
    }
    Content content;
    std::vector<uint32_t> places; // in the whole one

  private:
    static std::string_view type_at(const Content &whole, size_t at) {
        return dxf::record_type(whole.objects[at].record);
    }
    static size_t end_of(const Content &whole, size_t at) {
        for (++at; at < whole.objects.size(); ++at) {
            const std::string_view type = type_at(whole, at);
            if (type != "VERTEX" && type != "ATTRIB" && type != "SEQEND") break;
        }
        return at;
    }
    void keep(const Content &whole, size_t at) {
        content.objects.push_back(whole.objects[at]);
        places.push_back(static_cast<uint32_t>(at));
    }
};

class Building {
  public:
    Building(const Content &older, const Content &newer, const std::vector<ObjectChange> &changes,
             SceneOptions::Space space)
        : older_(older), newer_(newer), changes_(changes), space_(space),
          places_(changed_places(older, newer, changes)) {}

    DiffScene run() {
        draw_both();
        older_seen_.resize(older_.objects.size());
        newer_seen_.resize(newer_.objects.size());
        assign(diff_.older, places_.older, older_, diff_.older_marks, older_seen_);
        assign(diff_.newer, places_.newer, newer_, diff_.newer_marks, newer_seen_);
        find_places();
        count_unseen();
        compare();
        return std::move(diff_);
    }

  private:
    using Seen = std::vector<bool>;

    void draw_both() {
        diff_.newer = draw(newer_, {.wanted = {}, .space = space_});
        if (changes_.empty()) return;
        const Thinned thinned(older_, [this](size_t at) { return is_wanted(at); });
        const auto is_wanted_there = [&](size_t at) { return is_wanted(thinned.places[at]); };
        diff_.older = draw(thinned.content, {.wanted = is_wanted_there, .space = space_});
        for (Shape &shape : diff_.older.shapes) {
            shape.object = thinned.places[shape.object];
            shape.part = thinned.places[shape.part];
        }
    }

    // Of the older version.
    bool is_wanted(size_t at) const {
        if (places_.older.states[at] != State::same) return true;
        if (places_.blocks.dirty.empty()) return false;
        return places_.blocks.dirty.contains(shown_block(older_.objects[at].record));
    }

    // ---- Marks

    void assign(const Scene &scene, const Places &places, const Content &content,
                std::vector<uint32_t> &marks, Seen &seen) {
        marks.reserve(scene.shapes.size());
        for (const Shape &shape : scene.shapes) {
            marks.push_back(mark_of(shape, places, content));
            seen[shape.object] = seen[shape.part] = true;
        }
    }

    uint32_t mark_of(const Shape &shape, const Places &places, const Content &content) {
        const State state = places.states[shape.object];
        if (state != State::same) return entity(content, shape.object, kind_of(state));
        if (shape.part != shape.object && places.states[shape.part] != State::same)
            return within(content, shape.object, places.blocks[shape.part]);
        if (shape.part == shape.object || places_.blocks.whole.empty()) return kNone;
        const std::string &block = block_of(content, shape.object);
        if (!places_.blocks.whole.contains(block)) return kNone;
        return within(content, shape.object, places.blocks[shape.part]);
    }

    uint32_t entity(const Content &content, uint32_t object, Mark::Kind kind) {
        const uint64_t number = content.objects[object].key.object;
        const auto next = static_cast<uint32_t>(diff_.marks.size());
        const auto [found, is_new] = by_number_.try_emplace(number, next);
        if (is_new) diff_.marks.push_back({.kind = kind, .number = number});
        return found->second;
    }

    // A dimension is alone in having its block, and is changed itself by that.
    uint32_t within(const Content &content, uint32_t object, uint32_t block) {
        const std::string_view type = dxf::record_type(content.objects[object].record);
        if (type.ends_with("DIMENSION") || block == kNone)
            return entity(content, object, Mark::modified);
        if (block == last_block_ && &content == last_content_) return last_mark_;
        const std::string name = block_name(content.objects[block].record);
        const auto next = static_cast<uint32_t>(diff_.marks.size());
        const auto [found, is_new] = by_block_.try_emplace(capitals(name), next);
        if (is_new)
            diff_.marks.push_back(
                {.number = content.objects[block].key.object, .block = shown(name, content)});
        last_block_ = block, last_content_ = &content, last_mark_ = found->second;
        return last_mark_;
    }

    // Never empty: what has a name is a block.
    std::string shown(const std::string &name, const Content &content) {
        const std::string text = (&content == &newer_ ? newer_words_ : older_words_).text(name);
        return text.empty() ? "?" : text;
    }

    const std::string &block_of(const Content &content, uint32_t object) {
        if (object != named_object_ || &content != named_content_)
            named_ = shown_block(content.objects[object].record);
        named_object_ = object, named_content_ = &content;
        return named_;
    }

    void find_places() {
        const auto find = [this](const Content &content, uint32_t Mark::*place) {
            for (uint32_t at = 0; at < content.objects.size(); ++at)
                if (const auto found = by_number_.find(content.objects[at].key.object);
                    found != by_number_.end())
                    diff_.marks[found->second].*place = at;
        };
        if (by_number_.empty()) return;
        find(older_, &Mark::older);
        find(newer_, &Mark::newer);
    }

    // ---- What no picture shows

    using Left = std::unordered_map<uint64_t, ObjectChange::Kind>; // of changes, by number

    // A record that only ends a list is none; a vertex is seen where its line is.
    void count_unseen() {
        Left left;
        for (const ObjectChange &change : changes_) left[change.number] = change.kind;
        drop_seen(newer_, places_.newer, newer_seen_, left);
        drop_seen(older_, places_.older, older_seen_, left);
        drop_parts(newer_, places_.newer, newer_seen_, left);
        drop_parts(older_, places_.older, older_seen_, left);
        if (left.empty()) return;
        std::unordered_map<uint64_t, std::string_view> before;
        for (const auto &[key, record] : older_.objects)
            if (left.contains(key.object)) before[key.object] = record;
        count_left(newer_, left, before);
        count_left(older_, left, {});
    }

    void count_left(const Content &content, Left &left,
                    const std::unordered_map<uint64_t, std::string_view> &before) {
        Unseen unseen(content, diff_.newer.is_paper ? Run::paper : Run::model);
        for (size_t at = 0; at < content.objects.size(); ++at) {
            const auto &[key, record] = content.objects[at];
            const std::string_view type = dxf::record_type(record);
            if (!left.erase(key.object) || kMarksOfStructure.contains(type)) continue;
            const auto was = before.find(key.object);
            if (was != before.end() && have_same_fields(was->second, record))
                ++diff_.alike[std::string(type)];
            else
                ++diff_.unseen[unseen.what(at)];
        }
    }

    static void drop_seen(const Content &content, const Places &places, const Seen &seen,
                          Left &left) {
        for (size_t at = 0; at < content.objects.size(); ++at)
            if (seen[at] && places.states[at] != State::same) left.erase(key_at(content, at));
    }

    // What only holds a dimension's picture together is seen with the dimension, and an insertion
    // in a block with what it inserts.
    static void drop_parts(const Content &content, const Places &places, const Seen &seen,
                           Left &left) {
        const auto is_part = [&](size_t at) {
            if (places.states[at] == State::same || !left.contains(key_at(content, at)))
                return false;
            return places.blocks[at] != kNone || type_at(content, at) == "BLOCK_RECORD";
        };
        std::vector<size_t> parts;
        for (size_t at = 0; at < content.objects.size(); ++at)
            if (is_part(at)) parts.push_back(at);
        if (parts.empty()) return;
        std::unordered_map<std::string, bool> blocks; // that are shown: whether as a dimension
        for (size_t at = 0; at < content.objects.size(); ++at) {
            if (!seen[at]) continue;
            const std::string name = shown_block(content.objects[at].record);
            if (!name.empty()) blocks[name] |= type_at(content, at).ends_with("DIMENSION");
        }
        for (const size_t at : parts) {
            const size_t block = places.blocks[at] == kNone ? at : places.blocks[at];
            const auto found = blocks.find(capitals(block_name(content.objects[block].record)));
            if (found == blocks.end()) continue;
            if (found->second || !shown_block(content.objects[at].record).empty())
                left.erase(key_at(content, at));
        }
    }

    static uint64_t key_at(const Content &content, size_t at) {
        return content.objects[at].key.object;
    }
    static std::string_view type_at(const Content &content, size_t at) {
        return dxf::record_type(content.objects[at].record);
    }

    // ---- Moves

    void compare() {
        const Box box = diff_.box();
        tolerance_ = std::max(box.width(), box.height()) * 1e-7;
        if (!(tolerance_ > 0)) tolerance_ = 1e-9;
        const Figures older(diff_.older, diff_.older_marks, diff_.marks.size());
        const Figures newer(diff_.newer, diff_.newer_marks, diff_.marks.size());
        find_whole(older, newer);
        if (diff_.whole) drop_followers(older, newer);
        Vectors vectors(tolerance_ * 4);
        for (size_t at = 0; at < diff_.marks.size(); ++at)
            compare(diff_.marks[at], older.of(at), newer.of(at), vectors);
    }

    void compare(Mark &mark, const Figure &older, const Figure &newer, Vectors &vectors) {
        if (mark.kind != Mark::modified || older.shapes.empty() || newer.shapes.empty()) return;
        const auto shift = shift_between(older, newer, tolerance_);
        if (!shift) return;
        mark.is_in_place = std::hypot(shift->x, shift->y) <= tolerance_;
        if (mark.is_in_place && have_one_look(older, newer) && says_the_same(mark)) {
            mark.kind = Mark::alike;
            ++diff_.alike[std::string(type_of(mark))];
        }
        if (mark.is_in_place || !mark.block.empty()) return;
        mark.kind = Mark::moved;
        mark.shift = *shift;
        mark.vector = vectors.number(*shift);
    }

    bool says_the_same(const Mark &mark) const {
        if (mark.older == kNone || mark.newer == kNone) return true;
        return have_same_fields(older_.objects[mark.older].record,
                                newer_.objects[mark.newer].record);
    }

    std::string_view type_of(const Mark &mark) const {
        if (!mark.block.empty()) return "BLOCK";
        return dxf::record_type(newer_.objects[mark.newer].record);
    }

    // Of a drawing of a few entities nobody says that all of it was moved.
    void find_whole(const Figures &older, const Figures &newer) {
        constexpr size_t kFewest = 10;
        const size_t entities = count_entities();
        std::vector<WeightPair> pairs;
        for (size_t at = 0; at < diff_.marks.size(); ++at) {
            const Mark &mark = diff_.marks[at];
            if (mark.kind != Mark::modified || !mark.block.empty()) continue;
            const Figure from = older.of(at), to = newer.of(at);
            if (!from.shapes.empty() && is_alike(from, to))
                pairs.push_back({weigh(from), weigh(to)});
        }
        if (entities < kFewest) return;
        diff_.whole = whole_move(pairs, entities - entities / 10, tolerance_ * 10);
        if (!diff_.whole) return;
        const Matrix &matrix = diff_.whole->matrix; // what lies where it was changed otherwise
        if (diff_.whole->is_shift && std::hypot(matrix.e, matrix.f) <= tolerance_ * 10)
            diff_.whole.reset();
    }

    size_t count_entities() const {
        size_t count = 0;
        std::vector<bool> is_counted(newer_.objects.size());
        for (const Shape &shape : diff_.newer.shapes) {
            count += !is_counted[shape.object];
            is_counted[shape.object] = true;
        }
        return count;
    }

    // The older scene goes along; what lies as in the newer one then has not changed besides.
    void drop_followers(const Figures &older, const Figures &newer) {
        transform(diff_.older, diff_.whole->matrix);
        diff_.whole->count = 0;
        for (size_t at = 0; at < diff_.marks.size(); ++at) {
            Mark &mark = diff_.marks[at];
            const Figure from = older.of(at), to = newer.of(at);
            if (mark.kind != Mark::modified || !mark.block.empty() || !follows(from, to)) continue;
            mark.kind = Mark::carried;
            ++diff_.whole->count;
        }
        diff_.stayed = count_entities() - mark_count(newer);
    }

    bool follows(const Figure &older, const Figure &newer) const {
        if (older.shapes.empty() || !is_alike(older, newer)) return false;
        if (!diff_.whole->is_shift)
            return WholeMove().fits(weigh(older), weigh(newer), tolerance_ * 10);
        const auto shift = shift_between(older, newer, tolerance_ * 10);
        return shift && std::hypot(shift->x, shift->y) <= tolerance_ * 10;
    }

    size_t mark_count(const Figures &newer) const {
        size_t count = 0;
        for (size_t at = 0; at < diff_.marks.size(); ++at)
            count += diff_.marks[at].block.empty() && !newer.of(at).shapes.empty();
        return count;
    }

    static constexpr struct {
        bool contains(std::string_view type) const {
            return type == "ENDTAB" || type == "ENDBLK" || type == "SEQEND" || type == "VERTEX";
        }
    } kMarksOfStructure{};

    const Content &older_, &newer_;
    const std::vector<ObjectChange> &changes_;
    const SceneOptions::Space space_; // of both versions, with changes
    Encoding older_words_ = encoding_of(read_header(older_.header));
    Encoding newer_words_ = encoding_of(read_header(newer_.header));
    const ChangedPlaces places_;
    DiffScene diff_;
    Seen older_seen_, newer_seen_;
    std::unordered_map<uint64_t, uint32_t> by_number_;
    std::unordered_map<std::string, uint32_t> by_block_;
    uint32_t last_block_ = kNone, last_mark_ = kNone, named_object_ = kNone;
    const Content *last_content_ = nullptr, *named_content_ = nullptr;
    std::string named_;
    double tolerance_ = 0;
};

} // namespace

Figures::Figures(const Scene &scene, const std::vector<uint32_t> &marks, size_t count)
    : scene_(scene), starts_(count + 1) {
    for (const uint32_t mark : marks)
        if (mark != kNone) ++starts_[mark + 1];
    std::partial_sum(starts_.begin(), starts_.end(), starts_.begin());
    shapes_.resize(starts_.back());
    std::vector<uint32_t> next(starts_.begin(), starts_.end() - 1);
    for (uint32_t shape = 0; shape < marks.size(); ++shape)
        if (marks[shape] != kNone) shapes_[next[marks[shape]]++] = shape;
}

Figure Figures::of(size_t mark) const {
    return {&scene_, std::span(shapes_).subspan(starts_[mark], starts_[mark + 1] - starts_[mark])};
}

Box DiffScene::box() const {
    Box box = newer.box;
    box.add(older.box);
    return box;
}

namespace {

bool shows_change(const DiffScene &diff) {
    return diff.whole || std::ranges::any_of(diff.marks, &Mark::is_drawn);
}

bool is_empty(const DiffScene &diff) {
    return diff.older.shapes.empty() && diff.newer.shapes.empty();
}

} // namespace

DiffScene diff_scene(const Content &older, const Content &newer,
                     const std::vector<ObjectChange> &changes, SceneOptions::Space space) {
    const auto built = [&](SceneOptions::Space of) {
        return Building(older, newer, changes, of).run();
    };
    if (space != SceneOptions::any || changes.empty()) return built(space);
    DiffScene model = built(SceneOptions::model);
    if (shows_change(model)) return model;
    DiffScene paper = built(SceneOptions::paper);
    return shows_change(paper) || (is_empty(model) && !is_empty(paper)) ? std::move(paper)
                                                                        : std::move(model);
}

} // namespace picture
