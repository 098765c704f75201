// Transfer: two tables that know nothing of each other. A Loop carries bytes over connections; an
// Echo is the protocol at one end of a connection. The loop hands an echo what came in, asks it
// what to do next, and lets it fill chunks with what is to go out.
//
// Dispatchers raise class 2, logged, for a missing record or slot.
#ifndef ZEV_TRANSFER_H
#define ZEV_TRANSFER_H

#include "zev/base.h"
#include <stdarg.h>

ZEV_BEGIN

// ---- Chunk: a view of memory that somebody else keeps, or a block of its own.

typedef struct Chunk {
    void *base;
    uint64_t size;     // valid bytes
    uint64_t capacity; // of the block
    bool owned;        // from the C heap, freed with the chunk
} Chunk;

// New and Init give a view, with size and capacity equal to `size`.
ZEV_API Chunk *zChunkNew(void *base, uint64_t size);
ZEV_API bool zChunkInit(Chunk *chunk, void *base, uint64_t size);
ZEV_API void *zChunkBase(const Chunk *chunk);
ZEV_API uint64_t zChunkSize(const Chunk *chunk);
// Takes a block of the C heap and gives the former one back; (null, 0) empties the chunk.
ZEV_API bool zChunkSet(Chunk *chunk, void *base, uint64_t size);
// Reads up to `count` bytes into the chunk, which grows where its block is smaller; a view becomes
// a block of its own then. False with size 0 when the stream failed; its end is no failure.
ZEV_API bool zChunkPull(Chunk *chunk, Stream *stream, uint64_t count);
ZEV_API void zChunkCleanup(Chunk *chunk);
ZEV_API void zChunkFree(Chunk *chunk);

// ---- Echo

// What the loop is to do with the connection.
typedef uint32_t EchoAction;
enum {
    Z_ECHO_READ = 0,
    Z_ECHO_WRHEADER = 1, // ask for the head and send it
    Z_ECHO_WRBODY = 2,   // ask for a piece of the body and send it
    Z_ECHO_PAUSE = 3,    // a client's exchange is over, its socket stays open
    Z_ECHO_CLOSE = 4,    // an orderly end
    Z_ECHO_ABORT = 5     // a cut
};

typedef struct EchoClass {
    Echo *(*New)(va_list arguments);
    Echo *(*Dup)(Echo *echo); // for a new connection, with what the prototype shares
    void (*Free)(Echo *echo);
    EchoAction (*Action)(Echo *echo);
    bool (*Read)(Echo *echo, Chunk *chunk);     // false stops the connection
    bool (*WrHeader)(Echo *echo, Chunk *chunk); // the chunk's memory stays until the next call
    bool (*WrBody)(Echo *echo, Chunk *chunk);
    void (*Close)(Echo *echo); // the connection ended in order
    void (*Abort)(Echo *echo); // it was cut
} EchoClass;

// Heads every echo's record.
struct Echo {
    const EchoClass *table;
};

ZEV_API Echo *zEchoNew(const EchoClass *table, ...);
ZEV_API Echo *zEchoDup(Echo *echo);
ZEV_API void zEchoFree(Echo *echo);
ZEV_API EchoAction zEchoAction(Echo *echo); // Z_ECHO_ABORT when it can't be asked
ZEV_API bool zEchoRead(Echo *echo, Chunk *chunk);
ZEV_API bool zEchoWrHeader(Echo *echo, Chunk *chunk);
ZEV_API bool zEchoWrBody(Echo *echo, Chunk *chunk);
ZEV_API void zEchoClose(Echo *echo);
ZEV_API void zEchoAbort(Echo *echo);

// ---- Loop

// Bytes and bytes a second. Totals hold closed intervals only: a caller who wants every byte adds
// the interval's.
typedef struct TransferUsage {
    uint64_t read_bytes; // of the current interval
    Time read_time;
    uint64_t write_bytes;
    Time write_time;
    uint64_t total_read;
    Time total_read_time;
    uint64_t total_written;
    Time total_write_time;
    uint64_t read_speed; // of the last interval
    uint64_t write_speed;
    uint64_t average_read_speed;
    uint64_t average_write_speed;
    Time start;
    Time last; // transfer
} TransferUsage;

typedef struct LoopClass {
    Loop *(*New)(Echo *echo, uint32_t backlog, uint64_t timeout);
    void (*Free)(Loop *loop);
    bool (*Listen)(Loop *loop, const zwchar *host, uint32_t port);
    bool (*Connect)(Loop *loop, const zwchar *host, uint32_t port);
    bool (*Run)(Loop *loop);
    bool (*Once)(Loop *loop);
    bool (*Alive)(Loop *loop);
    TransferUsage *(*Usage)(Loop *loop);
    bool (*Close)(Loop *loop);
} LoopClass;

// Heads every loop's record.
struct Loop {
    const LoopClass *table;
};

// `timeout` is the silence in milliseconds after which a connection is cut; 0 means never. The
// echo is lent: a server's is the prototype of each connection's own.
ZEV_API Loop *zLoopNew(const LoopClass *table, Echo *echo, uint32_t backlog, uint64_t timeout);
ZEV_API void zLoopFree(Loop *loop);
ZEV_API bool zLoopListen(Loop *loop, const zwchar *host, uint32_t port);
ZEV_API bool zLoopConnect(Loop *loop, const zwchar *host, uint32_t port);
// A server's: until it is closed.
ZEV_API bool zLoopRun(Loop *loop);
// A client's: until its connection pauses or ends; false when it timed out.
ZEV_API bool zLoopOnce(Loop *loop);
ZEV_API bool zLoopAlive(Loop *loop);
ZEV_API TransferUsage *zLoopUsage(Loop *loop);
// Ends every connection. The one function that another thread may call, while a server runs.
ZEV_API bool zLoopClose(Loop *loop);

ZEV_END
#endif
