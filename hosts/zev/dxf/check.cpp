// Every row that differs goes into the sum of its side, but for the summaries: these tell the sums.
#include "dxf/check.hpp"

#include "dxf/rows.hpp"
#include "dxf/summary.hpp"

#include <algorithm>

namespace dxf {

namespace {

bool is_none(const RawKey &key) { return !key.tag && !key.object; }

} // namespace

std::vector<OtherKey> other_blocks(const Manifest &from, const Manifest &to) {
    std::vector<OtherKey> keys;
    const auto add = [&keys](const RawKey &key, bool is_newer) {
        if (!is_none(key)) keys.push_back({turned(key), is_newer});
    };
    const auto compare = [&add](const RawKey &old, const RawKey &now) {
        if (old != now) add(old, false), add(now, true);
    };
    compare(from.header, to.header);
    compare(from.summary, to.summary);
    compare(from.layout, to.layout);
    for (size_t i = 0; i < std::max(from.classes.size(), to.classes.size()); ++i)
        compare(i < from.classes.size() ? from.classes[i] : RawKey{},
                i < to.classes.size() ? to.classes[i] : RawKey{});
    return keys;
}

DigestCheck::DigestCheck(const Manifest &from, const Manifest &to)
    : summaries_{turned(from.summary), turned(to.summary)} {
    if (is_none(from.summary)) imported_[0].emplace(); // of no drawing
}

void DigestCheck::take(const OtherKey &key, std::string_view row) {
    const size_t side = key.is_newer;
    if (zDrawingKeyEqual(&key.key, &summaries_[side]))
        imported_[side] = digest_in(row);
    else
        zDrawingDigestAddRow(&sums_[side], key.key.object, row.data(), row.size());
}

bool DigestCheck::is_mixed() const {
    if (!imported_[0] || !imported_[1]) return false;
    DrawingDigest read = sums_[1], told = *imported_[1];
    zDrawingDigestSubtract(&read, &sums_[0]);
    zDrawingDigestSubtract(&told, &*imported_[0]);
    return !same(read, told);
}

bool is_mixed(Repository *repository, const Manifest *from, const Manifest &to,
              const Notify *notify) {
    const Manifest none;
    if (!from || !zOidIsEqual(&from->table, &to.table)) from = &none;
    if (!zPathDirExists(table_path(repository, &to.table).c_str())) return false;
    std::vector<OtherKey> keys = other_blocks(*from, to);
    for (const ObjectChange &change : compare_objects(from->objects, to.objects)) {
        if (change.kind != ObjectChange::added) keys.push_back({change.from, false});
        if (change.kind != ObjectChange::removed) keys.push_back({change.to, true});
    }
    std::sort(keys.begin(), keys.end(),
              [](const OtherKey &a, const OtherKey &b) { return before(a.key, b.key); });
    std::vector<DrawingKey> wanted;
    for (const OtherKey &key : keys) wanted.push_back(key.key);
    DigestCheck check(*from, to);
    const host::OwnedTable table = look_at_table(repository, &to.table, "");
    const uint64_t found =
        read_rows(table.get(), wanted, notify,
                  [&](size_t place, std::string_view row) { check.take(keys[place], row); });
    return found == keys.size() && check.is_mixed();
}

} // namespace dxf
