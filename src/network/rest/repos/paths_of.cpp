// Reading by path. What holds: what was ever named by a path is shown to nobody who may read none
// of its paths, also where the index can't be had.
#include "network/rest/repos/paths_of.hpp"

#include "common/utf.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/path_index.hpp"
#include "rms/privilege.hpp"

#include <optional>

namespace zev::rest {

namespace {

class Reader {
  public:
    explicit Reader(Call &call)
        : rights_(rights(call)), lease_(PathIndex::open(call.repository.get())) {
        if (lease_.index && !lease_.index->refresh(call.repository.get())) lease_.index = nullptr;
    }

    // Unnamed, or named by a path that may be read.
    bool may_read(PathIndex::Kind kind, const Oid &id) {
        bool named = false, granted = false;
        if (!lease_.index) return false;
        const bool looked = lease_.index->each_path(kind, id, [&](std::string_view path) {
            named = true;
            return granted = is_readable(path);
        });
        return looked && (granted || !named);
    }

    bool may_read_all() {
        if (!lease_.index) return false;
        if (reads_all_) return *reads_all_;
        bool refused = false;
        const bool looked = lease_.index->each_path(
            [&](std::string_view path) { return refused = !is_readable(path); });
        return *(reads_all_ = looked && !refused);
    }

  private:
    bool is_readable(std::string_view path) { return rights_.at(to_wide(path)) & Z_PRIVILEGE_READ; }

    Privileges &rights_;
    PathIndex::Lease lease_;
    std::optional<bool> reads_all_; // once it was asked for
};

} // namespace

bool may_read_blob(Call &call, const Oid &id) {
    return Reader(call).may_read(PathIndex::Kind::file, id);
}

bool may_read_table(Call &call, const Oid &id) {
    return Reader(call).may_read(PathIndex::Kind::table, id);
}

bool may_read_entries(Call &call, Json *entries) {
    Reader reader(call);
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        const PackEntry entry = pack_entry(zJsonArrayAt(entries, n));
        if (!entry.is_sound) continue; // it is refused for that
        const bool granted = entry.recursive ? reader.may_read_all()
                                             : reader.may_read(PathIndex::Kind::file, entry.id);
        if (!granted) return false;
    }
    return true;
}

} // namespace zev::rest
