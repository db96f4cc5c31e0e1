// Runs a program and prints the figures of its whole process, start and end included, as peers print theirs:
//     peer_command PROGRAM [ARGUMENT…]
// Its standard output is dropped. It is small itself, because a process begins with the peak memory of its parent.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argumentCount, char** arguments) {
    if (argumentCount < 2) {
        std::fputs("usage: peer_command PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const int failure = ::posix_spawnp(&child, arguments[1], &actions, nullptr, arguments + 1, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        std::fprintf(stderr, "%s: %s\n", arguments[1], std::strerror(failure));
        return 1;
    }
    int status = 0;
    rusage usage{};
    while (::wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const auto cpu = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s has failed\n", arguments[1]);
        return 1;
    }
    std::printf("{\"seconds\":%.6f,\"cpu\":%.6f,\"peak\":%ld}\n", seconds, cpu(usage.ru_utime) + cpu(usage.ru_stime),
                usage.ru_maxrss);
    return 0;
}
