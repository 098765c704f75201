// Other processes of a test: a fork that runs a lambda and ends with its result.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include <sys/wait.h>
#include <unistd.h>

namespace test {

class Child {
  public:
    // What the work throws ends the child, too.
    explicit Child(const std::function<int()> &work) : pid_(fork()) {
        if (pid_ != 0) return;
        try {
            _exit(work());
        } catch (...) {
            _exit(99);
        }
    }
    ~Child() {
        if (pid_ > 0) kill(), wait();
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void kill() { ::kill(pid_, SIGKILL); }
    int wait() { // exit status, 256 more when it was killed
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
    }

  private:
    pid_t pid_;
};

// One byte at a time from one process to another; both ends in both.
class Signal {
  public:
    Signal() { EXPECT_EQ(pipe(ends_), 0); }
    ~Signal() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Signal(const Signal &) = delete;
    Signal &operator=(const Signal &) = delete;
    void send(char byte = 1) { EXPECT_EQ(::write(ends_[1], &byte, 1), 1); }
    char receive() {
        char byte = 0;
        return ::read(ends_[0], &byte, 1) == 1 ? byte : '\0';
    }

  private:
    int ends_[2];
};

// As a user without rights, since root passes everything.
inline bool unprivileged() { return geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0); }

} // namespace test
