// Sentences have their numbers in front or at their end, so that no plural is needed.
#include "picture/changes/diff_words.hpp"

#include "dxf/fields.hpp"
#include "say.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

using host::say;

constexpr size_t kMostOfName = 200; // characters, of names that drawings give

// Names of a header's variables with what stands up to the next one.
std::map<std::string_view, std::string_view> variables(std::string_view header) {
    std::map<std::string_view, std::string_view> out;
    std::string_view name;
    const char *begin = nullptr;
    for (const dxf::Field &field : dxf::split_fields(header)) {
        if (field.code != 9) continue;
        const char *at = field.value.data();
        if (begin) out[name] = {begin, static_cast<size_t>(at - begin)};
        name = field.value, begin = at;
    }
    if (begin) out[name] = {begin, static_cast<size_t>(header.data() + header.size() - begin)};
    return out;
}

uint64_t changed_variables(std::string_view older, std::string_view newer) {
    if (older == newer) return 0;
    const auto from = variables(older), to = variables(newer);
    uint64_t count = 0;
    for (const auto &[name, value] : to) {
        const auto other = from.find(name);
        count += other == from.end() || other->second != value;
    }
    for (const auto &[name, value] : from) count += !to.contains(name);
    return std::max<uint64_t>(count, 1);
}

std::string listed(const std::map<std::string, uint64_t> &counts) {
    constexpr size_t kMost = 8;
    std::vector<std::pair<uint64_t, std::string>> order;
    for (const auto &[what, count] : counts) order.push_back({count, what});
    std::stable_sort(order.begin(), order.end(),
                     [](const auto &a, const auto &b) { return a.first > b.first; });
    std::string out;
    for (size_t i = 0; i < std::min(order.size(), kMost); ++i)
        out += (i ? ", " : "") + std::to_string(order[i].first) + " " +
               fitted(host::said(order[i].second), kMostOfName);
    return order.size() > kMost ? out + ", ..." : out;
}

uint64_t sum_of(const std::map<std::string, uint64_t> &counts) {
    uint64_t sum = 0;
    for (const auto &[what, count] : counts) sum += count;
    return sum;
}

std::string number(double value) {
    std::string out;
    put_number(out, std::round(value * 1000) / 1000);
    return out;
}

std::string whole_text(const WholeMove &whole, uint64_t count) {
    const Matrix &matrix = whole.matrix;
    if (whole.is_shift)
        return say("The whole drawing was moved by %s, %s: %s of its entities. What else changed "
                   "is shown as if it had not been.",
                   number(matrix.e), number(matrix.f), count);
    return say("The whole drawing was scaled by %s and turned by %s degrees: %s of its entities. "
               "What else changed is shown as if it had not been.",
               number(whole.scale), number(whole.turn), count);
}

std::string line_of(const Mark &mark, const Tooltips &tooltips) {
    const std::string words = tooltips.words_of(mark);
    const std::string name = words.empty() ? tooltips.name_of(mark) : words;
    if (!mark.block.empty()) return say("changed: %s", name);
    constexpr const char *kTexts[] = {"added: %s", "modified: %s", "removed: %s", "moved: %s"};
    return say(kTexts[mark.kind], name);
}

} // namespace

std::map<std::string, uint64_t> unseen_changes(const DiffScene &diff, const dxf::Content &older,
                                               const dxf::Content &newer) {
    std::map<std::string, uint64_t> unseen = diff.unseen;
    const bool is_one_sided = older.objects.empty() || newer.objects.empty();
    if (const uint64_t count = is_one_sided ? 0 : changed_variables(older.header, newer.header))
        unseen[say("in the header")] += count;
    if (!is_one_sided && older.classes != newer.classes) unseen[say("in the classes")] += 1;
    return unseen;
}

DiffCounts count_marks(const DiffScene &diff) {
    DiffCounts counts;
    for (const Mark &mark : diff.marks) {
        counts.added += mark.kind == Mark::added;
        counts.modified += mark.kind == Mark::modified;
        counts.removed += mark.kind == Mark::removed;
        counts.moved += mark.kind == Mark::moved;
        counts.carried += mark.kind == Mark::carried;
    }
    counts.alike = sum_of(diff.alike);
    counts.is_paper = diff.newer.is_paper;
    return counts;
}

std::vector<std::string> notes_of(const Notes &notes) {
    std::vector<std::string> out;
    const DiffCounts &counts = notes.counts;
    const uint64_t seen = counts.added + counts.modified + counts.removed + counts.moved;
    const uint64_t unseen = sum_of(notes.unseen) + counts.alike;
    if (!seen && !unseen && !notes.diff.whole) out.push_back(say("Nothing changed."));
    if (notes.diff.whole) out.push_back(whole_text(*notes.diff.whole, counts.carried));
    if (notes.diff.stayed)
        out.push_back(say("Entities that stayed where they were: %s.", notes.diff.stayed));
    if (notes.regions.more)
        out.push_back(
            say("Further places with changes, without a number: %s.", notes.regions.more));
    if (counts.alike)
        out.push_back(say("Written otherwise, with the same look: %s.", listed(notes.diff.alike)));
    if (!notes.unseen.empty())
        out.push_back(say("Changes that have no picture: %s.", listed(notes.unseen)));
    const auto &left_out = notes.diff.newer.left_out;
    if (!left_out.empty()) out.push_back(say("Not drawn: %s.", listed(left_out)));
    return out;
}

std::vector<std::string> caption_of(const Region &region, const DiffScene &diff,
                                    const Tooltips &tooltips, size_t most) {
    std::vector<std::string> lines;
    const size_t count = region.marks.size(), shown = count <= most ? count : most - 1;
    for (size_t i = 0; i < shown; ++i)
        lines.push_back(fitted(line_of(diff.marks[region.marks[i]], tooltips), kMostOfName));
    if (shown < count) lines.push_back(say("and %s more", count - shown));
    return lines;
}

std::string fitted(const std::string &text, size_t most) {
    size_t characters = 0, cut = text.size();
    for (size_t at = 0; at < text.size(); ++at) {
        if ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) continue;
        if (++characters + 3 == most + 1) cut = at;
    }
    return characters <= most ? text : text.substr(0, cut) + "...";
}

} // namespace picture
