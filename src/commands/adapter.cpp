// What a host hands over, for the length of one call: its table stays the host's, and texts on the
// way to it lose the keep-file at their end.
#include "commands/adapter.hpp"

#include "zev/diff.h"

#include <cstddef>
#include <type_traits>

namespace zev {

namespace {

// The host's table stands right behind the eleven slots.
static_assert(std::is_standard_layout_v<Adapter> &&
              offsetof(Adapter, host) == 11 * sizeof(void (*)()));

const Notify *host_of(const Notify *forwarders) {
    return forwarders ? reinterpret_cast<const Adapter *>(forwarders)->host : nullptr;
}

template <auto Slot> struct Forward;
template <class Result, class... More, Result (*Notify::*Slot)(const Notify *, More...)>
struct Forward<Slot> {
    static Result call(const Notify *forwarders, More... more) {
        const Notify *host = host_of(forwarders);
        return host && host->*Slot ? (host->*Slot)(host, more...) : Result();
    }
};

void forward_action(const Notify *forwarders, const zwchar *word, const zwchar *text) {
    const Notify *host = host_of(forwarders);
    if (!host || !host->action) return;
    const Wide copy(zStrdupW(text));
    if (copy) copy.get()[without_keep(copy.get()).size()] = 0;
    host->action(host, word, copy ? copy.get() : text); // rather too much than nothing
}

constexpr Notify kForwarders = {
    .start = Forward<&Notify::start>::call,
    .done = Forward<&Notify::done>::call,
    .cancel = Forward<&Notify::cancel>::call,
    .abort = Forward<&Notify::abort>::call,
    .info = Forward<&Notify::info>::call,
    .warning = Forward<&Notify::warning>::call,
    .error = Forward<&Notify::error>::call,
    .action = forward_action,
    .progress = Forward<&Notify::progress>::call,
    .usrbrk = Forward<&Notify::usrbrk>::call,
    .dialog = Forward<&Notify::dialog>::call,
};

} // namespace

Adapter::Adapter(const Notify *table) : forwarders(kForwarders), host(table) {}

PathSpecPtr literal_spec(uint64_t count, const zwchar *const *paths, const Notify *notify) {
    PathSpecPtr spec(zPathSpecNewMulti(paths, count, Z_SPEC_LITERAL));
    if (spec) zPathSpecSetNotify(spec.get(), notify);
    return spec;
}

std::u16string pattern_of(const zwchar *path) {
    std::u16string pattern;
    for (; *path; ++path) {
        if (*path == u'*' || *path == u'?' || *path == u'\\') pattern += u'\\';
        pattern += *path;
    }
    return pattern;
}

PathSpecPtr pattern_spec(uint64_t count, const zwchar *const *paths, const Notify *notify) {
    if (!paths && count) return fail_args(), nullptr;
    PathSpecPtr spec(zPathSpecNew(nullptr, 0));
    for (uint64_t i = 0; spec && i < count; ++i)
        if (paths[i] && *paths[i] && !zPathSpecAdd(spec.get(), pattern_of(paths[i]).c_str()))
            return nullptr;
    if (spec) zPathSpecSetNotify(spec.get(), notify);
    return spec;
}

void tell_changes(const DiffList *list, CommandListing callback, void *context,
                  const volatile uint8_t *stop) {
    const uint64_t count = zDiffListLength(list);
    for (uint64_t i = 0; i < count && !(stop && *stop); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        const std::u16string from = shown(zDiffEntryOldPath(entry));
        const std::u16string to = shown(zDiffEntryNewPath(entry));
        if (!callback(zDiffEntryStatus(entry), from.c_str(), to.c_str(), context)) return;
    }
}

} // namespace zev
