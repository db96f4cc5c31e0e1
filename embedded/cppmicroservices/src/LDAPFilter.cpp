#include "cppmicroservices/LDAPFilter.h"

#include "ServiceRegistry.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace cppmicroservices {

// One node of a filter: a comparison, or operands under an operator.
class LDAPFilterData {
public:
    enum class Kind { Equal, Present, And, Or, Not };

    bool matches(const ServiceProperties& properties) const;
    std::string text() const;

    Kind Operation = Kind::Equal;
    std::string Key;
    std::string Value;
    std::vector<LDAPFilterData> Operands;
};

namespace {

template <class Number>
bool equalsNumber(const Any& property, const std::string& text) {
    const Number* value = any_cast<Number>(&property);
    Number wanted{};
    const char* const end = text.data() + text.size();
    return value != nullptr && std::from_chars(text.data(), end, wanted) == std::from_chars_result{end, std::errc()} &&
           *value == wanted;
}

bool equalsText(const Any& property, const std::string& text) {
    if (const auto* value = any_cast<std::string>(&property)) {
        return *value == text;
    }
    if (const auto* value = any_cast<const char*>(&property)) {
        return *value == text;
    }
    if (const auto* value = any_cast<bool>(&property)) {
        return text == (*value ? "true" : "false");
    }
    return equalsNumber<int>(property, text) || equalsNumber<long>(property, text) ||
           equalsNumber<double>(property, text);
}

// Reads one filter text. The nesting is bounded, since the reading is recursive.
class Parser {
public:
    explicit Parser(std::string_view text) : Text(text) {}

    LDAPFilterData parse() {
        LDAPFilterData filter = node(0);
        skipBlanks();
        if (Place != Text.size()) {
            fail("nothing may follow the last parenthesis");
        }
        return filter;
    }

private:
    static constexpr int kDeepest = 64;
    using Kind = LDAPFilterData::Kind;

    [[noreturn]] void fail(const std::string& reason) const {
        throw std::invalid_argument("Filter \"" + std::string(Text) + "\", position " + std::to_string(Place) + ": " +
                                    reason);
    }

    void skipBlanks() {
        while (Place < Text.size() && (Text[Place] == ' ' || Text[Place] == '\t')) {
            ++Place;
        }
    }

    bool accept(char wanted) {
        skipBlanks();
        if (Place < Text.size() && Text[Place] == wanted) {
            ++Place;
            return true;
        }
        return false;
    }

    void expect(char wanted) {
        if (!accept(wanted)) {
            fail(std::string("expected '") + wanted + "'");
        }
    }

    LDAPFilterData node(int depth) {
        if (depth > kDeepest) {
            fail("nested too deeply");
        }
        expect('(');
        LDAPFilterData result;
        if (accept('&')) {
            result = operands(Kind::And, depth);
        } else if (accept('|')) {
            result = operands(Kind::Or, depth);
        } else if (accept('!')) {
            result.Operation = Kind::Not;
            result.Operands.push_back(node(depth + 1));
        } else {
            result = comparison();
        }
        expect(')');
        return result;
    }

    LDAPFilterData operands(Kind operation, int depth) {
        LDAPFilterData result;
        result.Operation = operation;
        do {
            result.Operands.push_back(node(depth + 1));
            skipBlanks();
        } while (Place < Text.size() && Text[Place] == '(');
        return result;
    }

    LDAPFilterData comparison() {
        skipBlanks();
        LDAPFilterData result;
        const std::size_t start = Place;
        while (Place < Text.size() && std::string_view("=<>~()").find(Text[Place]) == std::string_view::npos) {
            ++Place;
        }
        result.Key = Text.substr(start, Place - start);
        result.Key.erase(result.Key.find_last_not_of(" \t") + 1);
        if (result.Key.empty()) {
            fail("expected a key");
        }
        if (Place < Text.size() && Text[Place] != '=') {
            fail("only comparisons with '=' are supported");
        }
        expect('=');
        bool pattern = false;
        while (Place < Text.size() && Text[Place] != ')' && Text[Place] != '(') {
            if (Text[Place] == '\\' && Place + 1 < Text.size()) {
                ++Place;
            } else if (Text[Place] == '*') {
                pattern = true;
            }
            result.Value += Text[Place++];
        }
        if (pattern && result.Value != "*") {
            fail("patterns within a value are not supported");
        }
        result.Operation = pattern ? Kind::Present : Kind::Equal;
        return result;
    }

    std::string_view Text;
    std::size_t Place = 0;
};

std::string escaped(const std::string& value) {
    std::string result;
    for (const char c : value) {
        if (std::string_view("()*\\").find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

} // namespace

bool LDAPFilterData::matches(const ServiceProperties& properties) const {
    const auto holds = [&](const LDAPFilterData& operand) { return operand.matches(properties); };
    switch (Operation) {
    case Kind::And:
        return std::ranges::all_of(Operands, holds);
    case Kind::Or:
        return std::ranges::any_of(Operands, holds);
    case Kind::Not:
        return !holds(Operands.front());
    case Kind::Equal:
    case Kind::Present:
        break;
    }
    const Any* property = detail::findProperty(properties, Key);
    return property != nullptr && (Operation == Kind::Present || equalsText(*property, Value));
}

std::string LDAPFilterData::text() const {
    switch (Operation) {
    case Kind::Equal:
        return "(" + Key + "=" + escaped(Value) + ")";
    case Kind::Present:
        return "(" + Key + "=*)";
    case Kind::And:
    case Kind::Or:
    case Kind::Not:
        break;
    }
    std::string result = Operation == Kind::And ? "(&" : Operation == Kind::Or ? "(|" : "(!";
    for (const LDAPFilterData& operand : Operands) {
        result += operand.text();
    }
    return result + ")";
}

LDAPFilter::LDAPFilter() = default;
LDAPFilter::LDAPFilter(const LDAPFilter&) = default;
LDAPFilter& LDAPFilter::operator=(const LDAPFilter&) = default;
LDAPFilter::~LDAPFilter() = default;

LDAPFilter::LDAPFilter(const std::string& filter) {
    if (!filter.empty()) {
        d = std::make_shared<const LDAPFilterData>(Parser(filter).parse());
    }
}

LDAPFilter::operator bool() const {
    return d != nullptr;
}

bool LDAPFilter::Match(const ServiceReferenceBase& reference) const {
    return reference.Service && Match(reference.Service->Properties);
}

bool LDAPFilter::Match(const ServiceProperties& dictionary) const {
    return !d || d->matches(dictionary);
}

std::string LDAPFilter::ToString() const {
    return d ? d->text() : std::string();
}

bool LDAPFilter::operator==(const LDAPFilter& other) const {
    return ToString() == other.ToString();
}

std::ostream& operator<<(std::ostream& os, const LDAPFilter& filter) {
    return os << filter.ToString();
}

} // namespace cppmicroservices
