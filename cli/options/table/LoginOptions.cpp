#include "cli/options/FieldText.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <optional>

namespace netrove::cli {

namespace {

// "user" or "user:password".
void takeUser(std::optional<std::string>& user, std::optional<std::string>& password, const std::string& text) {
    const auto colon = text.find(':');
    user = text.substr(0, colon);
    checkUserName(*user);
    if (colon != text.npos) {
        password = text.substr(colon + 1);
    }
}

// clang-format off
const OptionRow kOptions[] = {
    {"user", 'u', "NAME", kTransfers, "user name, or NAME:PASSWORD. Allows the schemes basic and digest unless --auth says otherwise",
     [](S& s, V v) { takeUser(s.User, s.Password, v); }, {.Secret = Secrecy::AfterColon, .OtherNames = "http-user", .Common = kTransfers}},
    {"password", 0, "TEXT", kTransfers, "password; better set in NETROVE_PASSWORD or typed at the prompt",
     [](S& s, V v) { s.Password = v; }, {.Secret = Secrecy::Whole, .OtherNames = "http-password http-passwd"}},
    {"auth", 0, "LIST", kTransfers, "authentication schemes, separated by commas: basic, digest, ntlm, negotiate",
     [](S& s, V v) { s.Auth = schemes("auth", v); }},
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
    return kOptions;
}

} // namespace netrove::cli
