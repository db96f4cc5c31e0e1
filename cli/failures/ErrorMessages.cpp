#include "cli/failures/ErrorMessages.h"

#include "cli/failures/CliFailure.h"

namespace netrove::cli {

namespace {

constexpr std::string_view kClientCatalogue = "NETROVE:client";

} // namespace

vantik::Message messageOf(const netrove::Error& error) {
    const std::string& identifier = error.identifier();
    const auto colon = identifier.rfind(':');
    vantik::Message message{identifier.substr(0, colon), identifier.substr(colon + 1), error.arguments(), error.what()};
    if (message.Catalogue == kClientCatalogue) {
        message.Catalogue = kCatalogue;
    }
    if (message.Key == failure::kFileExists) {
        message.Text += "; use --force to replace it";
    }
    return message;
}

} // namespace netrove::cli
