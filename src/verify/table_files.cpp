// Numbers are little-endian; a sum is the CRC-32C of its bytes, turned right by 15 bits, plus
// 0xA282EAD8.
//
// CURRENT         the name of the present MANIFEST-<number>, a line feed
// MANIFEST-*, *.log   blocks of 32 KiB of records, none of which crosses into the next block; what
//                 is too short for a record's head at a block's end is zero:
//     0  4  sum of type and bytes
//     4  2  number of bytes
//     6  1  type: 1 a whole one, 2 first, 3 middle, 4 last piece of one
//     7     bytes
// *.ldb           blocks, each followed by its type, 0 plain or 1 compressed, and the sum u32 of
//                 both; at the end 48 bytes: where the meta block and the index block are, offset
//                 and size each as varints, zeros up to 40, and 0xDB4775248B80FB57.
//   index block   entries: varints of shared, other, and value's length, the rest of the key, the
//                 value, which is where a data block is; then offsets u32 and their number u32
//   compressed    varint of the size; then pieces by the low two bits of the first byte: bytes as
//                 they are, or a copy of what came before, with 1, 2 or 4 bytes of distance
//
// A log may end within a record: its writer was killed, and nobody was told that it is stored.

#include "verify/table_files.hpp"

#include "common/guard.hpp"
#include "common/utf.hpp"
#include "system/crc32c.hpp"
#include "verify/files.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace zev::verify {

namespace {

using Bytes = std::string_view;

constexpr size_t kBlock = 32768, kHead = 7, kTrailer = 5, kFooter = 48;
constexpr size_t kLargest = 1u << 30; // of an index block, far beyond what any table has

// ---- Sums

uint32_t number(Bytes bytes, size_t at, size_t count = 4) {
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + i])) << 8 * i;
    return value;
}

bool has_sum(Bytes bytes, uint32_t masked) {
    const uint32_t value = crc32c(bytes.data(), bytes.size());
    return (value >> 15 | value << 17) + 0xA282EAD8u == masked;
}

// ---- Numbers of variable length, and blocks

std::optional<uint64_t> varint(Bytes &bytes) {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64 && !bytes.empty(); shift += 7) {
        const auto byte = static_cast<uint8_t>(bytes.front());
        bytes.remove_prefix(1);
        value |= uint64_t{byte & 127u} << shift;
        if (byte < 128) return value;
    }
    return {};
}

// The bytes of a compressed block, nothing for bad ones.
std::optional<std::string> inflate(Bytes bytes) {
    const auto size = varint(bytes);
    if (!size || *size > kLargest) return {};
    std::string out;
    while (!bytes.empty()) {
        const auto tag = static_cast<uint8_t>(bytes.front());
        bytes.remove_prefix(1);
        const unsigned kind = tag & 3;
        size_t length = 1u + (tag >> 2), more = kind == 1 ? 1 : kind == 2 ? 2 : kind == 3 ? 4 : 0;
        if (kind == 0 && length > 60) more = length - 60;
        if (more > bytes.size()) return {};
        const uint32_t extra = number(bytes, 0, more);
        bytes.remove_prefix(more);
        if (kind == 0) {
            if (more) length = size_t{extra} + 1;
            if (length > bytes.size()) return {};
            out.append(bytes.substr(0, length));
            bytes.remove_prefix(length);
        } else {
            const size_t distance = kind == 1 ? (tag >> 5) * 256u + extra : extra;
            if (kind == 1) length = 4u + (tag >> 2 & 7);
            if (!distance || distance > out.size()) return {};
            for (size_t i = 0; i < length; ++i) out += out[out.size() - distance];
        }
        if (out.size() > *size) return {};
    }
    if (out.size() != *size) return {};
    return out;
}

struct Handle {
    uint64_t offset, size;
};

std::optional<Handle> handle(Bytes &bytes) {
    const auto offset = varint(bytes), size = varint(bytes);
    if (!offset || !size) return {};
    return Handle{*offset, *size};
}

// With its type behind it; nothing when the sum is another one.
std::optional<Bytes> block_at(Bytes file, const Handle &at) {
    const uint64_t room = file.size() - kFooter;
    if (at.offset > room || at.size > room - at.offset || room - at.offset - at.size < kTrailer)
        return {};
    const Bytes block = file.substr(at.offset, at.size + 1);
    if (!has_sum(block, number(file, at.offset + at.size + 1))) return {};
    return block;
}

bool check_data_blocks(Bytes file, Bytes index) {
    std::optional<std::string> inflated;
    const char type = index.back();
    index.remove_suffix(1);
    if (type == 1) {
        if (!(inflated = inflate(index))) return false;
        index = *inflated;
    }
    if (index.size() < 4) return false;
    const uint64_t restarts = number(index, index.size() - 4);
    if (restarts > index.size() / 4 - 1) return false;
    index.remove_suffix(4 + 4 * restarts);
    while (!index.empty()) {
        const auto shared = varint(index), other = varint(index), length = varint(index);
        if (!shared || !other || !length || *other > index.size() ||
            *length > index.size() - *other)
            return false;
        Bytes value = index.substr(*other, *length);
        index.remove_prefix(*other + *length);
        const auto at = handle(value);
        if (!at || !block_at(file, *at)) return false;
    }
    return true;
}

// What is wrong; nothing for a sound one. Without `sums` only the end is looked at.
const char *fault_of_table(Bytes file, bool sums) {
    constexpr uint8_t kMagic[] = {0x57, 0xfb, 0x80, 0x8b, 0x24, 0x75, 0x47, 0xdb};
    if (file.size() < kFooter) return "is cut off";
    Bytes footer = file.substr(file.size() - kFooter, kFooter - sizeof kMagic);
    if (memcmp(file.data() + file.size() - sizeof kMagic, kMagic, sizeof kMagic))
        return "is damaged at its end";
    const auto meta = handle(footer), index = handle(footer);
    if (!meta || !index || footer.find_first_not_of('\0') != footer.npos)
        return "is damaged at its end";
    if (!sums) return nullptr;
    const auto index_block = block_at(file, *index);
    if (!block_at(file, *meta) || !index_block) return "has a damaged index";
    return check_data_blocks(file, *index_block) ? nullptr : "has a damaged block";
}

// ---- Logs

const char *fault_of_log(Bytes file, bool may_end_early) {
    size_t at = 0;
    bool within = false; // a record that goes on
    while (at < file.size()) {
        const size_t left = kBlock - at % kBlock;
        if (left < kHead) {
            const Bytes rest = file.substr(at, left);
            if (rest.find_first_not_of('\0') != rest.npos) return "has a damaged record";
            at += rest.size();
            continue;
        }
        if (file.size() - at < kHead) return may_end_early ? nullptr : "is cut off";
        const size_t length = number(file, at + 4, 2);
        const auto type = static_cast<uint8_t>(file[at + 6]);
        if (type < 1 || type > 4 || kHead + length > left || within != (type > 2))
            return "has a damaged record";
        if (file.size() - at - kHead < length) return may_end_early ? nullptr : "is cut off";
        if (!has_sum(file.substr(at + 6, length + 1), number(file, at)))
            return "has a damaged record";
        within = type == 2 || type == 3;
        at += kHead + length;
    }
    return within && !may_end_early ? "is cut off" : nullptr;
}

// Files one after the other, in one buffer that grows to the largest. A file that can't be read
// shows as one that is cut off.
class FileReader {
  public:
    explicit FileReader(const std::u16string &directory) : directory_(directory) {}

    Bytes whole(const std::string &name) { return last(name, UINT64_MAX); }

    // At most the last `count` bytes.
    Bytes last(const std::string &name, uint64_t count) {
        const Owned<FILE, fclose> file(os::open((directory_ + to_wide(name)).c_str(), u"rb"));
        uint64_t end = 0;
        if (!file || !os::size(file.get(), &end)) return {};
        setvbuf(file.get(), nullptr, _IONBF, 0);
        const uint64_t size = std::min(end, count);
        if (bytes_.size() < size) bytes_.resize(size);
        if (!os::seek(file.get(), static_cast<int64_t>(end - size), SEEK_SET)) return {};
        return Bytes(bytes_).substr(0, fread(bytes_.data(), 1, size, file.get()));
    }

  private:
    const std::u16string &directory_;
    std::string bytes_;
};

bool is_number(Bytes text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

bool is_row_file(Bytes name) { return name.ends_with(".ldb") || name.ends_with(".sst"); }

const char *fault_of_rows(FileReader &files, const std::string &name, bool sums) {
    return sums ? fault_of_table(files.whole(name), true)
                : fault_of_table(files.last(name, kFooter), false);
}

// What says which files count; empty if it is sound.
std::vector<TableFault> faults_of_head(FileReader &files, const std::u16string &directory) {
    const std::string current(files.whole("CURRENT"));
    const std::string manifest = current.substr(0, current.find('\n'));
    const bool named = current.size() == manifest.size() + 1 && manifest.starts_with("MANIFEST-") &&
                       is_number(std::string_view(manifest).substr(9));
    if (!named) return {{"CURRENT", current.empty() ? "is missing" : "is damaged", false}};
    if (!exists(directory + to_wide(manifest))) return {{manifest, "is missing", false}};
    if (const char *fault = fault_of_log(files.whole(manifest), false))
        return {{manifest, fault, false}};
    return {};
}

} // namespace

std::vector<TableFault> find_table_faults(const std::u16string &directory, bool sums) {
    FileReader files(directory);
    std::vector<TableFault> faults = faults_of_head(files, directory);
    if (!faults.empty()) return faults;
    bool has_log = false, has_rows = false;
    visit_files(directory, false, [&](const std::u16string &, const std::u16string &wide) {
        const std::string name = to_utf8(wide);
        if (!is_number(name.substr(0, name.find('.')))) return;
        const bool is_log = name.ends_with(".log"), is_rows = is_row_file(name);
        has_log |= is_log;
        has_rows |= is_rows;
        const char *what = is_log    ? fault_of_log(files.whole(name), true)
                           : is_rows ? fault_of_rows(files, name, sums)
                                     : nullptr;
        if (what) faults.push_back({name, what, is_rows});
    });
    // Opening makes one before anything names it, and an empty one is taken away beside rows only.
    if (!has_log && !has_rows) faults.push_back({"its log", "is missing", false});
    return faults;
}

bool still_at_fault(const std::u16string &directory, const TableFault &fault, bool sums) {
    FileReader files(directory);
    return exists(directory + to_wide(fault.file)) && fault_of_rows(files, fault.file, sums);
}

} // namespace zev::verify
