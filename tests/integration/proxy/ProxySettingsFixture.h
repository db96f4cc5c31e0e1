// What the look-up of a proxy answers under the settings that a test makes, and connections opened by it.
#pragma once

#include "tests/integration/proxy/ProxyEnvironment.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <string>
#include <vector>

namespace integrationtest {

// Host and port of an answer, with the credentials where it has any.
inline std::string described(const vantik::Array& answer) {
    std::string text =
        answer.field("Host").text() + " " + std::to_string(static_cast<int>(answer.field("Port").number()));
    if (!answer.field("Username").text().empty()) {
        text += " " + answer.field("Username").text() + " / " + answer.field("Password").text();
    }
    return text;
}

class ProxySettings : public IntegrationFixture {
protected:
    vantik::Array lookUp(const std::string& url) {
        const std::vector<vantik::Array> inputs = {vantik::Array(url)};
        return host().callBuiltin("ws_base::getProxyInfoBuiltin", inputs);
    }

    // As a host does: the answer opens the connection, its credentials are properties of their own.
    vantik::Object openByLookUp(const std::string& url) {
        const vantik::Array answer = lookUp(url);
        vantik::Object connection = makeAdapter();
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", vantik::Array::doubles({60000})); // a resolver may have to ask again
        connection.set("ProxyUsername", answer.field("Username"));
        connection.set("ProxyPassword", answer.field("Password"));
        connection.call("setAuthenticationSchemes", {vantik::Array::enumeration("vantik.net.http.AuthenticationScheme",
                                                                                std::vector<std::string>{"Basic"}),
                                                     true});
        connection.call("openProxyConnection", {answer});
        return connection;
    }

    ProxyEnvironment Settings; // none but those of the test
};

// The answer where no proxy applies: no host, and the port that stands for none.
inline const char* const kDirect = " 80";

} // namespace integrationtest
