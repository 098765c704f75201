// gc: what nobody needs goes, and what is left takes less room.
//
// A row of the tag that the table stamps with may be written over under its key at any time: it
// stays while anything names the table. Others are dropped by two looks: an earlier gc has noted
// that nothing named them, at least so many days ago, and nothing names them now. So neither a
// drawing that was moved while files were looked at loses rows, nor an import whose manifest is
// still to be written. The notes, "zev-gc" in the Git directory, numbers big-endian, written aside
// and renamed:
//
//   0   8  "ZEVGC", two zero bytes, 1
//   then, 44 bytes each:
//   0  20  the table
//  20  16  the row's key, tag and object; zero for the table itself, which no drawing names
//  36   8  when it was seen so first, in seconds since 1970
//
// Without notes, or with damaged ones, the days begin anew.
#include "dxf/manifest.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "row_names.hpp"
#include "scratch.hpp"
#include "verb.hpp"
#include "when.hpp"

#include <fstream>
#include <sys/stat.h>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    bool dry_run = false;
    int32_t days = 30;
};

void declare(Command &verb, Options &options) {
    verb.description("Make a working copy smaller: pack it, and drop what nothing names");
    verb.footer(
        "Packs what was committed, puts the tables of drawings in order, and drops rows that for\n"
        "30 days no commit, no file and nothing in the trash has named; each is noted by one gc\n"
        "and dropped by a later one. A copy of a server's project keeps all its rows.\n"
        "Examples:\n  zev gc --dry-run\n  zev gc");
    verb.add_flag("--dry-run", options.dry_run, "Only tell what would go");
    verb.add_option("--days", options.days, "How long nothing has named what is dropped")
        ->type_name("DAYS")
        ->nonnegative();
}

constexpr uint64_t kPoll = 4096;         // rows between two looks at the user's break
constexpr uint64_t kSmallFile = 1 << 20; // half of what the store makes its files of rows

// ---- Notes

class Notes {
  public:
    explicit Notes(fs::path path) : path_(std::move(path)) {
        std::ifstream in(path_, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        if (!bytes.starts_with(kHead) || (bytes.size() - kHead.size()) % kEntry) return;
        for (size_t at = kHead.size(); at < bytes.size(); at += kEntry)
            former_[bytes.substr(at, kKey)] =
                static_cast<int64_t>(number(bytes.data() + at + kKey));
    }

    // Notes that a row is seen unnamed; whether it was so long ago, too.
    bool is_due(const Oid &table, const DrawingKey &key, int64_t now, int64_t days) {
        const std::string name = name_of(table, key);
        const auto found = former_.find(name);
        const int64_t since = found == former_.end() ? now : std::min(found->second, now);
        seen_[name] = since;
        return found != former_.end() && (now - since) / kSecondsPerDay >= days;
    }
    void forget(const Oid &table, const DrawingKey &key) { seen_.erase(name_of(table, key)); }
    // As they were, for a table that could not be looked into.
    void keep(const Oid &table) {
        const std::string id(reinterpret_cast<const char *>(table.id), sizeof table.id);
        for (auto at = former_.lower_bound(id); at != former_.end() && at->first.starts_with(id);
             ++at)
            seen_.insert(*at);
    }

    void write() const {
        std::string bytes(kHead);
        for (const auto &[name, since] : seen_) bytes += name + text(static_cast<uint64_t>(since));
        replace_file(path_, bytes);
    }

  private:
    static constexpr std::string_view kHead{"ZEVGC\0\0\1", 8};
    static constexpr size_t kKey = 36, kEntry = 44;

    static uint64_t number(const char *bytes) {
        uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value = value << 8 | static_cast<uint8_t>(bytes[i]);
        return value;
    }
    static std::string text(uint64_t value) {
        std::string bytes(8, '\0');
        for (size_t i = 8; i--; value >>= 8) bytes[i] = static_cast<char>(value);
        return bytes;
    }
    static std::string name_of(const Oid &table, const DrawingKey &key) {
        return std::string(reinterpret_cast<const char *>(table.id), sizeof table.id) +
               text(key.tag) + text(key.object);
    }

    fs::path path_;
    std::map<std::string, int64_t> former_, seen_; // by table and key
};

// ---- One table

struct Result {
    uint64_t rows = 0, row_bytes = 0; // dropped
    uint64_t waiting = 0;             // that nothing names, not for long enough
    uint64_t compacted = 0, removed = 0;
    uint64_t before = 0, after = 0; // bytes of all tables
    Repack pack{};
};

struct Files {
    uint64_t bytes = 0, small = 0;
    bool has_debris = false; // a log with rows, notes of the store
};

Files look_at(const fs::path &directory) {
    Files files;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error)) {
        std::error_code gone;
        const uint64_t size = entry.file_size(gone);
        struct stat status;
        if (gone || lstat(entry.path().c_str(), &status)) continue;
        const std::string kind = entry.path().extension().string();
        files.bytes += static_cast<uint64_t>(status.st_blocks) * 512; // as a disk counts
        files.small += (kind == ".ldb" || kind == ".sst") && size < kSmallFile;
        files.has_debris |=
            (kind == ".log" && size) || entry.path().filename().string().starts_with("LOG");
    }
    return files;
}

class TableKeeper {
  public:
    // Without names no row is dropped.
    TableKeeper(Host &host, const WorkingCopy &copy, const Options &options, const RowNames *names)
        : host_(host), copy_(copy), options_(options), names_(names),
          notes_(own_directory(copy) / "zev-gc") {
        Time now{};
        check(zTimeGlobal(&now));
        now_ = now.seconds;
    }

    void run(Result &result) {
        result_ = &result;
        const fs::path root = shared_directory(copy_) / "tables";
        std::vector<std::pair<fs::path, Oid>> tables;
        std::error_code error;
        for (const auto &upper : fs::directory_iterator(root, error))
            for (const auto &lower : fs::directory_iterator(upper.path(), error)) {
                const std::string digits =
                    upper.path().filename().string() + lower.path().filename().string();
                Oid id;
                if (digits.size() == 40 && zOidFromStr(&id, wide(digits).c_str()))
                    tables.push_back({lower.path(), id});
                else if (digits.ends_with(".removed") && !options_.dry_run)
                    fs::remove_all(lower.path(), error); // of one that was killed
            }
        for (const auto &[path, id] : tables) keep(path, id);
        if (names_ && !options_.dry_run) notes_.write();
    }

  private:
    void keep(const fs::path &path, const Oid &id) {
        stop_on_break(host_.notify);
        zNotifyProgress(host_.notify, u"%s", wide(say("table %s", hex(&id).substr(0, 8))).c_str());
        const Files files = look_at(path);
        result_->before += files.bytes;
        if (!put_in_order(id, files)) {
            host_.out.warn(say("table %s is left as it is: %s", hex(&id), narrow(zErrorDetail())));
            notes_.keep(id);
        }
        result_->after += look_at(path).bytes;
    }

    // False, raised, for a table that can't be read, or not be written.
    bool put_in_order(const Oid &id, const Files &files) {
        OwnedTable table(zTableByid(copy_.repository(), &id));
        if (!table) return false;
        std::vector<DrawingKey> due;
        if (names_ && !find_due(table.get(), id, due)) return false;
        if (!options_.dry_run && !drop(table.get(), id, due)) return false;
        if (names_ && is_due(id)) return remove(table, id);
        return compact(table.get(), files, due.size());
    }

    bool find_due(Table *table, const Oid &id, std::vector<DrawingKey> &due) {
        const bool is_named = names_->names_table(id);
        const uint64_t tag = zTableTagGet(table); // 1 where it can't be read, and all rows stay
        uint64_t bytes = 0, seen = 0;
        rows_left_ = 0;
        const Owned<TableIter, zTableIterFree> iter(zTableIterNew(table));
        if (!iter) return false;
        for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get());
             zTableIterNext(iter.get())) {
            if (++seen % kPoll == 0) stop_on_break(host_.notify);
            const void *data = nullptr;
            uint64_t length = 0, value = 0;
            if (!zTableIterKey(&data, &length, iter.get())) return false;
            DrawingKey key;
            if (length != 16 || !zManifestKey(&key, static_cast<const uint8_t *>(data), 0)) {
                ++rows_left_;
                continue;
            }
            if ((!key.tag && !key.object) || key.tag == UINT64_MAX) continue;
            const bool unnamed = !names_->has(id, key);
            const bool is_over = unnamed && notes_.is_due(id, key, now_, options_.days);
            if (!is_over || (is_named && key.tag >= tag)) {
                ++rows_left_;
                result_->waiting += unnamed;
                continue;
            }
            if (!zTableIterValue(&data, &value, iter.get())) return false;
            due.push_back(key);
            bytes += length + value;
        }
        result_->rows += due.size();
        result_->row_bytes += bytes;
        return true;
    }

    bool drop(Table *table, const Oid &id, const std::vector<DrawingKey> &due) {
        for (const DrawingKey &key : due) {
            const dxf::RawKey bytes = dxf::raw(key);
            if (!zTableDel(table, &bytes, sizeof bytes)) return false;
            notes_.forget(id, key);
        }
        return true;
    }

    // Whether a table, which nothing names any more, has lost its last row.
    bool is_due(const Oid &id) {
        return !names_->names_table(id) && notes_.is_due(id, kItself, now_, options_.days) &&
               !rows_left_;
    }
    bool remove(OwnedTable &table, const Oid &id) {
        ++result_->removed;
        if (options_.dry_run) return true;
        notes_.forget(id, kItself);
        return zTableRemove(table.release());
    }

    bool compact(Table *table, const Files &files, uint64_t dropped) {
        if (!dropped && files.small < 2 && !files.has_debris) return true;
        ++result_->compacted;
        return options_.dry_run || zTableCompact(table);
    }

    static constexpr DrawingKey kItself{0, 0};

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    const RowNames *names_;
    Notes notes_;
    Result *result_ = nullptr;
    uint64_t rows_left_ = 0; // of the table at hand
    int64_t now_ = 0;
};

// ---- The verb

std::string told_rows(const Result &result, const Options &options) {
    const std::string waiting = result.waiting
                                    ? say("; %s more, if nothing names them for %s", result.waiting,
                                          plural(static_cast<uint64_t>(options.days), "day"))
                                    : "";
    return say(options.dry_run ? "rows      %s would go, %s bytes%s"
                               : "rows      %s dropped, %s bytes%s",
               result.rows, result.row_bytes, waiting);
}

std::string told_tables(const Result &result, bool dry) {
    if (dry)
        return say("tables    %s would be put in order, %s would go; %s bytes", result.compacted,
                   result.removed, result.before);
    return say("tables    %s put in order, %s removed; %s bytes, now %s", result.compacted,
               result.removed, result.before, result.after);
}

std::string told_objects(const Repack &pack, bool dry) {
    return say(dry ? "objects   %s in %s and %s; %s bytes, one pack would be %s"
                   : "objects   %s in %s and %s; %s bytes, now %s",
               pack.objects, plural(pack.loose, "file"), plural(pack.packs, "pack"), pack.before,
               pack.after);
}

int tell(Host &host, const Result &result, const Options &options) {
    const bool dry = options.dry_run;
    const Repack &pack = result.pack;
    host.out.line(told_rows(result, options));
    host.out.line(told_tables(result, dry));
    host.out.line(told_objects(pack, dry));
    host.out.record(Record("summary")
                        .set(u"dry_run", dry)
                        .set(u"rows", result.rows)
                        .set(u"row_bytes", result.row_bytes)
                        .set(u"waiting", result.waiting)
                        .set(u"tables", result.compacted)
                        .set(u"removed", result.removed)
                        .set(u"objects", pack.objects)
                        .set(u"before", result.before + pack.before)
                        .set(u"after", result.after + pack.after));
    return kDone;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    if (zRepositoryIsWorktree(copy.repository()))
        throw Failed(kInvalid,
                     say("this is a linked work directory; run gc in that of the repository"));
    OwnedIndex lock;
    if (!options.dry_run) lock = copy.lock_index();
    Result result;
    std::optional<RowNames> names;
    if (origin_of(copy).empty()) names.emplace(copy, host.notify);
    if (names && names->unseen()) {
        host.out.warn(say("no rows are dropped: %s", *names->unseen()));
        names.reset();
    }
    check(zRepositoryRepack(&result.pack, copy.repository(), !options.dry_run, host.notify));
    TableKeeper(host, copy, options, names ? &*names : nullptr).run(result);
    return tell(host, result, options);
}

} // namespace

extern const Verb kGcVerb{"gc", Group::upkeep, Nature::changes, bind<Options, declare, run>};

} // namespace host
