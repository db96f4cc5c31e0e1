// The host's singleton store (libvkfoundation_usm): one object per type and host scope. A scope is used by one thread
// at a time; its objects are deleted in reverse order of creation when the scope ends.
#pragma once

#include "host/HostApi.h"

#include <cstddef>
#include <memory>
#include <typeinfo>

namespace foundation::usm {

// Owns one stored object; the deleter is a plain function that also accepts null.
using Holder = std::unique_ptr<void, void (*)(void*)>;

namespace scope {
struct Vvm; // The scope of one running host.
}

template <class Scope>
struct Detail;

template <>
struct VANTIK_HOST_API Detail<scope::Vvm> {
    // A numeric key for a type, the same in every scope of the process. Thread-safe.
    static std::size_t getNextID(const std::type_info& type);

    // The holder stored in the current scope, or null. The store keeps ownership.
    static Holder* find(std::size_t id, const std::type_info& type);

    // Stores `value` if the slot is empty and then takes ownership of it; otherwise leaves `value` with the caller.
    // Returns the holder that is stored afterwards, never null.
    static Holder* findOrInsert(std::size_t id, const std::type_info& type, Holder&& value);
};

} // namespace foundation::usm
