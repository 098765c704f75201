// The rows of drawings on their way to the server.
#pragma once

#include "objects/store/diff.hpp"
#include "remote/push.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace zev {

bool has_drawing_name(std::u16string_view path);

// Whether the file that a commit has at a path is a drawing: by its name and its content. None,
// raised, where that can't be told, or where it is one that is too large to be sent: without its
// rows it would be worth nothing to anybody.
std::optional<bool> is_drawing(Repository *repository, const zwchar *path, const Oid &blob);

// What the server lacks of each drawing: of an added one the rows of its table, else those that it
// has beyond its former version; then the manifest that names them. May throw.
bool push_drawings(Push &push, const std::vector<const DiffEntry *> &drawings);

} // namespace zev
