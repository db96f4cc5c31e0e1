// Threads of our own take no signals.
#pragma once

#include <csignal>
#include <pthread.h>

namespace vantik::detail {

// A thread that is started meanwhile takes no signal: they are meant for the program's own threads.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &Before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &Before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t Before;
};

} // namespace vantik::detail
