// Runs a program and writes down its largest resident size: netrove_test_peak FILE PROGRAM ARGUMENTS...
// The size that the system reports for a process starts from that of the process it was forked from, so a large test
// has it forked here.
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 3) {
        return 127;
    }
    const pid_t child = fork();
    if (child == 0) {
        execv(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        return 127;
    }
    std::ofstream(argv[1]) << usage.ru_maxrss; // KiB
    return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}
