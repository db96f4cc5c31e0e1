// What makes the look-ups of another program, started with these variables, be held: nobody releases them there.
#pragma once

#include "tests/support/process/BuiltFile.h"

#include <cstdlib>
#include <map>
#include <string>

namespace integrationtest {

inline std::map<std::string, std::string> heldLookupEnvironment() {
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    const std::string before = sanitizer == nullptr ? std::string() : std::string(sanitizer) + ":";
    return {{"LD_PRELOAD", testsupport::builtFile("lib/libnetrove_held_lookup.so")},
            {"ASAN_OPTIONS", before + "verify_asan_link_order=0"}}; // a sanitizer wants to be the first library
}

} // namespace integrationtest
