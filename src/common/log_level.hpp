// Levels and facilities of the log, as zLogReport takes them.
#pragma once

#include <cstdint>

namespace zev {

enum LogLevel : int32_t {
    kEmergency,
    kAlert,
    kCritical,
    kError,
    kWarning,
    kNotice,
    kInfo,
    kDebug,
    kAccess
};

// Which part of the system speaks.
enum LogFacility : int32_t {
    kFacilitySys,
    kFacilityStd, // the C runtime's failures
    kFacilityVcs, // version control's own
    kFacilityNet,
    kFacilityZev,
    kFacilitySrv,
    kFacilityUsr,
    kFacilityUnknown
};

} // namespace zev
