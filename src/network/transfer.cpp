// The dispatchers of loops and echoes, and the chunks that travel between them.
#include "zev/transfer.h"

#include "common/failure.hpp"
#include "zev/stream.h"

#include <cstdlib>
#include <new>

using namespace zev;

namespace {

// Calls a slot of a record's table; a record, table or slot that is missing is a bad argument.
template <class Record, class Slot, class... Arguments>
auto dispatch(Here at, Record *record, Slot slot, Arguments... arguments) {
    using Result = decltype((record->table->*slot)(record, arguments...));
    if (record && record->table && record->table->*slot)
        return (record->table->*slot)(record, arguments...);
    fail_args(at);
    return Result();
}

} // namespace

// ---- Chunk

Chunk *zChunkNew(void *base, uint64_t size) {
    auto *chunk = new (std::nothrow) Chunk{base, size, size, false};
    return chunk ? chunk : fail_memory();
}

bool zChunkInit(Chunk *chunk, void *base, uint64_t size) {
    if (!chunk) return fail_args();
    *chunk = {base, size, size, false};
    return true;
}

void *zChunkBase(const Chunk *chunk) { return chunk ? chunk->base : fail_args(); }
uint64_t zChunkSize(const Chunk *chunk) { return chunk ? chunk->size : (fail_args(), 0); }

bool zChunkSet(Chunk *chunk, void *base, uint64_t size) {
    if (!chunk) return fail_args();
    zChunkCleanup(chunk);
    *chunk = {base, size, size, base != nullptr};
    return true;
}

bool zChunkPull(Chunk *chunk, Stream *stream, uint64_t count) {
    if (!chunk || !stream) return fail_args();
    if (chunk->capacity < count) {
        void *block = malloc(count);
        if (!block) return fail_memory();
        zChunkSet(chunk, block, count);
    }
    chunk->size = zStreamRead(stream, chunk->base, count);
    if (chunk->size == count || !zStreamError(stream)) return true;
    chunk->size = 0;
    return false;
}

void zChunkCleanup(Chunk *chunk) {
    if (!chunk) return;
    if (chunk->owned) free(chunk->base);
    *chunk = {};
}

void zChunkFree(Chunk *chunk) {
    zChunkCleanup(chunk);
    delete chunk;
}

// ---- Echo

Echo *zEchoNew(const EchoClass *table, ...) {
    if (!table || !table->New) return fail_args();
    va_list arguments;
    va_start(arguments, table);
    Echo *echo = table->New(arguments);
    va_end(arguments);
    return echo;
}

Echo *zEchoDup(Echo *echo) { return dispatch({}, echo, &EchoClass::Dup); }
bool zEchoRead(Echo *echo, Chunk *chunk) { return dispatch({}, echo, &EchoClass::Read, chunk); }
bool zEchoWrHeader(Echo *echo, Chunk *chunk) {
    return dispatch({}, echo, &EchoClass::WrHeader, chunk);
}
bool zEchoWrBody(Echo *echo, Chunk *chunk) { return dispatch({}, echo, &EchoClass::WrBody, chunk); }
void zEchoClose(Echo *echo) { dispatch({}, echo, &EchoClass::Close); }
void zEchoAbort(Echo *echo) { dispatch({}, echo, &EchoClass::Abort); }

void zEchoFree(Echo *echo) {
    if (echo && echo->table) dispatch({}, echo, &EchoClass::Free);
}

EchoAction zEchoAction(Echo *echo) {
    if (echo && echo->table && echo->table->Action) return echo->table->Action(echo);
    return fail_args(), Z_ECHO_ABORT;
}

// ---- Loop

Loop *zLoopNew(const LoopClass *table, Echo *echo, uint32_t backlog, uint64_t timeout) {
    if (!table || !table->New || !echo) return fail_args();
    return table->New(echo, backlog, timeout);
}

void zLoopFree(Loop *loop) {
    if (loop && loop->table) dispatch({}, loop, &LoopClass::Free);
}

bool zLoopListen(Loop *loop, const zwchar *host, uint32_t port) {
    return host ? dispatch({}, loop, &LoopClass::Listen, host, port) : fail_args();
}
bool zLoopConnect(Loop *loop, const zwchar *host, uint32_t port) {
    return host ? dispatch({}, loop, &LoopClass::Connect, host, port) : fail_args();
}
bool zLoopRun(Loop *loop) { return dispatch({}, loop, &LoopClass::Run); }
bool zLoopOnce(Loop *loop) { return dispatch({}, loop, &LoopClass::Once); }
bool zLoopAlive(Loop *loop) { return dispatch({}, loop, &LoopClass::Alive); }
TransferUsage *zLoopUsage(Loop *loop) { return dispatch({}, loop, &LoopClass::Usage); }
bool zLoopClose(Loop *loop) { return dispatch({}, loop, &LoopClass::Close); }
