// Bytes that a version has keep their key there, ours before theirs; all others become rows without
// a tag. The summary is that of ours, brought forward by the rows that changed.
#include "dxf/merge/result.hpp"

#include "dxf/fields.hpp"
#include "dxf/layout.hpp"
#include "dxf/numbers.hpp"
#include "dxf/reader.hpp"
#include "dxf/summary.hpp"

#include <algorithm>
#include <unordered_set>

namespace dxf::merging {

namespace {

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}
bool same_keys(const std::vector<DrawingKey> &a, const std::vector<DrawingKey> &b) {
    return std::ranges::equal(a, b, same_key);
}

// What a summary tells, but for what is in the header.
struct Sum {
    Tally tally;
    DrawingDigest digest{};

    void add_block(uint64_t number, std::string_view row) {
        zDrawingDigestAddRow(&digest, number, row.data(), row.size());
    }
    void subtract_block(uint64_t number, std::string_view row) {
        DrawingDigest one{};
        zDrawingDigestAddRow(&one, number, row.data(), row.size());
        zDrawingDigestSubtract(&digest, &one);
    }
    // Of a section that is not known no layers are counted.
    void add(uint64_t number, std::string_view row, bool is_known) {
        tally.add(record_type(row), is_known ? record_layer(row) : std::string_view(), 1);
        add_block(number, row);
    }
    void subtract(uint64_t number, std::string_view row, bool is_known) {
        tally.add(record_type(row), is_known ? record_layer(row) : std::string_view(), -1);
        subtract_block(number, row);
    }
};

class Result {
  public:
    Result(Merging &merging, const std::array<Skeleton, 3> &skeletons, Merge &merge)
        : merging_(merging), skeletons_(skeletons), merge_(merge) {
        for (const Version version : {kOurs, kTheirs})
            run_at_[version] = skeletons[version].run_at();
    }

    void run(const Ordered &ordered, Blocks &blocks) {
        start_sum();
        for (const Item &item : merging_.items) take_out(item);
        list_numbers(ordered);
        merge_.objects.reserve(ordered.objects.size());
        for (const Ordered::Place &place : ordered.objects) put(place);
        put_header(blocks.header);
        put_classes(blocks.classes);
        put_layout(blocks.layout);
        if (is_version(kOurs, blocks.layout)) return become(kOurs);
        if (is_version(kTheirs, blocks.layout)) return become(kTheirs);
        put_summary(blocks.header);
    }

  private:
    const Keys &keys(Version version) const { return *merging_.keys[version]; }

    bool is_known(Version version, uint32_t place) const {
        return skeletons_[version].runs[run_at_[version][place]].is_known;
    }

    // Without a summary of ours that tells everything, all rows are counted in the end.
    void start_sum() {
        const std::string_view summary = merging_.rows[keys(kOurs).summary];
        const auto digest = digest_in(summary);
        auto tally = tally_in(summary);
        const auto count = static_cast<int64_t>(keys(kOurs).objects.size());
        if (!digest || !tally || tally->objects != count) return;
        sum_ = {std::move(*tally), *digest};
    }

    // ---- Objects

    void take_out(const Item &item) {
        if (!item.is_in(kOurs)) return;
        merge_.removed += !item.is_kept();
        if (sum_)
            sum_->subtract(merging_.entry(item, kOurs).key.object, merging_.row(item, kOurs),
                           is_known(kOurs, item.place[kOurs]));
    }

    // Numbers of objects without handle, which have to be told apart.
    void list_numbers(const Ordered &ordered) {
        for (const auto &list : merging_.lists)
            for (const Entry &entry : list)
                if (entry.key.object >= kFirstNumber)
                    next_number_ = std::max(next_number_, entry.key.object + 1);
        if (next_number_ == kFirstNumber) return;
        for (const auto &[version, place] : ordered.objects) {
            const uint32_t i = merging_.item_at[version][place];
            const bool is_ours = i == kNowhere || has_row_of(merging_.items[i], kOurs);
            const Version holder = is_ours ? kOurs : kTheirs;
            const DrawingKey &key = i == kNowhere ? merging_.lists[version][place].key
                                                  : merging_.entry(merging_.items[i], holder).key;
            if (is_ours && key.object >= kFirstNumber) numbers_.insert(key.object);
        }
    }

    static bool has_row_of(const Item &item, Version version) {
        return item.is_in(version) && (item.is_same || version_of(item.side) == version);
    }

    void put(const Ordered::Place &place) {
        const uint32_t i = merging_.item_at[place.version][place.place];
        if (i == kNowhere) {
            merge_.objects.push_back(merging_.lists[place.version][place.place].key);
            return;
        }
        const Item &item = merging_.items[i];
        const auto changed = changed_row(item);
        const std::string_view row =
            changed ? std::string_view(*changed) : merging_.row(item, item.side);
        const DrawingKey key = key_of(item, row, !changed);
        merge_.added += !item.is_in(kOurs);
        merge_.modified += item.is_in(kOurs) && row != merging_.row(item, kOurs);
        merge_.renumbered += item.number != 0;
        if (sum_) sum_->add(key.object, row, is_known(place.version, place.place));
        if (!key.tag) merge_.rows.push_back({key.object, std::string(row)});
        merge_.objects.push_back(key);
    }

    std::optional<std::string> changed_row(const Item &item) const {
        if (item.side == Side::ours || item.is_same || item.is_composed) return item.row;
        auto named = with_names(merging_.result_row(item), merging_.names);
        if (!named) named = item.row;
        if (merging_.handles.empty()) return named;
        const std::string_view row = named ? std::string_view(*named) : merging_.result_row(item);
        auto changed = with_handles(row, merging_.handles, item.number);
        return changed ? std::move(changed) : std::move(named);
    }

    // A key that has the row, or one without a tag.
    DrawingKey key_of(const Item &item, std::string_view row, bool is_as_it_was) {
        if (item.is_in(kOurs) && merging_.row(item, kOurs) == row)
            return merging_.entry(item, kOurs).key;
        const DrawingKey theirs = merging_.entry(item, item.is_in(kTheirs) ? kTheirs : kOurs).key;
        const bool has_handle = theirs.object < kFirstNumber;
        if (!has_handle) return key_of_number(theirs, is_as_it_was || same_row(theirs, row));
        if (is_as_it_was || same_row(theirs, row)) return theirs;
        return {0, item.number ? item.number : theirs.object};
    }

    bool same_row(const DrawingKey &key, std::string_view row) const {
        return merging_.rows[key] == row;
    }

    // Numbers that ours has as well, for another object, can't be told apart.
    DrawingKey key_of_number(const DrawingKey &key, bool is_its_row) {
        if (numbers_.insert(key.object).second) return is_its_row ? key : DrawingKey{0, key.object};
        return {0, next_number_++};
    }

    // ---- Blocks

    // The key of bytes that ours or theirs may have for the same block.
    DrawingKey block_key(const DrawingKey &ours, const DrawingKey &theirs, uint64_t number,
                         std::string_view bytes) {
        if (ours.object == number && merging_.rows[ours] == bytes) return ours;
        if (theirs.object == number && merging_.rows[theirs] == bytes) return theirs;
        merge_.rows.push_back({number, std::string(bytes)});
        return {0, number};
    }

    void exchange(uint64_t number, const DrawingKey &former, std::string_view bytes) {
        if (!sum_) return;
        if (former.tag || former.object) sum_->subtract_block(number, merging_.rows[former]);
        sum_->add_block(number, bytes);
    }

    void put_header(const std::string &bytes) {
        merge_.header = block_key(keys(kOurs).header, keys(kTheirs).header, kHeaderNumber, bytes);
        exchange(kHeaderNumber, keys(kOurs).header, bytes);
    }

    void put_classes(const std::optional<std::vector<std::string>> &records) {
        const std::vector<DrawingKey> &ours = keys(kOurs).classes, &theirs = keys(kTheirs).classes;
        merge_.classes = ours;
        if (!records) return;
        merge_.classes.clear();
        const auto at = [](const std::vector<DrawingKey> &list, size_t i) {
            return i < list.size() ? list[i] : DrawingKey{};
        };
        for (size_t i = 0; i < records->size(); ++i) {
            const std::string &bytes = (*records)[i];
            merge_.classes.push_back(block_key(at(ours, i), at(theirs, i), class_number(i), bytes));
            if (sum_) sum_->add_block(class_number(i), bytes);
        }
        for (const DrawingKey &key : ours)
            if (sum_) sum_->subtract_block(key.object, merging_.rows[key]);
    }

    void put_layout(const std::string &bytes) {
        merge_.layout = block_key(keys(kOurs).layout, keys(kTheirs).layout, kLayoutNumber, bytes);
        exchange(kLayoutNumber, keys(kOurs).layout, bytes);
    }

    // The summary follows from the rest, and what a layout tells of the imported file besides.
    bool is_version(Version version, std::string_view layout) const {
        return same_keys(merge_.objects, keys(version).objects) &&
               same_keys(merge_.classes, keys(version).classes) &&
               same_key(merge_.header, keys(version).header) &&
               layout == without_differences(merging_.rows[keys(version).layout]);
    }

    void become(Version version) {
        (version == kOurs ? merge_.is_ours : merge_.is_theirs) = true;
        merge_.layout = keys(version).layout;
        merge_.summary = keys(version).summary;
        merge_.rows.clear();
    }

    void put_summary(const std::string &header) {
        if (!sum_) count_all();
        const std::string text = "0\nSECTION\n2\nHEADER\n" + header + "0\nENDSEC\n0\nEOF\n";
        const host::OwnedJson json = summarize(sum_->tally, split(text, merging_.name));
        put_digest(json.get(), sum_->digest);
        const std::string bytes = summary_text(json.get());
        merge_.summary =
            block_key(keys(kOurs).summary, keys(kTheirs).summary, kSummaryNumber, bytes);
    }

    // One more walk over the table, by all rows of the result.
    void count_all() {
        sum_.emplace();
        std::vector<DrawingKey> stored;
        std::unordered_set<uint64_t> unknown; // numbers in sections that are not known
        list_unknown(unknown);
        const auto take = [&](const DrawingKey &key, std::string_view row) {
            if (key.object < 2 * kFirstNumber) // else a block, or a class
                sum_->add(key.object, row, !unknown.contains(key.object));
            else
                sum_->add_block(key.object, row);
        };
        const auto list = [&](const DrawingKey &key) {
            if (key.tag) stored.push_back(key);
        };
        for (const DrawingKey &key : merge_.objects) list(key);
        for (const DrawingKey &key : merge_.classes) list(key);
        list(merge_.header), list(merge_.layout);
        for (const Merge::NewRow &row : merge_.rows) take({0, row.object}, row.value);
        merging_.rows.pass(std::move(stored), take);
    }

    void list_unknown(std::unordered_set<uint64_t> &unknown) const {
        for (const Version version : {kOurs, kTheirs})
            for (const Run &run : skeletons_[version].runs)
                for (uint32_t i = 0; !run.is_known && i < run.count; ++i)
                    unknown.insert(merging_.lists[version][run.begin + i].key.object);
    }

    Merging &merging_;
    const std::array<Skeleton, 3> &skeletons_;
    Merge &merge_;
    std::array<std::vector<uint32_t>, 3> run_at_;
    std::optional<Sum> sum_;
    std::unordered_set<uint64_t> numbers_;
    uint64_t next_number_ = kFirstNumber;
};

} // namespace

void build_result(Merging &merging, const std::array<Skeleton, 3> &skeletons,
                  const Ordered &ordered, Blocks blocks, Merge &merge) {
    Result(merging, skeletons, merge).run(ordered, blocks);
}

} // namespace dxf::merging
