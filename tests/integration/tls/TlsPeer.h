// nginx with one TLS port for each certificate or TLS version that a test wants to meet.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/crypto/Certificates.h"
#include "tests/support/process/TemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace integrationtest {

struct TlsSite {
    testsupport::Credentials Identity;         // with further certificates after the first where the chain needs them
    std::string Protocols = "TLSv1.2 TLSv1.3"; // as nginx names them
    std::string Ciphers{};                     // OpenSSL's list; empty: nginx's own
    std::string Content = "secret";            // what every request is answered with
};

class TlsPeer {
public:
    // The ports are those of the sites, in their order, and a last one that speaks no TLS.
    explicit TlsPeer(const std::vector<TlsSite>& sites);

    std::uint16_t port(std::size_t site) const { return Ports.at(site); }
    std::uint16_t plainPort() const { return Ports.back(); }
    // "https://localhost:port/path"
    std::string url(std::size_t site, const std::string& path = "/", const std::string& host = "localhost") const;
    // What the server has been asked for before this call, one line a request: "port GET /path HTTP/1.1". It writes
    // them down after its answers and in their order, so a request of its own is sent and waited for.
    std::vector<std::string> requestsUpToNow() const;

private:
    testsupport::TemporaryFolder Folder;
    std::vector<std::uint16_t> Ports;
    std::unique_ptr<PeerProcess> Process;

    std::string configuration(const std::vector<TlsSite>& sites) const;
    std::vector<std::string> requests() const; // as far as they are written down
};

} // namespace integrationtest
