// The operating system, for the rest of the library: no other header names the platform.
//
// Results are bool, null or -1 with the host's `errno`. Paths are wide text with either slash. A
// path that begins with a drive is missing (ENOENT); one that fills its buffer may have been cut
// while it was joined and names another file then, so it is refused (ENAMETOOLONG). Something
// below a file is missing too, and a directory can't be opened or unlinked as a file (EACCES).
// Calls that are interrupted go on, except close; descriptors don't pass to other programs.
#pragma once

#include "zev/base.h"

#include <cstdio>
#include <string>
#include <vector>

#include <csignal>
#include <sys/stat.h>
#include <sys/types.h>

namespace zev::os {

// ---- Calls that a test replaces: to count syncs, to fail the n-th call, to fix time and chance.
struct Calls {
    int (*open)(const char *path, int flags, mode_t mode);
    ssize_t (*write)(int fd, const void *bytes, size_t size);
    int (*ftruncate)(int fd, off_t size);
    int (*fchmod)(int fd, mode_t mode);
    int64_t (*copy_range)(int from, int to, size_t size); // as copy_file_range at the cursors
    int (*rename)(const char *from, const char *to, unsigned flags); // as renameat2
    int (*link)(const char *from, const char *to);
    int (*unlink)(const char *path);
    int (*mkdir)(const char *path, mode_t mode);
    int (*fsync)(int fd);
    int (*fdatasync)(int fd);
    int (*syncfs)(int fd);
    int64_t (*now)();    // nanoseconds since 1970, UTC
    int64_t (*steady)(); // nanoseconds of a clock that nobody sets, for spans and deadlines
    void (*random)(void *bytes, size_t size);
};
extern Calls calls;

// ---- Opening
struct Mode {
    bool read = false;
    bool write = false;
    bool append = false;
    bool create = false;
    bool truncate = false;
    bool exclusive = false;  // fail if it exists
    bool sequential = false; // hints for the page cache
    bool random = false;
    bool remove = false;  // the name goes with the file's closing
    bool no_link = false; // a symbolic link is refused, ELOOP

    static bool parse(const char16_t *letters, Mode *mode); // as for fopen; EINVAL
    const char *stdio() const;                              // what fdopen is told
};

int open_fd(const char16_t *path, const Mode &mode, mode_t create = 0666);
// For appending where others may write names: a regular file with this one name, of this user or
// root, else EACCES. A new one may be read and written by whom its directory lets, whatever the
// umask; no other's mode is touched.
int open_trusted(const char16_t *path);
// Whether a way that the environment names leads where its user says: for root every name on it,
// as far as it exists, must be the system's, else EACCES. Others go where they please.
bool is_trusted_way(const char16_t *path);
FILE *open(const char16_t *path, const char16_t *mode);
FILE *adopt(int fd, const char *stdio); // as fdopen; a descriptor that can't be had is closed

// An anonymous file that goes when it is closed: bodies, packs, tables on their way.
FILE *temp_file();
// A new file `<prefix>XXXXXX.tmp` in the directory, which stays; its path in `path`, a buffer of
// Z_PATH_MAX.
int temp_named(char16_t *path, const char16_t *directory, const char16_t *prefix);

// A directory, to be found again by place_of.
int open_dir(const char16_t *path);
// Where a file or directory that is open lies now, whatever was renamed since; false where its name
// is gone.
bool place_of(int fd, std::u16string *path);
void close_fd(int fd);
bool fd_stat(int fd, struct stat *out);
bool fd_mode(int fd, mode_t mode);
// The same where it matters little: true also if the file system keeps no such mode.
bool fd_mode_if_kept(int fd, mode_t mode);
bool fd_truncate(int fd, int64_t size); // with the cursor at its start
bool fd_rewind(int fd);
bool fd_sync(int fd); // its bytes, and of the rest what is needed to read them
// Its bytes by now begin to go to the disk, so that a later sync finds little left to do.
void start_sync(int fd);
bool write_all(int fd, const void *bytes, size_t size);
bool copy_bytes(int from, int to); // from both cursors to the end of `from`
bool truncate(FILE *file, int64_t size);
bool size(FILE *file, uint64_t *size); // with what is still buffered
bool seek(FILE *file, int64_t offset, int whence);
bool rewind(FILE *file); // clears its error, unless buffered bytes can't be written
int64_t tell(FILE *file);

// ---- Files by name
bool stat(const char16_t *path, struct stat *out);
bool lstat(const char16_t *path, struct stat *out);
bool readable(const char16_t *path);
bool writable(const char16_t *path); // by rights, and has a write bit, which root would not need
bool set_readonly(const char16_t *path, bool readonly); // write bits only, only if they differ
bool unlink(const char16_t *path);
bool sync_file(const char16_t *path);                // as fd_sync
bool link(const char16_t *from, const char16_t *to); // a second name
// A symbolic link, in place of a file or none; without `replaces` EEXIST where anything stands.
bool make_link(const char16_t *path, const std::string &target, bool replaces = true);
bool move(const char16_t *from, const char16_t *to, bool replace); // across devices too
bool copy(const char16_t *from, const char16_t *to); // trees too; into `to` if that is a directory
bool trash(const char16_t *path);                    // ENOENT, EACCES or EIO
bool real_path(const char16_t *path, std::u16string *out); // without links; may throw

// ---- Directories
struct Name {
    std::u16string text;
    bool directory; // a link is none
};
bool make_dir(const char16_t *path, mode_t mode = 0777);
bool make_dirs(const char16_t *path);  // with its parents; what exists is no error
bool remove_dir(const char16_t *path); // empty
bool read_dir(const char16_t *path, std::vector<Name> *names); // with . and .., unsorted
int dir_empty(const char16_t *path);                           // 0, 1 or -1
int holds_file(const char16_t *path); // anything but directories, at any depth; 0, 1 or -1
// Subdirectories with `recursive`, all else with `force`, then the directory itself. Never goes
// through a link.
bool remove_dir(const char16_t *path, bool recursive, bool force);
// Whatever is there, with all below it; with keep_top only what is below the directory.
bool remove_tree(const char16_t *path, bool keep_top);

// ---- Durability
bool sync_dir(const char16_t *directory);  // its names
bool sync_tree(const char16_t *directory); // the whole file system it lies in

// A file put in place of another or of a link, or of none: written aside in the same directory,
// synced and renamed, so that the name always holds the old bytes or the new ones. What is neither
// file nor link stays: a directory is refused (EACCES), a device, pipe or socket too (ENOTSUP).
class Replacement {
  public:
    // Mode 0 means that of the replaced file, 0666 less the umask for a new one.
    explicit Replacement(const char16_t *path, mode_t mode = 0);
    ~Replacement(); // takes away what was not committed
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    explicit operator bool() const { return fd_ >= 0; } // false: errno says why
    int fd() const { return fd_; }
    FILE *file(); // for writing, lent; null when it can't be made
    // Without `durable` nothing is synced: the caller syncs the tree afterwards. Without `replaces`
    // it fails with EEXIST, in the same step, where something has the name by now.
    bool commit(bool durable = true, bool replaces = true);

  private:
    std::string path_, aside_, directory_;
    int fd_ = -1;
    FILE *file_ = nullptr;
    bool open(const char16_t *path, mode_t mode);
    bool flush();
};
bool replace_file(const char16_t *path, const void *bytes, size_t size, mode_t mode = 0);

// ---- Sharing: who holds a file open with which access, and what he leaves to others
// `flags` says what others may do, as Z_SHARE_... tells it. A refusal is EACCES.
int share_open(const char16_t *path, const Mode &mode, unsigned flags, mode_t create = 0666);
bool share_remove(int fd, const char16_t *path); // unlink while the grant is held, before close
// Nobody denies reading. For files that are only ever replaced whole; no grant is taken.
bool share_readable(int fd);
// A lock on a directory, for as long as what comes back is open: many may share it, or one has it
// alone. EWOULDBLOCK where it is held otherwise; other numbers say that it can't be locked.
int lock_dir(const char16_t *path, bool shared);
int open_elsewhere(int fd); // 0 no, 1 yes, -1 cannot tell

// ---- Program and places; false when the text doesn't fit `size` units
bool own_file(char16_t *out, size_t size);                     // this library, or who holds it
bool program(char16_t *out, size_t size);                      // running program
bool expand(char16_t *out, size_t size, const char16_t *text); // %NAME%
bool temp_dir(char16_t *out, size_t size);                     // with a last slash
bool state_dir(char16_t *out, size_t size); // of this user, for what programs note; none: ENOENT
bool set_env(const char *name, const char *value);            // "" removes it
std::string locale_name(const char *category);                // LC_ALL, `category`, LANG
void *module_open(const char16_t *path, std::string *reason); // null: reason, errno
bool module_close(void *module);
void *module_symbol(void *module, const char *name);

// ---- Time
void sleep(uint32_t milliseconds); // 0 yields
// Until what is written now is stamped later than `stamp`, which a file has: some milliseconds.
void wait_past(const timespec &stamp);
int64_t seconds_west(); // of UTC, without summer time
// Text of a broken-down UTC time by strftime, UTF-8; local means by the user's language.
std::string format_time(const char *format, int64_t seconds, bool local); // may throw
// The seconds of a wall clock reading as if it were UTC; false when it doesn't match.
bool parse_time(const std::string &text, const char *format, int64_t *seconds);

// ---- Standard streams
// What is opened later must not become the console: closed descriptors 0 to 2 lead nowhere.
void occupy_standard();

// While it lives, writing to a pipe or peer that is gone is EPIPE on this thread and no signal;
// one that the host had blocked and pending stays so.
class SigpipeGuard {
  public:
    SigpipeGuard();
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard &) = delete;
    SigpipeGuard &operator=(const SigpipeGuard &) = delete;

  private:
    bool blocked_, pending_; // before
};

// ---- Sockets
int socket_wait(int fd, bool for_write, int milliseconds); // 1 ready, 0 not in time, -1
int64_t socket_receive(int fd, void *bytes, size_t size);
int64_t socket_send(int fd, const void *bytes, size_t size); // a peer that is gone is EPIPE
void socket_close(int fd);
// Where a host can be reached, for streams; freed by freeaddrinfo. 0, errno or an EAI_ code.
int resolve(const char16_t *host, uint32_t port, struct addrinfo **list);

} // namespace zev::os
