// Runs, and other layouts, stand in the order of their records.
#include "picture/changes/unseen.hpp"

#include "picture/drawer.hpp"

#include <algorithm>

namespace picture {

namespace {

template <class T, class F> const T *around(const std::vector<T> &all, size_t place, F range) {
    const auto next =
        std::ranges::upper_bound(all, place, {}, [&](const T &one) { return range(one).first; });
    if (next == all.begin() || range(next[-1]).last <= place) return nullptr;
    return &next[-1];
}

} // namespace

std::string Unseen::what(size_t place) {
    const std::string_view kind = dxf::record_type(content_.objects[place].record);
    if (around(outline_.others, place, [](const Range &range) { return range; }))
        return reason::kLayouts;
    const Run *run = around(outline_.runs, place, [](const Run &one) { return one.range; });
    if (!run || !is_elsewhere(*run, kind, place)) return std::string(kind);
    return shown_ == Run::paper ? "objects of the model" : "objects of paper space";
}

bool Unseen::is_elsewhere(const Run &run, std::string_view kind, size_t place) {
    if (run.space != Run::by_flag) return run.space != shown_;
    groups_.read(content_.objects[place].record);
    return is_entity(kind, groups_) && (groups_.integer(67) == 1) != (shown_ == Run::paper);
}

} // namespace picture
