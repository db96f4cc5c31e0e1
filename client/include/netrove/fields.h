/// @file
/// Header fields in order.
#pragma once

#include <netrove/api.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

/// One header field.
struct Field {
    std::string name = {};  ///< a token (RFC 9110, section 5.6.2)
    std::string value = {}; ///< empty in a request: libcurl does not send its own field of that name
    bool operator==(const Field&) const = default; ///< the same name, letter by letter, and the same value
};

/// Header fields in the order of the wire, repeated names included. Names are compared without regard to case (RFC
/// 9110, section 5.1).
class NETROVE_API Fields {
public:
    Fields() = default;
    Fields(std::initializer_list<Field> fields) : List(fields) {} ///< in this order

    /// The first value of that name; nothing if there is none.
    std::optional<std::string> find(std::string_view name) const;
    /// The first value of that name; empty if there is none.
    std::string operator[](std::string_view name) const { return find(name).value_or(std::string()); }
    /// All values of that name, in order.
    std::vector<std::string> all(std::string_view name) const;
    bool contains(std::string_view name) const { return find(name).has_value(); } ///< a field of that name is there

    /// Adds one at the end, whatever is there.
    void add(std::string name, std::string value) { List.push_back({std::move(name), std::move(value)}); }
    /// Leaves one field of that name, with this value, at the end.
    void set(std::string name, std::string value);
    /// Removes all of that name.
    void erase(std::string_view name);

    ///@{
    /// A range of Field in the order of the wire.
    auto begin() const { return List.begin(); }
    auto end() const { return List.end(); }
    std::size_t size() const { return List.size(); }
    bool empty() const { return List.empty(); }
    ///@}
    bool operator==(const Fields&) const = default; ///< the same fields in the same order

private:
    std::vector<Field> List;
};

/// A token of RFC 9110, section 5.6.2: names of fields, methods, schemes.
NETROVE_API bool isToken(std::string_view text);
/// True for fields whose values are credentials: Authorization, Proxy-Authorization, Cookie, Set-Cookie.
NETROVE_API bool isSecretField(std::string_view name);

} // namespace netrove
