// Reads content as it is sent, and as others understand it.
#pragma once

#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/process/WatchedProcess.h"

#include <netrove/body.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace clienttest {

// All of it, in pieces of at most `room` bytes.
inline std::string readWhole(const netrove::Body& body, std::size_t room = 4096) {
    const auto reader = body.open();
    std::vector<std::byte> piece(room);
    std::string content;
    while (const std::size_t count = reader->read(piece)) {
        content.append(reinterpret_cast<const char*>(piece.data()), count);
    }
    return content;
}

// What a script of Python prints as JSON; sys.argv[1] is a file with this content.
inline nlohmann::json python(const std::string& script, const std::string& content) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("content"), content);
    const int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int out = ::open(folder.file("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    testsupport::WatchedProcess process({.File = "/usr/bin/env",
                                         .Arguments = {"env", "python3", "-I", "-c", script, folder.file("content")},
                                         .Environment = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8"},
                                         .Streams = {in, out, STDERR_FILENO}});
    ::close(in);
    ::close(out);
    process.awaitEnd();
    if (process.collect() != 0) {
        throw std::runtime_error("python3 failed");
    }
    return nlohmann::json::parse(testsupport::readFile(folder.file("out")));
}

} // namespace clienttest
