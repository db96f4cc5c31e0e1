// A filter as it was read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cppmicroservices {

struct Property {
    std::string_view Key;
    std::variant<std::string_view, long> Value;
};

// One node: a comparison, or operands under an operator.
class LDAPFilterData {
public:
    enum class Kind : std::uint8_t { And, Or, Not, Equal, AtLeast, AtMost, Approximate };

    static LDAPFilterData read(std::string_view text); // raises std::invalid_argument, naming the place

    bool matches(const std::vector<Property>& properties) const;
    std::string text() const;

    Kind Operation = Kind::Equal;
    std::vector<LDAPFilterData> Operands;
    std::string Key;
    std::vector<std::string> Pieces; // of the value, between the asterisks

private:
    bool holdsFor(std::string_view property) const;
    bool holdsFor(long property) const;
};

} // namespace cppmicroservices
