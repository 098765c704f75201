// Reception: what comes from a server during one verb, and what an earlier one that was cut short
// has left for it.
#pragma once

#include "remote_copy.hpp"
#include "verb.hpp"

#include <filesystem>

namespace host {

struct Stock {
    uint64_t objects = 0, bytes = 0; // as they are stored
};

// Whether what the library failed with is that the line broke, or that the user broke off: only
// then there is something to go on from.
bool was_cut_short();

// While it lives, progress tells of objects, too. A note stays in the Git directory until `finish`,
// so that whoever comes next, also after a crash, says what he goes on from.
class Reception {
  public:
    // The Git directory of a copy, or of one that is to be made. All that a copy has that was never
    // filled has come by a try that was cut short.
    Reception(Host &host, std::filesystem::path directory, const char *verb, bool filled);
    ~Reception() { host_.notify->set_progress_tail(nullptr); }
    Reception(const Reception &) = delete;
    Reception &operator=(const Reception &) = delete;

    // Of an earlier try and this one.
    Stock stock() const;
    bool is_resumed() const { return resumed_; }
    void finish();
    void fail(); // instead

  private:
    void tell_resumed();

    Host &host_;
    std::filesystem::path directory_;
    std::filesystem::file_time_type since_ = std::filesystem::file_time_type::min();
    bool resumed_ = false;
};

// Warns of a copy that was begun and never came, and says how to go on.
void tell_unfinished(Host &host, const WorkingCopy &copy);

// "1,204 objects, 3.4 MB"
std::string stock_text(const Stock &stock);

} // namespace host
