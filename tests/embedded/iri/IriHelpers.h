// Shorthands of the tests of identifiers.
#pragma once

#include "host/Iri.h"
#include "host/Messages.h"
#include "host/Text.h"

#include <algorithm>
#include <string>

inline foundation::network::IRI iri(const std::string& utf8) {
    return foundation::network::IRI(fl::i18n::to_ustring(utf8));
}

inline std::string narrow(const std::u16string& text) {
    return fl::i18n::to_string(text);
}

inline std::string ascii(const foundation::network::IRI& value) {
    return narrow(value.toAsciiString(false));
}

// After the "#"; empty where there is none.
inline std::string fragmentOf(const foundation::network::IRI& value) {
    const std::string text = ascii(value);
    return text.substr(std::min(text.find('#'), text.size() - 1) + 1);
}

// What an operation on identifiers is refused with; empty where it is not.
template <class Operation>
std::string refusalOf(Operation operation) {
    try {
        operation();
    } catch (const foundation::core::except::IInternalException& error) {
        return error.what();
    }
    return {};
}

inline std::string refusal(const std::u16string& text) {
    return refusalOf([&] { const foundation::network::IRI parsed(text); });
}
inline std::string refusal(const std::string& utf8) {
    return refusal(fl::i18n::to_ustring(utf8));
}
