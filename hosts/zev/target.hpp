// Target: a file that a verb writes for the user, wherever he wants it.
#pragma once

#include "verb.hpp"

namespace host {

// A file that appears under its name when it is complete; what had the name goes to the trash, the
// working copy's or the desktop's. What is no regular file, as a pipe or a terminal, is written to
// directly.
class Target {
  public:
    enum Former : uint8_t { to_trash, gone }; // what had the name
    // Without a working copy the desktop's trash has what was there.
    Target(const WorkingCopy *copy, const std::string &path, Former former = to_trash);
    ~Target();
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    void write(std::string_view bytes);
    void finish();

  private:
    void displace() const;
    std::filesystem::path sibling() const;
    [[noreturn]] void fail() const;

    const WorkingCopy *copy_;
    const Former former_;
    std::string path_;
    std::filesystem::path temporary_;
    OwnedFile file_;
};

// Throws unless a file may be written there: for a directory, for what lies in the repository, and
// where the user wants to keep what is there, about which he is asked unless it is `forced`.
void require_free(const HostNotify *notify, const WorkingCopy *copy, const std::string &target,
                  bool is_forced);

// What a server's rules let out of the team.
void require_export_right(const WorkingCopy &copy, const std::string &path);

} // namespace host
