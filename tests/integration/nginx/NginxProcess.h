// What every nginx of these tests has in common.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <string>

namespace integrationtest {

// The part of a configuration that keeps nginx in the foreground, in one process and within a folder. It comes before
// any "server": `nginxFrame(folder)` + servers + "}". `more`: directives outside of "http".
std::string nginxFrame(const testsupport::TemporaryFolder& folder, const std::string& more = {});

// Starts nginx with a configuration file of the folder and waits until it takes connections on all its ports, of which
// `port` is one.
std::unique_ptr<PeerProcess> startNginx(const testsupport::TemporaryFolder& folder, const std::string& configuration,
                                        std::uint16_t port);

// "listen 127.0.0.1:port more;", and the same port of ::1 where the machine has it, so that "localhost" never means
// somebody else.
std::string listenDirectives(std::uint16_t port, const std::string& more = {});

} // namespace integrationtest
