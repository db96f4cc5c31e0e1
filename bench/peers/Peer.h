// What all peers share: the jobs, the form of their arguments, and the line of figures that each prints.
//
//     peer_NAME JOB URL [NAME=VALUE…]
//
//     consumer      GET; the content is dropped as it comes
//     memory        GET; in the end the content is in memory in one piece
//     file          GET into file=FILE
//     upload        PUT of size=BYTES that a source hands out in pieces of piece=BYTES
//
//     count=N       as many requests, one after the other, on a connection that is kept
//     threads=N     as many clients, each on a thread of its own; they share the count
//     jobs=N        memory: N of the requests at a time, by what the library has for that (netrove_client only)
//     fields=N      header fields to send with each request
//     sized=0       upload: the length is not announced (netrove_client only)
//     check=1       the checksum of what is received
//
// Making the client is not timed. The figures are a line of JSON: seconds and CPU seconds of the requests, the peak
// memory of the process in KiB, the bytes received, their checksum, and what the server answered to an upload.
#pragma once

#include "bench/Content.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace peers {

struct Request {
    std::string Url;
    std::string File;
    std::uint64_t Size = 0;
    std::size_t Piece = std::size_t{64} << 10;
    unsigned Fields = 0;
    bool Sized = true;
};

// http://HOST:PORT/TARGET, for peers that want it in parts.
struct UrlParts {
    std::string Host;
    std::string Port;
    std::string Target;
};
UrlParts partsOf(const std::string& url);

// A header field to send with a request: one of `Request::Fields`.
std::string fieldName(unsigned index);
inline constexpr std::string_view kFieldValue = "a value as long as many are";

// Content to upload.
class Source {
public:
    explicit Source(const Request& request);
    // The next bytes, at most a piece and `room` of them; none at the end.
    std::string_view next(std::size_t room = SIZE_MAX);
    void rewind() { Left = Size; }

private:
    std::string Piece;
    std::uint64_t Size;
    std::uint64_t Left;
};

// One client. Each operation is a whole exchange and raises a std::exception unless its status is 200.
class Peer {
public:
    virtual ~Peer() = default;
    virtual void consumer(const Request& request, bench::Tally& received) = 0;
    virtual void memory(const Request& request, bench::Tally& received) = 0;
    virtual void file(const Request& request) = 0;
    virtual std::string upload(const Request& request, Source& source) = 0; // returns the server's answer
    virtual void many(const Request& request, std::uint64_t count, unsigned jobs, bench::Tally& received);
};

// Each peer defines this one. Called on the thread that uses the peer.
std::unique_ptr<Peer> makePeer();

void require(bool condition, const std::string& failure);

} // namespace peers
