// A section without objects has its run all the same: the literals of a layout are read as the
// file's reader reads them, and cut where its first object would stand.
#include "dxf/merge/layout.hpp"

#include "dxf/layout.hpp"

#include <algorithm>

namespace dxf::merging {

namespace {

class Builder {
  public:
    explicit Builder(const std::vector<Entry> &objects) : objects_(objects) {}

    void literal(std::string_view bytes) {
        std::string_view left = bytes;
        if (skeleton_.pieces.empty() && left.starts_with("\xEF\xBB\xBF")) left.remove_prefix(3);
        size_t done = 0;
        for (Group group; !is_ended_ && take_group(left, group);) {
            if (group.code == 0 && state_ == State::open) {
                const auto here = static_cast<size_t>(group.bytes.data() - bytes.data());
                put(bytes.substr(done, here - done));
                done = here;
                run(0);
            }
            read(group);
        }
        put(bytes.substr(done));
    }

    void header() { skeleton_.pieces.push_back({Skeleton::Piece::header, {}}); }

    void classes(uint64_t count) {
        skeleton_.pieces.push_back({Skeleton::Piece::classes, {}, count});
        if (state_ == State::open) state_ = State::closed;
    }

    void objects(uint64_t count) { run(count); }

    Skeleton finish() { return std::move(skeleton_); }

  private:
    // open: behind the name of a section that has classes or objects, before its first one
    enum class State : uint8_t { closed, unnamed, open };

    void put(std::string_view bytes) {
        if (bytes.empty()) return;
        auto &pieces = skeleton_.pieces;
        if (!pieces.empty() && pieces.back().kind == Skeleton::Piece::literal)
            pieces.back().bytes += bytes;
        else
            pieces.push_back({Skeleton::Piece::literal, std::string(bytes)});
    }

    void read(const Group &group) {
        const std::string_view word = trim_blanks(group.value);
        if (group.code == 0) {
            state_ = word == "SECTION" ? State::unnamed : State::closed;
            is_ended_ = word == "EOF";
        } else if (state_ == State::unnamed && group.code != 999) {
            name_ = group.code == 2 ? word : std::string_view();
            const bool has_objects =
                name_ == "TABLES" || name_ == "BLOCKS" || name_ == "ENTITIES" || name_ == "OBJECTS";
            state_ = has_objects || name_ == "CLASSES" ? State::open : State::closed;
        }
    }

    void run(uint64_t count) {
        if (state_ == State::open && name_ == "CLASSES" && !count) return classes(0);
        Run run;
        run.is_known = state_ == State::open;
        run.begin = place_;
        run.count = static_cast<uint32_t>(count);
        run.name = run.is_known ? name_ : "@" + std::to_string(objects_[place_].id);
        // A section may come twice.
        if (const int n = ++seen_[run.name]; n > 1) run.name += "#" + std::to_string(n);
        place_ += run.count;
        skeleton_.pieces.push_back({Skeleton::Piece::objects, run.name});
        skeleton_.runs.push_back(std::move(run));
        state_ = State::closed;
    }

    const std::vector<Entry> &objects_;
    Skeleton skeleton_;
    State state_ = State::closed;
    std::string name_; // of the section at hand
    std::map<std::string, int> seen_;
    uint32_t place_ = 0;
    bool is_ended_ = false;
};

bool is_same(const Skeleton &a, const Skeleton &b) {
    return std::ranges::equal(a.pieces, b.pieces, [](const auto &left, const auto &right) {
        return left.kind == right.kind && left.bytes == right.bytes;
    });
}

} // namespace

std::vector<uint32_t> Skeleton::run_at() const {
    std::vector<uint32_t> at;
    for (uint32_t i = 0; i < runs.size(); ++i) at.insert(at.end(), runs[i].count, i);
    return at;
}

Skeleton read_skeleton(std::string_view layout, uint64_t classes, const std::vector<Entry> &objects,
                       const std::string &name) {
    Builder builder(objects);
    LayoutVisitor visitor;
    visitor.literal = [&](std::string_view bytes) { builder.literal(bytes); };
    visitor.header = [&] { builder.header(); };
    visitor.symbols = [&](uint64_t count) { builder.classes(count); };
    visitor.objects = [&](uint64_t count) { builder.objects(count); };
    if (!read_layout(layout, classes, objects.size(), visitor))
        throw host::Failed(host::kOther,
                           host::say("%s: the drawing doesn't come from a DXF file", name));
    return builder.finish();
}

std::optional<Version> choose_skeleton(const std::array<Skeleton, 3> &skeletons) {
    if (is_same(skeletons[kOurs], skeletons[kTheirs])) return kOurs;
    if (is_same(skeletons[kBase], skeletons[kTheirs])) return kOurs;
    if (is_same(skeletons[kBase], skeletons[kOurs])) return kTheirs;
    return {};
}

bool Skeleton::has_classes() const {
    return std::ranges::find(pieces, Piece::classes, &Piece::kind) != pieces.end();
}

namespace {

// How many classes stand in each of their places: as it was, what came or went at the last ones.
std::vector<uint64_t> spread(const Skeleton &skeleton, uint64_t classes) {
    std::vector<uint64_t> counts;
    for (const auto &piece : skeleton.pieces)
        if (piece.kind == Skeleton::Piece::classes) {
            counts.push_back(std::min(piece.count, classes));
            classes -= counts.back();
        }
    if (!counts.empty()) counts.back() += classes;
    return counts;
}

} // namespace

std::string write_skeleton(const Skeleton &skeleton, uint64_t classes,
                           const std::map<std::string, uint64_t> &objects) {
    std::vector<Part> parts;
    std::deque<std::string> literals; // in the order of their parts
    const std::vector<uint64_t> counts = spread(skeleton, classes);
    auto count = counts.begin();
    for (const auto &[kind, bytes, unused] : skeleton.pieces) {
        if (kind == Skeleton::Piece::header) {
            parts.push_back({Kind::header, 0, {}, {}, {}});
        } else if (kind == Skeleton::Piece::classes) {
            parts.insert(parts.end(), *count++, {Kind::symbol, 0, {}, {}, {}});
        } else if (kind == Skeleton::Piece::objects) {
            const auto run = objects.find(bytes);
            parts.insert(parts.end(), run == objects.end() ? 0 : run->second,
                         {Kind::object, 0, {}, {}, {}});
        } else if (!parts.empty() && parts.back().kind == Kind::literal) {
            literals.back() += bytes;
        } else {
            literals.push_back(bytes);
            parts.push_back({Kind::literal, 0, {}, {}, {}});
        }
    }
    auto literal = literals.begin();
    for (Part &part : parts)
        if (part.kind == Kind::literal) part.bytes = *literal++;
    return write_layout(parts);
}

} // namespace dxf::merging
