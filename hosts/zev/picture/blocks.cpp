// A block that is never ended ends where the next one begins. The blocks that stand for model and
// paper space hold entities of these.
#include "picture/blocks.hpp"

#include <algorithm>
#include <optional>

namespace picture {

namespace {

std::optional<Run::Space> space_of(std::string_view name) {
    if (is_name(name, "*MODEL_SPACE") || is_name(name, "$MODEL_SPACE")) return Run::model;
    if (is_name(name, "*PAPER_SPACE") || is_name(name, "$PAPER_SPACE")) return Run::paper;
    return {};
}

// "*Paper_Space0": what is in it is shown only where that layout becomes the active one.
bool is_other_layout(std::string_view name) {
    constexpr size_t kLength = std::string_view("*PAPER_SPACE").size();
    if (name.size() <= kLength || space_of(name.substr(0, kLength)) != Run::paper) return false;
    return name.find_first_not_of("0123456789", kLength) == name.npos;
}

bool is_of_tables(std::string_view kind) {
    static constexpr std::string_view kKinds[] = {"TABLE", "ENDTAB", "VPORT", "APPID",
                                                  "UCS",   "VIEW",   "CLASS"};
    return std::ranges::find(kKinds, kind) != std::end(kKinds);
}

} // namespace

Outline::Outline(const dxf::Content &content) : tables(read_header(content.header)) {
    for (size_t place = 0; place < content.objects.size(); ++place) {
        const std::string_view record = content.objects[place].record;
        const std::string_view kind = dxf::record_type(record);
        if (kind == "BLOCK")
            begin_block(content, place);
        else if (kind == "ENDBLK")
            end_block(place);
        else if (!in_block_ && !tables.take(kind, record) && !is_of_tables(kind))
            add_outside(place);
    }
    end_block(content.objects.size());
    tables.join();
}

void Outline::begin_block(const dxf::Content &content, size_t place) {
    end_block(place);
    in_block_ = true;
    block_begin_ = place + 1;
    groups_.read(content.objects[place].record);
}

void Outline::end_block(size_t place) {
    if (!in_block_) return;
    in_block_ = false;
    const Range range{block_begin_, place};
    const std::string_view name = groups_.name(2);
    if (const auto space = space_of(name)) {
        if (range.first < range.last) runs.push_back({range, *space});
        return;
    }
    if (is_other_layout(name) && range.first < range.last) others.push_back(range);
    constexpr int kForeign = 4 | 8 | 16;
    if (!block_names.add(name, static_cast<uint32_t>(blocks.size()))) return;
    blocks.push_back({range, groups_.vec(10), (groups_.integer(70) & kForeign) != 0});
}

void Outline::add_outside(size_t place) {
    if (!runs.empty() && runs.back().space == Run::by_flag && runs.back().range.last == place)
        ++runs.back().range.last;
    else
        runs.push_back({{place, place + 1}, Run::by_flag});
}

const Block *Outline::block(std::string_view name) const {
    const uint32_t number = block_names.find(name);
    return number == Names::kNone ? nullptr : &blocks[number];
}

} // namespace picture
