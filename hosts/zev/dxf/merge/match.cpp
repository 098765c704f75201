// Two lists are matched from their ends, then by what occurs once in either, as far as it is in the
// same order, then likewise in between; where nothing occurs once, by a table.
#include "dxf/merge/align.hpp"

#include <algorithm>

namespace dxf::merging {

namespace {

constexpr size_t kMaxCells = 1 << 22; // of a table
constexpr size_t kMaxTurns = 64;      // how often all elements may be looked at

struct Range {
    uint32_t a, a_end, b, b_end;
};

class Matcher {
  public:
    Matcher(const std::vector<uint32_t> &a, const std::vector<uint32_t> &b)
        : a_(a), b_(b), work_left_(kMaxTurns * (a.size() + b.size() + 1)) {}

    std::optional<Matches> run() {
        open_.push_back({0, static_cast<uint32_t>(a_.size()), 0, static_cast<uint32_t>(b_.size())});
        while (!open_.empty()) {
            Range range = open_.back();
            open_.pop_back();
            const size_t size = size_t{range.a_end} - range.a + range.b_end - range.b;
            if (size > work_left_) return {};
            work_left_ -= size;
            if (!match(range)) return {};
        }
        std::sort(found_.begin(), found_.end());
        return std::move(found_);
    }

  private:
    bool match(Range range) {
        while (range.a < range.a_end && range.b < range.b_end && a_[range.a] == b_[range.b])
            found_.push_back({range.a++, range.b++});
        while (range.a < range.a_end && range.b < range.b_end &&
               a_[range.a_end - 1] == b_[range.b_end - 1])
            found_.push_back({--range.a_end, --range.b_end});
        if (range.a == range.a_end || range.b == range.b_end) return true;
        const Matches anchors = in_order(singles(range));
        if (anchors.empty()) return by_table(range);
        for (const auto &[a, b] : anchors) {
            open_.push_back({range.a, a, range.b, b});
            found_.push_back({a, b});
            range.a = a + 1, range.b = b + 1;
        }
        open_.push_back(range);
        return true;
    }

    // What occurs once in either, by place in the first list.
    Matches singles(const Range &range) const {
        struct Seen {
            uint32_t a = kNowhere, b = kNowhere;
            bool is_single = true;
        };
        std::unordered_map<uint32_t, Seen> seen;
        const auto note = [](uint32_t &place, bool &is_single, uint32_t at) {
            if (place != kNowhere) is_single = false;
            place = at;
        };
        for (uint32_t i = range.a; i < range.a_end; ++i)
            note(seen[a_[i]].a, seen[a_[i]].is_single, i);
        for (uint32_t i = range.b; i < range.b_end; ++i)
            note(seen[b_[i]].b, seen[b_[i]].is_single, i);
        Matches pairs;
        for (const auto &[token, at] : seen)
            if (at.is_single && at.a != kNowhere && at.b != kNowhere) pairs.push_back({at.a, at.b});
        std::sort(pairs.begin(), pairs.end());
        return pairs;
    }

    // The longest part that ascends in the second list, too.
    static Matches in_order(const Matches &pairs) {
        std::vector<uint32_t> tails, before(pairs.size(), kNowhere); // places in `pairs`
        for (uint32_t i = 0; i < pairs.size(); ++i) {
            const auto at = std::lower_bound(
                tails.begin(), tails.end(), pairs[i].second,
                [&](uint32_t tail, uint32_t place) { return pairs[tail].second < place; });
            if (at != tails.begin()) before[i] = *std::prev(at);
            if (at == tails.end())
                tails.push_back(i);
            else
                *at = i;
        }
        Matches chain;
        for (uint32_t i = tails.empty() ? kNowhere : tails.back(); i != kNowhere; i = before[i])
            chain.push_back(pairs[i]);
        std::reverse(chain.begin(), chain.end());
        return chain;
    }

    bool by_table(const Range &range) {
        const size_t rows = range.a_end - range.a, columns = range.b_end - range.b;
        if (rows > kMaxCells / columns) return false;
        std::vector<uint32_t> table((rows + 1) * (columns + 1));
        const auto cell = [&](size_t i, size_t j) -> uint32_t & {
            return table[i * (columns + 1) + j];
        };
        const auto equal = [&](size_t i, size_t j) { return a_[range.a + i] == b_[range.b + j]; };
        for (size_t i = rows; i-- > 0;)
            for (size_t j = columns; j-- > 0;)
                cell(i, j) =
                    equal(i, j) ? cell(i + 1, j + 1) + 1 : std::max(cell(i + 1, j), cell(i, j + 1));
        for (size_t i = 0, j = 0; i < rows && j < columns;) {
            if (equal(i, j))
                found_.push_back(
                    {range.a + static_cast<uint32_t>(i++), range.b + static_cast<uint32_t>(j++)});
            else if (cell(i + 1, j) >= cell(i, j + 1))
                ++i;
            else
                ++j;
        }
        return true;
    }

    const std::vector<uint32_t> &a_, &b_;
    size_t work_left_;
    std::vector<Range> open_;
    Matches found_;
};

} // namespace

std::optional<Matches> match_lists(const std::vector<uint32_t> &a, const std::vector<uint32_t> &b) {
    return Matcher(a, b).run();
}

} // namespace dxf::merging
