// Words: what a shell may offer for an argument of the command line, from the working copy.
#pragma once

#include <string>
#include <vector>

namespace host {

// `kind` is branches, tags, revisions, trash or objects; objects are those of the first drawing
// that `line`, the words typed so far, names. Nothing where there is no working copy.
std::vector<std::string> words_of(const std::string &kind, const std::vector<std::string> &line);

} // namespace host
