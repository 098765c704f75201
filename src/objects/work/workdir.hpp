// Paths below a directory, as callers name them: brought into one form, and kept from leading out
// of it by `..` or through a link.
#pragma once

#include "objects/store/repository.hpp"

#include <string>
#include <string_view>

namespace zev {

struct WorkPath {
    std::u16string relative; // empty for the work directory itself
    std::u16string full;
};

// Forward slashes, no empty parts and no `.`; what remains of a path of separators is empty.
std::u16string tidy_path(std::u16string_view path);

// The part before the last slash, empty without one; the part behind it.
std::u16string_view path_above(std::u16string_view path);
std::u16string_view path_name(std::u16string_view path);

// With one slash between them; either may be empty.
std::u16string path_below(std::u16string_view directory, std::u16string_view path);

// Class 2 when something above `relative` is a link, so that a call would reach behind it.
bool check_links(std::u16string_view directory, std::u16string_view relative);

// Where a path of the work directory lies. Class 2 for one that leads out of it, behind a link
// or into a `.git`, and for names that no index may hold. May throw, as all of these.
bool work_path(WorkPath *out, Repository *repository, const zwchar *path);

// The same for what is to go: not the work directory, nor what holds the Git directory.
bool work_path_to_take(WorkPath *out, Repository *repository, const zwchar *path);

// What keeps a file from standing at a place: something there, or a regular file in place of a
// directory above it. Empty if there is nothing.
std::u16string find_obstacle(Repository *repository, const WorkPath &place);

// Removes a directory that holds no files, its subdirectories too; a missing one counts as gone.
// Nothing is touched when there is a file. Raises nothing.
bool remove_hollow(const std::u16string &path);

// Removes directories without files from `directory` (relative) upward, the work directory never.
void prune_workdir(Repository *repository, std::u16string_view directory);

} // namespace zev
