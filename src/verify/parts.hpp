// The parts of a verification, in their order. Each does nothing once the report is stopped. All
// may throw.
#pragma once

#include "common/oid.hpp"
#include "verify/report.hpp"
#include "zev/manifest.h"

#include <array>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zev::verify {

// A reference, and where it stands.
struct Tip {
    std::string name;
    Oid id;
};

// A version of a drawing, by the numbers of the keys by which it differs from the one before.
struct Version {
    Place place;
    size_t count = 0;                // of its keys
    std::optional<uint32_t> summary; // number of that key
    std::vector<uint32_t> added, removed;
};

// A drawing as it is staged, or on the disk, and in no commit; the numbers of the keys that no
// committed version has.
struct OwnVersion {
    Place place;
    Oid file{};
    std::vector<uint32_t> keys;
};

// What committed drawings name in one table; of a copy that follows a server also what others do.
struct TableKeys {
    std::vector<Version> versions;
    std::vector<OwnVersion> own;
    std::vector<DrawingKey> keys; // by number
    std::vector<uint8_t> counted; // by number: the digest has a part in its row
};
using Tables = std::map<Oid, TableKeys, IdLess>;

// Collects what manifests name. Versions of one drawing share most keys, at nearly the same place:
// only others are looked for.
class KeyCollector {
  public:
    void add(const Place &place, const Manifest &manifest);
    void add_own(const Place &place, const Oid &file, const Manifest &manifest); // after all others
    Tables take() { return std::move(tables_); }

  private:
    // As it stands in the file.
    struct RawKey {
        uint64_t tag, object;
        bool operator==(const RawKey &) const = default;
    };
    struct KeyHash {
        size_t operator()(const RawKey &key) const {
            return (key.tag * 0x9E3779B97F4A7C15u) ^ key.object;
        }
    };
    struct Known {
        std::unordered_map<RawKey, uint32_t, KeyHash> numbers;
        std::vector<uint32_t> stamps;       // by number: the last version that has it, 0 for none
        std::vector<RawKey> last;           // of the version before, in its order
        std::vector<uint32_t> last_numbers; // of these
        std::optional<size_t> committed;    // keys of versions in commits, once others come
    };
    static size_t list_keys(const Manifest &manifest, std::vector<RawKey> &keys);
    static uint32_t number_of(Known &known, TableKeys &table, const RawKey &key, bool counted);
    static void difference(Known &known, const std::vector<uint32_t> &numbers, Version &version,
                           uint32_t stamp);

    std::unordered_map<Oid, Known, IdHash, IdEqual> known_;
    Tables tables_;
};

// Whether a tree of the store names a file: the server's do, whatever of its history is here.
bool is_in_a_tree(git_repository *repository, const Oid &file);

// What references say, and whether it can be. What they lead to is for the objects.
std::vector<Tip> check_references(Report &report);
// Reads everything that the tips lead to, then what else is in the store.
Tables check_objects(Report &report, const std::vector<Tip> &tips);
void check_index(Report &report);
void check_tables(Report &report, const Tables &tables);
void check_records(Report &report);
void check_locks(Report &report);

} // namespace zev::verify
