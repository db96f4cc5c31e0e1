// Signals of a Python program while it runs code that is not Python: Python only notes them and leaves their handlers
// to the next step of its main thread, which is here.
#pragma once

#include "python/extension/Held.h"

namespace netrove::python {

// Exists on the main thread during a call, made and dropped with the GIL; elsewhere it does nothing. They nest.
class SignalWatch {
public:
    SignalWatch(); // raises what a handler raises whose signal came before
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    // Without the GIL. Runs the handlers of signals that have come, and raises what they raise.
    void poll() const;
    // Readable when `poll` has something to do; negative where it never has.
    int descriptor() const { return Active ? readEnd() : -1; }
    bool active() const { return Active; }

private:
    static int readEnd();

    bool Active;
    int Before = -1; // the descriptor that Python wrote to, which gets what came meanwhile
};

// Which thread runs handlers.
void setMainThread(unsigned long ident);

} // namespace netrove::python
