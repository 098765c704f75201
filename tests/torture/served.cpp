#include "served.hpp"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace torture {

namespace {

// Runs zevd until it is ended, and reads from it where it listens.
int start(const fs::path &zevd, const fs::path &conf, std::string &url) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const int child = fork();
    if (child == 0) {
        dup2(ends[1], 1);
        execl(zevd.c_str(), zevd.c_str(), "run", "--config", conf.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    FILE *told = fdopen(ends[0], "r");
    char line[256];
    int port = 0;
    while (!port && fgets(line, sizeof line, told)) sscanf(line, "zevd serves port %d", &port);
    // The reading end stays: what it tells later has to go somewhere.
    if (!port) throw std::runtime_error("zevd doesn't serve");
    url = "http://127.0.0.1:" + std::to_string(port);
    return child;
}

} // namespace

Server::Server(const Programs &programs, const fs::path &root) : programs_(programs), root_(root) {
    const Play play = fresh(programs, root);
    const fs::path zevd = programs.zev.parent_path() / "zevd";
    must("the server", play.shell("echo secret >../password; '" + zevd.string() +
                                  "' init ../server --password-stdin <../password; "
                                  "sed -i -E -e 's/(\"port\"[^0-9]*)[0-9]+/\\10/' "
                                  "-e 's/(\"auth\"[^\"]*\")required/\\1none/' "
                                  "-e 's/localhost/127.0.0.1/' ../server/server.conf"));
    child_ = start(zevd, root / "server" / "server.conf", url_);
}

Server::~Server() {
    if (!child_) return;
    ::kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
}

Play Server::begin(const fs::path &root) const {
    Play play = fresh(programs_, root);
    play.project = root_ / "server" / "repos" / "t" / "first";
    play.url = url_ + "/repos/t/first";
    fs::copy_file(root_ / "password", root / "password");
    must("the project", play.shell("\"$ZEV\" admin project create t/first --server " + url_));
    return play;
}

std::string served(const Play &play) {
    const Outcome told = play.run({"git", "-C", play.project, "-c", "safe.directory=*", "log",
                                   "--format=%T", "refs/heads/master"});
    must("the project's branch", told);
    const auto count = std::ranges::count(told.text, '\n');
    return told.text.substr(0, 40) + " after " + std::to_string(count) + " commits";
}

std::string judge_get(const Play &play, const Expected &expected, const Strike &strike,
                      const Words &words) try {
    if (strike.code == 124) return "claim: hangs";
    if (strike.code > 128 && strike.mode != "kill" && strike.mode != "forget" &&
        strike.mode != "hollow")
        return "claim: signal: " + strike.text;
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
