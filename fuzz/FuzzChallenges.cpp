// WWW-Authenticate: the scheme that is chosen is one that the fields name and the request allows.
#include "client/exchange/Challenges.h"
#include "client/text/Ascii.h"
#include "fuzz/FuzzInput.h"

#include <string>

using netrove::Scheme;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> fields;
    for (const std::string_view line : linesOf(textOf(data, size))) {
        fields.emplace_back(line);
    }
    const std::vector<Scheme> all = {Scheme::Basic, Scheme::Digest, Scheme::Ntlm, Scheme::Negotiate};
    const auto chosen = netrove::offeredScheme(fields, all);
    for (const Scheme scheme : all) {
        const auto alone = netrove::offeredScheme(fields, {scheme});
        require(!alone || (*alone == scheme && chosen), "a scheme that is offered alone is offered among others");
        if (chosen == scheme) {
            require(alone.has_value(), "what is chosen among all is offered");
            const bool named = std::any_of(fields.begin(), fields.end(), [&](const std::string& field) {
                return netrove::lowered(std::string_view(field))
                           .find(netrove::lowered(std::string_view(netrove::className(scheme)))) != std::string::npos;
            });
            require(named, "what is chosen is named");
        }
    }
    require(!netrove::offeredScheme(fields, {}), "nothing is chosen where nothing is allowed");
    return 0;
}
