// Numbers of the classes of errors, as zErrorClass gives them: hosts compare them.
#pragma once

#include <cstdint>

namespace zev::error_class {

enum : int32_t {
    kNoMemory = 1,
    kInvalidArgs = 2,
    kNotFound = 3,
    kAlreadyExists = 4,
    kOutOfRange = 5,
    kCanceled = 6,
    kLocked = 7,
    kSystem = 9,
    kStd = 10,
    kGit = 11,
    kUv = 12,
    kKvdb = 13,
    kNet = 15,
    kSrv = 16,
    kOther = -1
};

} // namespace zev::error_class
