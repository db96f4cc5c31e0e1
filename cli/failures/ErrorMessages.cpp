#include "cli/failures/ErrorMessages.h"

#include "cli/failures/CliFailure.h"
#include "vantik/Http.h"

#include <variant>

namespace netrove::cli {

namespace {

constexpr std::string_view kClientCatalogue = "NETROVE:client";

// The warning has a length of -1 if none was announced, and 0 if none is known because the head was cut off. Neither
// says anything to a person.
std::string worded(const vantik::Message& message, const std::string& text) {
    if (message.identifier() != vantik::kIncompleteContent || message.Arguments.size() < 3 ||
        (message.Arguments[1] != vantik::MessageArgument("-1") &&
         message.Arguments[1] != vantik::MessageArgument("0"))) {
        return text;
    }
    return "The response is incomplete: it was cut off after " + std::get<std::string>(message.Arguments[0]) +
           " bytes of content. " + std::get<std::string>(message.Arguments[2]);
}

} // namespace

vantik::Message messageOf(const netrove::Error& error) {
    const std::string& identifier = error.identifier();
    const auto colon = identifier.rfind(':');
    vantik::Message message{identifier.substr(0, colon), identifier.substr(colon + 1), error.arguments(), error.what()};
    if (message.Catalogue == kClientCatalogue) {
        message.Catalogue = kCatalogue;
    }
    // The proxy is named only by the client; everything else the catalogue says too, in the user's language.
    if (!error.hostText().empty() && error.kind() != netrove::ErrorKind::Proxy) {
        message.Text = worded(message, error.hostText());
    }
    if (message.Key == failure::kContentLimit) {
        constexpr std::string_view kSetting = "limit `content`";
        if (const auto at = message.Text.find(kSetting); at != message.Text.npos) {
            message.Text.replace(at, kSetting.size(), "limit of --max-filesize");
        }
    }
    if (message.Key == failure::kFileExists) {
        message.Text += "; use --force to replace it";
    }
    return message;
}

} // namespace netrove::cli
