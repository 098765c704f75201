// The bytes of a pack are told in pack_file.cpp; those of its index, all numbers big-endian:
//   FF 't' 'O' 'c', version u32 = 2
//   256 u32: how many ids begin with a byte up to this one
//   ids in ascending order, 20 bytes each
//   a CRC of each, u32
//   the place of each in the pack, u32; with the highest bit set, a place in a further table
//   tables of large packs, and checksums
// What an index says is not trusted: an object that is copied is inflated on the way, which tells
// where it ends and whether it is whole; whose content it is the receiver finds by its own sums.
#include "objects/store/pack_copy.hpp"

#include "common/reader.hpp"
#include "common/sha1.hpp"
#include "common/utf.hpp"
#include "objects/store/git.hpp"
#include "objects/store/loose_object.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <zlib.h>

namespace zev {

namespace {

using File = Owned<FILE, fclose>;

constexpr uint64_t kFanoutAt = 8, kIdsAt = kFanoutAt + 256 * 4;
constexpr uint32_t kLargePlace = 0x80000000;
constexpr size_t kBlock = 1u << 16;

int fail_pack(const char *why) { return git_error_set_str(GIT_ERROR_ODB, why), GIT_ERROR; }

bool below(const git_oid &a, const git_oid &b) { return git_oid_cmp(&a, &b) < 0; }

bool read_at(FILE *file, uint64_t at, void *to, size_t size) {
    return os::seek(file, static_cast<int64_t>(at), SEEK_SET) && fread(to, 1, size, file) == size;
}

// ---- Where objects are

struct Place {
    size_t pack;
    uint64_t offset;
    git_oid id;
};

// The ids that an index has, taken out of `wanted`, which is in order. An index that makes no sense
// has none.
class IndexSearch {
  public:
    IndexSearch(FILE *file, size_t pack) : file_(file), pack_(pack) {}

    void run(std::vector<git_oid> &wanted, std::vector<Place> &found) {
        std::array<uint8_t, kIdsAt> head;
        static constexpr uint8_t kMagic[] = {0xFF, 't', 'O', 'c', 0, 0, 0, 2};
        if (!read_at(file_, 0, head.data(), head.size()) ||
            memcmp(head.data(), kMagic, sizeof kMagic) != 0)
            return;
        count_ = load_u32(&head[kIdsAt - 4]);
        std::vector<git_oid> left;
        for (auto at = wanted.begin(); at != wanted.end();) {
            const uint8_t byte = at->id[0];
            const auto end =
                std::find_if(at, wanted.end(), [&](const git_oid &id) { return id.id[0] != byte; });
            const uint8_t *sum = &head[kFanoutAt + 4 * byte];
            const bool read = read_range(byte ? load_u32(sum - 4) : 0, load_u32(sum));
            for (; at != end; ++at)
                if (!read || !take(*at, found)) left.push_back(*at);
        }
        wanted = std::move(left);
    }

  private:
    // Ids that begin with one byte, and their places.
    bool read_range(uint64_t first, uint64_t last) {
        if (last < first || last > count_) return false;
        const size_t size = last - first;
        ids_.resize(size);
        places_.resize(size * 4);
        static_assert(sizeof(git_oid) == GIT_OID_RAWSZ);
        return !size ||
               (read_at(file_, kIdsAt + first * GIT_OID_RAWSZ, ids_.data(), size * GIT_OID_RAWSZ) &&
                read_at(file_, kIdsAt + count_ * (GIT_OID_RAWSZ + 4) + first * 4, places_.data(),
                        size * 4));
    }

    bool take(const git_oid &id, std::vector<Place> &found) const {
        const auto at = std::lower_bound(ids_.begin(), ids_.end(), id, below);
        if (at == ids_.end() || !git_oid_equal(&*at, &id)) return false;
        const uint32_t place = load_u32(&places_[static_cast<size_t>(at - ids_.begin()) * 4]);
        if (place & kLargePlace) return false;
        found.push_back({pack_, place, id});
        return true;
    }

    FILE *file_; // lent
    size_t pack_;
    uint64_t count_ = 0;
    std::vector<git_oid> ids_;
    std::vector<uint8_t> places_;
};

// ---- The pack

class PackCopy {
  public:
    PackCopy(git_repository *repository, const PackTake &take)
        : repository_(repository), take_(take), block_(new uint8_t[kBlock]),
          out_(new uint8_t[kBlock]) {}
    ~PackCopy() {
        if (inflates_) inflateEnd(&in_);
    }
    PackCopy(const PackCopy &) = delete;
    PackCopy &operator=(const PackCopy &) = delete;

    int run(std::vector<git_oid> ids, uint64_t &written);

  private:
    void find(std::vector<git_oid> &wanted);
    int copy(const Place &place);
    int copy_entry(FILE *file, const Place &place, bool &whole);
    int copy_stream(FILE *file, uint64_t size);
    int compress(const git_oid &id);
    int compress_bytes(const uint8_t *bytes, size_t size);
    int give(const void *bytes, size_t size);
    bool fill(FILE *file) {
        in_.next_in = block_.get();
        in_.avail_in = static_cast<uInt>(fread(block_.get(), 1, kBlock, file));
        return in_.avail_in > 0;
    }

    git_repository *repository_;
    const PackTake &take_;
    Sha1 sum_;
    std::vector<std::u16string> packs_; // paths, without an extension
    std::vector<Place> places_;
    File file_; // of the pack that is copied from
    size_t open_ = SIZE_MAX;
    z_stream in_{};
    bool inflates_ = false;
    std::unique_ptr<uint8_t[]> block_, out_;
};

int PackCopy::give(const void *bytes, size_t size) {
    if (!size) return 0;
    if (!sum_.add(bytes, size)) return fail_pack("no checksum");
    return take_(bytes, size);
}

void PackCopy::find(std::vector<git_oid> &wanted) {
    const std::u16string directory = objects_directory(repository_) + u"pack/";
    std::vector<os::Name> names;
    if (!os::read_dir(directory.c_str(), &names)) return;
    for (const os::Name &name : names) {
        constexpr std::u16string_view kEnd = u".idx";
        if (wanted.empty()) return;
        if (!name.text.starts_with(u"pack-") || !name.text.ends_with(kEnd)) continue;
        const std::u16string path = directory + name.text;
        const File index(os::open(path.c_str(), u"rb"));
        if (!index) continue;
        IndexSearch(index.get(), packs_.size()).run(wanted, places_);
        packs_.push_back(path.substr(0, path.size() - kEnd.size()));
    }
}

// The head of an entry: type and size, 7 bits a byte behind the first 4.
size_t entry_head(uint8_t *head, git_object_t type, uint64_t size) {
    size_t length = 0;
    head[length] = static_cast<uint8_t>(static_cast<uint64_t>(type) << 4 | (size & 15));
    for (size >>= 4; size; size >>= 7) {
        head[length++] |= 0x80;
        head[length] = static_cast<uint8_t>(size & 0x7F);
    }
    return length + 1;
}

// Of an object that no pack has whole.
int PackCopy::compress(const git_oid &id) {
    git::Odb odb;
    git::OdbObject object;
    int code = git_repository_odb(out(odb), repository_);
    if (code >= 0) code = git_odb_read(out(object), odb.get(), &id);
    if (code < 0) return code;
    const size_t size = git_odb_object_size(object.get());
    uint8_t head[12];
    const size_t length = entry_head(head, git_odb_object_type(object.get()), size);
    if (code = give(head, length); code) return code;
    return compress_bytes(static_cast<const uint8_t *>(git_odb_object_data(object.get())), size);
}

int PackCopy::compress_bytes(const uint8_t *bytes, size_t size) {
    z_stream state{};
    if (deflateInit(&state, Z_DEFAULT_COMPRESSION) != Z_OK) return fail_pack("no memory");
    const Finally freed([&] { deflateEnd(&state); });
    for (int ended = Z_OK; ended != Z_STREAM_END;) {
        if (!state.avail_in) {
            const size_t step = std::min<size_t>(size, 1u << 30);
            state.next_in = const_cast<Bytef *>(bytes);
            state.avail_in = static_cast<uInt>(step);
            bytes += step, size -= step;
        }
        state.next_out = out_.get();
        state.avail_out = kBlock;
        ended = deflate(&state, size ? Z_NO_FLUSH : Z_FINISH);
        if (const int code = give(out_.get(), kBlock - state.avail_out)) return code;
    }
    return 0;
}

// Passes on a stream as it is read, up to its end.
int PackCopy::copy_stream(FILE *file, uint64_t size) {
    for (int state = Z_OK; state != Z_STREAM_END;) {
        if (!in_.avail_in && !fill(file)) return fail_pack("a pack was cut off");
        const Bytef *from = in_.next_in;
        in_.next_out = out_.get();
        in_.avail_out = kBlock;
        state = inflate(&in_, Z_NO_FLUSH);
        if ((state != Z_OK && state != Z_STREAM_END) || in_.total_out > size)
            return fail_pack("an object of a pack is damaged");
        if (const int code = give(from, static_cast<size_t>(in_.next_in - from))) return code;
    }
    return in_.total_out == size ? 0 : fail_pack("an object of a pack is damaged");
}

// `whole` becomes false, with nothing given, for what is a delta, or no entry.
int PackCopy::copy_entry(FILE *file, const Place &place, bool &whole) {
    uint8_t head[12];
    in_.avail_in = 0;
    whole = os::seek(file, static_cast<int64_t>(place.offset), SEEK_SET) && fill(file);
    if (!whole) return 0;
    const size_t most = std::min<size_t>(sizeof head - 2, in_.avail_in);
    size_t length = 1;
    while (length < most && in_.next_in[length - 1] & 0x80) ++length;
    memcpy(head, in_.next_in, length);
    const int type = head[0] >> 4 & 7;
    uint64_t size = head[0] & 15;
    for (size_t i = 1; i < length; ++i) size |= uint64_t{head[i] & 0x7Fu} << (7 * i - 3);
    whole = !(head[length - 1] & 0x80) && type >= GIT_OBJECT_COMMIT && type <= GIT_OBJECT_TAG &&
            inflateReset(&in_) == Z_OK;
    if (!whole) return 0;
    in_.next_in += length;
    in_.avail_in -= static_cast<uInt>(length);
    const int code = give(head, length);
    return code ? code : copy_stream(file, size);
}

int PackCopy::copy(const Place &place) {
    if (open_ != place.pack) {
        file_.reset(os::open((packs_[place.pack] + u".pack").c_str(), u"rb"));
        open_ = place.pack;
    }
    bool whole = false;
    const int code = file_ ? copy_entry(file_.get(), place, whole) : 0;
    return whole ? code : compress(place.id);
}

int PackCopy::run(std::vector<git_oid> ids, uint64_t &written) {
    written = 0;
    std::sort(ids.begin(), ids.end(), below);
    ids.erase(std::unique(ids.begin(), ids.end(),
                          [](const git_oid &a, const git_oid &b) { return git_oid_equal(&a, &b); }),
              ids.end());
    inflates_ = inflateInit(&in_) == Z_OK;
    if (!inflates_) return fail_pack("no memory");
    uint8_t head[12] = {'P', 'A', 'C', 'K', 0, 0, 0, 2};
    store_u32(head + 8, static_cast<uint32_t>(ids.size()));
    int code = give(head, sizeof head);
    find(ids);
    std::sort(places_.begin(), places_.end(), [](const Place &a, const Place &b) {
        return a.pack != b.pack ? a.pack < b.pack : a.offset < b.offset;
    });
    for (size_t n = 0; !code && n < places_.size(); ++n, written += !code) code = copy(places_[n]);
    for (size_t n = 0; !code && n < ids.size(); ++n, written += !code) code = compress(ids[n]);
    uint8_t sum[20];
    if (!code && !sum_.end(sum)) code = fail_pack("no checksum");
    return code ? code : take_(sum, sizeof sum);
}

} // namespace

int copy_pack(git_repository *repository, std::vector<git_oid> ids, const PackTake &take,
              uint64_t &written) {
    return PackCopy(repository, take).run(std::move(ids), written);
}

} // namespace zev
