// Time is limited by points: whatever is done for a record costs some, and by its length where it
// may be read again and again, so that blocks in blocks in blocks end however they are nested. One
// object gets half of what is left at most: those behind it are still seen.
#include "picture/drawer.hpp"

#include "picture/kinds.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace picture {

namespace {

constexpr uint32_t kDeepest = 32; // blocks in blocks
constexpr uint64_t kRepeated = 4; // points that a record costs where it is read again
constexpr size_t kMostKinds = 64; // in Scene::left_out, others are counted as one
constexpr double kDot = 0.01;     // of its pattern, how long a dot is drawn

struct Kind {
    std::string_view name;
    Draw draw;
};

constexpr Kind kKinds[] = {
    {"LINE", draw_line},
    {"LWPOLYLINE", draw_lwpolyline},
    {"TEXT", draw_text},
    {"INSERT", draw_insert},
    {"ARC", draw_arc},
    {"CIRCLE", draw_circle},
    {"POINT", draw_point},
    {"POLYLINE", draw_polyline},
    {"MTEXT", draw_mtext},
    {"ATTRIB", draw_attribute},
    {"ATTDEF", draw_definition},
    {"DIMENSION", draw_dimension},
    {"SPLINE", draw_spline},
    {"ELLIPSE", draw_ellipse},
    {"SOLID", draw_solid},
    {"TRACE", draw_solid},
    {"3DFACE", draw_face},
    {"ACAD_TABLE", draw_table},
    {"RAY", draw_ray},
    {"HATCH", draw_hatch},
    {"LEADER", draw_leader},
    {"MLINE", draw_mline},
    {"VIEWPORT", draw_viewport},
    {"XLINE", draw_ray},
    {"MULTILEADER", draw_multileader},
    {"MLEADER", draw_multileader},
};

// Records that are parts of others, or nothing that could be seen.
bool is_silent(std::string_view kind) {
    static constexpr std::string_view kSilent[] = {"SEQEND", "VERTEX"};
    return std::ranges::find(kSilent, kind) != std::end(kSilent);
}

// Printable, whatever the file calls it.
std::string shown(std::string_view kind) {
    std::string name(kind.substr(0, 64));
    std::ranges::replace_if(
        name, [](char c) { return c < ' ' || c > '~'; }, '?');
    return name;
}

// Lines and gaps by turns from a pattern, in which gaps are below zero and dots are zero; nothing
// if it has no gaps.
std::vector<double> turns_of(const std::vector<double> &pattern, double scale) {
    double total = 0;
    for (const double dash : pattern) total += std::abs(dash) * scale;
    std::vector<double> turns;
    for (const double dash : pattern) {
        const bool is_gap = dash < 0;
        const double size = dash == 0 ? total * kDot : std::abs(dash) * scale;
        if (turns.empty() && is_gap) turns.push_back(0);
        if ((turns.size() % 2 == 0) == is_gap && !turns.empty())
            turns.back() += size;
        else
            turns.push_back(size);
    }
    // A line at the end goes on into the one at the beginning.
    if (turns.size() % 2 && turns.size() > 1) {
        turns.front() += turns.back();
        turns.pop_back();
    }
    if (turns.size() < 2 || !(total > 0) || !(total <= kFarthest)) turns.clear();
    return turns;
}

} // namespace

Draw draw_of(std::string_view kind) {
    const auto *at = std::ranges::find(kKinds, kind, &Kind::name);
    return at == std::end(kKinds) ? nullptr : at->draw;
}

// Objects that are no entities stand among them: dictionaries, layouts, styles.
bool is_entity(std::string_view kind, const Groups &groups) {
    if (draw_of(kind)) return true;
    bool has_class = false;
    for (const Group &group : groups.all()) {
        if (group.code != 100) continue;
        if (trimmed(group.value) == "AcDbEntity") return true;
        has_class = true;
    }
    return !has_class && groups.has(8);
}

Space Entity::space(const Groups &groups) const {
    if (!groups.has(210) && !groups.has(230)) return stand.space;
    Vec extrusion = groups.vec(210);
    if (!groups.has(230)) extrusion.z = 1;
    return stand.space * ocs(extrusion);
}

Drawer::Drawer(const dxf::Content &content, const SceneOptions &options, Scene &scene)
    : content_(content), options_(options), scene_(scene), outline_(content),
      header_(read_header(content.header)), encoding_(encoding_of(header_)),
      pen_(scene, std::min<uint64_t>(options.most_points, UINT32_MAX / 2)),
      left_out_(content.objects.size()) {
    scene_.dashes.emplace_back();
}

void Drawer::run() {
    bool is_seen = false;
    if (options_.space != SceneOptions::paper) is_seen = draw_space(Run::model, {});
    if (options_.space == SceneOptions::paper ||
        (options_.space == SceneOptions::any && !is_seen)) {
        const bool has_paper = draw_space(Run::paper, {});
        scene_.is_paper = has_paper || options_.space == SceneOptions::paper;
    }
    place_late();
    count_others();
}

// Each layout has a viewport that is the paper itself.
void Drawer::count_others() {
    for (const Range &range : outline_.others)
        for (size_t place = range.first; place < range.last;) {
            const std::string_view kind = dxf::record_type(record(place));
            const Range own{place, end_of(place, kind, range.last)};
            place = own.last;
            if (is_silent(kind) || !is_wanted(own)) continue;
            groups.read(record(own.first));
            const bool is_paper = kind == "VIEWPORT" && groups.integer(69, 2) == 1;
            if (!is_paper && is_entity(kind, groups)) leave_out(own.first, reason::kLayouts);
        }
}

bool Drawer::draw_space(Run::Space space, const Stand &stand) {
    space_ = space;
    is_seen_ = false;
    for (const Run &run : outline_.runs) {
        if (run.space != Run::by_flag && run.space != space) continue;
        is_by_flag_ = run.space == Run::by_flag;
        draw_range(run.range, stand);
    }
    return is_seen_;
}

void Drawer::draw_model(const Stand &stand, const Window &window) {
    const bool is_by_flag = is_by_flag_;
    window_ = &window;
    dash_scale_ = header_.scales_in_paper ? 1 : window.scale;
    draw_space(Run::model, stand);
    space_ = Run::paper;
    is_by_flag_ = is_by_flag;
    is_seen_ = true;
    window_ = nullptr;
    dash_scale_ = 1;
}

void Drawer::draw_range(Range range, const Stand &stand) {
    insert_ = stand.look;
    for (size_t place = range.first; place < range.last;) {
        const std::string_view kind = dxf::record_type(record(place));
        const Range own{place, end_of(place, kind, range.last)};
        draw_record(own, kind, stand);
        place = own.last;
    }
}

// Behind the record, or the vertices that follow it.
size_t Drawer::end_of(size_t place, std::string_view kind, size_t last) const {
    size_t end = place + 1;
    if (kind != "POLYLINE") return end;
    while (end < last && dxf::record_type(record(end)) == "VERTEX") ++end;
    return end < last && dxf::record_type(record(end)) == "SEQEND" ? end + 1 : end;
}

bool Drawer::is_wanted(Range range) const {
    if (!options_.wanted) return true;
    for (size_t place = range.first; place < range.last; ++place)
        if (options_.wanted(place)) return true;
    return false;
}

// Of records that are read for each place that shows them.
uint64_t Drawer::cost_again(Range range) const {
    uint64_t cost = (range.last - range.first) * kRepeated;
    for (size_t place = range.first; place < range.last; ++place)
        cost += record(place).size() / kBytesOfPoint;
    return cost;
}

void Drawer::draw_record(Range range, std::string_view kind, const Stand &stand) {
    const bool is_again = stand.depth || window_; // which costs before it is read
    if (is_again && !pen_.spend(cost_again(range))) {
        pen_.waste(range.last - range.first); // which were counted
        return leave_out(range.first, reason::kBeyond);
    }
    // Of what isn't wanted only the look of an insertion counts, for its attributes.
    if (!stand.depth && is_seen_ && kind != "INSERT" && !is_wanted(range)) return;
    groups.read(record(range.first));
    if (stand.depth) return draw_entity(range, kind, stand);
    const bool is_paper = groups.integer(67) == 1;
    if (is_by_flag_ && is_paper != (space_ == Run::paper)) return;
    is_seen_ = is_seen_ || is_entity(kind, groups);
    if (!is_wanted(range)) {
        if (kind == "INSERT") insert_ = look_of(stand.look, stand.depth);
        return;
    }
    if (!is_again && !pen_.spend(range.last - range.first))
        return leave_out(range.first, reason::kBeyond);
    Stand own = stand;
    own.object = static_cast<uint32_t>(range.first);
    const uint64_t others = pen_.hold_back();
    draw_entity(range, kind, own);
    pen_.give_back(others);
}

void Drawer::draw_entity(Range range, std::string_view kind, const Stand &stand) {
    const Draw draw = draw_of(kind);
    const bool is_insert = kind == "INSERT", is_attribute = kind == "ATTRIB";
    const Look look = look_of(is_attribute ? insert_ : stand.look, stand.depth || is_attribute);
    const Layer &layer = outline_.tables.layers[look.layer];
    const bool is_frozen = layer.is_frozen || (window_ && window_->frozen[look.layer]);
    const bool is_hidden = is_frozen || (layer.is_off && !is_insert) || groups.integer(60) == 1;
    if (draw && !is_hidden) {
        const auto part = static_cast<uint32_t>(range.first);
        const Marks marks{stand.object, part, look.ink, look.weight, dashes_of(look.linetype)};
        draw(*this, Entity{stand, look, marks, range});
    } else if (!draw && !is_hidden && !is_silent(kind) && is_entity(kind, groups)) {
        leave_out(range.first, kind);
    }
    if (is_insert) insert_ = look;
}

Look Drawer::look_of(const Look &parent, bool is_part) const {
    const Tables &tables = outline_.tables;
    const std::string_view layer_name = groups.name(8), line = groups.name(6);
    Look look;
    look.layer = is_part && layer_name == "0" ? parent.layer : tables.layer_number(layer_name);
    const Layer &layer = tables.layers[look.layer];
    const bool is_by_block = groups.integer(62, 256) == 0;
    look.ink = ink_of(groups, is_by_block ? parent.ink : layer.ink);
    const int weight = groups.integer(370, -1);
    look.weight = weight == -1   ? layer.weight
                  : weight == -2 ? parent.weight
                  : weight < 0   ? kUsualWeight
                                 : static_cast<float>(std::min(weight, 1000)) / 100;
    look.linetype = line.empty() || is_name(line, "BYLAYER") ? layer.linetype
                    : is_name(line, "BYBLOCK")               ? parent.linetype
                                                             : tables.linetype(line);
    return look;
}

uint32_t Drawer::dashes_of(uint32_t linetype) {
    const std::vector<double> &pattern = outline_.tables.linetypes[linetype];
    const double scale = std::abs(header_.linetype_scale * groups.number(48, 1)) * dash_scale_;
    if (pattern.empty() || !(scale > 0)) return 0;
    const auto [at, is_new] = dashes_.try_emplace({linetype, scale}, 0);
    if (!is_new) return at->second;
    std::vector<double> turns = turns_of(pattern, scale);
    if (turns.empty()) return 0;
    at->second = static_cast<uint32_t>(scene_.dashes.size());
    scene_.dashes.push_back(std::move(turns));
    return at->second;
}

void Drawer::draw_block(std::string_view name, const Entity &entity, const Space &space) {
    const uint32_t part = entity.marks.part;
    const Block *block = outline_.block(name);
    if (!block) return leave_out(part, reason::kMissing);
    if (block->is_foreign) return leave_out(part, reason::kForeign);
    if (std::ranges::find(open_, block) != open_.end()) return leave_out(part, reason::kRecursive);
    if (entity.stand.depth >= kDeepest) return leave_out(part, reason::kDeep);
    Stand inner{entity.stand.space * space, entity.look, entity.stand.object,
                entity.stand.depth + 1};
    inner.space.origin = inner.space * (Vec{} - block->base);
    open_.push_back(block);
    draw_range(block->range, inner);
    open_.pop_back();
}

void Drawer::stroke(const Entity &entity, const Path &lines, const Matrix &place) {
    told(pen_.stroke(lines, place, entity.marks), entity);
}

void Drawer::fill(const Entity &entity, const Path &area, const Matrix &place) {
    told(pen_.fill(area, place, entity.marks), entity);
}

void Drawer::write(const Entity &entity, Text text) {
    if (!text.text.empty()) told(pen_.write(std::move(text), entity.marks), entity);
}

void Drawer::stroke_late(const Entity &entity, const Path &lines, Late late) {
    if (!is_sound(late.place)) return told(Pen::broken, entity);
    late.shape = static_cast<uint32_t>(scene_.shapes.size());
    stroke(entity, lines, {});
    if (scene_.shapes.size() == late.shape) return;
    window_ ? settle(late, window_->box) : late_.push_back(late);
}

void Drawer::told(Pen::Result result, const Entity &entity) {
    if (result == Pen::broken) leave_out(entity.marks.part, reason::kBroken);
    if (result == Pen::beyond) leave_out(entity.marks.part, reason::kBeyond);
}

void Drawer::leave_out(size_t place, std::string_view why) {
    if (left_out_[place]) return;
    left_out_[place] = true;
    std::string name = shown(why);
    if (scene_.left_out.size() >= kMostKinds && !scene_.left_out.contains(name))
        name = reason::kOthers;
    ++scene_.left_out[name];
}

} // namespace picture
