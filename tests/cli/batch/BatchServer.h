// A server for many requests at a time: it answers by the path, counts what it saw, and holds requests on demand.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace batchtest {

struct SeenRequest {
    std::string Method;
    std::string Body;
    std::map<std::string, std::string> Fields; // names in lower case
};

struct Answer {
    int Status = 200;
    std::map<std::string, std::string> Fields{};
    std::string Content{};
    bool CutShort = false; // one byte fewer than announced
};

// A path without answers of its own gets 200 and `contentOf`; one with several gets them in turn, the last one for
// good.
class BatchServer {
public:
    BatchServer();
    ~BatchServer(); // answers whatever is held
    BatchServer(const BatchServer&) = delete;
    BatchServer& operator=(const BatchServer&) = delete;

    std::string url(const std::string& path) const;
    static std::string contentOf(const std::string& path);

    void answer(const std::string& path, std::vector<Answer> answers);
    void hold(const std::string& path); // requests for it are not answered until `release`
    void release(const std::string& path);
    void meet(std::size_t count); // paths that begin with /meet are answered once so many are there at a time

    void waitForRequest(const std::string& path, std::size_t count = 1) const;
    std::vector<SeenRequest> seen(const std::string& path) const;
    std::size_t requests(const std::string& path) const { return seen(path).size(); }
    std::size_t allRequests() const;
    std::size_t paths() const;       // that were asked for
    std::size_t connections() const; // different ports of clients
    std::size_t mostAtOnce() const;  // requests under way at a time

private:
    class Handler;
    struct Content;

    Answer take(const std::string& path, SeenRequest request, unsigned port); // the answer, once it may be given
    bool mayAnswer(const std::string& path) const;

    mutable std::mutex Guard; // of all that follows
    mutable std::condition_variable Changed;
    std::map<std::string, std::vector<Answer>> Answers;
    std::set<std::string> Held;
    std::map<std::string, std::vector<SeenRequest>> Requests;
    std::set<unsigned> ClientPorts;
    std::size_t Now = 0;
    std::size_t Most = 0;
    std::size_t Meeting = 0; // how many have to arrive
    std::size_t Arrived = 0;
    bool Ending = false;
    std::unique_ptr<Content> Inside;
};

} // namespace batchtest
