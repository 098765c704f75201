// As imported: how the bytes of the file that was imported last differ from those of the parts that
// the drawing keeps.
#pragma once

#include "host.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace dxf {

// What is written down of two rows of parts of the same number; empty if they are the same.
std::string write_differences(const std::vector<std::string_view> &kept,
                              const std::vector<std::string_view> &imported);

// Plays differences to the parts that they were made against, in their order. What it is given is
// lent until it is gone.
class ImportedParts {
  public:
    using Write = std::function<void(std::string_view)>;

    explicit ImportedParts(std::string_view differences);
    ~ImportedParts();
    ImportedParts(const ImportedParts &) = delete;
    ImportedParts &operator=(const ImportedParts &) = delete;

    // The imported bytes of the next part, in pieces of 64 KiB at most if they are not the kept
    // ones. False when the differences are damaged; nothing more is to be had then.
    bool next(std::string_view kept, const Write &write);
    // Whether all that was written down is used up by the parts that there were, and they are
    // those that it was made against.
    bool finish();

  private:
    class Player;
    std::unique_ptr<Player> player_;
};

} // namespace dxf
