// A directory's name ends in a slash; in text as in JSON.
#include "listing.hpp"

#include "kinds.hpp"

namespace host {

void print_listed(Host &host, const char *type, const Listed &listed) {
    const char *kind = kind_name(listed.kind);
    if (host.out.json()) {
        Record record(type);
        record.set(u"path", listed.path).set(u"status", kind);
        record.set(u"directory", listed.path.ends_with('/'));
        if (!listed.old.empty()) record.set(u"from", listed.old);
        return host.out.record(record);
    }
    host.out.line(host.out.paint(kind_colour(listed.kind), kind_column(listed.kind)) +
                  (listed.old.empty() ? "" : typed_path(listed.old) + " -> ") +
                  typed_path(listed.path));
}

} // namespace host
