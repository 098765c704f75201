// The service with all its routes over a directory of repositories, on a port of the loopback, and
// a client that waits for each answer.
#pragma once

#include "server_fixture.hpp"

#include "network/rest/operations.hpp"

#include <git2.h>

namespace test {

// An answer with its body, as JSON where it is that.
struct Answer {
    int32_t code = 0;
    std::string body{};
    std::shared_ptr<Json> json{};

    // The node at a path, and its text, "(null)" where there is none.
    Json *at(std::string_view path) const {
        return json ? zJsonPathGet(json.get(), wide(path).c_str()) : nullptr;
    }
    std::string text(std::string_view path) const {
        Json *node = at(path);
        return node ? narrow(zJsonGetString(node)) : "(null)";
    }
    std::string message() const { return text("error.message"); }
    uint64_t entries() const { return zJsonArraySize(at("data.entries")); }
    // A member of the n-th entry; members of all entries with commas between.
    std::string entry(uint64_t n, std::string_view member) const {
        Json *node = n < entries() ? zJsonArrayAt(at("data.entries"), n) : nullptr;
        node = node ? zJsonPathGet(node, wide(member).c_str()) : nullptr;
        return node ? narrow(zJsonGetString(node)) : "(null)";
    }
    std::string each(std::string_view member) const {
        std::string all;
        for (uint64_t n = 0; n < entries(); ++n) all += (n ? "," : "") + entry(n, member);
        return all;
    }
};

class Service : public TestServer {
  public:
    // `auth` is "none" or "required"; the table stays the caller's.
    explicit Service(const char16_t *auth = u"none", AuthTable *table = nullptr)
        : TestServer(
              do_work, [table](HttpServer &server) { server.head.auth = table; }, auth),
          client_(zHttpRequestNew(wide(url()).c_str())) {}
    ~Service() { zHttpRequestFree(client_); }

    // Has the server's thread do something between two requests: what that thread reads whenever it
    // likes, as its calls into the system, is not to be changed by another.
    void have_done(const std::function<void()> &work) {
        work_ = &work;
        EXPECT_EQ(get("/test").code, 204);
    }

    // The account of the requests that follow; an empty user is none.
    void log_in(std::string_view user, std::string_view code = "") {
        user_ = wide(user), code_ = wide(code);
    }
    std::string forwarded; // for whom a proxy would ask
    // Sends, on one connection. Bodies are JSON text, or octets for PUT and where the call says so.
    Answer get(std::string_view target) { return ask(Z_HTTP_GET, target); }
    Answer drop(std::string_view target) { return ask(Z_HTTP_DELETE, target); }
    Answer post(std::string_view target, std::string_view json) {
        return ask(Z_HTTP_POST, target, json, u"application/json");
    }
    Answer put(std::string_view target, std::string_view octets) {
        return ask(Z_HTTP_PUT, target, octets, u"application/octet-stream");
    }
    Answer ask(uint32_t method, std::string_view target, std::string_view body = {},
               const char16_t *type = nullptr) {
        zHttpRequestReset(client_);
        zHttpRequestSetUrl(client_, wide(url() + std::string(target)).c_str());
        zHttpRequestSetMethod(client_, method);
        zHttpHeaderRemove(zHttpRequestHeader(client_), u"X-ZEV-USER");
        zHttpHeaderRemove(zHttpRequestHeader(client_), u"X-ZEV-CODE");
        zHttpHeaderPut(zHttpRequestHeader(client_), u"X-Forwarded-For",
                       forwarded.empty() ? nullptr : wide(forwarded).c_str());
        if (!user_.empty()) zHttpRequestSetAccount(client_, user_.c_str(), code_.c_str());
        zHttpRequestSetAccepts(client_, nullptr, nullptr, u"en-US");
        if (type) {
            Stream *stream = zMemStream(0, 0);
            zStreamWrite(stream, body.data(), body.size());
            zHttpRequestSetContents(client_, type, nullptr, nullptr, stream);
        }
        return answer_of(zHttpRequestSend(client_));
    }

    std::filesystem::path repos() const { return root() / "repos"; }
    // Of a project's repository, for git.
    std::string at(std::string_view project) const { return (repos() / project).string(); }
    std::string git(std::string_view project, const std::string &command,
                    int *status = nullptr) const {
        return run("git -C " + at(project) + " -c safe.directory='*' " + command + " 2>&1", status);
    }
    bool has(std::string_view project, const std::string &id) const {
        int status = 0;
        git(project, "cat-file -e " + id, &status);
        return !status;
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port()); }

  private:
    static inline const std::function<void()> *work_ = nullptr; // a route has no context
    static HttpResponse *do_work(HttpServer *, HttpRequest *) {
        (*work_)();
        return zHttpResponseBlank(204);
    }

    static Answer answer_of(HttpResponse *response) {
        Answer answer;
        if (!response) return answer;
        answer.code = zHttpResponseCode(response);
        answer.body = body_of(response);
        Stream *body = zHttpResponseBody(response);
        const zwchar *type = zHttpResponseContentType(response);
        if (type && zStrcasesameW(type, u"application/json") && zStreamRewind(body))
            answer.json.reset(zJsonReadStream(body), zJsonFree);
        return answer;
    }

    HttpRequest *client_;
    std::u16string user_, code_;
};

// A commit of a tree, on no branch; its id.
inline std::string commit_tree(const Service &service, std::string_view project,
                               const std::string &tree) {
    return service.git(project, "-c user.name=a -c user.email=a commit-tree -m t " + tree)
        .substr(0, 40);
}

// The name that an object of these bytes has.
inline std::string id_of(std::string_view bytes, git_object_t type = GIT_OBJECT_BLOB) {
    git_oid id;
    git_odb_hash(&id, bytes.data(), bytes.size(), type);
    return git_oid_tostr_s(&id);
}

// A bare repository of the service, made without it.
inline void make_project(const Service &service, std::string_view project) {
    const auto made =
        guard(zRepositoryInit(wide(service.at(project)).c_str(), true), zRepositoryFree);
    ASSERT_TRUE(made) << narrow(zErrorDetail());
}

// An object of a project's store, and a tree of files there, written without the service; their
// ids.
inline std::string store(const Service &service, std::string_view project, int32_t type,
                         std::string_view bytes) {
    const auto repository =
        guard(zRepositoryOpenBare(wide(service.at(project)).c_str()), zRepositoryFree);
    const auto odb = guard(zOdbOpen(repository.get()), zOdbFree);
    const auto stream = guard(zMemStream(0, 0), zStreamFree);
    zStreamWrite(stream.get(), bytes.data(), bytes.size());
    zStreamRewind(stream.get());
    Oid id;
    zwchar text[41] = {};
    EXPECT_TRUE(zOdbWrite(&id, odb.get(), type, bytes.size(), stream.get()));
    return zOidFormat(text, &id), narrow(text);
}

inline std::string store_tree(const Service &service, std::string_view project,
                              const std::vector<std::pair<std::string, std::string>> &files) {
    const auto repository =
        guard(zRepositoryOpenBare(wide(service.at(project)).c_str()), zRepositoryFree);
    const auto builder = guard(zTreeBuilderNew(repository.get(), nullptr), zTreeBuilderFree);
    for (const auto &[path, bytes] : files) {
        Oid id;
        zOidFromStr(&id, wide(store(service, project, Z_OBJECT_BLOB, bytes)).c_str());
        EXPECT_TRUE(zTreeBuilderInsert(builder.get(), wide(path).c_str(), &id)) << path;
    }
    const auto tree = guard(zTreeBuilderWrite(builder.get(), repository.get()), zTreeFree);
    zwchar text[41] = {};
    return zOidFormat(text, zTreeId(tree.get())), narrow(text);
}

} // namespace test
