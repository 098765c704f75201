// The steps of a merge, one after the other. Versions of which two are the same, key for key, are
// settled without a look at their rows.
#include "dxf/merge/core.hpp"

#include "dxf/check.hpp"
#include "dxf/fields.hpp"
#include "dxf/merge/align.hpp"
#include "dxf/merge/anonymous.hpp"
#include "dxf/merge/clash.hpp"
#include "dxf/merge/classes.hpp"
#include "dxf/merge/decide.hpp"
#include "dxf/merge/header.hpp"
#include "dxf/merge/names.hpp"
#include "dxf/merge/result.hpp"
#include "dxf/reader.hpp"
#include "dxf/summary.hpp"

#include <algorithm>
#include <unordered_set>

namespace dxf::merging {

namespace {

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}
bool same_list(const std::vector<DrawingKey> &a, const std::vector<DrawingKey> &b) {
    return std::ranges::equal(a, b, same_key);
}
bool same_version(const Keys &a, const Keys &b) {
    return same_key(a.header, b.header) && same_key(a.summary, b.summary) &&
           same_key(a.layout, b.layout) && same_list(a.classes, b.classes) &&
           same_list(a.objects, b.objects);
}

Merge whole(const Keys &keys, Side side) {
    Merge merge;
    (side == Side::ours ? merge.is_ours : merge.is_theirs) = true;
    merge.header = keys.header, merge.summary = keys.summary, merge.layout = keys.layout;
    merge.classes = keys.classes;
    merge.objects = keys.objects;
    return merge;
}

class Core {
  public:
    Core(const Input &input, Rows &rows)
        : input_(input), merging_(input.versions, input.name, rows), rows_(rows) {}

    Merge run() {
        align_nameless(merging_);
        merging_.find_items();
        load();
        check_rows();
        for (const Version version : kVersions)
            skeletons_[version] =
                read_skeleton(rows_[keys(version).layout], keys(version).classes.size(),
                              merging_.lists[version], input_.name);
        const Headers headers{rows_[keys(kBase).header], rows_[keys(kOurs).header],
                              rows_[keys(kTheirs).header]};
        const Side newer = newer_side(headers);
        decide(headers, newer);
        merge_blocks(headers, newer);
        if (merge_.conflicts.empty())
            build_result(merging_, skeletons_, ordered_, blocks_, merge_);
        else
            count_others();
        return std::move(merge_);
    }

  private:
    static constexpr Version kVersions[] = {kBase, kOurs, kTheirs};
    const Keys &keys(Version version) const { return *input_.versions[version]; }

    // ---- Rows

    void load() {
        std::vector<DrawingKey> wanted;
        has_other_classes_ = !same_list(keys(kBase).classes, keys(kOurs).classes) ||
                             !same_list(keys(kBase).classes, keys(kTheirs).classes);
        for (const Version version : kVersions) {
            const Keys &of = keys(version);
            wanted.insert(wanted.end(), {of.header, of.summary, of.layout});
            if (has_other_classes_)
                wanted.insert(wanted.end(), of.classes.begin(), of.classes.end());
            for (const Item &item : merging_.items)
                if (item.is_in(version)) wanted.push_back(merging_.entry(item, version).key);
        }
        rows_.load(std::move(wanted));
    }

    // Against the digests that were kept with the versions.
    void check_rows() {
        const auto told = [this](Version version) {
            return digest_in(rows_[keys(version).summary]);
        };
        const auto base = told(kBase);
        const DrawingDigest read_base = read_digest(kBase);
        for (const Version version : {kOurs, kTheirs}) {
            auto expected = told(version);
            if (!base || !expected) continue;
            DrawingDigest read = read_digest(version);
            zDrawingDigestSubtract(&read, &read_base);
            zDrawingDigestSubtract(&*expected, &*base);
            if (!same(read, *expected)) fail_mixed(input_.name);
        }
    }

    // Of the rows of a version that were read; those of no version's own cancel out.
    DrawingDigest read_digest(Version version) const {
        DrawingDigest digest{};
        const auto add = [&](const DrawingKey &key) {
            const std::string_view row = rows_[key];
            if (key.tag || key.object)
                zDrawingDigestAddRow(&digest, key.object, row.data(), row.size());
        };
        add(keys(version).header), add(keys(version).layout);
        if (has_other_classes_)
            for (const DrawingKey &key : keys(version).classes) add(key);
        for (const Item &item : merging_.items)
            if (item.is_in(version)) add(merging_.entry(item, version).key);
        return digest;
    }

    // ---- Objects

    uint64_t free_handle(const Headers &headers) const {
        uint64_t handle = 1;
        for (const auto &list : merging_.lists)
            for (const Entry &entry : list)
                if (entry.id < kFirstNumber) handle = std::max(handle, entry.id + 1);
        for (const std::string_view header : headers)
            handle = std::max(handle, handle_seed(header));
        return handle;
    }

    void decide(const Headers &headers, Side newer) {
        const Choices choices{input_.decided, input_.others, newer};
        separate_clashes(merging_, free_handle(headers));
        decide_by_change(merging_, choices);
        unite_names(merging_);
        rename_anonymous(merging_, skeletons_);
        std::array<std::vector<uint32_t>, 3> runs;
        for (const Version version : kVersions)
            for (const Run &run : skeletons_[version].runs) runs[version].push_back(run.begin);
        decide_by_needs(merging_, choices, runs);
        tell_conflicts();
    }

    // In the order of ours' list; what that lacks behind what it stands behind in theirs.
    void tell_conflicts() {
        std::vector<std::tuple<uint32_t, uint32_t, const Item *>> found;
        uint32_t ours = 0;
        for (uint32_t place = 0; place < merging_.in_ours.size(); ++place) {
            if (merging_.in_ours[place] != kNowhere) ours = merging_.in_ours[place];
            const uint32_t i = merging_.item_at[kTheirs][place];
            if (i == kNowhere || merging_.items[i].reason.empty()) continue;
            if (!merging_.items[i].is_in(kOurs)) found.push_back({ours, place, &merging_.items[i]});
        }
        for (const Item &item : merging_.items)
            if (item.is_in(kOurs) && !item.reason.empty())
                found.push_back({item.place[kOurs], 0, &item});
        std::sort(found.begin(), found.end());
        for (const auto &[mine, theirs, item] : found) tell(*item);
    }

    void tell(const Item &item) {
        MergeConflict conflict;
        conflict.number = item.id;
        const std::string_view row = merging_.any_row(item);
        conflict.kind = record_type(row);
        conflict.layer = record_layer(row);
        if (item.is_in(kBase)) conflict.base = merging_.row(item, kBase);
        if (item.is_in(kOurs)) conflict.ours = merging_.row(item, kOurs);
        if (item.is_in(kTheirs)) conflict.theirs = merging_.row(item, kTheirs);
        if (item.rival != kNowhere) conflict.ours = merging_.row(merging_.items[item.rival], kOurs);
        conflict.reason = item.reason;
        merge_.conflicts.push_back(std::move(conflict));
    }

    // What of theirs could be taken.
    void count_others() {
        for (const Item &item : merging_.items) {
            if (!item.reason.empty() || item.is_same) continue;
            if (item.side == Side::ours && !item.is_composed) continue;
            const bool was = item.is_in(kOurs), is = item.is_kept();
            merge_.added += is && !was;
            merge_.modified += is && was;
            merge_.removed += was && !is;
            merge_.renumbered += item.number != 0;
        }
    }

    // ---- The rest

    std::optional<Side> or_others(std::optional<Side> decided) const {
        return decided ? decided : input_.others;
    }

    void merge_blocks(const Headers &headers, Side newer) {
        MergedHeader header =
            merge_header(headers, newer, or_others(input_.header), merging_.handles);
        std::ranges::move(header.conflicts, std::back_inserter(merge_.conflicts));
        uint64_t classes = keys(kOurs).classes.size();
        if (has_other_classes_) classes = merge_the_classes();
        merge_layout(classes);
        if (!merge_.conflicts.empty()) return;
        check_encodings(headers, header.bytes);
        blocks_.header = with_seed_above(with_names_there(header.bytes, headers, names_gone()),
                                         highest_handle());
    }

    // Tells of a name that a side had whether the result lacks it.
    std::function<bool(const Name &)> names_gone() const {
        std::unordered_set<Name, NameHash> had, has;
        for (const Item &item : merging_.items) {
            for (const Side side : {Side::ours, Side::theirs})
                if (item.is_in(side)) had.insert(name_of(merging_.row(item, side)));
            if (item.is_kept()) has.insert(name_of(merging_.result_row(item)));
        }
        return [had = std::move(had), has = std::move(has)](const Name &name) {
            return had.contains(name) && !has.contains(name);
        };
    }

    // A text of a side whose header is not the result's would be read as another one.
    void check_encodings(const Headers &headers, std::string_view header) const {
        const std::string result = encoding_of(header);
        const bool is_other[] = {encoding_of(headers[kOurs]) != result,
                                 encoding_of(headers[kTheirs]) != result};
        if (!is_other[0] && !is_other[1]) return;
        const auto is_ascii = [](std::string_view row) {
            return std::ranges::all_of(row, [](char c) { return static_cast<uint8_t>(c) < 0x80; });
        };
        for (const Item &item : merging_.items)
            if (item.is_kept() && !item.is_same &&
                (item.is_composed || is_other[static_cast<size_t>(item.side)]) &&
                !is_ascii(merging_.result_row(item)))
                throw host::Failed(host::kOther,
                                   host::say("%s: the sides have their texts in different "
                                             "encodings; save both in one version of the format",
                                             input_.name));
    }

    uint64_t merge_the_classes() {
        std::array<std::vector<std::string_view>, 3> records;
        for (const Version version : kVersions)
            for (const DrawingKey &key : keys(version).classes)
                records[version].push_back(rows_[key]);
        MergedClasses classes = merge_classes(records, or_others(input_.classes));
        std::ranges::move(classes.conflicts, std::back_inserter(merge_.conflicts));
        blocks_.classes = std::move(classes.records);
        return blocks_.classes->size();
    }

    void merge_layout(uint64_t classes) {
        auto chosen = choose_skeleton(skeletons_);
        if (const auto side = or_others(input_.layout); !chosen && side) chosen = version_of(*side);
        if (chosen) ordered_ = order_objects(merging_, skeletons_, *chosen);
        const bool fits =
            chosen && !ordered_.is_homeless && (!classes || skeletons_[*chosen].has_classes());
        if (fits) {
            blocks_.layout = write_skeleton(skeletons_[*chosen], classes, ordered_.counts);
            return;
        }
        MergeConflict conflict;
        conflict.what = MergeConflict::layout;
        conflict.reason = host::say("both changed the sections of the file");
        merge_.conflicts.push_back(std::move(conflict));
    }

    uint64_t highest_handle() const {
        uint64_t highest = 0;
        for (const auto &[version, place] : ordered_.objects) {
            const uint32_t i = merging_.item_at[version][place];
            const uint64_t number = i != kNowhere && merging_.items[i].number
                                        ? merging_.items[i].number
                                        : merging_.lists[version][place].id;
            if (number < kFirstNumber) highest = std::max(highest, number);
        }
        return highest;
    }

    const Input &input_;
    Merging merging_;
    Rows &rows_;
    std::array<Skeleton, 3> skeletons_;
    bool has_other_classes_ = false;
    Ordered ordered_;
    Blocks blocks_;
    Merge merge_;
};

} // namespace

Merge merge_versions(const Input &input, Rows &rows) {
    const auto &[base, ours, theirs] = input.versions;
    if (same_version(*theirs, *base) || same_version(*ours, *theirs))
        return whole(*ours, Side::ours);
    if (same_version(*ours, *base)) return whole(*theirs, Side::theirs);
    return Core(input, rows).run();
}

} // namespace dxf::merging
