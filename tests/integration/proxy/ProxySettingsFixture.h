// What the look-up of a proxy answers under the settings that a test makes, and connections opened by it.
#pragma once

#include "tests/integration/support/IntegrationFixture.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace integrationtest {

// The proxy settings of this process's environment: none until a test makes one. What was there before comes back at
// the end.
class ProxyEnvironment {
public:
    ProxyEnvironment() {
        // The last two choose the desktop whose settings are read.
        for (const char* name :
             {"http_proxy", "https_proxy", "ftp_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY",
              "FTP_PROXY", "ALL_PROXY", "NO_PROXY", "XDG_CURRENT_DESKTOP", "DESKTOP_SESSION"}) {
            const char* value = std::getenv(name);
            Before[name] = value == nullptr ? std::nullopt : std::optional<std::string>(value);
            ::unsetenv(name);
        }
    }
    ~ProxyEnvironment() {
        for (const auto& [name, value] : Before) {
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
        }
    }
    ProxyEnvironment(const ProxyEnvironment&) = delete;
    ProxyEnvironment& operator=(const ProxyEnvironment&) = delete;

    void set(const std::string& name, const std::string& value) { ::setenv(name.c_str(), value.c_str(), 1); }

private:
    std::map<std::string, std::optional<std::string>> Before;
};

class ProxySettings : public IntegrationFixture {
protected:
    Array answerFor(const std::string& url) {
        return host().callBuiltin("ws_base::getProxyInfoBuiltin", std::vector<Array>{Array(url)});
    }

    // Host and port of the answer, with the credentials where it has any.
    std::string lookUp(const std::string& url) {
        const Array answer = answerFor(url);
        const std::string user = answer.field("Username").text();
        return answer.field("Host").text() + " " + std::to_string(static_cast<int>(answer.field("Port").number())) +
               (user.empty() ? "" : " " + user + " / " + answer.field("Password").text());
    }

    // As a host does: the answer opens the connection, its credentials are properties of their own.
    Object openByLookUp(const std::string& url) {
        const Array answer = answerFor(url);
        Object connection = makeAdapter();
        connection.set("URL", url);
        connection.set("TimeoutInMilliseconds", Array::doubles({60000})); // a resolver may have to ask again
        connection.set("ProxyUsername", answer.field("Username"));
        connection.set("ProxyPassword", answer.field("Password"));
        allow(connection, {"Basic"}, true);
        connection.call("openProxyConnection", {answer});
        return connection;
    }

    // A run of the program under a setting for http.
    static Outcome runUnder(const std::string& setting, const Texts& words) {
        return run(words, {.Environment = {{"http_proxy", setting}}});
    }

    ProxyEnvironment Settings; // none but those of the test
};

// The answer where no proxy applies: no host, and the port that stands for none.
inline const char* const kDirect = " 80";

} // namespace integrationtest
