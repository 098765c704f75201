// Drawing files, the manifests (.dwx) that Git versions. Numbers are unsigned and big-endian, a
// key is 16 bytes, tag and object.
//
//   0   9  magic, "VANE ZEV" and a zero
//   9   4  major version, written as 1; a reader refuses what is above 1.1
//   13  4  minor version, written as 1
//   17  4  check word, 0 or 0xD2FD1072 whatever the content; only a whole read looks at it
//   21  4  section count
//   25     a section each: name length u32, at most 256, the name without a zero, offset u32 from
//          the start of the file. Names disregard case.
//
//   DWXHEADER  table id, 20 bytes; header, summary, DS and VBA key; the last one not in 1.0
//   CLASSES    count u32, keys
//   OBJECTS    count u32, keys
//   THUMBNAIL  size u32, bytes
//   REFERENCE  size u32, bytes
//
// Written are all five in this order, DWXHEADER at 106. They are read wherever they stand. When
// one comes twice, lists are joined and of single values the last one counts; another name ends
// a whole read. Bad content gives a false or null result and raises nothing.
#include "objects/drawing/drawing.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "common/reader.hpp"
#include "system/os.hpp"

#include "zev/path.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace zev {
namespace {

constexpr uint8_t kMagic[9] = {'V', 'A', 'N', 'E', ' ', 'Z', 'E', 'V', 0};
constexpr uint64_t kMagicCompared = 8;
constexpr uint64_t kFixedHead = 25;
constexpr uint32_t kMajor = 1;
constexpr uint32_t kMinor = 1;
// The complement of entry 255 of the reflected CRC-32 table.
constexpr uint32_t kCheck = 0xD2FD1072;

struct Section {
    std::string name;
    uint32_t offset;
};

struct Head {
    uint32_t major;
    uint32_t minor;
    uint32_t check;
    std::vector<Section> sections;
};

// A stream that is read. `take` reads or fails, `holds` tells whether so many bytes can be there
// at all, `step` how many to make room for at once. Large parts go straight to where they are
// kept. A stream may lack seek: that raises standard error 129, and reading goes on where it
// stands.
class Source {
  public:
    explicit Source(Stream *stream)
        : stream_(stream), size_(stream->size ? zStreamSize(stream) : UINT64_MAX) {}
    bool take(void *target, uint64_t count) { return zStreamRead(stream_, target, count) == count; }
    void seek(uint64_t offset) { zStreamSeek(stream_, static_cast<int64_t>(offset), SEEK_SET); }
    bool holds(uint64_t count) const { return count <= size_; }
    uint64_t step() const { return size_ == UINT64_MAX ? limits::step : size_; }

  private:
    Stream *stream_;
    uint64_t size_;
};

bool read_u32(Source &in, uint32_t &value) {
    uint8_t bytes[4];
    if (!in.take(bytes, sizeof bytes)) return false;
    value = load_u32(bytes);
    return true;
}

// `size` bytes in a block of the C heap; null when they are not there.
Malloced<uint8_t> read_block(Source &in, uint64_t size) {
    Malloced<uint8_t> block;
    if (!in.holds(size)) return block;
    for (uint64_t done = 0; done < size;) {
        const uint64_t part = std::min(size - done, in.step());
        void *grown = realloc(block.get(), done + part);
        if (!grown) return fail_memory(), nullptr;
        static_cast<void>(block.release());
        block.reset(static_cast<uint8_t *>(grown));
        if (!in.take(block.get() + done, part)) return nullptr;
        done += part;
    }
    return block;
}

// ---- Head

bool read_section(Source &in, Section &section) {
    uint32_t length = 0;
    if (!read_u32(in, length) || length > limits::section_name) return false;
    section.name.resize(length);
    return in.take(section.name.data(), length) && read_u32(in, section.offset);
}

bool read_head(Source &in, Head &head) {
    uint8_t fixed[kFixedHead];
    if (!in.take(fixed, sizeof fixed) || memcmp(fixed, kMagic, kMagicCompared)) return false;
    head.major = load_u32(fixed + 9);
    head.minor = load_u32(fixed + 13);
    if (head.major > kMajor || (head.major == kMajor && head.minor > kMinor)) return false;
    head.check = load_u32(fixed + 17);
    const uint32_t count = load_u32(fixed + 21);
    if (count > limits::section_count) return false;
    head.sections.resize(count);
    return std::ranges::all_of(head.sections, [&](Section &s) { return read_section(in, s); });
}

bool is_named(const Section &section, const char *name) {
    return section.name.size() == strlen(name) && zStrcasesameA(section.name.c_str(), name);
}

// The last section of a name, or null.
const Section *find_section(const Head &head, const char *name) {
    const Section *found = nullptr;
    for (const Section &section : head.sections)
        if (is_named(section, name)) found = &section;
    return found;
}

// ---- Whole drawings

class Decoder {
  public:
    explicit Decoder(Stream *stream) : in_(stream) {}

    DrawingPtr decode() {
        if (!read_head(in_, head_)) return nullptr;
        drawing_.reset(zDrawingNew(&head_.major, &head_.minor));
        if (!drawing_) return nullptr;
        for (const Section &section : head_.sections)
            if (!read(section)) return nullptr;
        return std::move(drawing_);
    }
    uint32_t check() const { return head_.check; }

  private:
    bool read(const Section &section) {
        in_.seek(section.offset);
        if (is_named(section, "DWXHEADER")) return header();
        if (is_named(section, "CLASSES")) return keys(drawing_->classes.get());
        if (is_named(section, "OBJECTS")) return keys(drawing_->objects.get());
        if (is_named(section, "THUMBNAIL")) return thumbnail();
        if (is_named(section, "REFERENCE")) return reference();
        return false;
    }

    bool key(DrawingKey &key) {
        KeyBytes bytes;
        if (!in_.take(bytes.data(), bytes.size())) return false;
        key = key_from(bytes.data());
        return true;
    }

    bool header() {
        Drawing &d = *drawing_;
        if (!in_.take(d.table.id, sizeof d.table.id)) return false;
        if (!key(d.header) || !key(d.summary) || !key(d.ds)) return false;
        const bool has_vba = d.major >= 2 || d.minor > 0;
        return !has_vba || key(d.vba);
    }

    // Sections may overlap, but all lists together are no longer than the file: else a small file
    // could name one list over and over.
    bool keys(Vector *list) {
        uint32_t count = 0;
        if (!read_u32(in_, count)) return false;
        listed_ += count * uint64_t{sizeof(DrawingKey)};
        if (!in_.holds(listed_)) return false;
        const uint64_t step = in_.step() / sizeof(DrawingKey) + 1;
        for (uint64_t left = count; left;) {
            const uint64_t part = std::min(left, step);
            DrawingKey *slots = extend_keys(list, part);
            if (!slots || !in_.take(slots, part * sizeof *slots)) return false;
            decode_keys(slots, part);
            left -= part;
        }
        return true;
    }

    bool thumbnail() {
        uint32_t size = 0;
        if (!read_u32(in_, size)) return false;
        drawing_->thumbnail = read_block(in_, size);
        drawing_->thumbnail_size = size;
        return !size || drawing_->thumbnail;
    }

    bool reference() {
        uint32_t size = 0;
        if (!read_u32(in_, size)) return false;
        Malloced<uint8_t> block = read_block(in_, size);
        if (size && !block) return false;
        Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
        if (!stream || (size && zStreamWrite(stream.get(), block.get(), size) != size))
            return false;
        zStreamRewind(stream.get());
        drawing_->reference = std::move(stream);
        return true;
    }

    Source in_;
    Head head_{};
    DrawingPtr drawing_;
    uint64_t listed_ = 0;
};

// ---- Writing

class Encoder {
  public:
    explicit Encoder(uint64_t size) : bytes_(size), at_(bytes_.data()) {}
    void raw(const void *bytes, uint64_t count) {
        if (count) memcpy(at_, bytes, count);
        at_ += count;
    }
    void u32(uint64_t value) {
        store_u32(at_, static_cast<uint32_t>(value));
        at_ += 4;
    }
    void key(const DrawingKey &key) {
        store_u64(at_, key.tag);
        store_u64(at_ + 8, key.object);
        at_ += 16;
    }
    void keys(const Vector *list) {
        u32(zVectorSize(list));
        for (const DrawingKey &each : keys_of(list)) key(each);
    }
    // The stream's bytes behind their count; false when fewer came.
    bool stream(Stream *stream, uint64_t count) {
        u32(count);
        zStreamRewind(stream);
        if (count && zStreamRead(stream, at_, count) != count) return false;
        at_ += count;
        return true;
    }
    std::vector<uint8_t> take() { return std::move(bytes_); }

  private:
    std::vector<uint8_t> bytes_;
    uint8_t *at_;
};

// The bytes of a drawing; false, with out of range raised, where an offset would not fit.
bool encode_drawing(const Drawing &drawing, std::vector<uint8_t> &bytes) {
    static constexpr const char *kNames[] = {"DWXHEADER", "CLASSES", "OBJECTS", "THUMBNAIL",
                                             "REFERENCE"};
    const uint64_t reference = zStreamSize(drawing.reference.get());
    const uint64_t sizes[] = {
        sizeof(Oid) + 4 * sizeof(DrawingKey),
        4 + zVectorSize(drawing.classes.get()) * sizeof(DrawingKey),
        4 + zVectorSize(drawing.objects.get()) * sizeof(DrawingKey),
        4 + uint64_t{drawing.thumbnail_size},
        4 + reference,
    };
    uint64_t offset = kFixedHead;
    for (const char *name : kNames) offset += 8 + strlen(name);
    uint64_t total = offset;
    for (uint64_t size : sizes) total += size;
    if (total > UINT32_MAX) return raise_range();

    Encoder out(total);
    out.raw(kMagic, sizeof kMagic);
    for (uint32_t value : {kMajor, kMinor, kCheck}) out.u32(value);
    out.u32(std::size(kNames));
    for (size_t i = 0; i < std::size(kNames); offset += sizes[i++]) {
        out.u32(strlen(kNames[i]));
        out.raw(kNames[i], strlen(kNames[i]));
        out.u32(offset);
    }
    out.raw(drawing.table.id, sizeof drawing.table.id);
    for (const DrawingKey &key : {drawing.header, drawing.summary, drawing.ds, drawing.vba})
        out.key(key);
    out.keys(drawing.classes.get());
    out.keys(drawing.objects.get());
    out.u32(drawing.thumbnail_size);
    out.raw(drawing.thumbnail.get(), drawing.thumbnail_size);
    if (!out.stream(drawing.reference.get(), reference)) return false;
    bytes = out.take();
    return true;
}

// ---- Single sections

// Opens a drawing file at the bytes of a section, behind their size; null when it has none.
struct OpenSection {
    Owned<Stream, zStreamFree> stream;
    Head head{};
    bool is_drawing = false; // the head was read
    uint32_t size = 0;

    bool open(const zwchar *path, const char *name) {
        stream.reset(zFileStream(path, u"rb"));
        if (!stream) return false;
        Source in(stream.get());
        is_drawing = read_head(in, head);
        const Section *section = is_drawing ? find_section(head, name) : nullptr;
        if (!section) return false;
        in.seek(section->offset);
        return read_u32(in, size) && size;
    }
    Malloced<uint8_t> bytes() {
        Source in(stream.get());
        return read_block(in, size);
    }
};

} // namespace

DrawingPtr read_drawing(Stream *stream, uint32_t *check) {
    zStreamRewind(stream);
    Decoder decoder(stream);
    DrawingPtr drawing = decoder.decode();
    if (check) *check = decoder.check();
    return drawing;
}

} // namespace zev

using namespace zev;

Drawing *zDrawingRead(const zwchar *path) try {
    if (!path) return fail_args();
    Owned<Stream, zStreamFree> stream{zFileStream(path, u"rb")};
    if (!stream) return nullptr;
    uint32_t check = 0;
    DrawingPtr drawing = read_drawing(stream.get(), &check);
    return check == 0 || check == kCheck ? drawing.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

// A file that refuses writing is left alone: it would not be opened, only be replaced. So is a
// link: what it leads to may lie in another repository than the rows, and to this one it is no
// drawing.
static bool check_target(const zwchar *path) {
    struct stat status;
    if (!os::lstat(path, &status)) return true;
    if (S_ISLNK(status.st_mode)) return fail_os(ELOOP, path);
    return zPathFileWritable(path) || fail_os(EACCES, path);
}

bool zDrawingWrite(Drawing *drawing, const zwchar *path) try {
    if (!drawing || !path) return fail_args();
    std::vector<uint8_t> bytes;
    if (!encode_drawing(*drawing, bytes) || !check_target(path)) return false;
    zwchar directory[Z_PATH_MAX];
    const bool below = zPathRemoveLast(directory, path);
    if (!sync_rows(below ? directory : u".", drawing->table)) return false; // before it names them
    return os::replace_file(path, bytes.data(), bytes.size()) || fail_errno(path);
} catch (...) {
    return fail_thrown();
}

bool zDrawingDetect(Oid *id, const zwchar *path) {
    if (!path) return fail_args();
    const zwchar *extension = zPathFindExt(path);
    if (!extension || !zStrcasesameW(extension, u".dwx")) return false;
    Owned<Stream, zStreamFree> stream{zFileStream(path, u"rb")};
    return stream && zDrawingDetectStream(id, stream.get());
}

bool zDrawingDetectStream(Oid *id, Stream *stream) try {
    if (!stream) return fail_args();
    zStreamRewind(stream);
    Finally rewind([stream] { zStreamRewind(stream); });
    Source in(stream);
    Head head;
    if (!read_head(in, head)) return false;
    if (!id) return true;
    const Section *section = find_section(head, "DWXHEADER");
    Oid found;
    if (!section) return false;
    in.seek(section->offset);
    if (!in.take(found.id, sizeof found.id)) return false;
    *id = found;
    return true;
} catch (...) {
    return fail_thrown();
}

bool zDrawingTableSame(Stream *a, Stream *b) {
    Oid of_a, of_b;
    return zDrawingDetectStream(&of_a, a) && zDrawingDetectStream(&of_b, b) &&
           !memcmp(&of_a, &of_b, sizeof of_a);
}

void *zDrawingFileThumbnail(const zwchar *path, uint32_t *size) try {
    if (!path || !size) return fail_args();
    *size = 0;
    OpenSection section;
    if (!section.open(path, "THUMBNAIL")) return nullptr;
    Malloced<uint8_t> bytes = section.bytes();
    if (bytes) *size = section.size;
    return bytes.release();
} catch (...) {
    return fail_thrown();
}

Stream *zReadReferenceData(const zwchar *path, uint32_t *major, uint32_t *minor) try {
    if (!path) return fail_args();
    OpenSection section;
    const bool open = section.open(path, "REFERENCE");
    if (section.is_drawing && major) *major = section.head.major;
    if (section.is_drawing && minor) *minor = section.head.minor;
    Malloced<uint8_t> bytes = open ? section.bytes() : nullptr;
    if (!bytes) return nullptr;
    Owned<Stream, zStreamFree> stream{zMemStream(0, section.size)};
    if (!stream || zStreamWrite(stream.get(), bytes.get(), section.size) != section.size)
        return nullptr;
    zStreamRewind(stream.get());
    return stream.release();
} catch (...) {
    return fail_thrown();
}
