// stdout is handed to another process and given back before this one ends; what is written behind a
// pager that was left is lost on purpose.
#include "pager.hpp"

#include "terminal.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

std::string pager_command() {
    for (const char *name : {"ZEV_PAGER", "PAGER"})
        if (const char *value = getenv(name)) return value;
    return is_dumb_terminal() ? "" : "less"; // which would ask to go on at each screen
}

// The process that reads from `input`; 0 when it can't be started. A plain name is started without
// a shell, which would only tell later that it isn't there.
pid_t spawn(const std::string &command, int input) {
    const bool plain = command.find_first_of(" \t\n|&;<>()$`\\\"'*?[#~=%") == command.npos;
    std::string shell = "sh", option = "-c", text = command;
    char *by_shell[] = {shell.data(), option.data(), text.data(), nullptr};
    char *by_name[] = {text.data(), nullptr};
    char **arguments = plain ? by_name : by_shell;
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions)) return 0;
    pid_t process = 0;
    const bool failed = posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO) ||
                        posix_spawnp(&process, arguments[0], &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? 0 : process;
}

} // namespace

bool Pager::start() {
    const std::string command = pager_command();
    int ends[2];
    if (command.empty() || command == "cat" || pipe2(ends, O_CLOEXEC)) return false;
    setenv("LESS", "FRX", 0);
    process_ = spawn(command, ends[0]);
    close(ends[0]);
    if (running()) {
        fflush(stdout);
        dup2(ends[1], STDOUT_FILENO);
        if (isatty(STDERR_FILENO)) {
            errors_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            dup2(ends[1], STDERR_FILENO);
        }
        signal(SIGPIPE, SIG_IGN); // a pager that is left early: the verb ends by itself
    }
    close(ends[1]);
    return running();
}

void Pager::finish() {
    if (!running()) return;
    fflush(stdout);
    fflush(stderr);
    // Both must go, or the pager never meets the end.
    close(STDOUT_FILENO);
    if (errors_ >= 0) dup2(errors_, STDERR_FILENO);
    for (int key : {SIGINT, SIGQUIT}) signal(key, SIG_IGN); // the pager's own from here on
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
    process_ = 0;
}

} // namespace host
