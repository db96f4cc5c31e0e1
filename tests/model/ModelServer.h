// The server of the model test: two ports, any number of connections that are kept alive, each on a thread of its own.
// What it answers is planned by path; every answer is unlike any other, and every request is kept as it came.
#pragma once

#include "tests/support/server/SocketHandle.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace model {

// Challenge: 401 as long as the request brings no credentials; Denied: always.
enum class Kind : std::uint8_t { Success, NotFound, Denied, Challenge, Redirect };
enum class End : std::uint8_t { Whole, Closed, Reset, Silent }; // of an answer

constexpr std::array<std::size_t, 4> kAnswerSizes{0, 5, 2000, 100000};

// How a path is answered, in small numbers.
struct Shape {
    Kind What = Kind::Success;
    std::uint8_t Size = 0; // of the content, as an index of kAnswerSizes
    End Last = End::Whole;
    std::uint8_t Part = 2; // what comes before an End other than Whole. 0: nothing, 1: the head, 2: half of the content
    bool Chunked = false;  // otherwise with a Content-Length
    bool Early = false;    // as soon as the head is there, before the request's content
    bool Cookie = false;   // sets the cookie "jar" to the number of the request
};

struct Plan {
    Shape How{};
    int Status = 500;
    std::string Location{};
};

// One request and its answer.
struct Request {
    std::size_t Port = 0; // index
    std::string Head;     // with its end
    std::string Method;
    std::string Path;
    std::string Body;    // decoded
    bool Ended = false;  // the content came to its announced length, to its last chunk, or there was none
    std::string Trouble; // content that is not well formed
    int Status = 0;
    std::string Content; // what was sent of the answer's content
    bool Whole = false;  // all of it
    bool Cookie = false; // the answer sets the cookie
};

// Bytes that show where they come from and where they stand.
std::string contentOf(const std::string& source, std::size_t size);

class ModelServer {
public:
    ModelServer();
    ~ModelServer(); // waits until every connection has been closed by the peer
    ModelServer(const ModelServer&) = delete;
    ModelServer& operator=(const ModelServer&) = delete;

    std::string url(std::size_t port, const std::string& path) const;

    void forget(); // all plans and requests; only while there are no connections
    void plan(const std::string& path, Plan answer);
    Request request(std::size_t number) const; // an empty one where there is none
    std::set<int> statusesBelow(const std::string& folder) const;

    // Until every connection has been closed by the peer. False where that takes unreasonably long.
    bool awaitNoConnections() const;
    std::vector<Request> requests() const;      // in their order; an index is the number in the answer
    static bool isOurs(const Request& request); // made by awaitNoConnections

private:
    class Connection;

    std::array<testsupport::SocketHandle, 2> Listening;
    std::array<std::uint16_t, 2> Ports{};
    mutable std::mutex Guard; // of everything below
    mutable std::condition_variable Changed;
    std::map<std::string, Plan> Plans;
    std::vector<Request> Requests;
    std::size_t Open = 0; // connections
    std::array<std::thread, 2> Acceptors;
};

} // namespace model
