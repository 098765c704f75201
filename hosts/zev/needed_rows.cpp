// A table is held by one opener at a time: each call opens it, and lets it go.
#include "needed_rows.hpp"

#include "dxf/rows.hpp"
#include "server.hpp"
#include "verb.hpp"

namespace host {

namespace {

using OwnedKeys = Owned<Vector, zVectorFree>;

// Whether there is a server; then requests go out with what account there is.
bool has_server(const WorkingCopy &copy) {
    const std::string url = origin_of(copy);
    if (url.empty()) return false;
    use_account(server_of(url));
    return true;
}

// A table that the server doesn't have either is not its failure: who reads will tell.
void judge(const Host &host, const std::string &name) {
    constexpr int kNoSuch = 404;
    const Failed failed = raised();
    stop_on_break(host.notify);
    if (failed.error_class != kNetwork || failed.code == kNoSuch) return;
    throw Failed(failed.error_class, failed.code,
                 say("%s: its rows are not all here, and the server doesn't send them: %s", name,
                     failed.what()));
}

OwnedKeys new_keys() {
    return OwnedKeys(check(zVectorNewStru(8, sizeof(DrawingKey), nullptr, nullptr)));
}

OwnedKeys missing_keys(const Host &host, Table *table, const std::vector<DrawingKey> &keys) {
    std::vector<bool> found(keys.size());
    dxf::read_rows(table, keys, host.notify,
                   [&](size_t at, std::string_view) { found[at] = true; });
    OwnedKeys missing = new_keys();
    for (size_t i = 0; i < keys.size(); ++i)
        if (!found[i]) check(zVectorPush(missing.get(), &keys[i]));
    return missing;
}

} // namespace

bool fetch_rows(const Host &host, const WorkingCopy &copy, Drawing *drawing,
                const std::string &name) {
    if (!has_server(copy)) return false;
    zRaiseError(0, 0, nullptr, nullptr);
    if (zDrawingDataPrepare(copy.root().u16string().c_str(), drawing)) return true;
    judge(host, name);
    return false;
}

void fetch_rows(const Host &host, const WorkingCopy &copy, const Oid &id,
                const std::vector<DrawingKey> &keys, const std::string &name) {
    if (!has_server(copy)) return;
    const OwnedTable table(check(zTableByid(copy.repository(), &id), name));
    const OwnedKeys missing = missing_keys(host, table.get(), keys);
    if (!zVectorIsEmpty(missing.get()) && !zTableCheckKeys(table.get(), missing.get()))
        judge(host, name);
}

bool ask_tag(const Host &host, const WorkingCopy &copy, Table *table, const std::string &name) {
    constexpr int kNoSuch = 404;
    if (!has_server(copy)) return false;
    const OwnedKeys none = new_keys(); // the key of the tag is added
    if (zTableCheckKeys(table, none.get())) return true;
    stop_on_break(host.notify);
    if (zErrorCode() != kNoSuch)
        host.out.warn(
            say("%s: the server could not be asked for a tag, so it has one by chance: %s", name,
                narrow(zErrorDetail())));
    return false;
}

} // namespace host
