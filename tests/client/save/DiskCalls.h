// Operations of the system on files, replaced for the whole of a test program that compiles DiskCalls.cpp.
#pragma once

#include <functional>

namespace diskcalls {

extern std::function<int(int descriptor)> Sync; // returns an error number, 0: done; null: as the system does it
extern std::function<int(int descriptor)> Lock; // the same for flock
extern bool FilesWithoutNames;                  // as the file system makes them; false: it makes none

// As it is by itself, again at the end.
struct Scope {
    Scope() = default;
    ~Scope() {
        Sync = nullptr;
        Lock = nullptr;
        FilesWithoutNames = true;
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

} // namespace diskcalls
