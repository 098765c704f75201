// Types that every family shares: text, identifiers, times, keys, and the names of the records.
//
// Text is zero-terminated and in 16-bit units (zwchar) unless a function ends in A, which takes
// UTF-8. What New, Open and By... functions give belongs to the caller and goes back through the
// family's Free, which accepts null. Getters lend a pointer that lives as long as the record.
// A failing function gives false, 0, null or -1 and leaves the reason in the thread's error
// record, see zev/error.h. Out arguments stay untouched on failure unless told otherwise.
#ifndef ZEV_BASE_H
#define ZEV_BASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define ZEV_BEGIN extern "C" {
#define ZEV_END }
#else
#include <uchar.h>
#define ZEV_BEGIN
#define ZEV_END
#endif

#define ZEV_API __attribute__((visibility("default")))
// The format check of the compiler, for narrow printf-like functions.
#define ZEV_PRINTF(position, first) __attribute__((format(printf, position, first)))

ZEV_BEGIN

typedef char16_t zwchar;

// Longest path with its terminator, and longest URL, in characters.
enum { Z_PATH_MAX = 512, Z_URL_MAX = 2048 };

// Name of an object: the 20 bytes of a SHA-1, in the layout of git_oid.
typedef struct Oid {
    uint8_t id[20];
} Oid;

// Seconds since 1970-01-01 00:00:00 and nanoseconds.
typedef struct Time {
    int64_t seconds;
    int64_t nanoseconds;
} Time;

// Names one block of a drawing in its table. In files and on the wire: 16 bytes, big-endian.
typedef struct DrawingKey {
    uint64_t tag;
    uint64_t object;
} DrawingKey;

// Gives back what a record owns.
typedef void (*ReleaseFn)(void *pointer);

typedef struct Admin Admin;
typedef struct Authdb Authdb;
typedef struct Binary Binary;
typedef struct Blob Blob;
typedef struct Branch Branch;
typedef struct Buffer Buffer;
typedef struct CheckSpec CheckSpec;
typedef struct CleanupSpec CleanupSpec;
typedef struct Commit Commit;
typedef struct Config Config;
typedef struct Conflict Conflict;
typedef struct ConflictAnalysis ConflictAnalysis;
typedef struct ConflictNode ConflictNode;
typedef struct DiffEntry DiffEntry;
typedef struct DiffList DiffList;
typedef struct Dir Dir;
typedef struct Dirent Dirent;
typedef struct Drawing Drawing;
typedef struct Echo Echo;
typedef struct Flock Flock;
typedef struct Hashmap Hashmap;
typedef struct HashmapIter HashmapIter;
typedef struct HttpClient HttpClient;
typedef struct HttpHandle HttpHandle;
typedef struct HttpRequest HttpRequest;
typedef struct HttpResponse HttpResponse;
typedef struct HttpServer HttpServer;
typedef struct Index Index;
typedef struct IndexEntry IndexEntry;
typedef struct Json Json;
typedef struct Loop Loop;
typedef struct MemStream MemStream;
typedef struct Notify Notify;
typedef struct Object Object;
typedef struct Odb Odb;
typedef struct PackBuilder PackBuilder;
typedef struct PackWriter PackWriter;
typedef struct PathSpec PathSpec;
typedef struct Recycle Recycle;
typedef struct Reference Reference;
typedef struct Remote Remote;
typedef struct Repository Repository;
typedef struct RevBase RevBase;
typedef struct RevList RevList;
typedef struct RevSpec RevSpec;
typedef struct Revdb Revdb;
typedef struct Revision Revision;
typedef struct Server Server;
typedef struct Share Share;
typedef struct Socket Socket;
typedef struct StatusEntry StatusEntry;
typedef struct StatusList StatusList;
typedef struct Stream Stream;
typedef struct Table Table;
typedef struct TableIter TableIter;
typedef struct Tag Tag;
typedef struct TaskButton TaskButton;
typedef struct TaskDialog TaskDialog;
typedef struct Token Token;
typedef struct Transaction Transaction;
typedef struct TrashEntry TrashEntry;
typedef struct TrashFind TrashFind;
typedef struct Tree Tree;
typedef struct TreeBuilder TreeBuilder;
typedef struct TreeEntry TreeEntry;
typedef struct Uri Uri;
typedef struct Variant Variant;
typedef struct Vector Vector;

ZEV_END
#endif
