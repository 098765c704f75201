// Reading by path, where rights are required: what a commit once named by a path is given out only
// to whoever may read one of the paths that ever named it. What no commit names goes to whoever
// knows its id, and so does the empty file. Files that keep directories alive are everybody's.
#pragma once

#include "network/rest/rest.hpp"

#include <span>

namespace zev::rest {

// In the open project: null for whoever may, else 403, or 500 where the index can't be had. All may
// throw.
HttpResponse *admit_blob(Call &call, const Oid &id);
HttpResponse *admit_table(Call &call, const Oid &id);
// Rows of a drawing that a commit has named come from whoever may write one of its paths: they
// would take the place of those that it has.
HttpResponse *admit_rows(Call &call, const Oid &id);
// The entries of a pack to be built, some of which may be anything: each file asked for by itself,
// and all that was ever named where one is asked for with what lies below it.
HttpResponse *admit_entries(Call &call, Json *entries);

// Whether files may get these paths by a commit of the caller's. Who may read a path may then read
// the file and, of a drawing, its table: so both have to be readable by the caller before. The 403
// names the first that may not.
struct NamedFile {
    std::u16string path;
    Oid id;
};
HttpResponse *admit_names(Call &call, std::span<const NamedFile> files);

} // namespace zev::rest
