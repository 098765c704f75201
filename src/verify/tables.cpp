// Tables: each one's files, then every row, once, in the order of their keys, beside what all the
// committed versions of its drawing name; then each version's rows beside its digest.
#include "common/error_class.hpp"
#include "common/utf.hpp"
#include "objects/drawing/drawing.hpp"
#include "verify/files.hpp"
#include "verify/parts.hpp"
#include "verify/table_files.hpp"
#include "zev/repository.h"

#include <algorithm>
#include <cassert>

namespace zev::verify {

namespace {

constexpr uint64_t kPoll = 4096; // rows between two looks at the user's break
constexpr uint64_t kSummary = UINT64_MAX - 1;

using IterPtr = Owned<TableIter, zTableIterFree>;

bool key_before(const DrawingKey &a, const DrawingKey &b) {
    return a.tag != b.tag ? a.tag < b.tag : a.object < b.object;
}

// What of a row a version needs to know.
struct Row {
    DrawingDigest digest{}; // of the row; of the others of its drawing, if it is the summary
    bool found = false;
    bool tells = false; // it is a summary with a digest
};

class TableCheck {
  public:
    TableCheck(Report &report, const std::u16string &directory, const Oid &id,
               const TableKeys &keys)
        : report_(report), directory_(directory), id_(id), keys_(keys), name_("table " + hex(id)) {}

    void run() {
        report_.progress("verifying", name_);
        if (!exists(directory_)) {
            if (!report_.is_partial) tell_all(name_ + " is missing");
            return check_own();
        }
        const std::vector<TableFault> faults = look_at_files();
        for (const TableFault &fault : faults) damage(name_ + ": " + fault.text());
        if (!faults.empty()) return;
        const TablePtr table = open();
        if (table && !compare(table.get())) damage(name_ + ": " + to_utf8(zErrorDetail()));
        if (table && !report_.stopped()) check_versions(), check_own();
    }

  private:
    // What a compaction that was cut short had begun nothing names: the next opening takes it away.
    std::vector<TableFault> look_at_files() const {
        const bool sums = !report_.quick();
        std::vector<TableFault> faults = find_table_faults(directory_, sums);
        const bool only_rows = std::ranges::all_of(faults, &TableFault::is_of_rows);
        if (faults.empty() || !only_rows || !TablePtr(zTableByid(report_.repository, &id_)))
            return faults;
        std::erase_if(faults, [&](const TableFault &fault) {
            return !still_at_fault(directory_, fault, sums);
        });
        return faults;
    }

    TablePtr open() {
        TablePtr table(zTableLook(report_.repository, &id_));
        if (table) return table;
        const std::string why = to_utf8(zErrorDetail());
        if (zErrorClass() == error_class::kLocked || why.find("/LOCK: ") != why.npos) {
            report_.stop();
            return {};
        }
        return damage(name_ + ": " + why), TablePtr();
    }

    // The rows and the keys in step.
    bool compare(Table *table) {
        std::vector<std::pair<DrawingKey, uint32_t>> keys;
        keys.reserve(keys_.keys.size());
        for (uint32_t n = 0; n < keys_.keys.size(); ++n) keys.emplace_back(keys_.keys[n], n);
        const auto order = [](const auto &a, const auto &b) {
            return key_before(a.first, b.first);
        };
        if (!std::ranges::is_sorted(keys, order)) std::ranges::sort(keys, order);
        rows_.resize(keys.size());
        report_.counts.blocks += keys.size();
        const IterPtr iter(zTableIterNew(table));
        if (!iter) return false;
        auto wanted = keys.begin();
        for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get());
             zTableIterNext(iter.get())) {
            if (++report_.counts.rows % kPoll == 0 && report_.broken()) return true;
            DrawingKey key{};
            if (!take_key(iter.get(), key)) continue;
            while (wanted != keys.end() && key_before(wanted->first, key)) ++wanted;
            if (wanted != keys.end() && same_key(wanted->first, key))
                take_row(iter.get(), *wanted++);
        }
        // Rows that are written next must not take the place of those that older versions need. A
        // copy of a table has no counter until something is written.
        if (tag_ && highest_ > *tag_) damage(name_ + ": its counter is behind its rows");
        return true;
    }

    bool take_key(TableIter *iter, DrawingKey &key) {
        const void *data = nullptr;
        uint64_t length = 0;
        if (!zTableIterKey(&data, &length, iter) || length != sizeof(KeyBytes)) return false;
        key = key_from(static_cast<const uint8_t *>(data));
        if (!same_key(key, kTagKey)) {
            highest_ = std::max(highest_, key.tag);
        } else if (zTableIterValue(&data, &length, iter)) {
            tag_ = length == 8 ? load_u64(static_cast<const uint8_t *>(data)) : 0;
        }
        return true;
    }

    void take_row(TableIter *iter, const std::pair<DrawingKey, uint32_t> &wanted) {
        const auto &[key, number] = wanted;
        const void *data = nullptr;
        uint64_t length = 0;
        Row &row = rows_[number];
        row.found = true;
        if (!report_.knows_digests() || !zTableIterValue(&data, &length, iter)) return;
        if (keys_.counted[number])
            zDrawingDigestAddRow(&row.digest, key.object, data, length);
        else if (key.object == kSummary)
            row.tells = report_.digest_in(&row.digest, data, length);
    }

    // From version to version by what differs.
    void check_versions() {
        assert(rows_.size() == keys_.keys.size() && rows_.size() == keys_.counted.size());
        DrawingDigest sum{};
        uint64_t lost = 0;
        for (const Version &version : keys_.versions) {
            for (const uint32_t number : version.added) {
                lost += !rows_[number].found;
                if (keys_.counted[number]) zDrawingDigestAdd(&sum, &rows_[number].digest);
            }
            for (const uint32_t number : version.removed) {
                lost -= !rows_[number].found;
                if (keys_.counted[number]) zDrawingDigestSubtract(&sum, &rows_[number].digest);
            }
            if (lost && report_.is_partial) continue;
            if (lost)
                report_.damage(version.place, std::to_string(lost) + " of " +
                                                  std::to_string(version.count) +
                                                  " blocks are missing from " + name_);
            else if (!is_sum(version, sum))
                report_.damage(version.place,
                               name_ + " holds other blocks than were saved under its keys");
        }
    }

    // Rows that were made here, of changes that no server has. What a tree of the server's names
    // may lie here as the user's change, too: an older version that he went back to.
    void check_own() {
        const auto is_lost = [&](uint32_t number) { return rows_.empty() || !rows_[number].found; };
        for (const OwnVersion &own : keys_.own) {
            const auto lost = std::ranges::count_if(own.keys, is_lost);
            if (lost && !is_in_a_tree(report_.repository->handle.get(), own.file))
                report_.damage(own.place,
                               std::to_string(lost) + " of " + std::to_string(own.keys.size()) +
                                   " blocks that are not committed yet are missing from " + name_);
        }
    }

    bool is_sum(const Version &version, const DrawingDigest &sum) const {
        if (!version.summary || !rows_[*version.summary].tells) return true;
        const DrawingDigest &saved = rows_[*version.summary].digest;
        return saved.low == sum.low && saved.high == sum.high;
    }

    // On behalf of the newest version that is known to name the table, and of no other.
    // One that no drawing of a commit names was begun for an import that didn't come to its end:
    // it costs room.
    void damage(const std::string &what) {
        if (!keys_.versions.empty()) return report_.damage(keys_.versions.front().place, what);
        if (!keys_.own.empty()) return report_.damage(keys_.own.front().place, what);
        report_.left_over(what + "; no commit needs it");
    }
    void tell_all(const std::string &what) {
        for (const Version &version : keys_.versions) report_.damage(version.place, what);
    }

    Report &report_;
    const std::u16string directory_; // with a slash behind
    const Oid id_;
    const TableKeys &keys_;
    const std::string name_;
    std::vector<Row> rows_; // by the numbers of the keys
    std::optional<uint64_t> tag_;
    uint64_t highest_ = 0;
};

// The tables that are there, with those that no commit names.
std::vector<Oid> tables_on_disk(const std::u16string &root) {
    std::vector<Oid> found;
    std::vector<os::Name> upper, lower;
    os::read_dir(root.c_str(), &upper);
    for (const os::Name &name : upper) {
        lower.clear();
        if (name.text.size() != 2 || !os::read_dir((root + name.text).c_str(), &lower)) continue;
        for (const os::Name &rest : lower) {
            Oid id;
            if (parse_id(to_utf8(name.text + rest.text), &id)) found.push_back(id);
        }
    }
    return found;
}

} // namespace

void check_tables(Report &report, const Tables &tables) {
    if (!report.is_wanted(Z_VERIFY_TABLES)) return;
    git_repository *git = report.repository->handle.get();
    const std::u16string root = shared_directory(git) + u"tables/";
    const std::u16string old_root = own_directory(git) + u"tables/"; // of a worktree, once
    const auto check = [&](const Oid &id, const TableKeys &keys) {
        zwchar place[Z_PATH_MAX];
        if (report.broken() || !zTablePlace(place, report.repository, &id)) return;
        TableCheck(report, std::u16string(place) + u'/', id, keys).run();
    };
    for (const auto &[id, keys] : tables) check(id, keys);
    const TableKeys none;
    for (const std::u16string &place :
         root == old_root ? std::vector{root} : std::vector{root, old_root})
        for (const Oid &id : tables_on_disk(place))
            if (!tables.contains(id)) check(id, none);
}

} // namespace zev::verify
