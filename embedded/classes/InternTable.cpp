#include "embedded/classes/InternTable.h"

#include <utility>

namespace vantik::detail {

vcos::InternedName InternTable::intern(std::string&& text) {
    return text.empty() ? nullptr : &*Texts.insert(std::move(text)).first;
}

vcos::InternedName InternTable::intern(std::string_view text) {
    if (text.empty()) {
        return nullptr;
    }
    const auto known = Texts.find(text);
    return known != Texts.end() ? &*known : &*Texts.emplace(text).first;
}

} // namespace vantik::detail
