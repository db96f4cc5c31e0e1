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
    ~BatchServer(); // lets go whatever is held
    BatchServer(const BatchServer&) = delete;
    BatchServer& operator=(const BatchServer&) = delete;

    std::string url(const std::string& path) const;
    static std::string contentOf(const std::string& path);

    void answer(const std::string& path, std::vector<Answer> answers);
    void hold(const std::string& path); // requests for it are not answered until `release`
    void release(const std::string& path);
    void meet(std::size_t count); // paths that begin with /meet are answered once so many are there at a time

    void waitForRequest(const std::string& path, std::size_t count = 1) const;
    std::size_t requests(const std::string& path) const;
    std::size_t allRequests() const;
    std::vector<SeenRequest> seen(const std::string& path) const;
    std::size_t connections() const;      // different ports of clients
    std::size_t mostAtOnce() const;       // requests under way at a time
    std::size_t repeatedRequests() const; // beyond the first for each path

    struct State; // of the handlers

private:
    struct Content;
    std::unique_ptr<State> Shared;
    std::unique_ptr<Content> Inside;
};

} // namespace batchtest
