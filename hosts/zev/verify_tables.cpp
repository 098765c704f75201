// Tables: each one's files, then every row, once, in the order of their keys, beside what all the
// committed versions of its drawing name.
#include "verify.hpp"

#include "bytes.hpp"
#include "dxf/rows.hpp"
#include "dxf/table_files.hpp"

#include <algorithm>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr uint64_t kPoll = 4096; // rows between two looks at the user's break
constexpr DrawingKey kTagKey = {UINT64_MAX, UINT64_MAX};

uint64_t big_endian(const void *data) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | static_cast<const uint8_t *>(data)[i];
    return value;
}

bool same(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}

class TableCheck {
  public:
    TableCheck(Report &report, const WorkingCopy &copy, const Oid &id, const TableKeys &keys)
        : report_(report), copy_(copy), id_(id), keys_(keys), name_("table " + hex(&id)) {}

    void run() {
        report_.stop_on_break();
        report_.host.out.progress("verifying " + name_);
        const fs::path directory(dxf::table_path(copy_.repository(), &id_));
        std::error_code ignored;
        if (!fs::exists(directory, ignored)) return tell_all(name_ + " is missing");
        std::vector<std::string> faults = look_at_files(directory);
        // What a compaction that was cut short had begun nothing names: the next opening takes it
        // away, and may begin another one.
        const bool only_rows = std::ranges::all_of(
            faults, [](const std::string &fault) { return fault.find(".ldb ") != fault.npos; });
        if (!faults.empty() && only_rows && OwnedTable(zTableByid(copy_.repository(), &id_))) {
            const std::vector<std::string> again = look_at_files(directory);
            std::erase_if(faults, [&again](const std::string &fault) {
                return std::ranges::find(again, fault) == again.end();
            });
        }
        for (const std::string &fault : faults) damaged(name_ + ": " + fault);
        if (!faults.empty()) return;
        OwnedTable table = open();
        if (table) compare(table.get());
    }

  private:
    std::vector<std::string> look_at_files(const fs::path &directory) const {
        std::vector<std::string> faults;
        dxf::check_table_files(directory, !report_.quick,
                               [&faults](const std::string &what) { faults.push_back(what); });
        return faults;
    }

    OwnedTable open() {
        OwnedTable table(zTableByid(copy_.repository(), &id_));
        if (table) return table;
        const std::string why = narrow(zErrorDetail());
        const bool held = zErrorClass() == kLocked || why.find("/LOCK: ") != why.npos;
        if (held) fail_raised(name_);
        return damaged(name_ + ": " + why), OwnedTable();
    }

    // The rows and the keys in step.
    void compare(Table *table) {
        std::vector<std::pair<DrawingKey, uint32_t>> keys = keys_.keys;
        std::ranges::sort(
            keys, [](const auto &a, const auto &b) { return dxf::before(a.first, b.first); });
        report_.keys += keys.size();
        Owned<TableIter, zTableIterFree> iter(check(zTableIterNew(table)));
        auto wanted = keys.begin();
        for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get());
             zTableIterNext(iter.get())) {
            if (++report_.rows % kPoll == 0) report_.stop_on_break();
            DrawingKey key{};
            if (!key_at(iter.get(), key)) continue;
            for (; wanted != keys.end() && dxf::before(wanted->first, key); ++wanted)
                missing_.push_back(wanted->first);
            wanted += wanted != keys.end() && same(wanted->first, key);
        }
        for (; wanted != keys.end(); ++wanted) missing_.push_back(wanted->first);
        check_tag();
        if (!missing_.empty()) tell_missing();
    }

    bool key_at(TableIter *iter, DrawingKey &key) {
        const void *data = nullptr;
        uint64_t length = 0;
        check(zTableIterKey(&data, &length, iter));
        if (length != 16) return false;
        key = {big_endian(data), big_endian(static_cast<const char *>(data) + 8)};
        if (same(key, kTagKey)) {
            check(zTableIterValue(&data, &length, iter));
            tag_ = length == 8 ? big_endian(data) : 0;
        } else {
            highest_ = std::max(highest_, key.tag);
        }
        return true;
    }

    // Rows that are written next must not take the place of those that older versions need. A copy
    // of a table has no counter until something is written.
    void check_tag() {
        if (tag_ && highest_ > *tag_) damaged(name_ + ": its counter is behind its rows");
    }

    // On behalf of the newest version that is known to name the table, and of no other.
    // One that no drawing of a commit names was begun for an import that didn't come to its end:
    // it costs room.
    void damaged(const std::string &what) {
        if (keys_.manifests.empty()) return report_.note(what + "; no commit needs it");
        report_.problem(keys_.manifests.front(), what);
    }
    void tell_all(const std::string &what) {
        for (const Place &place : keys_.manifests) report_.problem(place, what);
    }

    // Manifests are read again, now that it matters which of them name what is missing.
    void tell_missing() {
        const OwnedOdb odb(check(zOdbOpen(copy_.repository())));
        Bytes bytes;
        for (size_t i = 0; i < keys_.manifests.size(); ++i) {
            read_object(odb.get(), &keys_.blobs[i], bytes);
            const auto manifest = dxf::Manifest::read(bytes.data);
            if (!manifest) continue;
            KeyCollector one;
            one.add(keys_.manifests[i], keys_.blobs[i], *manifest);
            const Tables tables = one.take();
            const auto &keys = tables.begin()->second.keys;
            const auto lost = std::ranges::count_if(keys, [this](const auto &key) {
                return std::ranges::binary_search(missing_, key.first, dxf::before);
            });
            if (lost)
                report_.problem(keys_.manifests[i], std::to_string(lost) + " of " +
                                                        std::to_string(keys.size()) +
                                                        " blocks are missing from " + name_);
        }
    }

    Report &report_;
    const WorkingCopy &copy_;
    const Oid id_;
    const TableKeys &keys_;
    const std::string name_;
    std::vector<DrawingKey> missing_;
    std::optional<uint64_t> tag_;
    uint64_t highest_ = 0;
};

// The tables that are there, with those that no commit names.
std::vector<Oid> tables_on_disk(const WorkingCopy &copy) {
    std::vector<Oid> found;
    std::error_code ignored;
    const fs::path root = own_directory(copy) / "tables";
    for (const auto &upper : fs::directory_iterator(root, ignored))
        for (const auto &lower : fs::directory_iterator(upper.path(), ignored)) {
            Oid id;
            const std::string digits =
                upper.path().filename().string() + lower.path().filename().string();
            if (digits.size() == 40 && zOidFromStr(&id, wide(digits).c_str())) found.push_back(id);
        }
    return found;
}

} // namespace

void check_tables(Report &report, const WorkingCopy &copy, const Tables &tables) {
    for (const auto &[id, keys] : tables) TableCheck(report, copy, id, keys).run();
    const TableKeys none;
    for (const Oid &id : tables_on_disk(copy))
        if (!tables.contains(id)) TableCheck(report, copy, id, none).run();
}

} // namespace host
