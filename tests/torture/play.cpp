#include "play.hpp"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace torture {

namespace {

constexpr int kPatience = 30'000; // milliseconds
constexpr int kHung = 124;

Settings settings_of(const Play &play) {
    Settings all;
    for (char **at = environ; *at; ++at) {
        const std::string text = *at;
        all[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
    }
    for (const char *name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "ZEV_CONFIG"}) all.erase(name);
    all["HOME"] = play.root / "home";
    all["TMPDIR"] = play.root / "tmp";
    all["ZEV"] = play.programs->zev;
    all["DATA"] = play.programs->data;
    all["ZEV_AUTHOR"] = all["GIT_AUTHOR_NAME"] = all["GIT_COMMITTER_NAME"] = "tester";
    all["GIT_AUTHOR_EMAIL"] = all["GIT_COMMITTER_EMAIL"] = "tester@localhost";
    all["GIT_CONFIG_GLOBAL"] = all["GIT_CONFIG_SYSTEM"] = "/dev/null";
    all["GIT_EDITOR"] = "true";
    all["ZEV_TORTURE_SIDE"] = play.root / "side";
    if (play.url.empty()) return all;
    all["URL"] = play.url;
    all["ZEV_USER"] = "admin";
    all["ZEV_PASSWORD_FILE"] = play.root / "password";
    return all;
}

std::vector<char *> pointers(Words &words) {
    std::vector<char *> out;
    for (std::string &word : words) out.push_back(word.data());
    out.push_back(nullptr);
    return out;
}

int wait_for(pid_t child, Target *target) {
    if (target) target->set(child);
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd ready{handle, POLLIN, 0};
    const bool hung = handle >= 0 && poll(&ready, 1, kPatience) == 0;
    if (handle >= 0) close(handle);
    if (hung) ::kill(child, SIGKILL);
    int status = 0;
    if (target) target->set(0); // from here on the number may be another's
    waitpid(child, &status, 0);
    if (hung) return kHung;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

std::string read(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    if (!file.flush()) throw std::runtime_error(path.string() + ": can't be written");
}

bool Target::kill() {
    std::lock_guard lock(mutex_);
    return child_ && ::kill(child_, SIGKILL) == 0;
}

void Target::set(int child) {
    std::lock_guard lock(mutex_);
    child_ = child;
}

Outcome Play::run(Words words, const Settings &more, Target *target) const {
    Settings settings = settings_of(*this);
    for (const auto &[name, value] : more) settings[name] = value;
    Words environment;
    for (const auto &[name, value] : settings) environment.push_back(name + "=" + value);
    if (words[0] == "zev") words[0] = programs->zev;
    for (std::string &word : words)
        if (word == "URL") word = url;

    const std::string output =
        root /
        (target ? "output." + std::to_string(reinterpret_cast<uintptr_t>(target)) : "output");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0666);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawn_file_actions_addchdir_np(&actions, copy().c_str());
    pid_t child = 0;
    const int code = posix_spawnp(&child, words[0].c_str(), &actions, nullptr,
                                  pointers(words).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (code != 0) throw std::runtime_error(words[0] + ": can't be started");
    const int ended = wait_for(child, target);
    return {ended, read(output)};
}

Outcome Play::shell(const std::string &script) const { return run({"sh", "-euc", script}); }

void must(const std::string &what, const Outcome &outcome, int code) {
    if (outcome.code != code) throw std::runtime_error(what + ": " + outcome.text);
}

Outcome exported(const Play &play, const std::string &path) {
    const fs::path out = play.root / "tmp" / "drawing.dxf";
    fs::remove(out);
    Outcome done = play.run({"zev", "export", path, out});
    if (done.code == 0) done.text = read(out);
    return done;
}

Play fresh(const Programs &programs, const fs::path &root) {
    fs::remove_all(root);
    for (const char *name : {"copy", "home", "tmp", "side"}) fs::create_directories(root / name);
    return {&programs, root};
}

Play duplicate(const Play &from, const fs::path &root, const Play &host) {
    fs::remove_all(root);
    const std::string copy = "cp -a '" + from.root.string() + "' '" + root.string() + "'";
    if (system(copy.c_str()) != 0) throw std::runtime_error(root.string() + ": no copy");
    const Play made{from.programs, root, host.project, host.url};
    if (fs::exists(made.copy() / ".git") && !made.url.empty())
        must("the address", made.run({"git", "config", "remote.origin.url", made.url}));
    return made;
}

Play duplicate(const Play &from, const fs::path &root) {
    static std::atomic<int> serial = 0;
    Play host = from;
    if (!from.url.empty()) {
        const std::string name = "p" + std::to_string(++serial);
        host.project = from.project.parent_path() / name;
        host.url = from.url.substr(0, from.url.rfind('/') + 1) + name;
        const std::string copy =
            "cp -a '" + from.project.string() + "' '" + host.project.string() + "'";
        if (system(copy.c_str()) != 0) throw std::runtime_error(name + ": no project");
    }
    return duplicate(from, root, host);
}

void drop(const Play &play) {
    fs::remove_all(play.root);
    if (!play.url.empty()) fs::remove_all(play.project);
}

} // namespace torture
