// What stands between the client and a server that misbehaves.
#pragma once

#include "tests/integration/nginx/Nghttpx.h"
#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

namespace integrationtest {

enum class Front {
    Direct,  // nothing
    Tls,     // the bytes of the server under TLS, from OpenSSL's test server; the script itself is not played
    Nginx,   // a reverse proxy, HTTP/1.1 on both sides, nothing buffered
    Nghttpx, // a reverse proxy, HTTP/2 under TLS towards the client
};

const char* nameOf(Front front);
inline void PrintTo(Front front, std::ostream* stream) { // for GoogleTest
    *stream << nameOf(front);
}

// Stands in front of one server until it is destroyed.
class FrontPeer {
public:
    // `answer`: what Tls sends; the others ask the server at `backendPort`.
    FrontPeer(Front front, std::uint16_t backendPort, const std::string& answer);

    std::string url() const { return Url; }
    std::string certificateFile() const { return CertificateFile; } // empty: no TLS

private:
    testsupport::TemporaryFolder Folder;
    std::unique_ptr<PeerProcess> Process;
    std::unique_ptr<Nghttpx> Http2;
    std::string Url;
    std::string CertificateFile;

    void startTls(const std::string& answer);
    void startNginx(std::uint16_t backendPort);
};

} // namespace integrationtest
