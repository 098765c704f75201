// What the whole host leans on: guards for the library's records, text conversion, and the one
// exception that carries a failure from where it happens to main.
#pragma once

#include "say.hpp"

#include "zev/zev.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

template <auto Fn> struct Release {
    template <class T> void operator()(T *pointer) const noexcept { Fn(pointer); }
};
template <class T, auto Fn> using Owned = std::unique_ptr<T, Release<Fn>>;

using OwnedBlob = Owned<Blob, zBlobFree>;
using OwnedCommit = Owned<Commit, zCommitFree>;
using OwnedDiff = Owned<DiffList, zDiffListFree>;
using OwnedDrawing = Owned<Drawing, zDrawingFree>;
using OwnedFile = Owned<FILE, zFileClose>;
using OwnedIndex = Owned<Index, zIndexFree>;
using OwnedJson = Owned<Json, zJsonFree>;
using OwnedOdb = Owned<Odb, zOdbFree>;
using OwnedRepository = Owned<Repository, zRepositoryFree>;
using OwnedSpec = Owned<PathSpec, zPathSpecFree>;
using OwnedStatus = Owned<StatusList, zStatusListFree>;
using OwnedStream = Owned<Stream, zStreamFree>;
using OwnedTable = Owned<Table, zTableFree>;
using OwnedTree = Owned<Tree, zTreeFree>;
using OwnedTreeEntry = Owned<TreeEntry, zTreeEntryFree>;
using OwnedVector = Owned<Vector, zVectorFree>;

inline std::string narrow(const zwchar *text) { return text ? zStrtoutf8(text) : ""; }
inline std::u16string wide(const std::string &text) { return zStrfromutf8(text.c_str()); }

// Numbers of the error classes that the host tells apart.
enum ErrorClass : int {
    kOther = -1,
    kInvalid = 2,
    kNotFound = 3,
    kExists = 4,
    kCanceled = 6,
    kLocked = 7,
    kSystem = 10,
    kGit = 11,
    kStore = 13,
    kNetwork = 15,
    kServer = 16
};

// A failure on its way to main, which prints it and turns class and code into the exit code.
struct Failed : std::runtime_error {
    Failed(int error_class, const std::string &message)
        : std::runtime_error(message), error_class(error_class), code(error_class) {}
    Failed(int error_class, int code, const std::string &message)
        : std::runtime_error(message), error_class(error_class), code(code) {}
    // A text of our own, in English.
    Failed(int error_class, const char *text) : Failed(error_class, say(text)) {}
    Failed(int error_class, int code, const char *text) : Failed(error_class, code, say(text)) {}
    int error_class;
    int code;
};

// What the thread's error record holds, behind `what` unless the detail names it already.
inline Failed raised(const std::string &what = {}) {
    std::string detail = narrow(zErrorDetail());
    bool named = what.empty() || detail.find(what + ": ") != detail.npos;
    return Failed(zErrorClass(), zErrorCode(), named ? detail : what + ": " + detail);
}
[[noreturn]] inline void fail_raised(const std::string &what = {}) { throw raised(what); }

// Passes a result on, or throws the failure that the library left.
template <class T> T check(T result, const std::string &what = {}) {
    if (!result) fail_raised(what);
    return result;
}

// Polled in every loop that can take long.
inline void stop_on_break(const Notify *notify) {
    if (zNotifyIsUsrbrk(notify)) throw Failed(kCanceled, "cancelled");
}

} // namespace host
