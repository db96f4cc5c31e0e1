// The module as a program uses it: loaded into an embedded host, everything through the class.
#pragma once

#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <cstdint>
#include <string>

namespace bench {

class ModuleClient {
public:
    ModuleClient(); // loads the module

    vantik::Host& host() { return Program; }
    // The one object through which requests go. Set its provider, consumer or content first.
    const vantik::Object& connection() const { return Connection; }

    // Each is a whole exchange: open, send, receive, close. They raise vantik::Failure, and std::runtime_error if the
    // status is not 200.
    vantik::Array get(const std::string& url, bool toBuffer = true);
    void getToFile(const std::string& url, const std::string& file);
    // With a Content-Length, or in chunks if `announce` is false. Returns the response's content.
    vantik::Array put(const std::string& url, std::uint64_t length, bool announce);

private:
    void open(const std::string& url);
    void close();

    vantik::Host Program;
    vantik::Object Connection;
};

} // namespace bench
