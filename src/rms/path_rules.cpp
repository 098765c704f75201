// What a user may do in his working copy: AUTHZ in the Git directory, that which all work trees of
// a repository share, UTF-8 JSON as his server made it for him.
//
//   header.user       string, the login that it was made for
//   header.sid1, sid2 strings, the states of the server's and of the project's rights: by them the
//                     server knows whether this file is still right
//   settings.entries  array, absent without rules; of its objects each is one rule:
//     setting.path       string, relative to the work directory
//     setting.privilege  integer, bits
//   settings.default  integer, the bits where no rule applies; absent is none
//
// The server computed it, yet it may come from anybody: it is bounded, and what would make every
// later opening fail is not written.
#include "rms/path_rules.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/gitkeep.hpp"
#include "system/os.hpp"
#include "zev/http_request.h"
#include "zev/http_response.h"
#include "zev/path.h"
#include "zev/stream.h"
#include "zev/uri.h"

#include <cerrno>
#include <new>

using namespace zev;

struct Authdb {
    Repository *owner; // lent
    PathRules rules;
};

namespace zev {

namespace {

constexpr const zwchar *kFile = u"AUTHZ";
constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;

bool is_separator(zwchar unit) { return unit == u'/' || unit == u'\\'; }

bool is_keep_file(std::u16string_view path) {
    while (!path.empty() && is_separator(path.back())) path.remove_suffix(1);
    if (path.size() < kKeepFileWide.size()) return false;
    const std::u16string_view above = path.substr(0, path.size() - kKeepFileWide.size());
    return (above.empty() || is_separator(above.back())) &&
           zStrncasesameW(path.data() + above.size(), kKeepFileWide.data(), kKeepFileWide.size());
}

JsonBounds answer_bounds() { return {limits::http_json, limits::http_nodes}; }

// The file's tree; false where it can't be opened or holds no JSON.
bool read_file(const zwchar *path, JsonGuard &tree) {
    const Owned<Stream, zStreamFree> stream(zFileStream(path, u"rb"));
    if (!stream) return false;
    JsonBounds bounds = answer_bounds();
    tree.reset(json_read_bounded(stream.get(), bounds));
    if (tree) return true;
    errno = EBADMSG;
    return fail_errno(path);
}

} // namespace

bool PathRules::read(Json *tree) {
    if (!tree || !zJsonIsObject(tree)) return false;
    const Json *entries = json_find(tree, u"settings.entries");
    if (entries && !zJsonIsArray(entries)) return false;
    if (entries) rules_.load(entries);
    const Json *fallback = json_find(tree, u"settings.default");
    rules_.set_fallback(fallback ? static_cast<int32_t>(zJsonGetInt(fallback)) : 0);
    return true;
}

int32_t PathRules::at(std::u16string_view path) {
    if (is_keep_file(path)) return kAllRights;
    return rules_.rules().empty() ? rules_.fallback() : rules_.at(path);
}

bool PathRules::is_open() const {
    return rules_.rules().empty() && (rules_.fallback() & Z_PRIVILEGE_READ);
}

namespace {

// ---- The way to the server

const zwchar *text_at(Json *tree, const zwchar *path) {
    const Json *node = tree ? json_find(tree, path) : nullptr;
    return node && zJsonIsString(node) ? zJsonGetString(node) : u"";
}

// One request for the rules, and what came of it.
class Update {
  public:
    Update(HttpRequest *request, const Notify *notify, const zwchar *path)
        : request_(request), notify_(notify), path_(path), user_(zHttpRequestUser(request)) {}

    void look_at_file();
    bool ask(const zwchar *url);
    bool store();

  private:
    JsonGuard command() const;
    bool receive(HttpResponse *response);
    bool fail(int code, const zwchar *reason) const;

    HttpRequest *request_;
    const Notify *notify_;
    const zwchar *path_;
    std::u16string user_, sid1_, sid2_;
    JsonGuard answer_;
};

// The states count for the user that they were told for, and only beside rules that can be read.
void Update::look_at_file() {
    if (!zPathExists(path_)) return;
    JsonGuard tree;
    if (!read_file(path_, tree) || !PathRules().read(tree.get())) return;
    if (!zStrcasesameW(text_at(tree.get(), u"header.user"), user_.c_str())) return;
    sid1_ = text_at(tree.get(), u"header.sid1");
    sid2_ = text_at(tree.get(), u"header.sid2");
}

JsonGuard Update::command() const {
    JsonGuard tree(zJsonNew(Z_JSON_OBJECT));
    const auto set = [&](const zwchar *path, const zwchar *text) {
        if (tree && !zJsonPathSetString(tree.get(), path, text)) tree.reset();
    };
    set(u"query.target", u"settings");
    set(u"query.name", u"local-db");
    set(u"query.args.user", user_.c_str());
    set(u"query.args.sid1", sid1_.c_str());
    set(u"query.args.sid2", sid2_.c_str());
    return tree;
}

bool Update::fail(int code, const zwchar *reason) const {
    return notify_net(notify_, code, reason, u"net.eFailedToFetchSummary");
}

bool Update::ask(const zwchar *url) {
    constexpr std::u16string_view kRoute = u"/rms";
    zwchar full[Z_URL_MAX] = {};
    if (zStrnlenW(url, Z_URL_MAX) + kRoute.size() >= Z_URL_MAX) return fail_args();
    const JsonGuard body = command();
    if (!body || !zHttpRequestReset(request_) || !zUrlBuild(full, url, u"rms", nullptr) ||
        !zHttpRequestSetUrl(request_, full) ||
        !zHttpRequestSetAccepts(request_, u"application/json", u"UTF-8", zLangProduct()) ||
        !zHttpRequestSetJson(request_, body.get()))
        return fail_raised();
    return receive(zHttpRequestPost(request_));
}

bool Update::receive(HttpResponse *response) {
    if (response && zHttpResponseUsrbrk(response)) return raise_canceled();
    if (!response || !zHttpResponseOk(response))
        return fail(response ? zHttpResponseCode(response) : -1, zHttpResponseStrerr(response));
    Stream *stream = zHttpResponseBody(response);
    JsonBounds bounds = answer_bounds();
    answer_.reset(stream ? json_read_bounded(stream, bounds) : nullptr);
    return answer_ ? true : fail(-1, word(u"net.eWrongDataFromServer"));
}

bool Update::store() {
    Json *result = json_find(answer_.get(), u"data.result");
    if (!result || !zJsonIsObject(result)) return false;
    const Json *changed = json_find(result, u"settings.changed");
    if (!changed || !zJsonGetBoolean(changed)) return true;
    if (!PathRules().read(result)) return fail(-1, word(u"net.eWrongDataFromServer"));
    zJsonPathRemove(result, u"settings.changed");
    uint64_t length = 0;
    const Narrow text = json_utf8(result, &length);
    if (!text) return fail_raised();
    if (os::replace_file(path_, text.get(), length)) return true;
    return fail_errno(path_), fail_raised();
}

bool has(Authdb *authdb, const zwchar *path, int32_t bit) {
    return (zAuthdbEntryMode(authdb, path) & bit) != 0;
}

} // namespace

} // namespace zev

const zwchar *zAuthdbName() { return kFile; }

bool zAuthdbPath(zwchar *path, Repository *repository) try {
    if (!path || !repository) return fail_args();
    const std::u16string directory = to_wide(git_repository_commondir(repository->handle.get()));
    return zPathBuild(path, directory.c_str(), kFile, nullptr);
} catch (...) {
    return fail_thrown();
}

Authdb *zAuthdbOpen(Repository *repository) try {
    zwchar path[Z_PATH_MAX];
    if (!zAuthdbPath(path, repository)) return nullptr;
    AuthdbPtr authdb(new Authdb{repository, {}});
    JsonGuard tree;
    if (!read_file(path, tree))
        return zErrorClass() == error_class::kNotFound ? authdb.release() : nullptr;
    if (authdb->rules.read(tree.get())) return authdb.release();
    return errno = EBADMSG, fail_errno(path);
} catch (...) {
    return fail_thrown();
}

void zAuthdbFree(Authdb *authdb) { delete authdb; }

bool zAuthdbIsEmpty(const Authdb *authdb) {
    if (!authdb) return fail_args(), true;
    return authdb->rules.is_open();
}

int32_t zAuthdbEntryMode(Authdb *authdb, const zwchar *path) try {
    if (!authdb || !path) return fail_args(), 0;
    return authdb->rules.at(path);
} catch (...) {
    return fail_thrown(), 0;
}

bool zAuthdbEntryReadable(Authdb *authdb, const zwchar *path) {
    return has(authdb, path, Z_PRIVILEGE_READ);
}
bool zAuthdbEntryWritable(Authdb *authdb, const zwchar *path) {
    return has(authdb, path, Z_PRIVILEGE_WRITE);
}
bool zAuthdbEntryExportable(Authdb *authdb, const zwchar *path) {
    return has(authdb, path, Z_PRIVILEGE_EXPORT);
}

bool zAuthUpdateDb(HttpRequest *request, const Notify *notify, const zwchar *url,
                   const zwchar *path) try {
    if (!request || !url || !path) return fail_args();
    if (!zStrvalidW(zHttpRequestUser(request))) return fail_args();
    Update update(request, notify, path);
    update.look_at_file();
    return update.ask(url) && update.store();
} catch (...) {
    return fail_thrown();
}
