#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace netrove::cli {

namespace {

constexpr const char* kBearerVariable = "NETROVE_BEARER";

// "user" or "user:password".
void takeUser(std::optional<std::string>& user, std::optional<std::string>& password, const std::string& text) {
    const auto colon = text.find(':');
    user = text.substr(0, colon);
    checkUserName(*user);
    if (colon != text.npos) {
        password = text.substr(colon + 1);
    }
}

// RFC 6750, section 2.1.
void takeBearer(Settings& settings, const std::string& text) {
    std::string token = text;
    if (text == "@env") {
        const char* value = std::getenv(kBearerVariable);
        if (value == nullptr) {
            failUsage(std::string("--bearer @env needs ") + kBearerVariable + " in the environment");
        }
        token = value;
    } else if (text.starts_with('@')) {
        token = fileText(settings, text);
        token.erase(std::min(token.find_last_not_of(" \t\r\n") + 1, token.size()));
    }
    const auto first = token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=");
    if (token.empty() || first != token.npos) {
        failUsage(token.empty() ? "the token of --bearer is empty"
                                : "the token of --bearer has characters that a token cannot have");
    }
    settings.Bearer = token;
}

// clang-format off
const OptionRow kLoginOptions[] = {
    {"user", 'u', "NAME", kTransfers, "user name, or NAME:PASSWORD. Allows the schemes basic and digest unless --auth says otherwise",
     [](S& s, V v) { takeUser(s.User, s.Password, v); }, {.Secret = Secrecy::AfterColon, .OtherNames = "http-user", .Common = kTransfers}},
    {"password", 0, "TEXT", kTransfers, "password; better set in NETROVE_PASSWORD or typed at the prompt",
     [](S& s, V v) { s.Password = v; }, {.Secret = Secrecy::Whole, .OtherNames = "http-password http-passwd"}},
    {"auth", 0, "LIST", kTransfers, "authentication schemes, separated by commas: basic, digest, ntlm, negotiate",
     [](S& s, V v) { s.Auth = schemes("auth", v); }},
    {"bearer", 0, "TOKEN|@FILE|@env", kTransfers, "send a token as 'Authorization: Bearer TOKEN', to the first server only; @FILE reads it from a file, @env from NETROVE_BEARER, where other users cannot see it",
     takeBearer, {.Secret = Secrecy::Whole, .OtherNames = "oauth2-bearer"}},
    {"netrc", 'n', "", kTransfers, "take user name and password for the server from ~/.netrc",
     [](S& s, V) { s.UseNetrc = true; }},
    {"netrc-file", 0, "FILE", kTransfers, "take them from this file in the format of netrc",
     [](S& s, V v) { s.NetrcFile = nonEmpty("netrc-file", v); s.InputReaders += v == "-" ? 1 : 0; }},
    {"proxy-user", 0, "NAME", kTransfers, "user name for the proxy, or NAME:PASSWORD",
     [](S& s, V v) { takeUser(s.ProxyUser, s.ProxyPassword, v); }, {.Secret = Secrecy::AfterColon}},
    {"proxy-password", 0, "TEXT", kTransfers, "password for the proxy; better set in NETROVE_PROXY_PASSWORD",
     [](S& s, V v) { checkPassword(v); s.ProxyPassword = v; }, {.Secret = Secrecy::Whole}},
    {"proxy-auth", 0, "LIST", kTransfers, "authentication schemes for the proxy",
     [](S& s, V v) { s.ProxyAuth = schemes("proxy-auth", v); }},
};
// clang-format on

} // namespace

std::span<const OptionRow> loginOptions() {
    return kLoginOptions;
}

} // namespace netrove::cli
