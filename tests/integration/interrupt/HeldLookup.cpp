// Compiled into a test, and as a library that is loaded in front of the C library of another program. There nobody
// releases, and the program's output says that the look-up has begun.
#include "tests/integration/interrupt/HeldLookup.h"

#include <condition_variable>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <netdb.h>
#include <unistd.h>

namespace integrationtest {
namespace {

struct Gate {
    std::mutex Guard;
    std::condition_variable Changed;
    int Begun = 0;       // look-ups that are held now
    unsigned Passed = 0; // how often those that were held have been released
    bool Open = false;
};

// Never destroyed: a thread may be held by it when the program ends.
Gate& gate() {
    static Gate& instance = *new Gate;
    return instance;
}

void hold() {
    std::unique_lock lock(gate().Guard);
    if (gate().Open) {
        return;
    }
    const unsigned mine = gate().Passed;
    ++gate().Begun;
    gate().Changed.notify_all();
#ifdef NETROVE_LOOKUP_IS_TOLD
    [[maybe_unused]] const auto written = ::write(STDOUT_FILENO, "looking up\n", 11);
#endif
    gate().Changed.wait(lock, [mine] { return gate().Passed != mine; });
}

} // namespace

HeldLookup::HeldLookup() {
    const std::lock_guard lock(gate().Guard);
    gate().Open = false;
}

HeldLookup::~HeldLookup() {
    const std::lock_guard lock(gate().Guard);
    gate().Open = true;
    ++gate().Passed;
    gate().Begun = 0;
    gate().Changed.notify_all();
}

void HeldLookup::awaitBegun() const {
    std::unique_lock lock(gate().Guard);
    gate().Changed.wait(lock, [] { return gate().Begun != 0; });
}

} // namespace integrationtest

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo* hints, addrinfo** result) {
    if (node != nullptr && std::strcmp(node, "held.test") == 0) {
        integrationtest::hold();
        return EAI_NONAME;
    }
    using Lookup = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto original = reinterpret_cast<Lookup>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(node, service, hints, result);
}
