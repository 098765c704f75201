// Of packs only what is needed to find a large object is read here; all others are libgit2's.
//
//   pack-*.idx   FF "tOc", version u32 2; 256 times u32, how many ids begin with a byte up to that
//                one; the ids, ascending; a sum u32 each; an offset u32 each, one with bit 31
//                counts in the list of u64 behind. Big-endian
//   pack-*.pack  at an offset: type in bits 4 to 6 of a byte, 1 to 4 for whole objects; the size in
//                its low four bits and in seven of each further byte, as long as bit 7 is set; a
//                zlib stream
#include "verify/object_reader.hpp"

#include "common/reader.hpp"
#include "common/utf.hpp"
#include "objects/drawing/drawing.hpp"
#include "objects/store/loose_object.hpp"
#include "objects/store/object_form.hpp"
#include "verify/files.hpp"

#include <cassert>
#include <cstring>

#include <zlib.h>

namespace zev::verify {

namespace {

constexpr size_t kBlock = 1u << 16;
constexpr uint64_t kLarge = 4u << 20; // from here on an object is not taken into memory whole
constexpr int64_t kNames = 8 + 256 * 4;
constexpr uint8_t kIndexMagic[] = {0xFF, 't', 'O', 'c', 0, 0, 0, 2};

bool read_at(FILE *file, int64_t offset, void *bytes, size_t size) {
    return os::seek(file, offset, SEEK_SET) && fread(bytes, 1, size, file) == size;
}

} // namespace

ObjectReader::ObjectReader(git_repository *repository)
    : directory_(objects_directory(repository)), block_(new uint8_t[kBlock]),
      inflated_(new uint8_t[kBlock]) {
    git_repository_odb(out(odb_), repository);
}

bool ObjectReader::fail(const char *why) {
    reason_ = why;
    return false;
}

bool ObjectReader::fail_git() {
    const git_error *error = git_error_last();
    return fail(error ? error->message : "can't be read");
}

void ObjectReader::begin(int type, uint64_t size) {
    const std::string head = object_head(static_cast<git_object_t>(type), size);
    sum_.add(head.data(), head.size());
}

bool ObjectReader::has_name(const Oid &id) {
    Oid sum;
    return sum_.end(sum.id) && !memcmp(sum.id, id.id, sizeof id.id);
}

int32_t ObjectReader::type_of(const Oid &id) {
    reason_ = "damaged";
    LooseObject loose;
    const auto found = loose.open(directory_, *git::oid(&id));
    if (found == LooseObject::Found::sound) return loose.type();
    if (found == LooseObject::Found::damaged) return 0;
    size_t size;
    git_object_t type;
    if (git_odb_read_header(&size, &type, odb_.get(), git::oid(&id)) < 0) return fail_git(), 0;
    return type;
}

bool ObjectReader::read(const Oid &id, bool keep) {
    assert(is_open());
    content_ = {};
    packed_.reset();
    LooseObject loose;
    const auto found = loose.open(directory_, *git::oid(&id));
    if (found == LooseObject::Found::missing) return read_packed(id, keep);
    const bool sound = found == LooseObject::Found::sound && read_loose(loose, id, keep);
    return sound || fail("damaged");
}

// No room is made for a size that the bytes don't bear out.
bool ObjectReader::read_loose(LooseObject &object, const Oid &id, bool keep) {
    bytes_.clear();
    begin(object.type(), object.size());
    uint64_t left = object.size();
    while (left) {
        const int64_t got = object.read(inflated_.get(), std::min<uint64_t>(left, kBlock));
        const auto count = static_cast<size_t>(got);
        if (got <= 0) break;
        sum_.add(inflated_.get(), count);
        if (keep) bytes_.append(reinterpret_cast<char *>(inflated_.get()), count);
        left -= count;
    }
    content_ = bytes_;
    return has_name(id) && !left && object.ends();
}

bool ObjectReader::read_packed(const Oid &id, bool keep) {
    size_t size;
    git_object_t type;
    if (git_odb_read_header(&size, &type, odb_.get(), git::oid(&id)) < 0) return fail_git();
    if (!keep && size >= kLarge) {
        list_packs();
        for (Pack &pack : packs_) {
            uint64_t offset = 0;
            bool is_whole = false;
            if (!open(pack) || !find(pack, id, &offset)) continue;
            const bool sound = read_large(pack, offset, id, &is_whole);
            if (is_whole) return sound || fail("damaged");
        }
    }
    if (git_odb_read(out(packed_), odb_.get(), git::oid(&id)) < 0) return fail_git();
    content_ = {static_cast<const char *>(git_odb_object_data(packed_.get())),
                git_odb_object_size(packed_.get())};
    return true;
}

void ObjectReader::list_packs() {
    if (listed_) return;
    listed_ = true;
    visit_files(directory_ + u"pack/", false,
                [this](const std::u16string &path, const std::u16string &name) {
                    if (name.ends_with(u".idx"))
                        packs_.emplace_back().path = path.substr(0, path.size() - 4);
                });
}

bool ObjectReader::open(Pack &pack) {
    if (pack.failed || pack.index) return !pack.failed;
    uint8_t head[kNames];
    pack.index.reset(os::open((pack.path + u".idx").c_str(), u"rb"));
    pack.pack.reset(os::open((pack.path + u".pack").c_str(), u"rb"));
    pack.failed = !pack.index || !pack.pack ||
                  fread(head, 1, sizeof head, pack.index.get()) != sizeof head ||
                  memcmp(head, kIndexMagic, sizeof kIndexMagic);
    for (size_t i = 0; i < pack.fanout.size(); ++i) pack.fanout[i] = load_u32(head + 8 + 4 * i);
    return !pack.failed;
}

bool ObjectReader::find(Pack &pack, const Oid &id, uint64_t *offset) {
    FILE *index = pack.index.get();
    const int64_t count = pack.fanout[255];
    int64_t low = id.id[0] ? pack.fanout[id.id[0] - 1u] : 0, high = pack.fanout[id.id[0]];
    while (low < high) {
        const int64_t middle = low + (high - low) / 2;
        Oid there;
        if (!read_at(index, kNames + 20 * middle, there.id, sizeof there.id)) return false;
        const int order = memcmp(there.id, id.id, sizeof id.id);
        if (!order) {
            uint8_t bytes[8];
            if (!read_at(index, kNames + 24 * count + 4 * middle, bytes, 4)) return false;
            *offset = load_u32(bytes);
            if (!(*offset >> 31)) return true;
            const auto place = static_cast<int64_t>(*offset & 0x7FFFFFFF);
            if (!read_at(index, kNames + 28 * count + 8 * place, bytes, 8)) return false;
            return *offset = load_u64(bytes), true;
        }
        (order < 0 ? low : high) = order < 0 ? middle + 1 : middle;
    }
    return false;
}

// Differences to other objects are left to libgit2: of large ones there are none.
bool ObjectReader::read_large(Pack &pack, uint64_t offset, const Oid &id, bool *is_whole) {
    FILE *file = pack.pack.get();
    if (!os::seek(file, static_cast<int64_t>(offset), SEEK_SET)) return false;
    int byte = getc(file);
    const int type = byte >> 4 & 7;
    *is_whole = byte != EOF && type >= GIT_OBJECT_COMMIT && type <= GIT_OBJECT_TAG;
    auto size = static_cast<uint64_t>(byte & 15);
    for (unsigned shift = 4; *is_whole && byte & 128; shift += 7) {
        byte = getc(file);
        if (byte == EOF || shift > 57) return false;
        size |= static_cast<uint64_t>(byte & 127) << shift;
    }
    if (!*is_whole) return false;
    begin(type, size);
    const bool whole = inflate(file, size);
    return has_name(id) && whole; // asked in any case: the sum begins anew
}

// Exactly so many bytes into the sum.
bool ObjectReader::inflate(FILE *file, uint64_t size) {
    z_stream state{};
    if (inflateInit(&state) != Z_OK) return false;
    const Finally end([&state] { inflateEnd(&state); });
    int code = Z_OK;
    while (code == Z_OK) {
        if (!state.avail_in) {
            state.next_in = block_.get();
            state.avail_in = static_cast<uInt>(fread(block_.get(), 1, kBlock, file));
        }
        state.next_out = inflated_.get();
        state.avail_out = kBlock;
        code = ::inflate(&state, Z_NO_FLUSH);
        const size_t got = kBlock - state.avail_out;
        if (got > size) return false;
        size -= got;
        sum_.add(inflated_.get(), got);
    }
    return code == Z_STREAM_END && !size;
}

} // namespace zev::verify
