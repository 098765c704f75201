// The ground of the verbs. What holds: a password is in no argument, which others can read, and the
// lock file stays where it is, since removing it would let two have the lock.
#include "service.hpp"

#include "aside.hpp"
#include "terminal.hpp"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kLock = ".zevd.lock";

// A link to what is installed; one that leads nowhere, of an installation that went, is renewed.
void lead(const fs::path &link, const fs::path &target) {
    std::error_code error;
    if (fs::exists(link, error)) return;
    fs::remove(link, error);
    fs::create_symlink(target, link);
}

} // namespace

void keep_private() {
    umask(077);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0); // the system's own collector of crashes takes no heed of the limit
}

void fail_system(const std::string &what) {
    throw Failed(kSystem, errno, what + ": " + strerror(errno));
}

uint64_t allow_files() {
    rlimit files{1024, 1024};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur != files.rlim_max) {
        const rlim_t before = std::exchange(files.rlim_cur, files.rlim_max);
        if (setrlimit(RLIMIT_NOFILE, &files) != 0) return before;
    }
    return files.rlim_cur;
}

// ---- Data

void make_data(const std::string &data) {
    zwchar conf[Z_PATH_MAX];
    check(zPathGetConf(conf));
    const fs::path installed = narrow(conf), own = fs::path(data) / "conf";
    fs::create_directories(own);
    fs::create_directories(fs::path(data) / "logs");
    std::error_code error;
    if (fs::equivalent(installed, own, error)) return;
    for (const char *name : {"locales", "lang.conf"}) lead(own / name, installed / name);
}

void use_data(const Config &config) {
    const std::string data = config.data();
    if (data.empty()) return;
    make_data(data);
    check(zPathSetAppData(wide(data).c_str(), nullptr), data);
}

// ---- The lock

namespace {

constexpr int kPatience = 10; // tenths of a second

// Of those that share one holds it alone for as long as it clears up.
bool lock_shared(int fd) {
    for (int n = 0; n < kPatience; ++n) {
        if (flock(fd, LOCK_SH | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    errno = EWOULDBLOCK;
    return false;
}

} // namespace

ServiceLock::ServiceLock(const std::string &repos, bool shared) : repos_(repos), shared_(shared) {
    fs::create_directories(repos);
    const std::string path = (fs::path(repos) / kLock).string();
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd_ < 0) fail_system(path);
    alone_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
    if (alone_ || (shared && lock_shared(fd_))) return;
    const int code = errno;
    close(fd_);
    errno = code;
    if (code != EWOULDBLOCK) fail_system(path);
    throw Failed(kLocked, repos + ": another zevd serves it" +
                              (shared ? "" : " (\"run --shared\" lets several do so)"));
}

ServiceLock::~ServiceLock() {
    if (marked_ && ftruncate(fd_, 0) != 0) perror("zevd");
    close(fd_);
}

// The file's time is that of the mark: what is older was not left by whom it speaks of.
bool ServiceLock::clear_up() {
    struct stat status;
    if (fstat(fd_, &status) != 0 || !status.st_size) return true;
    const Time since{status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
    if (zServerRecover(wide(repos_).c_str(), &since)) return true;
    fprintf(stderr, "zevd: %s: what a killed server left could not all be taken away\n",
            repos_.c_str());
    return false;
}

// On the disk before anything else is, as a loss of power is to be known afterwards. A disk that is
// full keeps nobody from serving what there is.
void ServiceLock::mark() {
    constexpr char kMark[] = "served\n";
    const bool stands = pwrite(fd_, kMark, sizeof kMark - 1, 0) > 0 && fsync(fd_) == 0;
    if (!stands) fprintf(stderr, "zevd: %s/%s: %s\n", repos_.c_str(), kLock, strerror(errno));
}

void ServiceLock::begin_service() {
    sweep_imports(repos_);
    if (!alone_) return;
    if (clear_up()) mark(), marked_ = !shared_;
    if (!shared_) return;
    if (flock(fd_, LOCK_SH | LOCK_NB) != 0) throw Failed(kLocked, repos_ + ": another serves it");
    alone_ = false;
}

// ---- Accounts

Module open_module() { return Module(check(zAuthServerStart(), "the authentication module")); }

namespace {

[[noreturn]] void fail_refused(const std::string &user, int32_t status) {
    if (status == Z_AUTH_NOT_FOUND) throw Failed(kNotFound, user + ": no such user");
    throw Failed(kOther, user + ": refused by the module, status " + std::to_string(status));
}

} // namespace

bool unlock(AuthTable &module, const std::string &user) {
    const std::u16string login = wide(user);
    Json *tree = nullptr;
    int32_t status = module.UserInfo(login.c_str(), &tree);
    const OwnedJson info(tree);
    if (status != Z_AUTH_DONE) fail_refused(user, status);
    if (!zJsonPathGetBool(tree, u"user.lock")) return false;
    const bool power = zJsonPathGetBool(tree, u"user.power");
    status = module.ModifyUser(login.c_str(), nullptr, nullptr, nullptr, power, false);
    if (status != Z_AUTH_DONE) fail_refused(user, status);
    return true;
}

void set_password(AuthTable &module, const std::string &user, const std::string &password) {
    const std::u16string login = wide(user), code = wire_form(password);
    const int32_t status = module.ResetPassword(login.c_str(), code.c_str());
    if (status != Z_AUTH_DONE) fail_refused(user, status);
}

namespace {

std::string ask(int terminal, const std::string &question) {
    const Silence silence(terminal);
    if (!silence) fail_system("the terminal");
    std::string line;
    bool told = write(terminal, question.data(), question.size()) > 0;
    for (char byte = 0; told; line += byte) {
        told = read(terminal, &byte, 1) == 1;
        if (byte == '\n') break;
    }
    if (!told) throw Failed(kInvalid, "no password was given");
    static_cast<void>(!write(terminal, "\n", 1));
    return line;
}

std::string ask_twice(const std::string &user) {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0) throw Failed(kInvalid, "there is no terminal; use --password-stdin");
    const std::unique_ptr<const int, void (*)(const int *)> closed(
        &terminal, [](const int *fd) { close(*fd); });
    const std::string password = ask(terminal, "Password of " + user + ": ");
    if (ask(terminal, "Once more: ") != password)
        throw Failed(kInvalid, "the two passwords differ");
    return password;
}

} // namespace

std::string read_password(const std::string &user, bool from_stdin) {
    std::string password;
    if (from_stdin) {
        std::getline(std::cin, password);
        if (!password.empty() && password.back() == '\r') password.pop_back();
    } else {
        password = ask_twice(user);
    }
    if (password.empty()) throw Failed(kInvalid, "the password is empty");
    return password;
}

} // namespace host
