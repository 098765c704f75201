// Reading by path. What holds: what was ever named by a path is shown to nobody who may read none
// of its paths, also where the index can't be had; and nobody gives it a path of his own.
#include "network/rest/repos/paths_of.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/path_index.hpp"
#include "objects/work/gitkeep.hpp"
#include "rms/privilege.hpp"
#include "zev/oid.h"
#include "zev/str.h"

#include <optional>
#include <string>
#include <unordered_map>

namespace zev::rest {

namespace {

constexpr Oid kEmptyFile{{0xE6, 0x9D, 0xE2, 0x9B, 0xB2, 0xD1, 0xD6, 0x43, 0x4B, 0x8B,
                          0x29, 0xAE, 0x77, 0x5A, 0xD8, 0xC2, 0xE4, 0x8C, 0x53, 0x91}};

bool is_keep_file(std::string_view path) {
    const std::string_view name = path.substr(path.rfind('/') + 1);
    return name.size() == kKeepFile.size() &&
           zStrcasesameA(std::string(name).c_str(), kKeepFile.data());
}

class Reader {
  public:
    // Who may read every path needs no index. Somebody may be asked for another right in its place.
    explicit Reader(Call &call, int32_t right = Z_PRIVILEGE_READ)
        : right_(right), rights_(rights(call)) {
        if (rights_.everywhere(right)) reads_all_ = true;
        if (reads_all_) return;
        lease_ = PathIndex::open(call.repository.get());
        if (lease_.index && !lease_.index->refresh(call.repository.get())) lease_.index = nullptr;
        failed_ = !lease_.index;
    }
    // The index, or a drawing that is here, can't be read: no answer since then means anything.
    bool has_failed() const { return failed_; }

    // Unnamed, or named by a path that may be read.
    bool may_read(PathIndex::Kind kind, const Oid &id) {
        bool named = false, granted = false;
        if (reads_all_.value_or(false)) return true;
        if (!lease_.index) return false;
        if (zOidIsEqual(&id, &kEmptyFile)) return true;
        std::string key(1, static_cast<char>(kind));
        key.append(reinterpret_cast<const char *>(id.id), sizeof id.id);
        if (const auto known = known_.find(key); known != known_.end()) return known->second;
        const bool looked = lease_.index->each_path(kind, id, [&](std::string_view path) {
            named = true;
            return granted = is_readable(path);
        });
        failed_ = failed_ || !looked;
        return known_[std::move(key)] = looked && (granted || !named);
    }

    bool may_read_all() {
        if (reads_all_) return *reads_all_;
        if (!lease_.index) return false;
        bool refused = false;
        const bool looked = lease_.index->each_path(
            [&](std::string_view path) { return refused = !is_readable(path); });
        failed_ = failed_ || !looked;
        return *(reads_all_ = looked && !refused);
    }

    // A drawing that is not here yet could open any table once it has come.
    bool may_name(Repository *repository, const NamedFile &file) {
        if (!may_read(PathIndex::Kind::file, file.id)) return false;
        if (reads_all_.value_or(false)) return true;
        std::optional<Oid> table;
        if (!is_drawing_name(to_utf8(file.path))) return true;
        const int code = find_table(repository, file.id, table);
        if (code < 0) {
            failed_ = code != GIT_ENOTFOUND; // what isn't here yet may be any drawing
            return fail_git(code);
        }
        return !table || may_read(PathIndex::Kind::table, *table);
    }

  private:
    bool is_readable(std::string_view path) {
        return is_keep_file(path) || (rights_.at(to_wide(path)) & right_);
    }

    const int32_t right_;
    Privileges &rights_;
    PathIndex::Lease lease_{};
    std::optional<bool> reads_all_;               // once it was asked for
    std::unordered_map<std::string, bool> known_; // by kind and id: one may come many times
    bool failed_ = false;
};

HttpResponse *fail_inside(Call &call, Here at = {}) {
    return log_raised(kError, at, kFacilitySrv),
           refuse(call, 500, u"srv.eInternalError", nullptr, at);
}

template <class F> HttpResponse *admit(Call &call, F ask, int32_t right = Z_PRIVILEGE_READ) {
    if (!call.guarded) return nullptr;
    Reader reader(call, right);
    if (ask(reader)) return nullptr;
    return reader.has_failed() ? fail_inside(call) : refuse(call, 403);
}

} // namespace

HttpResponse *admit_blob(Call &call, const Oid &id) {
    return admit(call, [&](Reader &reader) { return reader.may_read(PathIndex::Kind::file, id); });
}

HttpResponse *admit_table(Call &call, const Oid &id) {
    return admit(call, [&](Reader &reader) { return reader.may_read(PathIndex::Kind::table, id); });
}

HttpResponse *admit_rows(Call &call, const Oid &id) {
    const auto ask = [&](Reader &writer) { return writer.may_read(PathIndex::Kind::table, id); };
    return admit(call, ask, Z_PRIVILEGE_WRITE);
}

HttpResponse *admit_entries(Call &call, Json *entries) {
    return admit(call, [&](Reader &reader) {
        const uint64_t count = zJsonArraySize(entries);
        for (uint64_t n = 0; n < count; ++n) {
            const PackEntry entry = pack_entry(zJsonArrayAt(entries, n));
            if (!entry.is_sound) continue; // it is refused for that
            const bool granted = entry.recursive ? reader.may_read_all()
                                                 : reader.may_read(PathIndex::Kind::file, entry.id);
            if (!granted) return false;
        }
        return true;
    });
}

// The caller is told of the path that he chose, never of those that are kept from him.
HttpResponse *admit_names(Call &call, std::span<const NamedFile> files) {
    if (files.empty() || !call.guarded) return nullptr;
    Reader reader(call);
    for (const NamedFile &file : files) {
        if (reader.may_name(call.repository.get(), file)) continue;
        if (reader.has_failed()) return fail_inside(call);
        return refuse(call, 403, u"srv.eHiddenContent_s", file.path.c_str());
    }
    return nullptr;
}

} // namespace zev::rest
