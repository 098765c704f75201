// Routes: a pattern and the procedure that answers what matches it.
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/http_request.h"
#include "zev/http_server.h"
#include "zev/str.h"

#include <cstdlib>
#include <new>
#include <utility>

using namespace zev;

HttpHandle *zHttpHandleNew(const zwchar *pattern, HttpProc proc) {
    Owned<HttpHandle, zHttpHandleFree> handle(new (std::nothrow) HttpHandle{});
    if (!handle) return fail_memory();
    return zHttpHandleInit(handle.get(), pattern, proc) ? handle.release() : nullptr;
}

bool zHttpHandleInit(HttpHandle *handle, const zwchar *pattern, HttpProc proc) {
    if (!handle || !pattern || !proc) return fail_args();
    *handle = {zStrdupW(pattern), proc};
    return handle->pattern ? true : fail_memory();
}

HttpHandle *zHttpHandleDup(const HttpHandle *handle) {
    return handle ? zHttpHandleNew(handle->pattern, handle->proc) : fail_args();
}

void zHttpHandleCleanup(HttpHandle *handle) {
    if (!handle) return;
    free(handle->pattern);
    *handle = {};
}

void zHttpHandleFree(HttpHandle *handle) {
    zHttpHandleCleanup(handle);
    delete handle;
}

const zwchar *zHttpHandlePattern(const HttpHandle *handle) {
    return handle ? handle->pattern : fail_args();
}

bool zHttpHandleSetPattern(HttpHandle *handle, const zwchar *pattern) {
    if (!handle || !pattern) return fail_args();
    zwchar *copy = zStrdupW(pattern);
    if (!copy) return fail_memory();
    free(std::exchange(handle->pattern, copy));
    return true;
}

HttpProc zHttpHandleProc(const HttpHandle *handle) {
    return handle ? handle->proc : (fail_args(), nullptr);
}

bool zHttpHandleSetProc(HttpHandle *handle, HttpProc proc) {
    return handle && proc ? (handle->proc = proc, true) : fail_args();
}

bool zHttpHandleMatch(const HttpHandle *handle, HttpRequest *request) {
    if (!handle || !request) return fail_args();
    return zHttpRequestCatchPath(request, handle->pattern);
}

HttpResponse *zHttpHandleCall(const HttpHandle *handle, HttpServer *server, HttpRequest *request) {
    if (!handle || !handle->proc || !request) return fail_args();
    return handle->proc(server, request);
}
