#pragma once

#include "play.hpp"

namespace torture {

// Tells what came of it on stdout; false when anything was wrong.
bool four_at_work(const Play &play, int seconds);

} // namespace torture
