// A backend of the object store that turns a stream of new objects into one pack, as git's own
// formats have it. All numbers big-endian, ids 20 bytes.
//
//   pack-<hex of its last 20 bytes>.pack
//     "PACK", version u32 = 2, count of objects u32
//     per object: type (bits 4 to 6 of the first byte) and inflated size (its bits 0 to 3, then 7
//     bits a byte, low ones first, bit 7 says that more follow); its bytes as a zlib stream
//     SHA-1 of all before it
//   pack-<the same>.idx
//     FF "tOc", version u32 = 2; 256 x u32: how many ids have a first byte up to this one
//     ids, ascending; in their order CRC-32 of the packed bytes u32, then offset u32; one with bit
//     31 set is the place of the true offset in the following u64s
//     the pack's SHA-1; SHA-1 of all before it
//
// The pack grows under a name that git and our sweep take for garbage, and gets its own name
// when it is complete and synced; the index, which makes it count, comes last.
#include "objects/store/bulk.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "common/reader.hpp"
#include "common/sha1.hpp"
#include "common/utf.hpp"
#include "objects/store/odb.hpp"
#include "system/os.hpp"
#include "zev/oid.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include <openssl/evp.h>
#include <zlib.h>

namespace zev {

namespace {

// Up to so many objects, and so many bytes, become loose ones: git keeps them so, too.
constexpr size_t kFewObjects = 64;
constexpr size_t kFewBytes = 4 * limits::step;
// Before all others: libgit2's loose and packed objects have 1 and 2.
constexpr int kPriority = 100;
constexpr size_t kHeaderBytes = 12;
constexpr size_t kCountAt = 8;
constexpr uint64_t kFarOffset = 0x80000000;

using Digest = std::array<uint8_t, 20>;
using File = Owned<FILE, fclose>;

struct Entry {
    git_oid id;
    git_object_t type;
    size_t size;
    uint64_t offset = 0; // in the pack, as the CRC
    uint32_t crc = 0;
};

struct IdHash { // an id is a hash
    size_t operator()(const git_oid &id) const {
        size_t value;
        memcpy(&value, id.id, sizeof value);
        return value;
    }
};
struct IdEqual {
    bool operator()(const git_oid &a, const git_oid &b) const { return git_oid_equal(&a, &b); }
};

// ---- Deflate, with its state kept from one object to the next
//
// The fastest level, as git has it for new objects: a later `git gc` packs them tighter.
class Deflater {
  public:
    Deflater() { ready_ = deflateInit(&state_, Z_BEST_SPEED) == Z_OK; }
    ~Deflater() {
        if (ready_) deflateEnd(&state_);
    }
    Deflater(const Deflater &) = delete;
    Deflater &operator=(const Deflater &) = delete;

    // Appends to `target`. May throw.
    bool run(std::string &target, const void *bytes, size_t size) {
        if (!ready_ || size > UINT32_MAX || deflateReset(&state_) != Z_OK) return false;
        const size_t start = target.size();
        target.resize(start + deflateBound(&state_, static_cast<uLong>(size)));
        state_.next_in = static_cast<Bytef *>(const_cast<void *>(bytes));
        state_.avail_in = static_cast<uInt>(size);
        state_.next_out = reinterpret_cast<Bytef *>(target.data() + start);
        state_.avail_out = static_cast<uInt>(target.size() - start);
        if (deflate(&state_, Z_FINISH) != Z_STREAM_END) return false;
        target.resize(target.size() - state_.avail_out);
        return true;
    }

  private:
    z_stream state_{};
    bool ready_;
};

void put_object_header(std::string &target, git_object_t type, size_t size) {
    auto byte = static_cast<unsigned char>(static_cast<unsigned>(type) << 4 | (size & 15));
    for (size >>= 4; size; size >>= 7) {
        target += static_cast<char>(byte | 0x80);
        byte = size & 0x7F;
    }
    target += static_cast<char>(byte);
}

// SHA-1 of a whole file, from its start; the cursor ends at its end.
bool hash_file(FILE *file, Digest &digest) {
    Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha1(), nullptr) != 1) return false;
    std::vector<uint8_t> block(1 << 16);
    rewind(file);
    while (size_t count = fread(block.data(), 1, block.size(), file))
        if (EVP_DigestUpdate(context.get(), block.data(), count) != 1) return false;
    return !ferror(file) && EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
}

// ---- The index of a pack

void add_u32(std::string &text, uint64_t value) {
    uint8_t bytes[4];
    store_u32(bytes, static_cast<uint32_t>(value));
    text.append(reinterpret_cast<char *>(bytes), sizeof bytes);
}
void add_u64(std::string &text, uint64_t value) {
    uint8_t bytes[8];
    store_u64(bytes, value);
    text.append(reinterpret_cast<char *>(bytes), sizeof bytes);
}
void add_bytes(std::string &text, const uint8_t *bytes) {
    text.append(reinterpret_cast<const char *>(bytes), sizeof(Digest));
}

void add_offsets(std::string &text, const std::vector<Entry> &entries) {
    std::string far;
    for (const Entry &entry : entries) {
        if (entry.offset < kFarOffset) {
            add_u32(text, entry.offset);
            continue;
        }
        add_u32(text, kFarOffset | far.size() / 8);
        add_u64(far, entry.offset);
    }
    text += far;
}

// Sorts the entries.
std::string pack_index(std::vector<Entry> &entries, const Digest &pack) {
    std::ranges::sort(entries,
                      [](const Entry &a, const Entry &b) { return git_oid_cmp(&a.id, &b.id) < 0; });
    std::string text = "\377tOc";
    add_u32(text, 2);
    size_t count = 0;
    for (int first = 0; first < 256; ++first) {
        while (count < entries.size() && entries[count].id.id[0] <= first) ++count;
        add_u32(text, count);
    }
    for (const Entry &entry : entries) add_bytes(text, entry.id.id);
    for (const Entry &entry : entries) add_u32(text, entry.crc);
    add_offsets(text, entries);
    add_bytes(text, pack.data());
    Digest own{};
    if (!sha1(text.data(), text.size(), own.data())) return {};
    add_bytes(text, own.data());
    return text;
}

} // namespace

// ---- The backend

// Off it passes everything on; holding, it has the objects in memory; packing, in a growing file.
//
//          begin            add: too many, or too much
//   off ---------> holding ----------------------------> packing
//    ^               |  finish: write_loose                 |  finish: close_pack, install
//    +---------------+---------------- drop ----------------+
//
// A failure half-way sets broken_: nothing more is taken, and finish fails.
class Bulk : public git_odb_backend {
  public:
    explicit Bulk(std::u16string directory);

    static Bulk *of(git_odb *odb);
    static Bulk *of(git_odb_backend *backend) { return static_cast<Bulk *>(backend); }

    bool on() const { return on_; }
    bool begin(git_odb *odb);
    bool finish(git_odb *odb);
    void check_state() const;
    void drop(); // what was collected, and ends the collecting

    const Entry *find(const git_oid *id) const;
    int add(const git_oid *id, const void *bytes, size_t size, git_object_t type); // may throw
    bool load(char *target, const Entry &entry);

  private:
    bool open_pack();
    bool append(Entry &entry, const void *bytes);
    bool write_loose(git_odb *odb);
    bool close_pack(Digest &digest);
    bool install(const Digest &digest);
    bool inflate_at(char *target, const Entry &entry);
    bool seek(uint64_t offset);

    std::u16string directory_; // with a last slash
    bool on_ = false;
    std::vector<Entry> entries_;
    std::unordered_map<git_oid, size_t, IdHash, IdEqual> places_; // in entries_
    std::vector<std::string> held_;                               // bytes, while holding
    size_t held_bytes_ = 0;
    std::u16string path_; // of the growing pack
    File file_;
    uint64_t end_ = 0; // where the next object goes
    int broken_ = 0;   // errno of what failed half-way: the rest must not count as whole
    std::string scratch_;
    std::unique_ptr<Deflater> deflater_;
};

namespace {

int on_write(git_odb_backend *self, const git_oid *id, const void *bytes, size_t size,
             git_object_t type) try {
    Bulk *bulk = Bulk::of(self);
    return bulk->on() ? bulk->add(id, bytes, size, type) : GIT_PASSTHROUGH;
} catch (...) {
    return git_error_set_oom(), GIT_ERROR;
}

// Streamed objects are large. Without this slot libgit2 would gather them in memory.
int on_stream(git_odb_stream **, git_odb_backend *, git_object_size_t, git_object_t) {
    return GIT_PASSTHROUGH;
}

int on_read(void **bytes, size_t *size, git_object_t *type, git_odb_backend *self,
            const git_oid *id) {
    const Entry *entry = Bulk::of(self)->find(id);
    if (!entry) return GIT_ENOTFOUND;
    void *target = git_odb_backend_data_alloc(self, entry->size + 1);
    if (!target) return GIT_ERROR;
    static_cast<char *>(target)[entry->size] = 0;
    if (!Bulk::of(self)->load(static_cast<char *>(target), *entry)) {
        git_odb_backend_data_free(self, target);
        git_error_set_str(GIT_ERROR_ODB, "object of a growing pack can't be read back");
        return GIT_ERROR;
    }
    *bytes = target;
    *size = entry->size;
    *type = entry->type;
    return 0;
}

int on_header(size_t *size, git_object_t *type, git_odb_backend *self, const git_oid *id) {
    const Entry *entry = Bulk::of(self)->find(id);
    if (!entry) return GIT_ENOTFOUND;
    *size = entry->size;
    *type = entry->type;
    return 0;
}

int on_exists(git_odb_backend *self, const git_oid *id) { return Bulk::of(self)->find(id) != 0; }
void on_free(git_odb_backend *self) { delete Bulk::of(self); }

bool fail_pack(const std::u16string &path) {
    return errno ? fail_errno(path.c_str()) : fail_memory();
}

} // namespace

Bulk::Bulk(std::u16string directory)
    : git_odb_backend{}, directory_(std::move(directory) + u"objects/pack/") {
    version = GIT_ODB_BACKEND_VERSION;
    git_odb_backend::read = on_read;
    read_header = on_header;
    git_odb_backend::write = on_write;
    writestream = on_stream;
    exists = on_exists;
    free = on_free;
}

Bulk *Bulk::of(git_odb *odb) {
    git_odb_backend *backend = find_backend(odb, on_free);
    return backend ? of(backend) : nullptr;
}

void Bulk::check_state() const {
    if (broken_) return; // whatever failed half-way, only drop follows
    assert(places_.size() == entries_.size());
    assert(on_ || (entries_.empty() && !file_));
    assert(file_ ? held_.empty() : held_.size() == entries_.size());
}

// After this one look at the disk no object is looked for there twice.
bool Bulk::begin(git_odb *odb) {
    check_state();
    if (int code = git_odb_refresh(odb); code < 0) return fail_git(code);
    return on_ = true;
}

const Entry *Bulk::find(const git_oid *id) const {
    if (places_.empty()) return nullptr;
    auto found = places_.find(*id);
    return found == places_.end() ? nullptr : &entries_[found->second];
}

int Bulk::add(const git_oid *id, const void *bytes, size_t size, git_object_t type) {
    if (find(id)) return 0;
    // libgit2 turns to its own backend when this one fails, and its caller never hears of it.
    Finally half([&] { broken_ = broken_ ? broken_ : ENOMEM; });
    if (!file_ && (entries_.size() >= kFewObjects || held_bytes_ + size > kFewBytes) &&
        !open_pack())
        return GIT_ERROR;
    Entry entry{.id = *id, .type = type, .size = size};
    if (file_ && !append(entry, bytes)) return GIT_ERROR;
    if (!file_) {
        held_.emplace_back(static_cast<const char *>(bytes), size);
        held_bytes_ += size;
    }
    entries_.push_back(entry);
    places_.emplace(*id, entries_.size() - 1);
    half.cancel();
    check_state();
    return 0;
}

// From holding to packing. libgit2 takes the reason from its own error, whoever calls.
bool Bulk::open_pack() {
    Oid id{};
    zwchar digits[17];
    if (!zOidRand(&id) || !zOidNFormat(digits, 16, &id)) return false;
    os::make_dirs(directory_.c_str());
    path_ = directory_ + u"tmp_pack_" + digits;
    deflater_ = std::make_unique<Deflater>();
    file_.reset(os::open(path_.c_str(), u"w+bx"));
    if (!file_) broken_ = errno;
    if (broken_) return git_error_set_str(GIT_ERROR_OS, strerrordesc_np(broken_)), false;
    setvbuf(file_.get(), nullptr, _IOFBF, 1 << 18);
    end_ = fwrite("PACK\0\0\0\2\0\0\0\0", 1, kHeaderBytes, file_.get());
    for (size_t n = 0; n < held_.size(); ++n)
        if (!append(entries_[n], held_[n].data())) return false;
    held_ = {};
    held_bytes_ = 0;
    return true;
}

bool Bulk::append(Entry &entry, const void *bytes) {
    scratch_.clear();
    put_object_header(scratch_, entry.type, entry.size);
    if (!deflater_->run(scratch_, bytes, entry.size)) return git_error_set_oom(), false;
    auto *packed = reinterpret_cast<const Bytef *>(scratch_.data());
    entry.crc = static_cast<uint32_t>(crc32(0, packed, static_cast<uInt>(scratch_.size())));
    entry.offset = end_;
    if (!broken_ && fwrite(packed, 1, scratch_.size(), file_.get()) != scratch_.size())
        broken_ = errno;
    if (broken_) return git_error_set_str(GIT_ERROR_OS, strerrordesc_np(broken_)), false;
    end_ += scratch_.size();
    return true;
}

bool Bulk::load(char *target, const Entry &entry) {
    if (file_) return inflate_at(target, entry);
    const std::string &bytes = held_[static_cast<size_t>(&entry - entries_.data())];
    memcpy(target, bytes.data(), bytes.size());
    return true;
}

// A stream whose seek fails has dropped what it was to write before.
bool Bulk::seek(uint64_t offset) {
    if (os::seek(file_.get(), static_cast<int64_t>(offset), SEEK_SET)) return true;
    broken_ = errno;
    return false;
}

// The cursor goes back to the end: the next object is appended there.
bool Bulk::inflate_at(char *target, const Entry &entry) {
    if (broken_ || !seek(entry.offset)) return false;
    Finally back([&] { seek(end_); });
    for (int byte = 0x80; byte & 0x80;)
        if ((byte = fgetc(file_.get())) == EOF) return false;
    z_stream state{};
    if (inflateInit(&state) != Z_OK) return false;
    Finally end([&] { inflateEnd(&state); });
    state.next_out = reinterpret_cast<Bytef *>(target);
    state.avail_out = static_cast<uInt>(entry.size);
    Bytef block[4096];
    int code = Z_OK;
    while (code == Z_OK) {
        state.next_in = block;
        state.avail_in = static_cast<uInt>(fread(block, 1, sizeof block, file_.get()));
        if (!state.avail_in) return false;
        code = inflate(&state, Z_NO_FLUSH);
        if (code == Z_BUF_ERROR) return false;
    }
    return code == Z_STREAM_END && !state.avail_out;
}

void Bulk::drop() {
    on_ = false;
    if (file_) {
        file_.reset();
        os::unlink(path_.c_str());
    }
    entries_ = {};
    places_ = {};
    held_ = {};
    held_bytes_ = 0;
    broken_ = 0;
    deflater_.reset();
    check_state();
}

// Few objects: libgit2's loose ones.
bool Bulk::write_loose(git_odb *odb) {
    on_ = false; // so that they pass
    std::vector<Entry> entries = std::move(entries_);
    std::vector<std::string> held = std::move(held_);
    drop();
    for (size_t n = 0; n < entries.size(); ++n) {
        git_oid id;
        int code = git_odb_write(&id, odb, held[n].data(), held[n].size(), entries[n].type);
        if (code < 0) return fail_git(code);
    }
    return true;
}

// Count, checksum, sync.
bool Bulk::close_pack(Digest &digest) {
    FILE *file = file_.get();
    uint8_t count[4];
    store_u32(count, static_cast<uint32_t>(entries_.size()));
    errno = 0;
    return os::seek(file, kCountAt, SEEK_SET) && fwrite(count, 1, 4, file) == 4 &&
           fflush(file) == 0 && hash_file(file, digest) && os::seek(file, 0, SEEK_END) &&
           fwrite(digest.data(), 1, digest.size(), file) == digest.size() && fflush(file) == 0 &&
           os::calls.fdatasync(fileno(file)) == 0 && os::set_readonly(path_.c_str(), true);
}

bool Bulk::install(const Digest &digest) {
    zwchar hex[41];
    zOidFormat(hex, reinterpret_cast<const Oid *>(digest.data()));
    const std::u16string name = directory_ + u"pack-" + hex;
    const std::string index = pack_index(entries_, digest);
    errno = 0;
    struct stat status;
    const std::u16string pack_name = name + u".pack", index_name = name + u".idx";
    if (index.empty() || !os::move(path_.c_str(), pack_name.c_str(), true)) return false;
    if (os::replace_file(index_name.c_str(), index.data(), index.size(), 0444)) return true;
    const int kept = errno; // a pack without an index would lie there for ever
    if (!os::lstat(index_name.c_str(), &status) && errno == ENOENT) os::unlink(pack_name.c_str());
    return errno = kept, false;
}

bool Bulk::finish(git_odb *odb) {
    check_state();
    Finally dropped([&] { drop(); });
    if (broken_) return errno = broken_, fail_pack(path_);
    if (!file_) return write_loose(odb);
    Digest digest{};
    if (!close_pack(digest) || !install(digest)) return fail_pack(path_);
    int code = git_odb_refresh(odb);
    return code < 0 ? fail_git(code) : true;
}

// ---- The writer

std::unique_ptr<BulkWriter> BulkWriter::begin(Repository *repository) try {
    git::Odb odb;
    if (int code = git_repository_odb(out(odb), repository->handle.get()); code < 0)
        return fail_git(code), nullptr;
    Bulk *bulk = Bulk::of(odb.get());
    if (!bulk) {
        std::u16string place = to_wide(git_repository_commondir(repository->handle.get()));
        auto made = std::make_unique<Bulk>(std::move(place));
        if (int code = git_odb_add_backend(odb.get(), made.get(), kPriority); code < 0)
            return fail_git(code), nullptr;
        bulk = made.release();
    }
    std::unique_ptr<BulkWriter> writer(new BulkWriter(std::move(odb)));
    if (bulk->on()) return writer;
    if (!bulk->begin(writer->odb_.get())) return nullptr;
    writer->bulk_ = bulk;
    return writer;
} catch (...) {
    return fail_thrown(), nullptr;
}

BulkWriter::~BulkWriter() {
    if (bulk_) bulk_->drop();
}

bool BulkWriter::finish() try {
    Bulk *bulk = std::exchange(bulk_, nullptr);
    return !bulk || bulk->finish(odb_.get());
} catch (...) {
    return fail_thrown();
}

// An object that is there already goes to libgit2, which marks it as used: a git that removes
// what nothing names spares it for the next two weeks.
int write_blob(git_oid *id, git_odb *odb, const void *bytes, size_t size) try {
    Bulk *bulk = Bulk::of(odb);
    if (!bulk || !bulk->on()) return git_odb_write(id, odb, bytes, size, GIT_OBJECT_BLOB);
    if (int code = git_odb_hash(id, bytes, size, GIT_OBJECT_BLOB); code < 0) return code;
    if (bulk->find(id)) return 0;
    if (git_odb_exists_ext(odb, id, GIT_ODB_LOOKUP_NO_REFRESH))
        return git_odb_write(id, odb, bytes, size, GIT_OBJECT_BLOB);
    return bulk->add(id, bytes, size, GIT_OBJECT_BLOB);
} catch (...) {
    return git_error_set_oom(), GIT_ERROR;
}

} // namespace zev
