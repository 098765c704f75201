// Between what a host hands over and the layers below: its callback table, its arrays of paths, the
// callback that it is told paths by.
#pragma once

#include "commands/connection.hpp"
#include "objects/store/pathspec.hpp"
#include "zev/notify.h"

namespace zev {

// A Notify for one call: each slot hands on to that slot of the host's table, which stays the
// host's. The keep-file at the end of an action's text is cut.
struct Adapter {
    Notify forwarders;
    const Notify *host;

    explicit Adapter(const Notify *host);
    const Notify *get() const { return host ? &forwarders : nullptr; }
};

// Exactly these paths; null and empty ones are left out. Null with the failure raised.
PathSpecPtr literal_spec(uint64_t count, const zwchar *const *paths, const Notify *notify);

// A path as a pattern that selects it, and what lies below it, but nothing by wildcards. May throw.
std::u16string pattern_of(const zwchar *path);

// All that `pattern_of` each of these selects; null and empty ones are left out. Null with the
// failure raised. May throw.
PathSpecPtr pattern_spec(uint64_t count, const zwchar *const *paths, const Notify *notify);

// A path as hosts see it. May throw.
inline std::u16string shown(std::u16string_view path) { return std::u16string(without_keep(path)); }

// Tells the changes in order until the host has enough, or sets the byte at `stop`, which may be
// null. May throw.
void tell_changes(const DiffList *list, CommandListing callback, void *context,
                  const volatile uint8_t *stop = nullptr);

} // namespace zev
