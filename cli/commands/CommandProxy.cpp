#include "cli/commands/Commands.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <nlohmann/json.hpp>

#include <span>

namespace netrove::cli {

namespace {

constexpr const char* kHidden = "***";

// The lookup takes only ASCII, and answers "direct" to what is not a valid URL. The class refuses that as it does for
// `get`: a missing host when it opens the connection, which does not reach a server yet.
std::string asciiUrl(Session& session, const std::string& url) {
    try {
        session.Connection = session.Host.create(vantik::kHttpConnectionClass, {vantik::Array(true)});
        session.Connection.set("URL", vantik::Array(url));
        session.Connection.call("openConnection", std::span<const vantik::Array>(), 0);
        const std::string ascii = session.Connection.get("URL").text();
        session.Connection = vantik::Object();
        return ascii;
    } catch (const vantik::Failure& failure) {
        throw vantik::Failure(withRefusedUrlMasked(failure.message(), url));
    }
}

vantik::HttpProxy lookUpProxy(vantik::Host& host, const std::string& url) {
    const vantik::Array answer = host.callBuiltin(vantik::kProxyLookup, {vantik::Array(url)});
    return {answer.field("Host").text(), static_cast<std::uint16_t>(answer.field("Port").number()),
            answer.field("Username").text(), answer.field("Password").text(), ""};
}

std::string row(const Console& console, std::string_view label, const std::string& value) {
    std::string padded(label);
    padded.resize(10, ' ');
    return console.styled(Style::Bold, padded) + printable(value) + "\n";
}

} // namespace

int runProxy(Session& session, const Settings& settings, const Console& console) {
    const std::string url = asciiUrl(session, settings.Url);
    const vantik::HttpProxy proxy = lookUpProxy(session.Host, url);
    if (vantik::proxyVariable(url) == "HTTP_PROXY") {
        console.note("HTTP_PROXY is not used, since the caller of a CGI program can set it; set http_proxy instead");
    }
    const std::string password = proxy.Password.empty() || settings.ShowPassword ? proxy.Password : kHidden;
    if (settings.json()) {
        const nlohmann::ordered_json object = {{"url", settings.Url},        {"direct", proxy.Host.empty()},
                                               {"host", proxy.Host},         {"port", proxy.Port},
                                               {"username", proxy.Username}, {"password", password}};
        console.print(object.dump(2, ' ', true, nlohmann::json::error_handler_t::replace) + "\n");
        return kExitDone;
    }
    if (proxy.Host.empty()) {
        console.print("No proxy: a direct connection.\n");
        return kExitDone;
    }
    std::string text = row(console, "Host", proxy.Host) + row(console, "Port", std::to_string(proxy.Port));
    if (!proxy.Username.empty()) {
        text += row(console, "User", proxy.Username) + row(console, "Password", password);
    }
    console.print(text);
    return kExitDone;
}

} // namespace netrove::cli
