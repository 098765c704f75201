// Manifest: the keys of a drawing in the bytes of its .dwx file, and what became of each from one
// version to another.
#pragma once

#include "host.hpp"

#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace dxf {

// A key as it stands in the file. Its two numbers are compared as they are, and turned only for
// whom they are shown to.
struct RawKey {
    uint64_t tag, object;
    bool operator==(const RawKey &) const = default;
};

// A number between its form in the file, big-endian, and the machine's.
uint64_t turned(uint64_t number);
inline DrawingKey turned(const RawKey &key) { return {turned(key.tag), turned(key.object)}; }
inline RawKey raw(const DrawingKey &key) { return {turned(key.tag), turned(key.object)}; }

// Keys side by side in bytes that somebody else owns.
class KeyList {
  public:
    KeyList() = default;
    explicit KeyList(std::string_view bytes) : data_(bytes.data()), size_(bytes.size() / 16) {}
    size_t size() const { return size_; }
    RawKey operator[](size_t place) const {
        RawKey key;
        memcpy(&key, data_ + place * sizeof key, sizeof key);
        return key;
    }
    uint64_t object(size_t place) const {
        uint64_t number;
        memcpy(&number, data_ + place * sizeof(RawKey) + sizeof number, sizeof number);
        return number;
    }

  private:
    const char *data_ = nullptr;
    size_t size_ = 0;
};

class Manifest {
  public:
    Manifest() = default;
    // Nothing when the bytes, which must outlive it, are no whole drawing.
    static std::optional<Manifest> read(std::string_view bytes);

    Oid table{};
    RawKey header{}, summary{}, layout{};
    RawKey vba{}; // all zero where there is no project
    KeyList classes, objects;
    std::string_view reference; // the reference data

  private:
    struct Deinit {
        void operator()(::Manifest *manifest) const;
    };
    std::unique_ptr<::Manifest, Deinit> lent_from_;
};

// What became of one object from a version to a newer one. The key of a side that lacks it is zero.
struct ObjectChange {
    enum Kind : uint8_t { added, modified, removed };
    Kind kind;
    uint64_t number;
    DrawingKey from, to;
};

// Added ones first, then modified, both in the order of the newer list; removed ones by number.
std::vector<ObjectChange> compare_objects(const KeyList &from, const KeyList &to);

} // namespace dxf
