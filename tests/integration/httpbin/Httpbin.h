// The request and response service httpbin, run by gunicorn: it answers as its URL says and reports what it was sent.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <string>

namespace integrationtest {

class Httpbin {
public:
    // Ready to answer. Connections are kept alive for longer than any test takes between two requests.
    Httpbin();

    std::uint16_t port() const { return Port; }
    std::string authority() const { return "127.0.0.1:" + std::to_string(Port); }
    std::string url(const std::string& path) const { return "http://" + authority() + path; }

private:
    testsupport::TemporaryFolder Folder;
    std::uint16_t Port = 0;
    std::unique_ptr<PeerProcess> Process;
};

} // namespace integrationtest
