// Makes system calls of another program fail, on the files of one folder.
#pragma once

#include "tests/support/process/BuiltFile.h"

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace testsupport {

constexpr int kHalfDone = 0; // instead of an error number: a read or a write of half of what was wanted

struct FailingCall {
    std::string Call; // "openat", "write" and so on; of an openat, "tmpfile": of a file without a name; "listing": of a
                      // folder; "dup": a fcntl
    int Number;       // from 1, of those of that kind; 0: each
    int Error;
};

// For a program that is started with these variables. `record`: a file that gets a line with the name of each call;
// it lies outside of the folder.
inline std::map<std::string, std::string>
failingCalls(const std::string& folder, const std::vector<FailingCall>& failing, const std::string& record = {}) {
    std::string text;
    for (const FailingCall& each : failing) {
        text += each.Call + " " + std::to_string(each.Number) + " " + std::to_string(each.Error) + " ";
    }
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    const std::string before = sanitizer == nullptr ? std::string() : std::string(sanitizer) + ":";
    return {{"LD_PRELOAD", builtFile("lib/libnetrove_failing_calls_module.so")},
            {"NETROVE_CALLS_FOLDER", folder},
            {"NETROVE_CALLS_RECORD", record},
            {"NETROVE_CALLS_FAIL", text},
            {"ASAN_OPTIONS", before + "verify_asan_link_order=0"}}; // a sanitizer wants to be the first library
}

} // namespace testsupport
