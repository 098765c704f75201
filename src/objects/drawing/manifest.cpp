// The form of the file is told in drawing_file.cpp. Sections may stand on top of each other, but
// all lists together are no longer than the file: else a small one could name a list for ever.
#include "zev/manifest.h"

#include "common/limits.hpp"
#include "common/reader.hpp"
#include "objects/drawing/drawing.hpp"
#include "zev/str.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace zev;

namespace {

constexpr std::string_view kMagic = "VANE ZEV";
constexpr uint32_t kCheckWord = 0xD2FD1072;
constexpr uint64_t kKey = sizeof(KeyBytes);

// Lists that came in pieces.
struct Joined {
    std::vector<uint8_t> classes, objects;
};

bool is_named(const std::string &name, const char *wanted) {
    return name.size() == std::char_traits<char>::length(wanted) &&
           zStrcasesameA(name.c_str(), wanted);
}

DrawingKey take_key(Reader &in) {
    const uint64_t tag = in.u64(), object = in.u64();
    return {tag, object};
}

class ManifestReader {
  public:
    ManifestReader(std::span<const uint8_t> bytes, Manifest &manifest)
        : bytes_(bytes), manifest_(manifest) {}

    bool run() {
        Reader head(bytes_);
        const auto magic = head.take(kMagic.size() + 1);
        if (!head.ok() || memcmp(magic.data(), kMagic.data(), kMagic.size())) return false;
        const uint32_t major = head.u32(), minor = head.u32(), word = head.u32();
        const uint32_t count = head.u32();
        if (!head.ok() || major > 1 || (major == 1 && minor > 1)) return false;
        if ((word && word != kCheckWord) || count > limits::section_count) return false;
        has_vba_ = minor > 0;
        for (uint32_t i = 0; i < count; ++i)
            if (!section(head)) return false;
        manifest_.joined = joined_.release();
        return true;
    }

  private:
    bool section(Reader &head) {
        const uint32_t length = head.u32();
        if (length > limits::section_name) return false;
        const auto text = head.take(length);
        const std::string name(text.begin(), text.end());
        const uint32_t offset = head.u32();
        if (!head.ok() || offset > bytes_.size()) return false;
        Reader body(bytes_.subspan(offset));
        if (is_named(name, "DWXHEADER")) return header(body);
        if (is_named(name, "CLASSES"))
            return list(body, manifest_.classes, manifest_.class_count, &Joined::classes);
        if (is_named(name, "OBJECTS"))
            return list(body, manifest_.objects, manifest_.object_count, &Joined::objects);
        const bool is_reference = is_named(name, "REFERENCE");
        if (!is_reference && !is_named(name, "THUMBNAIL")) return false;
        const auto block = body.take(body.u32());
        if (is_reference)
            manifest_.reference = block.data(), manifest_.reference_size = block.size();
        return body.ok();
    }

    bool header(Reader &body) {
        const auto id = body.take(sizeof manifest_.table.id);
        manifest_.header = take_key(body);
        manifest_.summary = take_key(body);
        manifest_.ds = take_key(body);
        manifest_.vba = has_vba_ ? take_key(body) : DrawingKey{};
        if (body.ok()) memcpy(manifest_.table.id, id.data(), id.size());
        return body.ok();
    }

    bool list(Reader &body, const uint8_t *&keys, uint64_t &count,
              std::vector<uint8_t> Joined::*place) {
        const auto bytes = body.take(body.u32() * kKey);
        listed_ += bytes.size();
        if (!body.ok() || listed_ > bytes_.size()) return false;
        if (!count) {
            keys = bytes.data();
        } else {
            if (!joined_) joined_ = std::make_unique<Joined>();
            std::vector<uint8_t> &joined = (*joined_).*place;
            if (joined.empty()) joined.assign(keys, keys + count * kKey);
            joined.insert(joined.end(), bytes.begin(), bytes.end());
            keys = joined.data();
        }
        count += bytes.size() / kKey;
        return true;
    }

    std::span<const uint8_t> bytes_;
    Manifest &manifest_;
    std::unique_ptr<Joined> joined_;
    uint64_t listed_ = 0; // bytes of keys so far
    bool has_vba_ = false;
};

} // namespace

bool zManifestRead(Manifest *manifest, const void *bytes, uint64_t size) try {
    if (!manifest || (!bytes && size)) return fail_args();
    Manifest read{};
    if (!ManifestReader({static_cast<const uint8_t *>(bytes), size}, read).run()) return false;
    *manifest = read;
    return true;
} catch (...) {
    return fail_thrown();
}

void zManifestDeinit(Manifest *manifest) {
    if (!manifest) return;
    const std::unique_ptr<Joined> joined(static_cast<Joined *>(manifest->joined));
    *manifest = {};
}

bool zManifestKey(DrawingKey *key, const uint8_t *list, uint64_t index) {
    if (!key || !list) return fail_args();
    *key = key_from(list + index * kKey);
    return true;
}
