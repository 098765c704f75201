// Verify: the parts of the check of a working copy, and what they tell.
#pragma once

#include "dxf/manifest.hpp"
#include "ids.hpp"
#include "refs.hpp"
#include "verbs.hpp"

#include <map>
#include <string>
#include <vector>

namespace host {

// Where something suffers. Either may be unknown.
struct Place {
    std::string path;
    Oid commit{};
};

// A reference, and where it stands.
struct Tip {
    std::string name;
    Oid id;
};

class Report {
  public:
    Report(Host &host, bool quick) : host(host), quick(quick) {}

    void problem(const Place &place, const std::string &what);
    void note(const std::string &what) { host.out.warn(what); } // what heals itself
    int finish() const;
    void stop_on_break() const { host::stop_on_break(host.notify); }

    Host &host;
    const bool quick;
    uint64_t commits = 0, trees = 0, files = 0, objects = 0, versions = 0, keys = 0, rows = 0;
    uint64_t records = 0;
    bool lost_objects = false; // what leans on them is no more to be asked

  private:
    uint64_t problems_ = 0;
};

// ---- References: what they say, whether it can be; then what they lead to is for the objects.
std::vector<Tip> check_references(Report &report, const WorkingCopy &copy);

// ---- Objects

// The keys that committed drawings name in one table, and for each who named it first.
struct TableKeys {
    std::vector<Place> manifests;
    std::vector<Oid> blobs; // of the manifests
    std::vector<std::pair<DrawingKey, uint32_t>> keys;
};
using Tables = std::map<Oid, TableKeys, OidLess>;

// Collects what manifests name. Versions of one drawing share most keys, at nearly the same place:
// only others are looked for.
class KeyCollector {
  public:
    void add(const Place &place, const Oid &blob, const dxf::Manifest &manifest);
    Tables take() { return std::move(tables_); }

  private:
    struct KeyHash {
        size_t operator()(const dxf::RawKey &key) const {
            return (key.tag * 0x9E3779B97F4A7C15u) ^ key.object;
        }
    };
    struct Known {
        std::unordered_set<dxf::RawKey, KeyHash> keys;
        std::vector<dxf::RawKey> last; // in the order of the manifest before
    };
    IdMap<Known> known_;
    Tables tables_;
};

// Reads everything that the tips lead to, then what else is in the store.
Tables check_objects(Report &report, const WorkingCopy &copy, const std::vector<Tip> &tips);

// ---- The others
void check_index(Report &report, const WorkingCopy &copy);
void check_tables(Report &report, const WorkingCopy &copy, const Tables &tables);
void check_records(Report &report, const WorkingCopy &copy);
void check_locks(Report &report, const WorkingCopy &copy);

// Packs and other files of git's that end in the SHA-1 of what stands before.
bool has_own_sum(const std::filesystem::path &path);

} // namespace host
