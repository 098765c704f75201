// Contents are compared by digests, so that no rows are held. An object that was edited stands, in
// its version, between the same neighbours as the one that base has. A polyline, or a block, counts
// as one: of those that are alike none gets a part of its neighbour.
#include "dxf/merge/align.hpp"

#include "dxf/reader.hpp"
#include "dxf/summary.hpp"

#include <algorithm>
#include <deque>
#include <span>

namespace dxf::merging {

namespace {

constexpr uint64_t kFirstAdded = uint64_t{1} << 63; // ids of those that base lacks

bool is_nameless(const Entry &entry) { return entry.key.object >= kFirstNumber; }

// Whether two versions have the same objects without handle, in the same order.
bool have_same(const std::vector<Entry> &a, const std::vector<Entry> &b) {
    const auto next = [](const std::vector<Entry> &list, size_t &at) {
        while (at < list.size() && !is_nameless(list[at])) ++at;
        return at < list.size();
    };
    for (size_t i = 0, j = 0;; ++i, ++j) {
        const bool more = next(a, i);
        if (more != next(b, j)) return false;
        if (!more) return true;
        if (a[i].key.object != b[j].key.object || a[i].key.tag != b[j].key.tag) return false;
    }
}

class Aligner {
  public:
    explicit Aligner(Merging &merging) : merging_(merging) {}

    void run() {
        read();
        for (size_t v = 0; v < 3; ++v)
            for (const Entry &entry : merging_.lists[v]) tokens_[v].push_back(token(entry));
        for (const Version version : {kOurs, kTheirs})
            align(version, whole(kBase), whole(version), Level::all);
        unite_added();
    }

  private:
    struct Content {
        uint32_t token, type, kind; // kind: with the name of a block or a table
    };
    using Key = std::pair<uint64_t, uint64_t>;
    struct Range {
        uint32_t begin, end;
    };
    // Records that come and go together: a polyline, or an insert, with its members, a block, a
    // table, or one record.
    struct Unit {
        Range range;
        uint32_t token, kind;
        bool has_units = false; // is a block, or a table
    };
    enum class Level : uint8_t { all, in_block, records };

    // All rows of objects without handle, in one walk.
    void read() {
        std::vector<DrawingKey> keys;
        for (const auto &list : merging_.lists)
            for (const Entry &entry : list)
                if (is_nameless(entry)) keys.push_back(entry.key);
        for (const char *type :
             {"VERTEX", "ATTRIB", "SEQEND", "BLOCK", "ENDBLK", "TABLE", "ENDTAB"})
            number(types_, std::string(type));
        merging_.rows.pass(std::move(keys), [this](const DrawingKey &key, std::string_view row) {
            DrawingDigest digest{};
            zDrawingDigestAddRow(&digest, 0, row.data(), row.size());
            const std::string type(record_type(row));
            const bool has_name = type == "BLOCK" || type == "TABLE";
            contents_[{key.tag, key.object}] = {
                number(digests_, Key(digest.high, digest.low)), number(types_, type),
                number(types_, has_name ? type + " " + first_name(row) : type)};
        });
        next_token_ = static_cast<uint32_t>(digests_.size());
    }

    template <class Map, class What> static uint32_t number(Map &numbers, What what) {
        return numbers.try_emplace(std::move(what), static_cast<uint32_t>(numbers.size()))
            .first->second;
    }

    static std::string first_name(std::string_view record) {
        for (Group group; take_group(record, group);)
            if (group.code == 2) return upper(group.value);
        return {};
    }

    // The types that are told apart, in the order of their numbers.
    enum Type : uint32_t { vertex, attrib, seqend, block, endblk, table, endtab };

    const Content &content(const Entry &entry) const {
        return contents_.at({entry.key.tag, entry.key.object});
    }

    // Of an object with a handle nothing is known.
    uint32_t type(Version version, uint32_t place) const {
        const Entry &entry = merging_.lists[version][place];
        return is_nameless(entry) ? content(entry).type : kNowhere;
    }

    uint32_t token(const Entry &entry) {
        if (is_nameless(entry)) return content(entry).token;
        const auto [at, is_new] = named_.try_emplace(entry.key.object, next_token_);
        next_token_ += is_new;
        return at->second;
    }

    // ---- Units

    Range whole(Version version) const {
        return {0, static_cast<uint32_t>(merging_.lists[version].size())};
    }

    std::vector<Unit> units(Version version, Range range, Level level) {
        std::vector<Unit> found;
        while (range.begin < range.end) {
            Unit unit{{range.begin, range.begin + 1}, 0, kNowhere};
            if (level == Level::all) close_block(version, range.end, unit);
            if (level != Level::records && !unit.has_units)
                while (unit.range.end < range.end && is_member(version, unit.range.end) &&
                       (unit.range.end == unit.range.begin + 1 ||
                        type(version, unit.range.end - 1) != seqend))
                    ++unit.range.end;
            const Entry &first = merging_.lists[version][unit.range.begin];
            if (is_nameless(first)) unit.kind = content(first).kind;
            unit.token = token_of(version, unit.range);
            range.begin = unit.range.end;
            found.push_back(unit);
        }
        return found;
    }

    bool is_member(Version version, uint32_t place) const { return type(version, place) <= seqend; }

    // To the end of the block, or table, that begins here.
    void close_block(Version version, uint32_t end, Unit &unit) const {
        const uint32_t first = type(version, unit.range.begin);
        if (first != block && first != table) return;
        const uint32_t last = first == block ? endblk : endtab;
        for (uint32_t place = unit.range.end; place < end; ++place) {
            const uint32_t here = type(version, place);
            if (here == first) return;
            if (here != last) continue;
            unit.has_units = true;
            unit.range.end = place + 1;
            return;
        }
    }

    uint32_t token_of(Version version, Range range) {
        const std::vector<uint32_t> &tokens = tokens_[version];
        if (range.end == range.begin + 1) return tokens[range.begin];
        DrawingDigest digest{};
        const uint32_t count = range.end - range.begin;
        zDrawingDigestAddRow(&digest, count, &tokens[range.begin], count * sizeof(uint32_t));
        const auto [at, is_new] = sums_.try_emplace({digest.high, digest.low}, next_token_);
        next_token_ += is_new;
        return at->second;
    }

    // ---- Alignment

    void align(Version version, Range base, Range side, Level level) {
        const std::vector<Unit> a = units(kBase, base, level), b = units(version, side, level);
        const auto tokens = [](const std::vector<Unit> &units) {
            std::vector<uint32_t> out;
            for (const Unit &unit : units) out.push_back(unit.token);
            return out;
        };
        const auto matches = match_lists(tokens(a), tokens(b));
        if (!matches)
            throw host::Failed(
                host::kOther,
                host::say("%s: too many objects without handle are alike", merging_.name));
        size_t i = 0, j = 0;
        for (const auto &[at, to] : *matches) {
            pair_between({&a[i], &a[at]}, version, {&b[j], &b[to]});
            for (uint32_t n = 0; n < b[to].range.end - b[to].range.begin; ++n)
                unite(version, a[at].range.begin + n, b[to].range.begin + n);
            i = at + 1, j = to + 1;
        }
        pair_between({a.data() + i, a.data() + a.size()}, version,
                     {b.data() + j, b.data() + b.size()});
    }

    void unite(Version version, uint32_t base, uint32_t side) {
        Entry &entry = merging_.lists[version][side];
        const Entry &former = merging_.lists[kBase][base];
        if (is_nameless(entry) && is_nameless(former)) entry.id = former.id;
    }

    // Edited ones: by their kind, in order; all others of the side are new.
    void pair_between(std::span<const Unit> base, Version version, std::span<const Unit> side) {
        std::map<uint32_t, std::deque<const Unit *>> left; // by kind
        for (const Unit &unit : base)
            if (unit.kind != kNowhere) left[unit.kind].push_back(&unit);
        for (const Unit &unit : side) {
            auto same = left.find(unit.kind);
            if (same == left.end() || same->second.empty()) {
                add(version, unit.range);
                continue;
            }
            const Unit &former = *same->second.front();
            same->second.pop_front();
            const bool are_records = former.range.end == former.range.begin + 1 &&
                                     unit.range.end == unit.range.begin + 1;
            if (are_records)
                unite(version, former.range.begin, unit.range.begin);
            else
                align(version, former.range, unit.range,
                      unit.has_units && former.has_units ? Level::in_block : Level::records);
        }
    }

    void add(Version version, Range range) {
        for (; range.begin < range.end; ++range.begin) {
            Entry &entry = merging_.lists[version][range.begin];
            if (is_nameless(entry)) entry.id = next_added_++;
        }
    }

    // Additions that follow the same object and have the same contents, all of them.
    void unite_added() {
        struct Added {
            std::vector<uint32_t> contents, places;
        };
        const auto list_added = [this](Version version) {
            std::map<uint64_t, Added> added; // by the id before them
            uint64_t before = 0;
            for (uint32_t place = 0; place < merging_.lists[version].size(); ++place) {
                const Entry &entry = merging_.lists[version][place];
                if (!is_nameless(entry) || entry.id < kFirstAdded) {
                    before = entry.id;
                    continue;
                }
                added[before].contents.push_back(content(entry).token);
                added[before].places.push_back(place);
            }
            return added;
        };
        auto ours = list_added(kOurs);
        for (const auto &[before, theirs] : list_added(kTheirs)) {
            const auto mine = ours.find(before);
            if (mine == ours.end() || mine->second.contents != theirs.contents) continue;
            for (size_t i = 0; i < theirs.places.size(); ++i)
                merging_.lists[kTheirs][theirs.places[i]].id =
                    merging_.lists[kOurs][mine->second.places[i]].id;
        }
    }

    Merging &merging_;
    std::array<std::vector<uint32_t>, 3> tokens_;
    std::map<Key, Content> contents_;        // by key
    std::map<Key, uint32_t> digests_, sums_; // tokens, by those of records and of units
    std::map<std::string, uint32_t> types_;
    std::unordered_map<uint64_t, uint32_t> named_; // tokens by handle
    uint32_t next_token_ = 0;
    uint64_t next_added_ = kFirstAdded;
};

} // namespace

void align_nameless(Merging &merging) {
    const auto &[base, ours, theirs] = merging.lists;
    if (!have_same(base, ours) || !have_same(base, theirs)) Aligner(merging).run();
}

} // namespace dxf::merging
