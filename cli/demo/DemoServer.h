// The server of the tour: HTTP on a loopback port that the system picks.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace netrove::cli {

// Paths: /hello a short text; /file content of `kFileSize` bytes; /upload answers what it received; /missing a 404;
// /silent sends nothing until released; /half sends half of /file and stops until released.
class DemoServer {
public:
    static constexpr std::size_t kFileSize = std::size_t{1} << 20;

    DemoServer();
    ~DemoServer(); // releases whoever waits
    DemoServer(const DemoServer&) = delete;
    DemoServer& operator=(const DemoServer&) = delete;

    std::string url(const std::string& path) const;
    // Lets the handlers of /silent and /half go on, now and later.
    void release();

private:
    struct Content;
    std::unique_ptr<Content> Inside;
};

// Bytes that are easy to make and hard to get right by chance.
char patternByte(std::size_t position);
// SHA-256 in hexadecimal.
std::string digestOf(const std::string& bytes);

} // namespace netrove::cli
