// Clip: cuts shapes down to a rectangle.
#pragma once

#include "picture/scene.hpp"

namespace picture {

// The scene's shapes from `first` on: what lies outside of the box is gone, lines and areas across
// its edge are cut there, and a text stays when it begins inside.
void clip(Scene &scene, size_t first, const Box &box);

} // namespace picture
