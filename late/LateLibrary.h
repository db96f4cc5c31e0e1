// Libraries that are loaded when something first needs them: what they bring along would cost each start of a program
// more than a small transfer does. Each exports `netroveCalls`, which returns a table of plain functions. They know
// nothing of the rest of this project, and raise exceptions of the standard library only.
#pragma once

#include <climits>
#include <cstddef>
#include <dlfcn.h>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <unistd.h>

namespace netrove {

// What to pass to the loader: the library where it is installed or built beside the one that needs it, or its bare
// name, which an installed program's own search path leads to.
inline std::string latePath(const std::string& file) {
    Dl_info own{};
    std::string name;
    if (dladdr(reinterpret_cast<const void*>(&latePath), &own) != 0 && own.dli_fname != nullptr) {
        name = own.dli_fname;
    }
    if (!name.starts_with('/')) { // a program goes by the word that started it, which may mean anything by now
        char program[PATH_MAX];
        const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
        name.assign(program, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    const std::string folder = name.substr(0, name.rfind('/') + 1);
    for (const char* below : {"netrove/", "", "../lib/"}) {
        if (const std::string path = folder + below + file; !folder.empty() && access(path.c_str(), R_OK) == 0) {
            return path;
        }
    }
    return file;
}

// A table is asked for by its type, which names its library. It is never unloaded. Raises std::runtime_error if it
// cannot be loaded, and tries again the next time.
template <class Calls>
const Calls& lateCalls() {
    static const Calls& calls = []() -> const Calls& {
        void* const library = dlopen(latePath(Calls::kLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
        void* const entry = library == nullptr ? nullptr : dlsym(library, "netroveCalls");
        if (entry == nullptr) {
            const char* const reason = dlerror();
            throw std::runtime_error(reason == nullptr ? std::string(Calls::kLibrary) + " cannot be loaded" : reason);
        }
        return *reinterpret_cast<const Calls* (*)()>(entry)();
    }();
    return calls;
}

} // namespace netrove

// Ends a library of this kind.
#define NETROVE_LATE_CALLS(Calls, ...)                                                                                 \
    extern "C" __attribute__((visibility("default"))) const Calls* netroveCalls() {                                    \
        static constexpr Calls calls = {__VA_ARGS__};                                                                  \
        return &calls;                                                                                                 \
    }
