// Tooltips: what changed in one entity, in words, for the title of its part of a picture.
#pragma once

#include "picture/changes/diff_scene.hpp"
#include "picture/encoding.hpp"

#include <string>

namespace picture {

// The first few thousand only, and fields only as long as comparing them costs little: the rest is
// told without them.
class Tooltips {
  public:
    Tooltips(const dxf::Content &older, const dxf::Content &newer);
    // Lines of text, not escaped; empty once there were enough of them.
    std::string of(const Mark &mark);

    // "LINE 2F on WALLS", or "block CHAIR".
    std::string name_of(const Mark &mark) const;
    // Of a line of text that was changed: what it said and says; of what is drawn where it was:
    // what else differs. Else empty.
    std::string words_of(const Mark &mark) const;
    std::string kind_of(const Mark &mark) const;  // DXF record type
    std::string layer_of(const Mark &mark) const; // both empty for a block

  private:
    std::string fields_of(const Mark &mark);
    std::string first_field_of(const Mark &mark) const;
    std::string_view record_of(const Mark &mark) const; // of the newer version that has it

    const dxf::Content &older_, &newer_;
    mutable Encoding older_words_, newer_words_; // remember converters
    uint64_t left_ = 3000, cells_left_ = 50'000'000;
};

} // namespace picture
