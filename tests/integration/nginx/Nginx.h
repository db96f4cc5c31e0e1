// nginx on ports and in a folder of its own.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <string>

namespace integrationtest {

// What it offers, on each of its two ports:
//   /files/…             the files of documentFile
//   /gzip/… /brotli/…    the same, compressed on the way where the request accepts it
//   /named-gzip/…        the same, said to be gzip, whatever they are; also named-br, named-zstd, named-unknown
//   /put/…               takes PUT and stores the content as storedFile
//   /small/…             the same, but 1000 bytes at most
//   /nothing             204
//   /connection          a number, the same for all requests of one connection
//   /redirect/…          see the configuration
class Nginx {
public:
    // Returns when it takes connections. Without its Brotli module in the folder it does not compress with that.
    Nginx();
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    bool knowsBrotli() const { return !BrotliModule.empty(); }
    std::string url(const std::string& path) const;      // HTTP/1.1
    std::string http2Url(const std::string& path) const; // HTTP/2 under TLS
    std::string certificateFile() const { return Folder.file("authority.pem"); }

    std::string documentFile(const std::string& name) const { return Folder.file("files/" + name); }
    std::string storedFile(const std::string& name) const { return Folder.file("stored/" + name); }

private:
    testsupport::TemporaryFolder Folder;
    std::string BrotliModule; // its file, or empty
    std::uint16_t PlainPort = 0;
    std::uint16_t Http2Port = 0;
    std::unique_ptr<PeerProcess> Process;

    std::string configuration() const;
};

} // namespace integrationtest
