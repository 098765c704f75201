// Trash search: the entries of the trash, and what they are called.
#pragma once

#include "verb.hpp"

namespace host {

using OwnedTrashEntry = Owned<TrashEntry, zTrashEntryFree>;

// The 40 digits of its slot.
std::string id_of(const TrashEntry *entry);
// The path that it had in the work directory.
std::string original_of(const TrashEntry *entry);

void print_entry(Host &host, const TrashEntry *entry);

// Visits what a search finds, as it is found.
template <class Visit>
uint64_t search(Host &host, Repository *repository, const zwchar *pattern, bool recursive,
                Visit visit) {
    Owned<TrashFind, zTrashFindFree> find(
        check(zTrashFindNew(repository, nullptr, pattern, recursive)));
    zRaiseError(0, 0, nullptr, nullptr); // nothing found raises nothing
    uint64_t count = 0;
    for (bool more = zTrashFindFirst(find.get()); more; more = zTrashFindNext(find.get())) {
        stop_on_break(host.notify);
        visit(zTrashFindEntry(find.get()));
        ++count;
    }
    if (!count && zErrorClass()) fail_raised();
    return count;
}

// Prints what a search finds, and a summary; gives the count.
uint64_t print_found(Host &host, const std::string &pattern, bool recursive);

} // namespace host
