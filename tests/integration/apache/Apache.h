// Apache httpd with a configuration of its own: pages and a program, open and under each kind of authentication.
#pragma once

#include "tests/integration/apache/PasswordFiles.h"
#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace integrationtest {

// Besides KnownUser, httpd knows this one, in windows-1252.
inline constexpr const char* kLatinUser = "Jos\u00e9";
inline constexpr const char* kLatinPassword = "p\u00e4ss w\u00f6rd \u20ac";

struct ApacheOptions {
    std::vector<std::string> Modules{};               // to load besides the usual ones: "auth_gssapi"
    std::string Configuration{};                      // more lines
    std::map<std::string, std::string> Environment{}; // of the server
};

// Folders: "open", "basic", "digest", and "closed", which knows the user but lets in another one only. In each of them:
//   page   a file of 100,000 bytes
//   echo   a program that returns the content which it was sent; fields X-Method, X-User, X-Scheme and X-Type say
//          the rest
// A folder that the options add has them too.
class Apache {
public:
    explicit Apache(const ApacheOptions& options = {});

    // The path begins with a slash: "/basic/page".
    std::string url(const std::string& path, const std::string& host = "127.0.0.1") const;
    const std::string& page() const { return Page; }

    // "GET 401" for each request so far whose query is `query`, in the order of their ends. Waits until there are as
    // many as `count`.
    std::vector<std::string> requests(const std::string& query, std::size_t count);

private:
    testsupport::TemporaryFolder Folder;
    std::string Page;
    std::uint16_t Port = 0;
    std::unique_ptr<PeerProcess> Server; // goes first

    void writeFiles() const;
    std::string configuration(const ApacheOptions& options) const;
};

} // namespace integrationtest
