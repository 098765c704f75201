// Settings of the library: zev.conf beside the library's own file, a JSON object whose one key
// `appdata` names the application data directory.
#pragma once

#include "zev/base.h"

namespace zev {

// The application data directory that a zev.conf asks for, as it is to be set: backslashes
// turned, environment references as they stand. A null tree and a missing key give "..".
bool settings_appdata(zwchar *out, Json *conf);

// Reads zev.conf, sets the application data directory and sees to conf and logs in it.
bool settings_load();

} // namespace zev
