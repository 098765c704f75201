// Listing: the front's lists of files, as "changes" and "ls" show them.
#pragma once

#include "front.hpp"

namespace host {

struct Listed {
    int32_t kind = 0;
    std::string old, path;
};

// A trampoline for what can throw: the library's frames lie between.
template <class Visit> CommandListing listing() {
    return [](int32_t kind, const zwchar *old, const zwchar *path, void *visit) {
        try {
            return (*static_cast<Visit *>(visit))(Listed{kind, narrow(old), narrow(path)}), true;
        } catch (...) {
            return false;
        }
    };
}

void print_listed(Host &host, const char *type, const Listed &listed);

} // namespace host
