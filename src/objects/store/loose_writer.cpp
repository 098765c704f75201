// Files of objects on their way into the store, compressed as git does it by default, for speed.
// Drawings with pictures, and what was compressed before, don't become smaller by that and take
// twenty times as long: such parts are stored as they are, in the same zlib stream.
//
// The system is told to write as it goes, so that the sync at the end finds little left to do.
#include "objects/store/loose_writer.hpp"

#include "common/oid.hpp"
#include "objects/store/object_form.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include <zlib.h>

namespace zev {

namespace {

constexpr size_t kBlock = 1u << 16;
constexpr uint64_t kProbe = 1u << 20;   // bytes after which it is seen how they shrink
constexpr uint64_t kPlain = 15u << 20;  // that are stored before the next look
constexpr uint64_t kWritten = 4u << 20; // between two words to the system

// What the number means stands behind the text of itself.
int fail(int code = errno) {
    errno = code;
    git_error_set(GIT_ERROR_OS, "an object can't be written");
    return GIT_ERROR;
}

struct Writer : git_odb_stream {
    Writer() : git_odb_stream{} {}
    ~Writer();
    bool begin(const std::u16string &place, git_object_t kind, uint64_t size);
    bool add(const char *bytes, size_t count);
    bool finish(const git_oid *id);

  private:
    bool run(int flush);
    bool flush_block();
    bool look();
    bool set_level(int level);

    // The temporary file's path, while there is one; the repository may be renamed meanwhile.
    std::u16string directory_, path_;
    int fd_ = -1;
    z_stream state_{};
    bool ready_ = false;
    int level_ = Z_BEST_SPEED;
    uint64_t next_look_ = kProbe, read_ = 0, written_ = 0; // of the stream, at the last look
    uint64_t unsaid_ = 0;
    Bytef block_[kBlock];
};

Writer::~Writer() {
    if (ready_) deflateEnd(&state_);
    if (!path_.empty()) {
        os::place_of(fd_, &path_); // where that can't be told, where it was
        os::unlink(path_.c_str());
    }
    if (fd_ >= 0) os::close_fd(fd_);
}

bool Writer::begin(const std::u16string &place, git_object_t kind, uint64_t size) {
    ::Oid chance;
    zwchar digits[17];
    if (!zOidRand(&chance) || !zOidNFormat(digits, 16, &chance)) return false;
    directory_ = place;
    const std::u16string path = place + u"tmp_obj_" + digits;
    fd_ = os::open_fd(path.c_str(), {.write = true, .create = true, .exclusive = true}, 0444);
    if (fd_ < 0) return false;
    path_ = path;
    ready_ = deflateInit(&state_, level_) == Z_OK;
    if (!ready_) return errno = ENOMEM, false;
    state_.next_out = block_;
    state_.avail_out = kBlock;
    const std::string head = object_head(kind, size);
    return add(head.data(), head.size());
}

bool Writer::flush_block() {
    const size_t count = kBlock - state_.avail_out;
    if (!os::write_all(fd_, block_, count)) return false;
    state_.next_out = block_;
    state_.avail_out = kBlock;
    unsaid_ += count;
    if (unsaid_ < kWritten) return true;
    unsaid_ = 0;
    os::start_sync(fd_); // a system that can't has more to do at the end
    return true;
}

// All of the input goes in; what comes out is written when a block is full.
bool Writer::run(int flush) {
    for (;;) {
        const int code = deflate(&state_, flush);
        if (code == Z_STREAM_ERROR) return errno = EIO, false;
        if (code == Z_STREAM_END || (state_.avail_out && flush == Z_NO_FLUSH)) return true;
        if (!flush_block()) return false;
    }
}

// What is still in the compressor goes out at the former level.
bool Writer::set_level(int level) {
    if (level == level_) return true;
    level_ = level;
    int code;
    while ((code = deflateParams(&state_, level, Z_DEFAULT_STRATEGY)) == Z_BUF_ERROR)
        if (!flush_block()) return false;
    return code == Z_OK || (errno = EIO, false);
}

bool Writer::look() {
    const uint64_t came = state_.total_in - read_, went = state_.total_out - written_;
    const bool shrinks = level_ == Z_NO_COMPRESSION || went < came - came / 32;
    next_look_ = state_.total_in + (shrinks ? kProbe : kPlain);
    read_ = state_.total_in;
    written_ = state_.total_out;
    return set_level(shrinks ? Z_BEST_SPEED : Z_NO_COMPRESSION);
}

bool Writer::add(const char *bytes, size_t count) {
    while (count) {
        const size_t step = std::min(count, kBlock);
        state_.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes));
        state_.avail_in = static_cast<uInt>(step);
        if (!run(Z_NO_FLUSH) || (state_.total_in >= next_look_ && !look())) return false;
        bytes += step;
        count -= step;
    }
    return true;
}

// Another writer of the same object may have been faster.
bool Writer::finish(const git_oid *id) {
    const std::u16string name = id_text(*git::oid(id)), directory = directory_ + name.substr(0, 2);
    if (!run(Z_FINISH) || !flush_block()) return false;
    if (!os::make_dir(directory.c_str()) && errno != EEXIST) return false;
    const std::u16string path = directory + u'/' + name.substr(2);
    if (!os::move(path_.c_str(), path.c_str(), false)) return errno == EEXIST;
    path_.clear();
    return true;
}

Writer *self(git_odb_stream *stream) { return static_cast<Writer *>(stream); }

} // namespace

int write_loose(git_odb_stream **out, git_odb_backend *backend, const std::u16string &directory,
                git_object_t type, uint64_t size) try {
    auto writer = std::make_unique<Writer>();
    writer->backend = backend;
    writer->mode = GIT_STREAM_WRONLY;
    writer->write = [](git_odb_stream *stream, const char *bytes, size_t count) {
        return self(stream)->add(bytes, count) ? 0 : fail();
    };
    writer->finalize_write = [](git_odb_stream *stream, const git_oid *id) {
        try {
            return self(stream)->finish(id) ? 0 : fail();
        } catch (const std::bad_alloc &) {
            return fail(ENOMEM);
        }
    };
    writer->free = [](git_odb_stream *stream) { delete self(stream); };
    if (!writer->begin(directory, type, size)) return fail();
    *out = writer.release();
    return 0;
} catch (const std::bad_alloc &) {
    git_error_set_oom();
    return GIT_ERROR;
}

} // namespace zev
