// Objects of a store, read to be compared with their names: what is not to be kept goes through
// memory block by block, however large it is.
#pragma once

#include "common/guard.hpp"
#include "common/sha1.hpp"
#include "objects/store/git.hpp"

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zev {
class LooseObject;
}

namespace zev::verify {

class ObjectReader {
  public:
    explicit ObjectReader(git_repository *repository); // may throw
    bool is_open() const { return odb_ != nullptr; }   // false: libgit2 says why

    // The type alone, from the object's head; 0 and the reason for one that can't be had.
    int32_t type_of(const Oid &id);

    // Whether a file has it, be it whole or not.
    bool exists(const Oid &id) const { return git_odb_exists(odb_.get(), git::oid(&id)) == 1; }

    // Reads all of it. What is kept is lent until the next call. False: see reason.
    bool read(const Oid &id, bool keep);
    std::string_view content() const { return content_; }
    const std::string &reason() const { return reason_; }

  private:
    // A pack and its index; the files are opened at the first look.
    struct Pack {
        std::u16string path; // less the extension
        Owned<FILE, fclose> index, pack;
        std::array<uint32_t, 256> fanout{};
        bool failed = false;
    };

    bool fail(const char *why);
    bool fail_git();
    bool read_loose(LooseObject &object, const Oid &id, bool keep);
    bool read_packed(const Oid &id, bool keep);
    bool read_large(Pack &pack, uint64_t offset, const Oid &id, bool *is_whole);
    bool inflate(FILE *file, uint64_t size);
    void list_packs();
    static bool open(Pack &pack);
    static bool find(Pack &pack, const Oid &id, uint64_t *offset);
    void begin(int type, uint64_t size);
    bool has_name(const Oid &id);

    const std::u16string directory_; // of objects, with a slash behind
    git::Odb odb_;
    git::OdbObject packed_;
    std::string bytes_, reason_;
    std::string_view content_;
    std::unique_ptr<uint8_t[]> block_, inflated_;
    std::vector<Pack> packs_;
    bool listed_ = false;
    Sha1 sum_;
};

} // namespace zev::verify
