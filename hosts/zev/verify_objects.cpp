// Objects are read raw and once each, commits and trees in the form that git gives them:
//   commit   lines "tree <hex>", "parent <hex>" (any number), others, an empty line, the message
//   tree     entries of mode in octal digits, blank, name, zero byte, 20 bytes of id
//   tag      "object <hex>" comes first
// Reading compares an object with its name. Packs are also compared with their own sums, which
// reaches what no reference does.
#include "verify.hpp"

#include "bytes.hpp"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// Of a VBA project: its number, and what stands for its tag where there is none.
constexpr uint64_t kVba = UINT64_MAX - 3, kNoVbaTag = 0xFFFFFFFF;

// The sum that ends compressed bytes, big-endian: a stream that ends before it tells nothing.
uint32_t adler32(std::string_view bytes) {
    constexpr uint32_t kPrime = 65521;
    constexpr size_t kUntilOverflow = 5552;
    uint32_t low = 1, high = 0;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kUntilOverflow))) {
        for (char byte : bytes.substr(0, kUntilOverflow))
            low += static_cast<uint8_t>(byte), high += low;
        low %= kPrime, high %= kPrime;
    }
    return high << 16 | low;
}

bool ends_in(const fs::path &path, uint32_t sum) {
    std::ifstream file(path, std::ios::binary);
    char last[4];
    if (!file.seekg(-4, std::ios::end) || !file.read(last, sizeof last)) return false;
    for (int i = 0; i < 4; ++i)
        if (static_cast<uint8_t>(last[i]) != (sum >> (24 - 8 * i) & 255)) return false;
    return true;
}

// An object to look at, and on whose behalf.
struct Item {
    Oid id;
    int32_t type; // 0: not known
    Place place;
};

class Objects {
  public:
    Objects(Report &report, const WorkingCopy &copy)
        : report_(report), odb_(check(zOdbOpen(copy.repository()))),
          store_(shared_directory(copy) / "objects") {}

    Tables run(const std::vector<Tip> &tips) {
        for (const Tip &tip : tips) push(tip.id, 0, {.path = tip.name});
        while (!pending_.empty()) {
            if (++report_.objects % kPoll == 0) report_.stop_on_break();
            const Item item = std::move(pending_.back());
            pending_.pop_back();
            visit(item);
        }
        check_store();
        return collector_.take();
    }

  private:
    static constexpr uint64_t kPoll = 256;

    void push(const Oid &id, int32_t type, const Place &place) {
        if (seen_.insert(id).second) pending_.push_back({id, type, place});
    }

    void unreadable(const Item &item) {
        report_.lost_objects = true;
        report_.problem(item.place, "object " + hex(&item.id) + ": " + narrow(zErrorDetail()));
    }
    void damaged(const Item &item) {
        zRaiseError(kGit, -1, u"damaged", nullptr);
        unreadable(item);
    }

    void visit(const Item &item) {
        report_.host.out.progress("verifying object " + std::to_string(report_.objects));
        const int32_t type = item.type ? item.type : type_of(item.id);
        if (type <= 0) return unreadable(item);
        if (type == Z_OBJECT_BLOB) return visit_file(item);
        if (!read(item)) return;
        if (type == Z_OBJECT_COMMIT) visit_commit(item);
        if (type == Z_OBJECT_TREE) visit_tree(item, std::move(bytes_.data));
        if (type == Z_OBJECT_TAG) push_named(bytes_.data, "object ", 0, item.place);
    }

    // Into bytes_. Loose ones are read here: git's library doesn't come back from one that is cut
    // off.
    bool read(const Item &item) {
        bytes_.data.clear();
        bytes_.failed = false;
        if (const fs::path file = loose_file(item.id); fs::exists(file)) {
            if (read_loose(file, item.id)) return true;
            return damaged(item), false;
        }
        const bool done = zOdbRead(odb_.get(), &item.id, &bytes_) && !bytes_.failed;
        if (!done) unreadable(item);
        return done;
    }

    fs::path loose_file(const Oid &id) const {
        const std::string digits = hex(&id);
        return store_ / digits.substr(0, 2) / digits.substr(2);
    }

    // "<type> <size>", a zero byte, the content: compressed as a whole, and named by its sum.
    bool read_loose(const fs::path &file, const Oid &id) {
        constexpr uint64_t kStep = 1 << 16;
        const OwnedStream in(zUnzipFile(file.u16string().c_str(), u"deflate"));
        if (!in) return false;
        for (uint64_t got = kStep; got;) {
            const size_t end = bytes_.data.size();
            bytes_.data.resize(end + kStep);
            got = zStreamRead(in.get(), bytes_.data.data() + end, kStep);
            bytes_.data.resize(end + got);
        }
        Oid sum;
        if (zStreamError(in.get()) || !ends_in(file, adler32(bytes_.data)) ||
            !zOidFromBuffer(&sum, bytes_.data.data(), bytes_.data.size()) ||
            !zOidIsEqual(&sum, &id))
            return false;
        bytes_.data.erase(0, bytes_.data.find('\0') + 1);
        return true;
    }

    // From its head alone; 0 or less for none.
    int32_t type_of(const Oid &id) {
        const fs::path file = loose_file(id);
        if (!fs::exists(file)) return zOdbType(odb_.get(), &id);
        char head[8] = {};
        const OwnedStream in(zUnzipFile(file.u16string().c_str(), u"deflate"));
        if (in) zStreamRead(in.get(), head, sizeof head - 1);
        const std::string_view start(head), word = start.substr(0, start.find(' '));
        zRaiseError(kGit, -1, u"damaged", nullptr); // in case
        if (word == "blob") return Z_OBJECT_BLOB;
        if (word == "tree") return Z_OBJECT_TREE;
        if (word == "commit") return Z_OBJECT_COMMIT;
        return word == "tag" ? int32_t{Z_OBJECT_TAG} : 0;
    }

    void visit_commit(const Item &item) {
        ++report_.commits;
        const Place own{{}, item.id};
        std::string_view head(bytes_.data);
        head = head.substr(0, head.find("\n\n"));
        if (!head.starts_with("tree ")) report_.problem(own, "is no commit");
        while (!head.empty()) {
            const std::string_view line = head.substr(0, head.find('\n'));
            head.remove_prefix(std::min(line.size() + 1, head.size()));
            push_named(line, "parent ", Z_OBJECT_COMMIT, own);
            push_named(line, "tree ", Z_OBJECT_TREE, own);
        }
    }

    // An id in digits behind a word at the start of the text.
    void push_named(std::string_view text, std::string_view word, int32_t type,
                    const Place &place) {
        Oid id;
        if (!text.starts_with(word)) return;
        const std::string digits(text.substr(word.size(), 40));
        if (zOidFromStr(&id, wide(digits).c_str())) push(id, type, place);
    }

    void visit_tree(const Item &item, const std::string &content) {
        ++report_.trees;
        std::string_view bytes = content;
        while (!bytes.empty()) {
            const size_t blank = bytes.find(' '), zero = bytes.find('\0');
            if (blank > zero || zero == bytes.npos || bytes.size() - zero < 21)
                return report_.problem(item.place, "damaged tree " + hex(&item.id));
            const std::string_view mode = bytes.substr(0, blank);
            const std::string name(bytes.substr(blank + 1, zero - blank - 1));
            Oid id;
            memcpy(id.id, bytes.data() + zero + 1, sizeof id.id);
            bytes.remove_prefix(zero + 21);
            if (mode == "160000") continue; // a commit of another repository
            const std::string &above = item.place.path;
            push_entry(id, mode == "40000",
                       {above.empty() ? name : above + "/" + name, item.place.commit});
        }
    }

    // What was seen under another name may be a drawing under this one.
    void push_entry(const Oid &id, bool is_tree, const Place &place) {
        if (is_tree || !is_drawing_name(place.path))
            return push(id, is_tree ? Z_OBJECT_TREE : Z_OBJECT_BLOB, place);
        seen_.insert(id);
        if (drawings_.insert(id).second) pending_.push_back({id, Z_OBJECT_BLOB, place});
    }

    void visit_file(const Item &item) {
        ++report_.files;
        if (is_drawing_name(item.place.path)) {
            if (!read(item)) return;
            if (const auto manifest = dxf::Manifest::read(bytes_.data))
                collector_.add(item.place, item.id, *manifest), ++report_.versions;
        } else if (report_.quick) {
            if (type_of(item.id) != Z_OBJECT_BLOB) unreadable(item);
        } else {
            read(item);
        }
    }

    // ---- What no reference leads to

    void check_store() {
        std::error_code error;
        for (const auto &entry : fs::directory_iterator(store_, error)) {
            report_.stop_on_break();
            const std::string name = entry.path().filename().string();
            if (name.size() == 2) check_loose(entry.path(), name);
            if (name == "pack") check_packs(entry.path());
        }
        if (error) report_.problem({.path = "objects"}, error.message());
        check_sums(store_ / "info");
    }

    void check_loose(const fs::path &directory, const std::string &prefix) {
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator(directory, ignored)) {
            const std::string digits = prefix + entry.path().filename().string();
            Oid id;
            if (digits.size() != 40 || !zOidFromStr(&id, wide(digits).c_str())) continue;
            if (seen_.contains(id)) continue;
            if (++report_.objects % kPoll == 0) report_.stop_on_break();
            const Item item{id, 0, {}};
            if (!report_.quick)
                read(item);
            else if (type_of(id) <= 0)
                unreadable(item);
        }
    }

    void check_packs(const fs::path &directory) {
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator(directory, ignored)) {
            fs::path other = entry.path();
            const std::string extension = other.extension().string();
            if (extension == ".pack" && !fs::exists(other.replace_extension(".idx")))
                report_.problem({.path = entry.path().filename().string()}, "has no index");
            if (extension == ".idx" && !fs::exists(other.replace_extension(".pack")))
                report_.problem({.path = entry.path().filename().string()}, "has no pack");
        }
        check_sums(directory);
    }

    void check_sums(const fs::path &directory) {
        std::error_code ignored;
        for (const auto &entry : fs::recursive_directory_iterator(directory, ignored)) {
            const std::string name = entry.path().filename().string();
            const std::string end = entry.path().extension().string();
            const bool summed = end == ".pack" || end == ".idx" || end == ".rev" ||
                                end == ".bitmap" || end == ".mtimes" || end == ".graph" ||
                                name == "commit-graph" || name == "multi-pack-index";
            if (!summed || name.starts_with("tmp_")) continue;
            report_.stop_on_break();
            if (report_.quick ? fs::file_size(entry.path()) < 20 : !has_own_sum(entry.path()))
                report_.problem({.path = name}, "is damaged: it has another sum than it says");
        }
    }

    Report &report_;
    OwnedOdb odb_;
    const fs::path store_;
    std::vector<Item> pending_;
    Ids seen_, drawings_;
    Bytes bytes_;
    KeyCollector collector_;
};

std::vector<dxf::RawKey> keys_of(const dxf::Manifest &manifest) {
    std::vector<dxf::RawKey> keys;
    keys.reserve(manifest.classes.size() + manifest.objects.size() + 4);
    for (const dxf::RawKey &key : {manifest.header, manifest.summary, manifest.layout})
        if (key.tag || key.object) keys.push_back(key);
    if (const DrawingKey vba = dxf::turned(manifest.vba);
        vba.object == kVba && vba.tag != kNoVbaTag)
        keys.push_back(manifest.vba);
    for (const dxf::KeyList *list : {&manifest.classes, &manifest.objects})
        for (size_t i = 0; i < list->size(); ++i) keys.push_back((*list)[i]);
    return keys;
}

} // namespace

void KeyCollector::add(const Place &place, const Oid &blob, const dxf::Manifest &manifest) {
    Known &known = known_[manifest.table];
    TableKeys &table = tables_[manifest.table];
    const auto number = static_cast<uint32_t>(table.manifests.size());
    table.manifests.push_back(place);
    table.blobs.push_back(blob);
    std::vector<dxf::RawKey> keys = keys_of(manifest);
    size_t at = 0; // in the manifest before
    for (const dxf::RawKey &key : keys) {
        if (at < known.last.size() && known.last[at] == key) {
            ++at;
            continue;
        }
        if (at + 1 < known.last.size() && known.last[at + 1] == key) {
            at += 2; // one went
            continue;
        }
        at += at < known.last.size() && known.last[at].object == key.object; // it changed
        if (known.keys.insert(key).second) table.keys.emplace_back(dxf::turned(key), number);
    }
    known.last = std::move(keys);
}

bool has_own_sum(const fs::path &path) {
    constexpr size_t kSum = 20;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (file < 0 || fstat(file, &status)) return file >= 0 && (close(file), false);
    const auto size = static_cast<size_t>(status.st_size);
    void *data = size > kSum ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0) : MAP_FAILED;
    close(file);
    if (data == MAP_FAILED) return false;
    Oid sum;
    madvise(data, size, MADV_SEQUENTIAL);
    const bool same = zOidFromBuffer(&sum, data, size - kSum) &&
                      !memcmp(sum.id, static_cast<char *>(data) + size - kSum, kSum);
    munmap(data, size);
    return same;
}

Tables check_objects(Report &report, const WorkingCopy &copy, const std::vector<Tip> &tips) {
    return Objects(report, copy).run(tips);
}

} // namespace host
