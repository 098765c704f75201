// Bytes: an object of the store, or a file, as a whole in memory.
#pragma once

#include "host.hpp"

namespace host {

// A stream that keeps what is written into it.
struct Bytes : Stream {
    Bytes() : Stream{} {
        read = [](Stream *, void *, uint64_t) -> uint64_t { return 0; };
        write = [](Stream *stream, const void *data, uint64_t count) -> uint64_t {
            try {
                static_cast<Bytes *>(stream)->data.append(static_cast<const char *>(data), count);
                return count;
            } catch (...) {
                return static_cast<Bytes *>(stream)->failed = true, 0;
            }
        };
        free = [](Stream *) {};
        eof = [](Stream *) { return true; };
        error = [](Stream *stream) { return static_cast<Bytes *>(stream)->failed; };
    }
    std::string data;
    bool failed = false;
};

// An object in place of what `bytes` held; its memory serves again.
inline void read_object(Odb *odb, const Oid *id, Bytes &bytes, const std::string &name = {}) {
    bytes.data.clear();
    bytes.failed = false;
    check(zOdbRead(odb, id, &bytes), name);
}

} // namespace host
