#include "served.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture {

namespace {

std::vector<std::string> environment_with(const Settings &more) {
    std::vector<std::string> all;
    for (char **at = environ; *at; ++at) {
        const std::string text = *at;
        if (!more.contains(text.substr(0, text.find('=')))) all.push_back(text);
    }
    for (const auto &[name, value] : more) all.push_back(name + "=" + value);
    return all;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> out;
    for (std::string &text : texts) out.push_back(text.data());
    out.push_back(nullptr);
    return out;
}

// The line in which it tells its port; 0 where it ends before.
int read_port(int told) {
    std::string text;
    int port = 0;
    for (char c; !port && ::read(told, &c, 1) == 1;) {
        text += c;
        if (c == '\n' && sscanf(text.c_str(), "zevd serves port %d", &port) != 1) text.clear();
    }
    return port;
}

} // namespace

// ---- One zevd

Service::~Service() {
    if (child_) end(SIGKILL);
}

void Service::start(const Settings &more) {
    std::vector<std::string> words{programs_.zev.parent_path() / "zevd", "run", "--config",
                                   place_ / "server.conf"};
    std::vector<std::string> environment = environment_with(more);
    const std::vector<char *> argv = pointers(words), envp = pointers(environment);
    const std::string errors = place_.string() + ".errors";
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
        dup2(ends[1], 1);
        dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666), 2);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(ends[1]);
    told_ = ends[0]; // stays open: what it tells later has to go somewhere
    const int port = read_port(told_);
    if (!port) {
        end(SIGKILL);
        throw std::runtime_error("zevd doesn't serve: " + read(errors));
    }
    if (url_.empty()) keep_port(port);
}

void Service::keep_port(int port) {
    const std::string number = std::to_string(port);
    std::string text = read(place_ / "server.conf");
    const size_t at = text.find_first_of("0123456789", text.find("\"port\""));
    text.replace(at, text.find_first_not_of("0123456789", at) - at, number);
    write(place_ / "server.conf", text);
    url_ = "http://127.0.0.1:" + number;
}

int Service::end(int signal) {
    int status = 0;
    if (child_) {
        ::kill(child_, signal);
        waitpid(child_, &status, 0);
        close(told_);
    }
    child_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Service::must_be_sound() const {
    const Play play{&programs_, place_.parent_path()};
    must("the server", play.run({programs_.zev.parent_path() / "zevd", "verify", "--config",
                                 place_ / "server.conf"}));
}

// ---- One for all copies

Server::Server(const Programs &programs, const fs::path &root)
    : programs_(programs), root_(root), service_(programs, root / "server") {
    const Play play = fresh(programs, root);
    const fs::path zevd = programs.zev.parent_path() / "zevd";
    must("the server", play.shell("echo secret >../password; '" + zevd.string() +
                                  "' init ../server --password-stdin <../password; "
                                  "sed -i -E -e 's/(\"port\"[^0-9]*)[0-9]+/\\10/' "
                                  "-e 's/(\"auth\"[^\"]*\")required/\\1none/' "
                                  "-e 's/localhost/127.0.0.1/' ../server/server.conf"));
    service_.start();
}

Play Server::begin(const fs::path &root) const {
    Play play = fresh(programs_, root);
    play.project = service_.place() / "repos" / "t" / "first";
    play.url = service_.url() + "/repos/t/first";
    fs::copy_file(root_ / "password", root / "password");
    must("the project",
         play.shell("\"$ZEV\" admin project create t/first --server " + service_.url()));
    return play;
}

// ---- One for one copy

Apart::Apart(const Server &from, const Play &ready, const fs::path &root)
    : play(duplicate(ready, root, Play{ready.programs, root})),
      service(*ready.programs, root / "server") {
    play.project = service.place() / "repos" / "t" / ready.project.filename();
    fs::create_directories(play.project.parent_path());
    fs::create_directory(root / "server.side");
    const std::string old = from.service().place(), here = service.place();
    must("a server apart",
         play.shell("cd '" + old + "'; for each in *; do [ $each = repos ] || cp -a $each '" +
                    here + "'; done; cp -a '" + ready.project.string() + "' '" +
                    play.project.string() + "'; sed -i -E -e 's#" + old + "#" + here +
                    "#g' -e 's/(\"port\"[^0-9]*)[0-9]+/\\10/' '" + here + "/server.conf'"));
}

void Apart::start(const Settings &more) {
    Settings settings = more;
    settings["ZEV_TORTURE_SIDE"] = play.root / "server.side";
    service.start(settings);
    if (!play.url.empty()) return;
    play.url = service.url() + "/repos/t/" + play.project.filename().string();
    if (fs::exists(play.copy() / ".git"))
        must("the address", play.run({"git", "config", "remote.origin.url", play.url}));
}

// ---- Looking

std::string served(const Play &play) {
    const Outcome told = play.run({"git", "-C", play.project, "-c", "safe.directory=*", "log",
                                   "--format=%T", "refs/heads/master"});
    must("the project's branch", told);
    const auto count = std::ranges::count(told.text, '\n');
    return told.text.substr(0, 40) + " after " + std::to_string(count) + " commits";
}

std::string left_about(const Play &play) {
    for (const auto &entry : fs::recursive_directory_iterator(play.project)) {
        const std::string name = entry.path().filename();
        if (name.ends_with(".lock") || name.ends_with(".zlck") || name.ends_with(".new") ||
            name.starts_with("tmp_"))
            return entry.path().lexically_relative(play.project);
    }
    return "";
}

std::string judge_get(const Play &play, const Expected &expected, const Strike &strike,
                      const Words &words) try {
    if (strike.code == 124) return "claim: hangs";
    if (strike.code > 128 && !strike.kills()) return "claim: signal: " + strike.text;
    if (strike.mode == "short" && strike.code) return "claim: a short write: " + strike.text;
    if (const Outcome again = play.run(words); again.code) return "next: " + again.text;
    const State now = look(play);
    if (!now.fault.empty()) return "head: " + now.fault;
    if (now.tree != expected.after.tree || now.branch != expected.after.branch)
        return "head: " + now.branch + " at " + now.head;
    if (now.work != expected.after.work) return "claim: the files are others";
    const Outcome status = play.run({"git", "status", "--porcelain", "-uall"});
    if (status.code || !status.text.empty()) return "next: not clean: " + status.text;
    const Outcome verify = play.run({"zev", "verify"});
    return verify.code ? "verify: " + verify.text : "";
} catch (const std::exception &error) {
    return std::string("next: ") + error.what();
}

} // namespace torture
