// Thumbnail: the small picture that a drawing's file holds for the desktop.
#pragma once

#include "dxf/content.hpp"

#include <deque>
#include <future>
#include <string>
#include <vector>

namespace host {

class WorkingCopy;

// PNG of 256 pixels, of a large drawing by a part of its objects, so that it never takes long; the
// same for the same file. Empty where there is no renderer, or nothing to see. Throws nothing; may
// run on any thread.
std::string thumbnail_of(const dxf::Document &document) noexcept;
std::string thumbnail_of(const dxf::Content &content) noexcept;

// Of files that are imported one after the other: while one is stored, those of the next are made.
class Thumbnails {
  public:
    // Small files that will need one, in the order in which they come.
    explicit Thumbnails(std::vector<std::string> files) : files_(std::move(files)) { make_next(); }
    // Any file's, which is as `document` has it; one at a time, on any thread.
    std::string of(const std::string &file, const dxf::Document &document) noexcept;

  private:
    struct Made {
        std::string bytes, png; // of the file
    };
    struct Job {
        std::string file;
        std::future<Made> made;
    };
    static Made make(const std::string &file) noexcept;
    void make_next();

    std::vector<std::string> files_;
    size_t next_ = 0;
    std::deque<Job> jobs_;
};

// As zev.thumbnails has it, "auto" or "off".
bool wants_thumbnails(const WorkingCopy &copy);

} // namespace host
