// What the parts of a verification share: where their findings go, what was counted, and whether it
// goes on.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/verify.h"

#include <string>
#include <string_view>

namespace zev::verify {

// Where something suffers. Either may be unknown.
struct Place {
    std::string path;
    Oid commit{};
};

std::string hex(const Oid &id);
bool parse_id(std::string_view digits, Oid *id); // 40 of them, in either case

// Once `stopped` is true every part ends as soon as it can: the user broke off, or something failed
// that is no damage, which is raised.
class Report {
  public:
    Report(Repository *repository, const VerifySpec &spec);

    void damage(const Place &place, const std::string &reason);
    void left_over(const std::string &reason); // what heals itself
    bool is_wanted(uint32_t part) const { return spec_.parts & part; }
    bool quick() const { return spec_.quick; }
    void progress(const char *what, const std::string &which) const;

    bool stopped() const { return stopped_; }
    bool stop() { return stopped_ = true; } // with the reason raised
    bool broken();                          // asks for the user's break

    bool knows_digests() const { return spec_.digest && !spec_.quick; }
    bool digest_in(DrawingDigest *digest, const void *summary, uint64_t length) const {
        return spec_.digest(digest, summary, length, spec_.context);
    }

    Repository *const repository;
    // It follows a server, which has what was never fetched: that is no loss. What is the copy's
    // own is (objects.cpp).
    const bool is_partial;
    VerifyCounts counts{};
    bool lost_objects = false; // what leans on them is no more to be asked

  private:
    void tell(int32_t kind, const Place &place, const std::string &reason) const;

    const VerifySpec &spec_;
    bool stopped_ = false;
};

} // namespace zev::verify
