// Where two trees differ, for whoever may not write everywhere.
#pragma once

#include <git2.h>

#include <functional>
#include <string>
#include <string_view>

namespace zev::rest {

// A file by its path and the id that it has afterwards, null where it goes.
using ChangeTest = std::function<bool(std::u16string_view path, const git_oid *made)>;

// Asks about each file in which two trees differ, until the answer is false. Both are walked in
// step, and what has one id on both sides is not read; null stands for the empty tree. False also
// for a tree that can't be read or has more levels than a path can.
bool is_each_change(git_tree *before, git_tree *after, const ChangeTest &allowed);

} // namespace zev::rest
