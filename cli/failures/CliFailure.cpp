#include "cli/failures/CliFailure.h"

#include <system_error>
#include <utility>

namespace netrove::cli {

vantik::Message cliMessage(std::string_view key, std::vector<vantik::MessageArgument> arguments, std::string text) {
    return {std::string(kCatalogue), std::string(key), std::move(arguments), std::move(text)};
}

void fail(std::string_view key, std::vector<vantik::MessageArgument> arguments, std::string text) {
    throw vantik::Failure(cliMessage(key, std::move(arguments), std::move(text)));
}

void failUsage(std::string text) {
    fail(failure::kUsage, {}, std::move(text));
}

void failSystem(std::string_view key, const std::string& file, int errorNumber) {
    const std::string reason = systemText(errorNumber);
    const char* const attempt = key == failure::kFileNotRead ? "cannot read " : "cannot write ";
    fail(key, {file, reason}, attempt + file + ": " + reason);
}

std::string systemText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

} // namespace netrove::cli
