// What is grouped are things: each shape of a mark in one version and one entity belongs to one.
#include "picture/changes/regions.hpp"

#include "picture/changes/clusters.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_set>

namespace picture {

namespace {

struct Thing {
    uint32_t mark;
    bool is_newer;
    Box box;
};

Point middle_of(const Box &box) {
    return {(box.low.x + box.high.x) / 2, (box.low.y + box.high.y) / 2};
}

class Search {
  public:
    explicit Search(const DiffScene &diff) : diff_(diff), box_(diff.box()) {}

    Regions run() {
        collect(diff_.older, diff_.older_marks, false);
        collect(diff_.newer, diff_.newer_marks, true);
        group();
        std::vector<Region> regions = regions_of_groups();
        Regions out{.shown = choose(regions)};
        out.more = regions.size() - out.shown.size();
        out.arrows = arrows();
        return out;
    }

  private:
    bool is_drawn(uint32_t mark, bool is_newer) const {
        if (mark == kNone || !diff_.marks[mark].is_drawn()) return false;
        return is_newer || !diff_.marks[mark].is_in_place;
    }

    void collect(const Scene &scene, const std::vector<uint32_t> &marks, bool is_newer) {
        uint32_t last = kNone;
        for (uint32_t at = 0; at < marks.size(); ++at) {
            const Shape &shape = scene.shapes[at];
            Box box = scene.box_of(shape);
            // An old text may stand above the new one.
            if (shape.kind == Shape::text && !is_newer) box.high.y += box.height();
            if (!is_drawn(marks[at], is_newer) || box.is_empty()) continue;
            if (things_.empty() || things_.back().mark != marks[at] ||
                things_.back().is_newer != is_newer || shape.object != last)
                things_.push_back({marks[at], is_newer, {}});
            last = shape.object;
            things_.back().box.add(box);
            shapes_.push_back({at, static_cast<uint32_t>(things_.size() - 1)});
        }
    }

    static constexpr int kWide = 6;

    // With all within reach of few cells; if that gives more groups than are shown, of more.
    void group() {
        Clusters clusters(box_, things_.size());
        for (const auto &[shape, thing] : shapes_) {
            const Scene &scene = things_[thing].is_newer ? diff_.newer : diff_.older;
            clusters.add(thing, scene, scene.shapes[shape]);
        }
        join(clusters);
        wide_groups_ = clusters.groups(kWide);
        for (const int reach : {1, 3, kWide}) {
            groups_ = clusters.groups(reach);
            count_ = 0;
            for (const uint32_t group : groups_)
                if (group != Clusters::kNowhere) count_ = std::max(count_, group + 1);
            if (count_ <= Regions::kMost) break;
        }
    }

    // The things of one entity, unless it went far.
    void join(Clusters &clusters) const {
        std::vector<uint32_t> firsts(diff_.marks.size(), kNone);
        const double far = std::max(box_.width(), box_.height()) / 4;
        for (uint32_t thing = 0; thing < things_.size(); ++thing) {
            const uint32_t mark = things_[thing].mark;
            if (!diff_.marks[mark].block.empty()) continue;
            if (firsts[mark] == kNone) {
                firsts[mark] = thing;
                continue;
            }
            const Point from = middle_of(things_[firsts[mark]].box);
            const Point to = middle_of(things_[thing].box);
            if (std::hypot(to.x - from.x, to.y - from.y) <= far) clusters.join(firsts[mark], thing);
        }
    }

    std::vector<Region> regions_of_groups() const {
        std::vector<Region> regions(count_);
        for (uint32_t thing = 0; thing < things_.size(); ++thing) {
            if (groups_[thing] == Clusters::kNowhere) continue;
            Region &region = regions[groups_[thing]];
            region.box.add(things_[thing].box);
            region.marks.push_back(things_[thing].mark);
        }
        for (Region &region : regions) {
            std::sort(region.marks.begin(), region.marks.end());
            const auto end = std::unique(region.marks.begin(), region.marks.end());
            region.marks.erase(end, region.marks.end());
        }
        return regions;
    }

    // ---- Which are shown

    bool is_told(const Region &region, const std::unordered_set<uint32_t> &told) const {
        return std::all_of(region.marks.begin(), region.marks.end(), [&](uint32_t mark) {
            return !diff_.marks[mark].block.empty() && told.contains(mark);
        });
    }

    std::vector<Region> choose(std::vector<Region> &regions) const {
        std::stable_sort(regions.begin(), regions.end(), [](const Region &a, const Region &b) {
            return a.marks.size() > b.marks.size();
        });
        std::vector<Region> shown;
        std::unordered_set<uint32_t> told;
        for (const Region &region : regions) {
            if (shown.size() == Regions::kMost) break;
            if (is_told(region, told)) continue;
            told.insert(region.marks.begin(), region.marks.end());
            shown.push_back(region);
        }
        std::stable_sort(shown.begin(), shown.end(), [this](const Region &a, const Region &b) {
            return reading_place(a) < reading_place(b);
        });
        return shown;
    }

    // Rows from above, in them from the left.
    std::pair<double, double> reading_place(const Region &region) const {
        constexpr double kRows = 5;
        const double height = std::max(box_.height(), box_.width() / kRows);
        const double row = (box_.high.y - region.box.high.y) / height * kRows;
        return {std::floor(row), region.box.low.x};
    }

    // ---- Arrows

    // Things that were moved by one vector and lie near each other have one. If that is still too
    // much to look at, the largest group has it for all.
    std::vector<Arrow> arrows() const {
        constexpr size_t kMost = 6; // of one vector
        std::map<uint32_t, std::map<uint32_t, Arrow>> moves;
        for (uint32_t thing = 0; thing < things_.size(); ++thing) {
            const Mark &mark = diff_.marks[things_[thing].mark];
            if (mark.kind != Mark::moved || !things_[thing].is_newer) continue;
            Arrow &arrow = moves[mark.vector][wide_groups_[thing]];
            arrow.box.add(things_[thing].box);
            arrow.from = mark.shift;
            ++arrow.count;
        }
        std::vector<Arrow> arrows;
        for (auto &[vector, groups] : moves) {
            std::vector<Arrow> own;
            for (const auto &[group, arrow] : groups) own.push_back(arrow);
            if (own.size() > kMost) own = {largest(own)};
            for (const Arrow &arrow : own) arrows.push_back(placed(arrow));
        }
        return arrows;
    }

    static Arrow largest(const std::vector<Arrow> &arrows) {
        const auto has_less = [](const Arrow &a, const Arrow &b) { return a.count < b.count; };
        Arrow arrow = *std::max_element(arrows.begin(), arrows.end(), has_less);
        arrow.count = 0;
        for (const Arrow &one : arrows) arrow.count += one.count;
        return arrow;
    }

    static Arrow placed(Arrow arrow) {
        arrow.to = middle_of(arrow.box);
        arrow.from = {arrow.to.x - arrow.from.x, arrow.to.y - arrow.from.y};
        return arrow;
    }

    struct Placed {
        uint32_t shape, thing;
    };
    const DiffScene &diff_;
    const Box box_;
    std::vector<Thing> things_;
    std::vector<Placed> shapes_;
    std::vector<uint32_t> groups_, wide_groups_; // of things
    uint32_t count_ = 0;
};

} // namespace

Regions find_regions(const DiffScene &diff) { return Search(diff).run(); }

} // namespace picture
