// Owners of OpenSSL's objects.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace testsupport {

template <auto Function>
struct Free {
    template <class Object>
    void operator()(Object* object) const {
        Function(object);
    }
};

template <class Object, auto Function>
using OpenSslOwner = std::unique_ptr<Object, Free<Function>>;

inline void requireOpenSsl(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string("OpenSSL: ") + what);
    }
}

} // namespace testsupport
