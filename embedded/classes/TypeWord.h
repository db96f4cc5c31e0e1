// Type words: the short texts with which a signature declares what a property or a method takes and returns.
#pragma once

#include "host/ArrayApi.h"
#include "host/ClassSystem.h"

#include <optional>
#include <string>
#include <string_view>

namespace vantik::detail {

// A type word, taken apart: "any", "unicodeString", or the name of an array class or of a host class, alone or followed
// by "scalar" or "vector". "scalar" alone is a scalar object of any class.
struct TypeWord {
    enum class Kind { Any, UnicodeString, Plain, Struct, Object };
    enum class Shape { Any, Scalar, Vector };

    // Nothing for a text that is not a type word.
    static std::optional<TypeWord> parse(std::string_view text);

    // A scalar of numeric or logical type lies in the value slot itself; everything else is a pointer there.
    bool liesInSlot() const noexcept;

    std::string Text; // as declared
    Kind Content = Kind::Any;
    Shape Form = Shape::Any;
    vxClassID Plain = vxUNKNOWN_CLASS; // Kind::Plain: char, logical or a number
    std::string ClassName;             // Kind::Object: full name; empty: any class
};

// A letter, then letters, digits and underscores.
bool isIdentifier(std::string_view text) noexcept;
// Identifiers with single dots between them.
bool isDottedName(std::string_view text) noexcept;

} // namespace vantik::detail

namespace vcos {

// The validated type of a property.
class COSDataType {
public:
    explicit COSDataType(vantik::detail::TypeWord word) : Word(std::move(word)) {}
    const vantik::detail::TypeWord Word;
};

} // namespace vcos
