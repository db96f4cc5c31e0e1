// The singletons of one scope.
#pragma once

#include "host/SingletonStore.h"

#include <cstddef>
#include <deque>
#include <typeindex>

namespace vantik::detail {

class SingletonTable {
public:
    SingletonTable() = default;
    ~SingletonTable();
    SingletonTable(const SingletonTable&) = delete;
    SingletonTable& operator=(const SingletonTable&) = delete;

    // The holder stored under a key, or null. Raises std::logic_error for a key that belongs to another type.
    foundation::usm::Holder* find(std::size_t id, const std::type_info& type);
    // Stores `value` where the key is free and otherwise leaves it with the caller; returns what is stored afterwards.
    foundation::usm::Holder* findOrInsert(std::size_t id, const std::type_info& type, foundation::usm::Holder&& value);

    // Deletes the objects, the newest first. While one is deleted, the older ones can still be found.
    void clear() noexcept;

    std::size_t size() const noexcept { return Entries.size(); }

private:
    struct Entry {
        std::size_t Id;
        std::type_index Type;
        foundation::usm::Holder Object;
    };
    std::deque<Entry> Entries; // in order of creation; a deque, since callers keep pointers to holders
};

} // namespace vantik::detail
