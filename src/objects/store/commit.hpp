#pragma once

#include "objects/store/object.hpp"

#include <functional>

namespace zev {

// zCommitCreate for a caller with work of his own between the first sync and the move of the
// reference: false from `before_move` ends it there. Arguments are checked.
Commit *commit_create(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree, const std::function<bool()> &before_move = {});

} // namespace zev
