#include "host/SingletonStore.h"

#include "embedded/scope/Scope.h"
#include "embedded/scope/SingletonTable.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <typeindex>

namespace vantik::detail {

SingletonTable::~SingletonTable() {
    clear();
}

foundation::usm::Holder* SingletonTable::find(std::size_t id, const std::type_info& type) {
    const auto entry = std::ranges::find(Entries, id, &Entry::Id);
    if (entry == Entries.end()) {
        return nullptr;
    }
    if (entry->Type != std::type_index(type)) {
        // A mistake in the calling code, as in Scope::current.
        throw std::logic_error("The singleton key " + std::to_string(id) + " belongs to the type " +
                               entry->Type.name() + ", not to " + type.name());
    }
    return &entry->Object;
}

foundation::usm::Holder* SingletonTable::findOrInsert(std::size_t id, const std::type_info& type,
                                                      foundation::usm::Holder&& value) {
    if (foundation::usm::Holder* stored = find(id, type)) {
        return stored;
    }
    return &Entries.emplace_back(Entry{id, std::type_index(type), std::move(value)}).Object;
}

void SingletonTable::clear() noexcept {
    while (!Entries.empty()) {
        // Out of the table first: a deleter that looks for its own object must not find it half gone.
        const foundation::usm::Holder youngest = std::move(Entries.back().Object);
        Entries.pop_back();
    }
}

} // namespace vantik::detail

namespace foundation::usm {

std::size_t Detail<scope::Vvm>::getNextID(const std::type_info& type) {
    static std::mutex guard;
    static std::map<std::type_index, std::size_t> ids;
    const std::lock_guard lock(guard);
    return ids.try_emplace(std::type_index(type), ids.size() + 1).first->second;
}

Holder* Detail<scope::Vvm>::find(std::size_t id, const std::type_info& type) {
    return vantik::detail::Scope::current().Singletons.find(id, type);
}

Holder* Detail<scope::Vvm>::findOrInsert(std::size_t id, const std::type_info& type, Holder&& value) {
    return vantik::detail::Scope::current().Singletons.findOrInsert(id, type, std::move(value));
}

} // namespace foundation::usm
