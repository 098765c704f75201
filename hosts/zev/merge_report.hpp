// Merge report: what became of a drawing that was merged, or would become of it, and what in it is
// in conflict, as it is told.
#pragma once

#include "dxf/merge.hpp"
#include "verb.hpp"

#include <string>

namespace host {

// Without what the result is made of.
dxf::Merge counts_of(const dxf::Merge &merge);

// One line, or one record. `is_dry`: nothing was done. `is_first`: that the file is in conflict
// has not been told yet.
void tell_merged(Host &host, const std::string &path, const dxf::Merge &merge, bool is_dry);
void tell_unmerged(Host &host, const std::string &path, const dxf::Merge &merge, bool is_dry,
                   bool is_first);
void tell_refused(Host &host, const std::string &path, const std::string &reason, bool is_dry,
                  bool is_first);

// The same of what a merge would come to, below the lines of its conflict.
void tell_outlook(Host &host, const std::string &path, const dxf::Merge &merge);
void tell_no_outlook(Host &host, const std::string &path, const std::string &reason);

// "12 objects of theirs added, 3 modified"; "3 objects in conflict; 120 others come together"
std::string merged_text(const dxf::Merge &merge);
std::string conflicts_text(const dxf::Merge &merge);

// What is in conflict, one after the other; in text their fields only where they are wanted.
void print_conflicts(Host &host, const std::string &path, const dxf::Merge &merge,
                     bool with_fields);

} // namespace host
