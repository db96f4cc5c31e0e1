// The proxy settings of this process's environment, as a test wants them.
#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace integrationtest {

// Without any setting until a test makes one; what was there before comes back at the end.
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

} // namespace integrationtest
