// Texts for property tests: any bytes, and mixtures of the few bytes that mean something to a parser.
#pragma once

#include <rapidcheck.h>

#include <string>

namespace propertytexts {

// Of these characters only.
inline rc::Gen<std::string> textOf(const std::string& characters) {
    return rc::gen::container<std::string>(rc::gen::elementOf(characters));
}

// Blanks, line ends, colons, a NUL, letters of both cases, a byte above ASCII; or any bytes at all.
inline rc::Gen<std::string> anyText() {
    return rc::gen::oneOf(textOf(std::string(" :\t\r\n\0aZ-\xE4", 10)), rc::gen::arbitrary<std::string>());
}

} // namespace propertytexts
