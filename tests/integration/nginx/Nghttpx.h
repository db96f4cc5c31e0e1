// nghttpx: HTTP/2 under TLS in front of servers that speak HTTP/1.1.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <string>

namespace integrationtest {

class Nghttpx {
public:
    explicit Nghttpx(std::uint16_t backendPort); // on loopback, without TLS
    Nghttpx(const Nghttpx&) = delete;
    Nghttpx& operator=(const Nghttpx&) = delete;

    std::string url(const std::string& path) const;
    std::string certificateFile() const { return Folder.file("authority.pem"); }

private:
    testsupport::TemporaryFolder Folder;
    std::uint16_t Port = 0;
    std::unique_ptr<PeerProcess> Process;
};

} // namespace integrationtest
