// Numbers of the rows of a drawing that are no objects.
#pragma once

#include <cstdint>

namespace dxf {

inline constexpr uint64_t kHeaderNumber = static_cast<uint64_t>(-1);
inline constexpr uint64_t kSummaryNumber = static_cast<uint64_t>(-2);
inline constexpr uint64_t kLayoutNumber = static_cast<uint64_t>(-3);
inline constexpr uint64_t kVbaNumber = static_cast<uint64_t>(-4);
constexpr uint64_t class_number(uint64_t place) { return static_cast<uint64_t>(-101) - place; }

} // namespace dxf
