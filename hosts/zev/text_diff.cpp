// The shortest way from one text to the other: with d lines taken out and put in one comes to a
// furthest point on each diagonal, and from those of d to those of d + 1. The points of each d are
// kept to walk back, so that memory grows with the square of the difference, which is bounded.
#include "text_diff.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr size_t kMaxDifference = 2000; // lines; 2000 * 2000 points of 4 bytes are 16 MB
constexpr size_t kContext = 3;          // lines around a change, as is usual

using Lines = std::vector<std::string_view>;

class Search {
  public:
    Search(const Lines &from, const Lines &to, size_t begin, size_t from_end, size_t to_end)
        : from_(from), to_(to), begin_(begin), rows_(static_cast<int>(from_end - begin)),
          columns_(static_cast<int>(to_end - begin)) {}

    // False where the texts are too unlike.
    bool run() {
        for (int d = 0; d <= static_cast<int>(kMaxDifference); ++d) {
            std::vector<int> points(2 * static_cast<size_t>(d) + 3, -1);
            for (int k = -d; k <= d; k += 2) {
                const int row = slide(d ? step(d, k).row : 0, k);
                points[static_cast<size_t>(k + d + 1)] = row;
                if (row >= rows_ && row - k >= columns_) return walk_back(d, k), true;
            }
            kept_.push_back(std::move(points));
        }
        return false;
    }

    // Of lines that are the same: where they stand.
    std::vector<std::pair<size_t, size_t>> pairs;

  private:
    // The furthest row of diagonal k with d lines, -1 for none.
    int furthest(int d, int k) const {
        const std::vector<int> &points = kept_[static_cast<size_t>(d)];
        const int place = k + d + 1;
        return place < 0 || place >= static_cast<int>(points.size())
                   ? -1
                   : points[static_cast<size_t>(place)];
    }
    // To diagonal k by the d-th line, from the one beside it that comes further.
    struct Step {
        int row;
        bool puts_in; // that line, in place of taking it out
    };
    Step step(int d, int k) const {
        const int out = furthest(d - 1, k - 1), in = furthest(d - 1, k + 1);
        const bool puts_in = k == -d || (k != d && out < in);
        return {puts_in ? in : out + 1, puts_in};
    }
    bool same(int row, int column) const {
        return from_[begin_ + static_cast<size_t>(row)] ==
               to_[begin_ + static_cast<size_t>(column)];
    }
    int slide(int row, int k) const {
        while (row < rows_ && row - k < columns_ && row - k >= 0 && same(row, row - k)) ++row;
        return row;
    }

    void walk_back(int d, int k) {
        int row = rows_;
        for (; d > 0; --d) {
            const auto [start, puts_in] = step(d, k);
            take(start, row, k);
            row = puts_in ? start : start - 1;
            k += puts_in ? 1 : -1;
        }
        take(0, row, k);
        std::reverse(pairs.begin(), pairs.end());
    }
    void take(int start, int end, int k) {
        for (int row = end - 1; row >= start; --row)
            pairs.emplace_back(begin_ + static_cast<size_t>(row),
                               begin_ + static_cast<size_t>(row - k));
    }

    const Lines &from_, &to_;
    const size_t begin_;
    const int rows_, columns_;
    std::vector<std::vector<int>> kept_; // rows by diagonal, from -d - 1 on: one wider on each side
};

// Ends of lines are shown where they may be what differs: as ^M, and the lack of one by a line.
class Printer {
  public:
    Printer(std::string_view from, std::string_view to)
        : shows_returns_(has_returns(from) != has_returns(to)) {}

    void add(Hunk &hunk, char mark, std::string_view line) const {
        const bool has_end = line.ends_with('\n');
        if (has_end) line.remove_suffix(1);
        const bool has_return = line.ends_with('\r');
        if (has_return) line.remove_suffix(1);
        hunk.lines.push_back(mark + std::string(line) +
                             (has_return && shows_returns_ && mark != ' ' ? "^M" : ""));
        if (!has_end) hunk.lines.push_back("\\ No newline at end of file");
    }

  private:
    static bool has_returns(std::string_view text) { return text.find("\r\n") != text.npos; }
    bool shows_returns_;
};

} // namespace

Lines lines_of(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const size_t length = end == text.npos ? text.size() : end + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

std::vector<LineChange> compare_lines(const Lines &from, const Lines &to) {
    size_t begin = 0, from_end = from.size(), to_end = to.size();
    while (begin < from_end && begin < to_end && from[begin] == to[begin]) ++begin;
    while (from_end > begin && to_end > begin && from[from_end - 1] == to[to_end - 1])
        --from_end, --to_end;
    Search search(from, to, begin, from_end, to_end);
    if (!search.run()) search.pairs.clear();
    search.pairs.emplace_back(from_end, to_end);
    std::vector<LineChange> changes;
    size_t row = begin, column = begin;
    for (const auto &[next_row, next_column] : search.pairs) {
        if (next_row > row || next_column > column)
            changes.push_back({row, next_row - row, column, next_column - column});
        row = next_row + 1;
        column = next_column + 1;
    }
    return changes;
}

std::vector<Hunk> hunks_of(std::string_view from, std::string_view to) {
    const Lines older = lines_of(from), newer = lines_of(to);
    const std::vector<LineChange> changes = compare_lines(older, newer);
    const Printer printer(from, to);
    std::vector<Hunk> hunks;
    for (size_t i = 0; i < changes.size();) {
        const size_t lead = std::min(changes[i].from, kContext);
        Hunk hunk{changes[i].from - lead, 0, changes[i].to - lead, 0, {}};
        size_t row = hunk.from;
        const auto keep = [&](size_t end) {
            for (; row < end; ++row) printer.add(hunk, ' ', older[row]);
        };
        do {
            const LineChange &change = changes[i];
            keep(change.from);
            for (; row < change.from + change.from_count; ++row) printer.add(hunk, '-', older[row]);
            for (size_t n = 0; n < change.to_count; ++n)
                printer.add(hunk, '+', newer[change.to + n]);
            hunk.to_count = change.to + change.to_count - hunk.to;
            ++i;
        } while (i < changes.size() && changes[i].from - row <= 2 * kContext);
        const size_t tail = std::min(older.size(), row + kContext) - row;
        keep(row + tail);
        hunk.from_count = row - hunk.from;
        hunk.to_count += tail;
        hunks.push_back(std::move(hunk));
    }
    return hunks;
}

} // namespace host
