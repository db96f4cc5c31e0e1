#include "embedded/classes/TypeWord.h"

#include <algorithm>

namespace vantik::detail {

namespace {

constexpr bool isLetter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

struct ArrayClassRow {
    std::string_view Name;
    TypeWord::Kind Content;
    vxClassID Plain;
    bool ScalarInSlot;
};

constexpr ArrayClassRow kArrayClasses[] = {
    {"char", TypeWord::Kind::Plain, vxCHAR_CLASS, false},    {"logical", TypeWord::Kind::Plain, vxLOGICAL_CLASS, true},
    {"uint8", TypeWord::Kind::Plain, vxUINT8_CLASS, false}, // its scalar is an array, unlike the wider numbers'
    {"int32", TypeWord::Kind::Plain, vxINT32_CLASS, true},   {"uint64", TypeWord::Kind::Plain, vxUINT64_CLASS, true},
    {"double", TypeWord::Kind::Plain, vxDOUBLE_CLASS, true}, {"struct", TypeWord::Kind::Struct, vxSTRUCT_CLASS, false},
};

} // namespace

bool isIdentifier(std::string_view text) noexcept {
    return !text.empty() && isLetter(text.front()) &&
           std::all_of(text.begin(), text.end(), [](char c) { return isLetter(c) || isDigit(c) || c == '_'; });
}

bool isDottedName(std::string_view text) noexcept {
    for (;;) {
        const std::size_t dot = text.find('.');
        if (!isIdentifier(text.substr(0, dot))) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return true;
        }
        text.remove_prefix(dot + 1);
    }
}

std::optional<TypeWord> TypeWord::parse(std::string_view text) {
    TypeWord word;
    word.Text = text;
    if (text == "any") {
        return word;
    }
    if (text == "unicodeString") {
        word.Content = Kind::UnicodeString;
        return word;
    }
    if (text == "scalar") {
        word.Content = Kind::Object;
        word.Form = Shape::Scalar;
        return word;
    }
    std::string_view name = text;
    if (const std::size_t blank = text.find(' '); blank != std::string_view::npos) {
        name = text.substr(0, blank);
        const std::string_view form = text.substr(blank + 1);
        if (form != "scalar" && form != "vector") {
            return std::nullopt;
        }
        word.Form = form == "scalar" ? Shape::Scalar : Shape::Vector;
    }
    for (const ArrayClassRow& row : kArrayClasses) {
        if (name == row.Name) {
            word.Content = row.Content;
            word.Plain = row.Plain;
            return word;
        }
    }
    if (!isDottedName(name)) {
        return std::nullopt;
    }
    word.Content = Kind::Object;
    word.ClassName = name;
    return word;
}

bool TypeWord::liesInSlot() const noexcept {
    return Content == Kind::Plain && Form == Shape::Scalar &&
           std::any_of(std::begin(kArrayClasses), std::end(kArrayClasses),
                       [this](const ArrayClassRow& row) { return row.Plain == Plain && row.ScalarInSlot; });
}

} // namespace vantik::detail
