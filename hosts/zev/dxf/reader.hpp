// Reader: cuts the bytes of an ASCII DXF file into the parts that a drawing table keeps.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dxf {

// Numbers from here on name records that have no usable handle of their own.
inline constexpr uint64_t kFirstNumber = uint64_t{1} << 62;

enum class Kind : uint8_t {
    literal, // section marks, comments, whatever stands between the others
    header,  // what stands between the HEADER section's marks; at most one in a file
    symbol,  // a CLASS record of the CLASSES section
    object   // a record of TABLES, BLOCKS, ENTITIES or OBJECTS; of a section that is not known, the
             // name with what follows it, and each record
};

// One part. The parts of a file stand in its order and tile it: nothing is between them.
struct Part {
    Kind kind;
    uint64_t handle = 0;    // 0 when there is none below kFirstNumber
    std::string_view bytes; // lent from the file's buffer, as are the others
    std::string_view type;  // value of group 0 of a record, name of a section
    std::string_view layer; // value of group 8, empty without one
};

struct Document {
    std::vector<Part> parts;
    std::string_view title;
    // $EXTMIN and $EXTMAX of the header, x y z; set once x and y were there.
    std::array<std::optional<double>, 3> minimum, maximum;
};

// Cuts `bytes`; the result lends from it. Text that is binary DXF, no DXF, or ends early throws
// host::Failed, its message beginning with `name` and the line.
Document split(std::string_view bytes, const std::string &name);

// Value of group 0 at the start of a record's bytes, or the name of a section that is not known;
// empty if they are neither.
std::string_view record_type(std::string_view record);

} // namespace dxf
