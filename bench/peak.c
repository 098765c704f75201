// Runs a command and prints its wall time in milliseconds and its largest memory in KiB. The
// command's output goes to /dev/null, its errors stay.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    struct timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t child = fork();
    if (!child) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status;
    struct rusage usage;
    wait4(child, &status, 0, &usage);
    clock_gettime(CLOCK_MONOTONIC, &end);
    double ms =
        (double)(end.tv_sec - start.tv_sec) * 1e3 + (double)(end.tv_nsec - start.tv_nsec) / 1e6;
    printf("%.1f %ld\n", ms, usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
