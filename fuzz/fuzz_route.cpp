// A request line on its way to its answer, through the service's own routes and table: whatever
// method, path and query somebody makes up, there is an answer, captures come from the path alone,
// and without a body no project comes, goes or changes its name, but for one that is deleted by it.
//
// Input: a byte that chooses the method, then the target.
#include "http_pieces.hpp"
#include "scratch.hpp"

#include "common/uri.hpp"
#include "network/http/server.hpp"
#include "zev/error.h"
#include "zev/json.h"
#include "zev/repository.h"
#include "zev/str.h"

#include <iterator>

#include <sys/stat.h>

namespace {

using namespace fuzz;
using zev::Owned;

constexpr const char *kMethods[] = {"GET", "HEAD", "PUT", "POST", "PATCH", "DELETE"};

struct Service {
    Scratch scratch;
    Owned<HttpServer, zHttpServerFree> server{};

    Service() {
        const Owned<Json, zJsonFree> config(zJsonNew(Z_JSON_OBJECT));
        zJsonPathSetString(config.get(), u"path.root", scratch.path().c_str());
        zJsonPathSetString(config.get(), u"http.host", u"localhost");
        server.reset(zHttpServerNew(config.get(), u"http"));
        const std::u16string project = (scratch / "repos/o/n").u16string();
        const Owned<Repository, zRepositoryFree> made(zRepositoryInit(project.c_str(), true));
        require(server && made && zRepositoryId(made.get(), true));
    }
    // The times of the directories that hold owners and projects.
    void note(timespec (&times)[2]) const {
        const char *names[] = {"repos", "repos/o"};
        for (int i = 0; i < 2; ++i) {
            struct stat info;
            require(stat((scratch / names[i]).c_str(), &info) == 0);
            times[i] = info.st_mtim;
        }
    }
};

bool is(HttpRequest *request, const zwchar *capture, const zwchar *text) {
    const zwchar *value = zHttpRequestQuery(request, capture);
    return value && zStrsameW(value, text);
}

void answer(const Service &service, HttpRequest *request) {
    HttpServer *server = service.server.get();
    zev::uri_drop_queries(&request->uri, u':');
    for (const zwchar *name : {u":base", u":owner", u":name", u":other"})
        require(!zHttpRequestQuery(request, name));
    const HttpHandle *handle = zHttpServerFindHandle(server, request);
    if (!handle) return;
    if (const auto begun = server->begin(server, *handle, request))
        require(begun->refusal || begun->most > 0);
    if (request->method == Z_HTTP_DELETE && is(request, u":owner", u"o") &&
        is(request, u":name", u"n"))
        return;
    const Owned<HttpResponse, zHttpResponseFree> response(zHttpHandleCall(handle, server, request));
    require(response != nullptr);
    const int32_t code = zHttpResponseCode(response.get());
    require(code == 200 || code == 204 || (code >= 400 && code <= 503));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    static const Service service;
    if (!size) return 0;
    const std::string_view target(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string head = std::string(kMethods[data[0] % std::size(kMethods)]) + " " +
                             std::string(target) + " HTTP/1.1\r\nHost: h\r\n\r\n";
    const Owned<HttpRequest, zHttpRequestFree> request(zHttpRequestNew(nullptr));
    zev::MessageParser parser(true, zev::kHttpLimits);
    parser.begin(request.get(), zHttpRequestParser());
    if (!feed(parser, head, head.size()).complete || request->body) return 0;
    timespec before[2], after[2];
    service.note(before);
    answer(service, request.get());
    service.note(after);
    for (int i = 0; i < 2; ++i)
        require(before[i].tv_sec == after[i].tv_sec && before[i].tv_nsec == after[i].tv_nsec);
    return 0;
}
