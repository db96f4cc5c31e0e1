// The server as a program: it prints its port, and ends with the program that has started it.
#include "bench/LoopbackServer.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <sys/prctl.h>

int main() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        const testsupport::SocketHandle listening = bench::listenOnLoopback();
        std::printf("%u\n", testsupport::boundPort(listening));
        std::fflush(stdout);
        bench::serveForever(listening);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
