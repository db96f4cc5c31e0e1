#include "client/exchange/Challenges.h"

#include "client/request/RequestChecks.h"
#include "client/text/Ascii.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace netrove {

namespace {

struct SchemeRow {
    Scheme Id;
    std::string_view OnTheWire;
    const char* ClassName;
};

// The safest first, as libcurl picks.
constexpr SchemeRow kSchemes[] = {
    {Scheme::Negotiate, "Negotiate", "Negotiate"},
    {Scheme::Digest, "Digest", "Digest"},
    {Scheme::Ntlm, "NTLM", "NTLM"},
    {Scheme::Basic, "Basic", "Basic"},
};

// True if the list of challenges has one of this scheme: a word at the start or after a comma, outside quotes, that no
// '=' follows.
bool offers(std::string_view challenges, std::string_view scheme) {
    bool quoted = false;
    bool atStart = true;
    for (std::size_t i = 0; i < challenges.size(); ++i) {
        const char c = challenges[i];
        if (quoted) {
            i += c == '\\' ? 1 : 0;
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            atStart = true;
        } else if (c != ' ' && c != '\t') {
            const auto end = std::min(challenges.find_first_of(" \t,=\"", i), challenges.size());
            const bool word = end == challenges.size() || (challenges[end] != '=' && challenges[end] != '"');
            if (atStart && word && equalsIgnoringCase(challenges.substr(i, end - i), scheme)) {
                return true;
            }
            atStart = false;
            i = std::max(end, i + 1) - 1; // the rest of the word says no more, however long it is
        }
    }
    return false;
}

} // namespace

std::optional<Scheme> offeredScheme(const std::vector<std::string>& challenges, const std::vector<Scheme>& allowed) {
    for (const SchemeRow& row : kSchemes) {
        const bool offered = std::any_of(challenges.begin(), challenges.end(), [&](const std::string& challenge) {
            return offers(challenge, row.OnTheWire);
        });
        if (offered && std::find(allowed.begin(), allowed.end(), row.Id) != allowed.end()) {
            return row.Id;
        }
    }
    return std::nullopt;
}

const char* className(Scheme scheme) {
    return std::find_if(std::begin(kSchemes), std::end(kSchemes),
                        [&](const SchemeRow& row) { return row.Id == scheme; })
        ->ClassName;
}

} // namespace netrove
