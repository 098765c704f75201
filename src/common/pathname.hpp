// The one check of paths that are to enter an index or a tree, whoever names them, and what their
// names tell.
#pragma once

#include <string_view>

namespace zev {

// Whether an index may hold a path (UTF-8): relative, parts split by single forward slashes, none
// of them `.`, `..` or a spelling of `.git` on any file system, no control characters, and well
// formed. What only Windows can't hold passes: the file exists here and must not be lost.
bool path_can_enter(std::string_view path);

// The same, raising invalid arguments with the path.
bool check_path(std::string_view path);

// Whether a file system can hold each name on a path (UTF-8): none has more than 255 bytes. What is
// stored all the same is in no working copy.
bool path_has_room(std::string_view path);

// By the name alone, since the bytes may not be here: whether a path (UTF-8) is that of a drawing.
bool is_drawing_name(std::string_view path);

} // namespace zev
