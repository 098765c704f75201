// Unseen: what a change without a picture is counted by: its kind or, of an entity that stands
// where the picture doesn't show it, that place.
#pragma once

#include "picture/blocks.hpp"

#include <string>

namespace picture {

class Unseen {
  public:
    // The content has to outlive it.
    Unseen(const dxf::Content &content, Run::Space shown)
        : content_(content), outline_(content), shown_(shown) {}
    std::string what(size_t place);

  private:
    bool is_elsewhere(const Run &run, std::string_view kind, size_t place);

    const dxf::Content &content_;
    const Outline outline_;
    const Run::Space shown_;
    Groups groups_;
};

} // namespace picture
