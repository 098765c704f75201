// libgit2's indexer does the work, but it takes some things on trust; its input comes from others.
//
//   - The header's count of objects, for which it takes memory at once: more than any pack has are
//     refused.
//   - The size that an object says it has: one with another size would get in and could never be
//     read again. So a pack is read through before it counts.
//   - The size that a delta says it unfolds to: one that the pack's own size can't stand for is
//     refused.
//   - Bases of deltas: given an object database to look for missing ones, it goes round for ever
//     over a delta that unfolds to an object which the pack holds already. It is given none; what
//     builds packs for a transfer puts the bases in.
//
// The bytes of a pack, all numbers big-endian:
//   "PACK", version u32, count of objects u32
//   per object: type (bits 4 to 6 of the first byte) and unfolded size (its bits 0 to 3, then 7
//   bits a byte, low ones first, bit 7 says that more follow); for type 6 the base's distance, in
//   bytes of which bit 7 says that more follow, for type 7 its id of 20 bytes; a zlib stream
//   SHA-1 of all before it
// A delta's stream begins with the sizes of its base and of its result, 7 bits a byte as above.
#include "objects/store/pack_file.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/store/object_form.hpp"
#include "system/os.hpp"
#include "zev/oid.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <git2/odb_backend.h>
#include <git2/sys/odb_backend.h>
#include <zlib.h>

namespace zev {

namespace {

constexpr uint64_t kStep = 1u << 30; // libgit2 counts what it is given in an int
// A builder gives two pieces an object; for each piece the indexer makes its file longer and maps
// the end of it.
constexpr uint64_t kHeld = 1u << 18;
constexpr size_t kHeaderBytes = 12, kCountAt = 8;
enum Type { kOffsetDelta = 6, kIdDelta = 7 };

Failure refuse(const char *why) {
    git_error_set_str(GIT_ERROR_INDEXER, why);
    return fail_git(GIT_ERROR);
}

// Reads through the objects of a pack: their sizes, and what deltas unfold to.
class Survey {
  public:
    explicit Survey(FILE *file) : file_(file) {
        ready_ = inflateInit(&state_) == Z_OK;
        bound_ = limits::inflated;
        uint64_t size = 0;
        if (os::size(file, &size)) bound_ += std::min(size, kStep) * limits::inflation;
    }
    ~Survey() {
        if (ready_) inflateEnd(&state_);
    }
    Survey(const Survey &) = delete;
    Survey &operator=(const Survey &) = delete;

    bool objects(uint64_t count) {
        if (!ready_ || !os::seek(file_, kHeaderBytes, SEEK_SET)) return false;
        while (count--)
            if (!object()) return false;
        return true;
    }

  private:
    bool fill() {
        state_.next_in = block_.data();
        state_.avail_in = static_cast<uInt>(fread(block_.data(), 1, block_.size(), file_));
        return state_.avail_in > 0;
    }

    bool next(uint8_t &byte) {
        if (!state_.avail_in && !fill()) return false;
        byte = *state_.next_in++;
        --state_.avail_in;
        return true;
    }

    bool object() {
        uint8_t byte = 0;
        if (!next(byte)) return false;
        const int type = byte >> 4 & 7;
        uint64_t size = byte & 15;
        for (unsigned shift = 4; byte & 0x80; shift += 7) {
            if (shift > 56 || !next(byte)) return false;
            size |= uint64_t{byte & 0x7Fu} << shift;
        }
        if (!base(type) || !stream() || state_.total_out != size) return false;
        const bool plain = type >= GIT_OBJECT_COMMIT && type <= GIT_OBJECT_TAG;
        return plain || ((type == kOffsetDelta || type == kIdDelta) && result_in_bound());
    }

    // Passes over what names a delta's base.
    bool base(int type) {
        uint8_t byte = 0x80;
        while (type == kOffsetDelta && byte & 0x80)
            if (!next(byte)) return false;
        for (int i = 0; type == kIdDelta && i < GIT_OID_RAWSZ; ++i)
            if (!next(byte)) return false;
        return true;
    }

    // Inflates an object; its first bytes stay in head_.
    bool stream() {
        if (inflateReset(&state_) != Z_OK) return false;
        head_size_ = 0;
        for (int code = Z_OK; code != Z_STREAM_END;) {
            if (!state_.avail_in && !fill()) return false;
            state_.next_out = out_.data();
            state_.avail_out = static_cast<uInt>(out_.size());
            code = inflate(&state_, Z_NO_FLUSH);
            if (code != Z_OK && code != Z_STREAM_END) return false;
            const size_t made = out_.size() - state_.avail_out;
            const size_t kept = std::min(made, head_.size() - head_size_);
            memcpy(head_.data() + head_size_, out_.data(), kept);
            head_size_ += kept;
        }
        return true;
    }

    bool result_in_bound() const {
        size_t at = 0;
        uint64_t base = 0, result = 0;
        return size_at(at, base) && size_at(at, result) && base <= bound_ && result <= bound_;
    }

    bool size_at(size_t &at, uint64_t &size) const {
        for (unsigned shift = 0; shift <= 56 && at < head_size_; shift += 7) {
            const uint8_t byte = head_[at++];
            size |= uint64_t{byte & 0x7Fu} << shift;
            if (!(byte & 0x80)) return true;
        }
        return false;
    }

    FILE *file_; // lent
    z_stream state_{};
    bool ready_;
    uint64_t bound_; // of one object that a delta unfolds to
    std::array<uint8_t, 0x10000> block_, out_;
    std::array<uint8_t, 20> head_{}; // of the present stream: two sizes
    size_t head_size_ = 0;
};

} // namespace

std::unique_ptr<PackFile> PackFile::begin(std::u16string directory) {
    if (!directory.empty() && directory.back() != u'/' && directory.back() != u'\\')
        directory += u'/';
    std::unique_ptr<PackFile> file(new PackFile(std::move(directory)));
    return file->open() ? std::move(file) : nullptr;
}

bool PackFile::open() {
    Oid id{};
    zwchar digits[17];
    if (!zOidRand(&id) || !zOidNFormat(digits, 16, &id)) return false;
    std::u16string aside = directory_ + u"tmp_pack_" + digits;
    if (!os::make_dir(aside.c_str())) return fail_errno(aside.c_str());
    aside_ = std::move(aside);
    place_ = os::open_dir(aside_.c_str());
    if (place_ < 0) return fail_errno(aside_.c_str());
    held_.reserve(2 * kHeld); // no piece that libgit2 hands out may fail for want of memory
    int code = git_indexer_new(out(indexer_), to_utf8(aside_).c_str(), 0, nullptr, nullptr);
    aside_ += u'/';
    return code < 0 ? fail_git(code) : true;
}

PackFile::~PackFile() {
    indexer_.reset();
    if (!aside_.empty()) {
        os::place_of(place_, &aside_); // where that can't be told, where it was
        os::remove_tree(aside_.c_str(), false);
    }
    if (place_ >= 0) os::close_fd(place_);
}

std::u16string PackFile::path(const char16_t *extension) const {
    return directory_ + u"pack-" + name_ + extension;
}

bool PackFile::append(const void *bytes, uint64_t size) {
    if (!few_objects(static_cast<const uint8_t *>(bytes), size)) return refuse("too many objects");
    if (size < kHeld) held_.append(static_cast<const char *>(bytes), size);
    if (held_.size() >= kHeld || size >= kHeld)
        if (!feed_held()) return false;
    return size < kHeld || feed(bytes, size);
}

bool PackFile::feed_held() {
    const bool fed = feed(held_.data(), held_.size());
    held_.clear();
    return fed;
}

bool PackFile::feed(const void *bytes, uint64_t size) {
    const auto *rest = static_cast<const uint8_t *>(bytes);
    for (uint64_t step; size; rest += step, size -= step) {
        step = std::min(size, kStep);
        int code = git_indexer_append(indexer_.get(), rest, step, &progress_);
        if (code < 0) return fail_git(code);
    }
    return true;
}

bool PackFile::few_objects(const uint8_t *bytes, uint64_t size) {
    if (header_size_ == kHeaderBytes) return true;
    const size_t count = std::min<uint64_t>(size, kHeaderBytes - header_size_);
    memcpy(header_.data() + header_size_, bytes, count);
    header_size_ += count;
    if (header_size_ < kHeaderBytes) return true;
    uint64_t objects = 0;
    for (size_t i = kCountAt; i < kHeaderBytes; ++i) objects = objects << 8 | header_[i];
    return objects <= limits::pack_objects;
}

// What the indexer was given is all in its file, the only one in that directory.
bool PackFile::check() {
    if (!feed_held()) return false;
    std::vector<os::Name> names;
    if (!os::read_dir(aside_.c_str(), &names)) return fail_errno(aside_.c_str());
    const auto found = std::ranges::find_if(
        names, [](const os::Name &name) { return name.text.starts_with(u"pack_git2_"); });
    if (found == names.end()) return refuse("the pack is gone");
    const Owned<FILE, fclose> file(os::open((aside_ + found->text).c_str(), u"rb"));
    if (!file) return fail_errno(aside_.c_str());
    const auto survey = std::make_unique<Survey>(file.get());
    return survey->objects(progress_.received_objects) ||
           refuse("an object is damaged, or unfolds out of proportion");
}

bool PackFile::commit() { return index() && install(); }

bool PackFile::commit_formed(uint64_t most) { return index() && has_forms(most) && install(); }

bool PackFile::index() {
    if (!feed_held()) return false;
    int code = git_indexer_commit(indexer_.get(), &progress_);
    if (code < 0) return fail_git(code);
    name_ = to_wide(git_indexer_name(indexer_.get()));
    indexer_.reset();
    return true;
}

namespace {

// The objects of one pack, read without a store, which would keep them.
struct Inspection {
    git_odb_backend *pack;
    uint64_t most;

    bool is_sound(const git_oid *id) const {
        size_t size = 0;
        git_object_t type;
        if (pack->read_header(&size, &type, pack, id) < 0 || size > most) return false;
        if (type == GIT_OBJECT_BLOB) return true;
        void *bytes = nullptr;
        if (size > limits::object_form || pack->read(&bytes, &size, &type, pack, id) < 0)
            return false;
        const Finally freed([&] { git_odb_backend_data_free(pack, bytes); });
        return has_object_form(type, {static_cast<char *>(bytes), size});
    }
};

} // namespace

// Still aside: nothing can name an object of it yet.
bool PackFile::has_forms(uint64_t most) const {
    const std::string index = to_utf8(aside_ + u"pack-" + name_ + u".idx");
    Inspection inspection{nullptr, most};
    int code = git_odb_backend_one_pack(&inspection.pack, index.c_str());
    if (code < 0) return fail_git(code);
    const Finally freed([&] { inspection.pack->free(inspection.pack); });
    code = inspection.pack->foreach (
        inspection.pack,
        [](const git_oid *id, void *context) {
            return static_cast<Inspection *>(context)->is_sound(id) ? 0 : GIT_EUSER;
        },
        &inspection);
    if (code == GIT_EUSER) return refuse("an object is too large, or not what its type says");
    return code < 0 ? fail_git(code) : true;
}

// Names may reach the disk ahead of bytes: a pack that is named and hollow would stay.
bool PackFile::install() {
    const std::u16string pack = path(u".pack"), index = path(u".idx");
    const std::u16string made = aside_ + u"pack-" + name_;
    for (const char16_t *part : {u".pack", u".idx"})
        if (const std::u16string file = made + part; !os::sync_file(file.c_str()))
            return fail_errno(file.c_str());
    struct stat status;
    const bool there = os::lstat(pack.c_str(), &status); // the same bytes, as its name says
    if (!os::move((made + u".pack").c_str(), pack.c_str(), true)) return fail_errno(pack.c_str());
    if (os::move((made + u".idx").c_str(), index.c_str(), true)) return true;
    const int kept = errno;
    if (!there) os::unlink(pack.c_str());
    return errno = kept, fail_errno(index.c_str());
}

} // namespace zev
