// Disputed: what both sides changed, as far as that can be put together.
#pragma once

#include "dxf/merge/compose.hpp"
#include "dxf/merge/items.hpp"

namespace dxf::merging {

class Disputed {
  public:
    // Once all objects have their handles. `has_decisions`: entries may have to follow objects that
    // a decision brings back, or takes away, in what one side alone changed, too.
    Disputed(Merging &merging, bool has_decisions);

    // Gives those that can be put together the row of what the objects around them have become, and
    // takes them out of conflict; all others are as they were before.
    void compose_all();
    // By its handle in the result; kNowhere if it is the same in all versions.
    uint32_t find(uint64_t handle) const;

  private:
    struct Plain { // the state without
        uint32_t item;
        Side side;
        std::string reason;
    };

    bool may_be_composed(const Item &item, bool has_decisions) const;
    std::optional<Composed> composed(const Item &item) const;
    Fate fate_of(uint64_t handle) const;

    Merging &merging_;
    std::vector<Plain> found_;
    std::vector<std::pair<uint64_t, uint32_t>> by_handle_;
};

} // namespace dxf::merging
