#include "cli/failures/ErrorMessages.h"

#include "cli/failures/CliFailure.h"

#include <string>

namespace netrove::cli {

namespace {

constexpr std::string_view kClientCatalogue = "NETROVE:client";

// What the client says better than the catalogue: it knows the proxy, and how far a request had come. The catalogue
// has advice in it, which the command line gives by itself and in terms of its options.
bool saidByClient(netrove::ErrorKind kind) {
    using Kind = netrove::ErrorKind;
    return kind == Kind::Connect || kind == Kind::Proxy || kind == Kind::Tls || kind == Kind::Timeout ||
           kind == Kind::Content;
}

struct LimitRow {
    std::string_view Theirs;
    std::string_view Ours;
};

// The client's names for its limits, and ours.
constexpr LimitRow kLimits[] = {
    {"limit `connect`", "limit of --connect-timeout"},
    {"limit `response`", "limit of --response-timeout"},
    {"limit `data`", "limit of --data-timeout"},
    {"limit `content`", "limit of --max-filesize"},
};

std::string withOptionNames(std::string text) {
    for (const LimitRow& row : kLimits) {
        if (const auto at = text.find(row.Theirs); at != text.npos) {
            text.replace(at, row.Theirs.size(), row.Ours);
        }
    }
    return text;
}

} // namespace

vantik::Message messageOf(const netrove::Error& error) {
    const std::string& identifier = error.identifier();
    const auto colon = identifier.rfind(':');
    vantik::Message message{identifier.substr(0, colon), identifier.substr(colon + 1), error.arguments(), error.what()};
    if (message.Catalogue == kClientCatalogue) {
        message.Catalogue = kCatalogue;
    }
    if (!error.hostText().empty() && !saidByClient(error.kind())) {
        message.Text = error.hostText();
    }
    message.Text = withOptionNames(message.Text);
    if (message.Key == failure::kFileExists) {
        message.Text += "; use --force to replace it";
    }
    return message;
}

vantik::Message withoutAdvice(vantik::Message message) {
    constexpr std::string_view advice = " Write it as http://host/path or https://host/path.";
    if (message.Text.ends_with(advice)) {
        message.Text.resize(message.Text.size() - advice.size());
    }
    return message;
}

} // namespace netrove::cli
