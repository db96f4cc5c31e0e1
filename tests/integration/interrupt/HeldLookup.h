// Look-ups of names that do not end, without a network: a program that contains this asks it before the system. The
// look-up of "held.test" is held until it is released, and then finds nothing.
#pragma once

#include "tests/support/process/BuiltFile.h"

#include <cstdlib>
#include <map>
#include <string>

namespace integrationtest {

// Holds from its start to its end.
class HeldLookup {
public:
    HeldLookup();
    ~HeldLookup();
    HeldLookup(const HeldLookup&) = delete;
    HeldLookup& operator=(const HeldLookup&) = delete;

    void awaitBegun() const; // until a look-up is held
};

// For another program whose look-ups are to be held. Nobody releases them there, and its output says that one has
// begun.
inline std::map<std::string, std::string> heldLookupEnvironment() {
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    const std::string before = sanitizer == nullptr ? std::string() : std::string(sanitizer) + ":";
    return {{"LD_PRELOAD", testsupport::builtFile("lib/libnetrove_held_lookup.so")},
            {"ASAN_OPTIONS", before + "verify_asan_link_order=0"}}; // a sanitizer wants to be the first library
}

} // namespace integrationtest
