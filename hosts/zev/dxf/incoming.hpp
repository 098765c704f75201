// Incoming: a DXF file that is to be imported, its parts as items in search of their keys.
#pragma once

#include "dxf/keep.hpp"
#include "dxf/reader.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace dxf {

class Incoming {
  public:
    // Throws, with `name` in the message, for what can't be read and what is no DXF.
    void read(const std::u16string &source, const std::string &name);

    // Null when no record has that handle; of several with one the first has it.
    Item *by_handle(uint64_t handle);
    // The next record without handle and with this content, which is known then.
    Item *take_same(std::string_view value);

    // Everything lends from the bytes of the file.
    Document document;
    Item header;
    std::vector<Item> symbols, objects; // objects are named by their handles, or 0

  private:
    void name_objects();
    void chain(const std::vector<Item *> &nameless);

    std::unique_ptr<char[]> buffer_;
    std::vector<Item *> named_; // by handle
    std::unordered_map<std::string_view, Item *> by_content_;
};

} // namespace dxf
