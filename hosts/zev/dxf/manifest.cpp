// A .dwx file, numbers unsigned and big-endian:
//    0  9  "VANE ZEV" and a zero
//    9  4  major version, at most 1
//   13  4  minor version, at most 1 when major is 1
//   17  4  check word, 0 or 0xD2FD1072
//   21  4  number of sections, then for each: length of its name u32, the name, its offset u32
// Sections stand anywhere, names disregard case:
//   DWXHEADER  table id 20; keys of header, summary, layout; of the VBA project if minor is not 0
//   CLASSES, OBJECTS      count u32, the keys; pieces of a list make one
//   THUMBNAIL, REFERENCE  size u32, the bytes
// A key is tag u64, object u64. Any other section, and what reaches beyond the end, is refused.

#include "dxf/manifest.hpp"

#include <algorithm>
#include <bit>
#include <numeric>

namespace dxf {

namespace {

constexpr std::string_view kMagic = "VANE ZEV";
constexpr uint32_t kCheckWord = 0xD2FD1072;
constexpr uint32_t kMaxSections = 64; // a whole file has five
constexpr uint32_t kMaxName = 256;
constexpr size_t kKey = sizeof(RawKey);

// Takes pieces off the front of bytes; once they don't suffice it gives nothing any more.
class Cursor {
  public:
    explicit Cursor(std::string_view bytes) : left_(bytes) {}
    bool good() const { return good_; }
    std::string_view take(uint64_t count) {
        good_ = good_ && count <= left_.size();
        if (!good_) return {};
        std::string_view piece = left_.substr(0, count);
        left_.remove_prefix(count);
        return piece;
    }
    uint32_t u32() {
        uint32_t number = 0;
        for (char byte : take(4)) number = number << 8 | static_cast<uint8_t>(byte);
        return number;
    }
    RawKey key() {
        std::string_view bytes = take(kKey);
        return good_ ? KeyList(bytes)[0] : RawKey{};
    }

  private:
    std::string_view left_;
    bool good_ = true;
};

bool is_named(std::string_view name, const char *wanted) {
    return zStrcasesameA(std::string(name).c_str(), wanted);
}

} // namespace

uint64_t turned(uint64_t number) {
    if constexpr (std::endian::native == std::endian::big) return number;
    return __builtin_bswap64(number);
}

class ManifestReader {
  public:
    explicit ManifestReader(std::string_view bytes) : bytes_(bytes) {}

    bool run() {
        Cursor head(bytes_);
        if (head.take(kMagic.size() + 1).substr(0, kMagic.size()) != kMagic) return false;
        const uint32_t major = head.u32(), minor = head.u32(), word = head.u32();
        const uint32_t count = head.u32();
        if (!head.good() || major > 1 || (major == 1 && minor > 1)) return false;
        if ((word && word != kCheckWord) || count > kMaxSections) return false;
        has_vba_ = minor > 0;
        for (uint32_t i = 0; i < count; ++i)
            if (!section(head)) return false;
        return true;
    }

    Manifest manifest;

  private:
    bool section(Cursor &head) {
        const uint32_t length = head.u32();
        if (length > kMaxName) return false;
        const std::string_view name = head.take(length);
        const uint32_t offset = head.u32();
        if (!head.good() || offset > bytes_.size()) return false;
        Cursor body(bytes_.substr(offset));
        if (is_named(name, "DWXHEADER")) return header(body);
        if (is_named(name, "CLASSES"))
            return list(body, manifest.classes, manifest.joined_classes_);
        if (is_named(name, "OBJECTS"))
            return list(body, manifest.objects, manifest.joined_objects_);
        if (!is_named(name, "THUMBNAIL") && !is_named(name, "REFERENCE")) return false;
        body.take(body.u32());
        return body.good();
    }

    bool header(Cursor &body) {
        const std::string_view id = body.take(sizeof manifest.table.id);
        manifest.header = body.key();
        manifest.summary = body.key();
        manifest.layout = body.key();
        manifest.vba = has_vba_ ? body.key() : RawKey{};
        if (body.good()) memcpy(manifest.table.id, id.data(), id.size());
        return body.good();
    }

    bool list(Cursor &body, KeyList &keys, std::vector<char> &joined) {
        const std::string_view bytes = body.take(uint64_t{body.u32()} * kKey);
        listed_ += bytes.size();
        if (!body.good() || listed_ > bytes_.size()) return false; // sections on top of each other
        if (!keys.size()) return keys = KeyList(bytes), true;
        if (joined.empty())
            for (size_t i = 0; i < keys.size(); ++i) append(joined, keys[i]);
        joined.insert(joined.end(), bytes.begin(), bytes.end());
        return keys = KeyList({joined.data(), joined.size()}), true;
    }

    static void append(std::vector<char> &joined, const RawKey &key) {
        const char *bytes = reinterpret_cast<const char *>(&key);
        joined.insert(joined.end(), bytes, bytes + sizeof key);
    }

    std::string_view bytes_;
    uint64_t listed_ = 0; // bytes of keys so far
    bool has_vba_ = false;
};

std::optional<Manifest> Manifest::read(std::string_view bytes) {
    ManifestReader reader(bytes);
    if (!reader.run()) return {};
    return std::move(reader.manifest);
}

namespace {

std::vector<uint32_t> by_number(const KeyList &keys) {
    std::vector<uint32_t> order(keys.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return turned(keys.object(a)) < turned(keys.object(b));
    });
    return order;
}

} // namespace

std::vector<ObjectChange> compare_objects(const KeyList &from, const KeyList &to) {
    std::vector<ObjectChange> removed;
    std::vector<std::pair<uint32_t, ObjectChange>> newer; // with their places
    const std::vector<uint32_t> left = by_number(from), right = by_number(to);
    for (size_t i = 0, j = 0; i < left.size() || j < right.size();) {
        const DrawingKey a = i < left.size() ? turned(from[left[i]]) : DrawingKey{};
        const DrawingKey b = j < right.size() ? turned(to[right[j]]) : DrawingKey{};
        const bool takes_old = j == right.size() || (i < left.size() && a.object <= b.object);
        const bool takes_new = i == left.size() || (j < right.size() && b.object <= a.object);
        if (takes_old && takes_new && a.tag != b.tag)
            newer.push_back({right[j], {ObjectChange::modified, b.object, a, b}});
        else if (takes_new && !takes_old)
            newer.push_back({right[j], {ObjectChange::added, b.object, {}, b}});
        else if (takes_old && !takes_new)
            removed.push_back({ObjectChange::removed, a.object, a, {}});
        i += takes_old, j += takes_new;
    }
    std::sort(newer.begin(), newer.end(), [](const auto &a, const auto &b) {
        return std::pair(a.second.kind, a.first) < std::pair(b.second.kind, b.first);
    });
    std::vector<ObjectChange> changes;
    for (const auto &[place, change] : newer) changes.push_back(change);
    changes.insert(changes.end(), removed.begin(), removed.end());
    return changes;
}

} // namespace dxf
