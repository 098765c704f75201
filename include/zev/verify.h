// Verify: what can be proven about a repository. Everything that the references lead to is read and
// compared with its name; then what else the store holds, the index, each row of each drawing's
// table, the records of history, and the locks that somebody left. Nothing is changed, but that a
// table's database puts its own files in order whenever it is opened.
//
// A copy that follows a server holds what it fetched so far. Of what it lacks that is a damage
// which was here once: commits of its own branches, the tree and the files of the current one's
// last commit, what is staged, and rows of drawings that are changed and not committed yet. Of
// other commits, and of their drawings, the server may have what is not here.
//
// Each fault is told by a callback as it is found; nothing is printed. A damage to one thing does
// not end the look at the others.
#ifndef ZEV_VERIFY_H
#define ZEV_VERIFY_H

#include "zev/base.h"
#include "zev/digest.h"

ZEV_BEGIN

// What to look at. Tables are looked at beside the drawings of all commits, for which commits,
// trees and drawings are read; without objects these are all that is read of the store.
enum {
    Z_VERIFY_REFERENCES = 0x01,
    Z_VERIFY_OBJECTS = 0x02,
    Z_VERIFY_INDEX = 0x04,
    Z_VERIFY_TABLES = 0x08,
    Z_VERIFY_RECORDS = 0x10,
    Z_VERIFY_LOCKS = 0x20,
    Z_VERIFY_ALL = 0x3F
};

enum {
    Z_FINDING_DAMAGE = 1, // something is lost, or is not what it was
    Z_FINDING_LEFT_OVER   // what a process that died left; it heals itself, or costs room only
};

typedef struct VerifyFinding {
    int32_t kind;
    const zwchar *path;   // the file that suffers, or the reference; may be empty
    const Oid *commit;    // one that suffers, null when none is known
    const zwchar *reason; // a sentence without its end
} VerifyFinding;

// Lent for the call.
typedef void (*VerifyFoundFn)(const VerifyFinding *finding, void *context);

// Finds the digest that a host keeps in a drawing's summary block: of the header, the DS block,
// the classes and the objects. False when it has none.
typedef bool (*VerifyDigestFn)(DrawingDigest *digest, const void *summary, uint64_t length,
                               void *context);

typedef struct VerifySpec {
    uint32_t parts;        // Z_VERIFY_...
    bool quick;            // that all is there, without reading all of it; tells no digests
    const Notify *notify;  // progress, and the user's break; may be null
    VerifyFoundFn found;   // may be null
    VerifyDigestFn digest; // null: rows are not compared with digests
    void *context;         // of both
} VerifySpec;

typedef struct VerifyCounts {
    uint64_t commits, trees, files, objects;
    uint64_t drawings; // versions of drawings
    uint64_t blocks;   // that drawings name
    uint64_t rows;     // that tables hold
    uint64_t records;  // of history
    uint64_t damages;
} VerifyCounts;

// True when all was looked at, whatever was found. False when the user broke off, class 6; when a
// table is held by somebody, class 7 or 13; or when memory ran out. The counts, which may be null,
// are of what was looked at so far.
ZEV_API bool zVerify(VerifyCounts *counts, Repository *repository, const VerifySpec *spec);

ZEV_END
#endif
