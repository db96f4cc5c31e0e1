#include "cli/failures/LoginHint.h"

#include "client/text/Ascii.h"

#include <netrove/response.h>

#include <algorithm>
#include <vector>

namespace netrove::cli {

namespace {

// True if a challenge for that scheme is in the value (RFC 9110, section 11.6.1). Quoted parameters may say anything.
bool offers(const std::string& value, const std::string& scheme) {
    bool quoted = false;
    bool begins = true; // a challenge, or a parameter
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (!quoted && begins && value.compare(i, scheme.size(), scheme) == 0) {
            const std::size_t end = i + scheme.size();
            if (end == value.size() || value[end] == ' ' || value[end] == ',') {
                return true;
            }
        }
        if (value[i] == '"' && (i == 0 || value[i - 1] != '\\')) {
            quoted = !quoted;
        }
        begins = value[i] == ',' || (begins && value[i] == ' ');
    }
    return false;
}

std::vector<std::string> offered(const netrove::Response& response, bool proxy) {
    std::vector<std::string> schemes;
    for (const char* scheme : {"basic", "digest", "ntlm", "negotiate"}) {
        for (const std::string& value : response.fields.all(proxy ? "Proxy-Authenticate" : "WWW-Authenticate")) {
            if (offers(lowered(value), scheme)) {
                schemes.emplace_back(scheme);
                break;
            }
        }
    }
    return schemes;
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

} // namespace

std::string loginHint(const netrove::Error& error, const Circumstances& circumstances) {
    const int status = error.response().status;
    const bool proxy = status == 407;
    const std::vector<std::string>& allowed = proxy ? circumstances.ProxySchemes : circumstances.Schemes;
    if ((status != 401 && !proxy) || !error.identifier().ends_with(":StatusError") || allowed.empty()) {
        return {};
    }
    const std::vector<std::string> schemes = offered(error.response(), proxy);
    const bool common = std::any_of(allowed.begin(), allowed.end(), [&](const std::string& name) {
        return std::find(schemes.begin(), schemes.end(), lowered(name)) != schemes.end();
    });
    if (schemes.empty() || common) {
        return "check name and password";
    }
    return std::string(proxy ? "the proxy" : "the server") + " offers only " + joined(schemes, " and ") + "; " +
           (proxy ? "--proxy-auth " : "--auth ") + joined(schemes, ",") + " allows that";
}

} // namespace netrove::cli
