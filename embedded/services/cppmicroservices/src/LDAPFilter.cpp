#include "cppmicroservices/LDAPFilter.h"

#include "LDAPFilterData.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

namespace {

using Kind = LDAPFilterData::Kind;

constexpr std::array<std::pair<Kind, std::string_view>, 7> kSigns = {{{Kind::And, "&"},
                                                                      {Kind::Or, "|"},
                                                                      {Kind::Not, "!"},
                                                                      {Kind::Equal, "="},
                                                                      {Kind::AtLeast, ">="},
                                                                      {Kind::AtMost, "<="},
                                                                      {Kind::Approximate, "~="}}};

bool isBlank(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// Reads one filter text.
class Reader {
public:
    explicit Reader(std::string_view text) : Text(text) {}

    LDAPFilterData read() {
        LDAPFilterData filter = node();
        skipBlanks();
        if (Place != Text.size()) {
            fail("nothing may follow the last parenthesis");
        }
        return filter;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const {
        throw std::invalid_argument("Filter \"" + std::string(Text) + "\", position " + std::to_string(Place) + ": " +
                                    reason);
    }

    void skipBlanks() {
        while (Place < Text.size() && isBlank(Text[Place])) {
            ++Place;
        }
    }

    bool accept(std::string_view wanted) {
        const bool found = Text.substr(Place).starts_with(wanted);
        Place += found ? wanted.size() : 0;
        return found;
    }

    void expect(std::string_view wanted) {
        if (!accept(wanted)) {
            fail("expected '" + std::string(wanted) + "'");
        }
    }

    Kind sign(std::size_t first, std::size_t last, Kind otherwise) {
        for (std::size_t index = first; index < last; ++index) {
            if (accept(kSigns[index].second)) {
                return kSigns[index].first;
            }
        }
        return otherwise;
    }

    LDAPFilterData node() {
        LDAPFilterData result;
        skipBlanks();
        expect("(");
        skipBlanks();
        result.Operation = sign(0, 3, Kind::Equal);
        if (result.Operation == Kind::Equal) {
            compare(result);
        } else {
            do {
                result.Operands.push_back(node());
                skipBlanks();
            } while (result.Operation != Kind::Not && Place < Text.size() && Text[Place] == '(');
        }
        expect(")");
        return result;
    }

    void compare(LDAPFilterData& result) {
        const std::size_t end = std::min(Text.find_first_of("=<>~()", Place), Text.size());
        result.Key = Text.substr(Place, end - Place);
        while (!result.Key.empty() && isBlank(result.Key.back())) {
            result.Key.pop_back();
        }
        if (result.Key.empty()) {
            fail("expected a key");
        }
        Place = end;
        result.Operation = sign(3, kSigns.size(), Kind::Not);
        if (result.Operation == Kind::Not) {
            fail("expected '=', '>=', '<=' or '~='");
        }
        result.Pieces.emplace_back();
        for (; Place < Text.size() && Text[Place] != ')' && Text[Place] != '('; ++Place) {
            if (Text[Place] == '*') {
                result.Pieces.emplace_back();
            } else {
                Place += Text[Place] == '\\' && Place + 1 < Text.size() ? 1 : 0;
                result.Pieces.back() += Text[Place];
            }
        }
    }

    std::string_view Text;
    std::size_t Place = 0;
};

std::string joined(const std::vector<std::string>& pieces) {
    std::string result = pieces.front();
    for (std::size_t index = 1; index < pieces.size(); ++index) {
        result += "*" + pieces[index];
    }
    return result;
}

std::string escaped(const std::string& value) {
    std::string result;
    for (const char character : value) {
        if (std::string_view("()*\\").find(character) != std::string_view::npos) {
            result += '\\';
        }
        result += character;
    }
    return result;
}

// In lower case and without blanks: how texts are compared that need only be alike.
std::string simplified(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (!isBlank(character)) {
            result += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        }
    }
    return result;
}

bool fitsPattern(std::string_view text, const std::vector<std::string>& pieces) {
    if (!text.starts_with(pieces.front())) {
        return false;
    }
    text.remove_prefix(pieces.front().size());
    for (std::size_t index = 1; index + 1 < pieces.size(); ++index) {
        const std::size_t found = text.find(pieces[index]);
        if (found == std::string_view::npos) {
            return false;
        }
        text.remove_prefix(found + pieces[index].size());
    }
    return pieces.size() == 1 ? text.empty() : text.ends_with(pieces.back());
}

} // namespace

LDAPFilterData LDAPFilterData::read(std::string_view text) {
    return Reader(text).read();
}

bool LDAPFilterData::matches(const std::vector<Property>& properties) const {
    const auto holds = [&](const LDAPFilterData& operand) { return operand.matches(properties); };
    switch (Operation) {
    case Kind::And:
        return std::ranges::all_of(Operands, holds);
    case Kind::Or:
        return std::ranges::any_of(Operands, holds);
    case Kind::Not:
        return !holds(Operands.front());
    default:
        break;
    }
    return std::ranges::any_of(properties, [this](const Property& property) {
        return std::ranges::equal(
                   Key, property.Key,
                   [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); }) &&
               std::visit([this](auto value) { return holdsFor(value); }, property.Value);
    });
}

bool LDAPFilterData::holdsFor(std::string_view property) const {
    const std::string value = joined(Pieces);
    return Operation == Kind::AtLeast  ? property >= value
           : Operation == Kind::AtMost ? property <= value
           : Operation == Kind::Equal  ? fitsPattern(property, Pieces)
                                       : simplified(property) == simplified(value);
}

bool LDAPFilterData::holdsFor(long property) const {
    const std::string value = joined(Pieces);
    if (Operation == Kind::Equal && value == "*") {
        return true;
    }
    long wanted = 0;
    const char* const end = value.data() + value.size();
    if (std::from_chars(value.data(), end, wanted) != std::from_chars_result{end, std::errc()}) {
        return false;
    }
    return Operation == Kind::AtLeast  ? property >= wanted
           : Operation == Kind::AtMost ? property <= wanted
                                       : property == wanted;
}

std::string LDAPFilterData::text() const {
    const auto sign = std::ranges::find(kSigns, Operation, &std::pair<Kind, std::string_view>::first)->second;
    if (Operands.empty()) {
        std::vector<std::string> pieces;
        std::ranges::transform(Pieces, std::back_inserter(pieces), escaped);
        return "(" + Key + std::string(sign) + joined(pieces) + ")";
    }
    std::string result = "(" + std::string(sign);
    for (const LDAPFilterData& operand : Operands) {
        result += operand.text();
    }
    return result + ")";
}

LDAPFilter::LDAPFilter(const std::string& filter)
    : d(std::make_shared<const LDAPFilterData>(LDAPFilterData::read(filter))) {}

std::string LDAPFilter::ToString() const {
    return d ? d->text() : std::string();
}

} // namespace cppmicroservices
