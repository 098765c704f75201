// The child reads while it is read from: a thread feeds it, so that neither waits for the other.
// It never outlives the call.
#include "picture/raster.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace picture {

namespace {

using host::Failed;
using host::say;
using Clock = std::chrono::steady_clock;

constexpr char kRenderer[] = "rsvg-convert";
constexpr uint64_t kMostOutput = uint64_t{1} << 30;
constexpr size_t kMostWords = 4096; // of what it says in its defence

class Fd {
  public:
    Fd() = default;
    ~Fd() { reset(); }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

struct Pipe {
    Fd read, write;
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC)) throw Failed(host::kSystem, errno, strerror(errno));
        read.reset(ends[0]);
        write.reset(ends[1]);
    }
};

std::vector<std::string> words_of(const Raster &raster) {
    // What it reads was written here, and is limited already.
    if (raster.format == Format::pdf) return {kRenderer, "--unlimited", "--format=pdf"};
    const std::string side = std::to_string(raster.side);
    char ground[8];
    snprintf(ground, sizeof ground, "#%06x", ground_of(raster.theme));
    return {kRenderer,
            "--unlimited",
            "--format=png",
            "--width=" + side,
            "--height=" + side,
            "--keep-aspect-ratio",
            std::string("--background-color=") + ground};
}

// The user's, but for the date that a PDF would hold.
std::vector<std::string> environment() {
    std::vector<std::string> out;
    for (char **at = environ; *at; ++at)
        if (!std::string_view(*at).starts_with("SOURCE_DATE_EPOCH=")) out.push_back(*at);
    out.push_back("SOURCE_DATE_EPOCH=0");
    return out;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> out;
    for (std::string &text : texts) out.push_back(text.data());
    out.push_back(nullptr);
    return out;
}

struct Pipes {
    Pipe in, out, errors;
};

// A process, with those that it starts a group of its own, which is killed if it has not ended by
// itself.
class Child {
  public:
    Child(const Raster &raster, Pipes &pipes) {
        std::vector<std::string> words = words_of(raster), variables = environment();
        const int ends[] = {pipes.in.read.get(), pipes.out.write.get(), pipes.errors.write.get()};
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        if (posix_spawn_file_actions_init(&actions)) throw std::bad_alloc();
        int code = posix_spawnattr_init(&attributes);
        if (!code) code = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        for (int i = 0; i < 3 && !code; ++i)
            code = posix_spawn_file_actions_adddup2(&actions, ends[i], i);
        if (!code)
            code = posix_spawnp(&process_, kRenderer, &actions, &attributes, pointers(words).data(),
                                pointers(variables).data());
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        if (code) fail_missing(code);
        pipes.in.read.reset();
        pipes.out.write.reset();
        pipes.errors.write.reset();
    }
    ~Child() {
        if (!process_) return;
        kill(-process_, SIGKILL);
        wait(0);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // How it ended; nothing as long as it has not.
    std::optional<int> wait(int options) {
        int status = 0;
        pid_t ended;
        while ((ended = waitpid(process_, &status, options)) < 0 && errno == EINTR) continue;
        if (!ended) return {};
        process_ = 0;
        return ended < 0 ? kNoStatus : status;
    }

  private:
    [[noreturn]] void fail_missing(int code) {
        process_ = 0;
        if (code == ENOENT)
            throw Failed(host::kNotFound,
                         "rsvg-convert is not installed; write .svg, or install librsvg");
        throw Failed(host::kSystem, code, std::string(kRenderer) + ": " + strerror(code));
    }
    static constexpr int kNoStatus = 127 << 8; // somebody else has taken it: no success
    pid_t process_ = 0;
};

// A reader that went away is no failure of the feeder's.
struct Gone {};

void write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t taken = write(file, bytes.data(), bytes.size());
        if (taken < 0 && errno == EINTR) continue;
        if (taken <= 0) throw Gone();
        bytes.remove_prefix(static_cast<size_t>(taken));
    }
}

// Writes on a thread, which is waited for here and at the end; the child has to end first.
class Feeder {
  public:
    Feeder(const std::function<void(const Write &)> &svg, Fd &to)
        : thread_([&svg, &to, this] {
              sigset_t broken; // pipe, which is met as an error
              sigemptyset(&broken);
              sigaddset(&broken, SIGPIPE);
              pthread_sigmask(SIG_BLOCK, &broken, nullptr);
              try {
                  svg([&to](std::string_view bytes) { write_all(to.get(), bytes); });
              } catch (const Gone &) {
              } catch (...) {
                  failure_ = std::current_exception();
              }
              to.reset();
          }) {}
    ~Feeder() {
        if (thread_.joinable()) thread_.join();
    }
    Feeder(const Feeder &) = delete;
    Feeder &operator=(const Feeder &) = delete;
    void finish() {
        thread_.join();
        if (failure_) std::rethrow_exception(failure_);
    }

  private:
    std::exception_ptr failure_;
    std::thread thread_;
};

// Reads both pipes to their ends.
class Reader {
  public:
    Reader(const Pipes &pipes, const Raster &raster, const Write &write)
        : raster_(raster), write_(write), files_{{{pipes.out.read.get(), POLLIN, 0},
                                                  {pipes.errors.read.get(), POLLIN, 0}}},
          deadline_(Clock::now() + raster.patience) {}

    // How the child ended.
    int run(Child &child) {
        while (files_[0].fd >= 0 || files_[1].fd >= 0) {
            wait();
            for (size_t i = 0; i < files_.size(); ++i)
                if (files_[i].revents && !take(i)) files_[i].fd = -1;
        }
        std::optional<int> status = child.wait(WNOHANG);
        for (; !status; status = child.wait(WNOHANG)) wait();
        return *status;
    }
    bool has_output() const { return size_ > 0; }
    std::string first_words() const { return words_.substr(0, words_.find('\n')); }

  private:
    // For either pipe; when they are closed, for the end of the child, which is near.
    void wait() {
        const bool is_open = files_[0].fd >= 0 || files_[1].fd >= 0;
        const int tick = is_open ? 200 : 1; // milliseconds
        if (Clock::now() >= deadline_)
            throw Failed(host::kOther, "rsvg-convert takes too long and was ended");
        for (pollfd &file : files_) file.revents = 0;
        if (poll(files_.data(), files_.size(), tick) < 0 && errno != EINTR)
            throw Failed(host::kSystem, errno, strerror(errno));
        if (raster_.notify) host::stop_on_break(raster_.notify);
    }

    bool take(size_t i) {
        char block[1 << 16];
        const ssize_t count = read(files_[i].fd, block, sizeof block);
        if (count < 0 && errno == EINTR) return true;
        if (count <= 0) return false;
        const std::string_view bytes(block, static_cast<size_t>(count));
        if (i == 1) {
            words_.append(bytes.substr(0, kMostWords - words_.size()));
            return true;
        }
        size_ += bytes.size();
        if (size_ > kMostOutput)
            throw Failed(host::kOther, "rsvg-convert writes more than a picture can have");
        write_(bytes);
        return true;
    }

    const Raster &raster_;
    const Write &write_;
    std::array<pollfd, 2> files_;
    Clock::time_point deadline_;
    uint64_t size_ = 0;
    std::string words_;
};

} // namespace

Format format_of(const std::string &file) {
    const std::string suffix = std::filesystem::path(file).extension().string();
    if (file.empty() || file == "-") return Format::svg;
    for (const Format format : {Format::svg, Format::png, Format::pdf})
        if (zStrcasesameA(suffix.c_str(), (std::string(".") + name_of(format)).c_str()))
            return format;
    throw host::Failed(host::kInvalid,
                       host::say("%s: a picture's name ends in .svg, .png or .pdf", file));
}

const char *name_of(Format format) {
    constexpr const char *kNames[] = {"svg", "png", "pdf"};
    return kNames[static_cast<size_t>(format)];
}

uint32_t side_of(uint64_t size, Format format) {
    constexpr uint64_t kLeast = 16, kMost = 10'000;
    if (!size) return kUsualSide;
    if (format != Format::png) throw Failed(host::kInvalid, "--size is for a PNG file");
    if (size < kLeast || size > kMost)
        throw Failed(host::kInvalid, say("--size: from %s to %s pixels", kLeast, kMost));
    return static_cast<uint32_t>(size);
}

void rasterize(const std::function<void(const Write &)> &svg, const Raster &raster,
               const Write &write) {
    Pipes pipes;                  // are closed last,
    std::optional<Feeder> feeder; // when nobody writes to them any more,
    Child child(raster, pipes);   // which the end of the child sees to
    feeder.emplace(svg, pipes.in.write);
    Reader reader(pipes, raster, write);
    const int status = reader.run(child);
    feeder->finish();
    if (WIFEXITED(status) && !WEXITSTATUS(status) && reader.has_output()) return;
    std::string why = reader.first_words();
    if (why.empty()) why = WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "no output";
    throw Failed(host::kOther, say("rsvg-convert failed: %s", why));
}

} // namespace picture
