/// @file
/// The seam below a Client: one request to one server. Programs that send requests have no use for it; what replaces
/// the network does, see <netrove/testing.h>.
#pragma once

#include <netrove/request.h>
#include <netrove/response.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace netrove {

/// The head of a response, as a transport delivers it.
struct Head {
    std::string url = {};         ///< of the request, in ASCII
    std::string version = {};     ///< "HTTP/1.1"
    int status = 0;               ///< 100 to 999
    std::string reason = {};      ///< reason phrase; empty with HTTP/2
    Fields fields = {};           ///< in the order of the wire
    std::string redirectUrl = {}; ///< Location made absolute; empty for none
    std::string proxy = {};       ///< that the request went through, as host:port; empty for none
};

/// Takes one piece of content; false ends the transfer.
using Taker = std::function<bool(std::span<const std::byte> piece)>;
/// Gets the head, once; returns what takes the content, or nothing if the content is not wanted.
using HeadHandler = std::function<Taker(const Head&)>;

/// Performs one request and follows, repeats and decides nothing. One thread at a time, except `interrupt`.
class NETROVE_API Transport {
public:
    virtual ~Transport() = default;

    /// @param request  complete: absolute URL, method, all settings
    /// @param first    the first of a call: nothing of an earlier call, such as cookies, may have an effect
    /// @param onHead   called once, with the head of the response
    /// @throws Error, and what body, handler, taker and the callbacks of the request throw, unchanged
    virtual void exchange(const Request& request, bool first, const HeadHandler& onHead) = 0;

    /// From now on exchanges end at this time; nothing: never.
    virtual void endAt(std::optional<std::chrono::steady_clock::time_point> time) = 0;
    /// Ends the running exchange, or the next one. Any thread, also in a signal handler.
    virtual void interrupt() noexcept = 0;
    /// Forgets an interrupt that nothing has seen.
    virtual void clearInterrupt() noexcept = 0;
    /// No other exchange follows at once: content of the last one that nobody has taken need not come any more.
    virtual void release() noexcept {}
};

/// How the class of the module is driven, for a transport over the network.
struct NetworkSettings {
    bool simple = false;            ///< the class's older interface
    int debug = 0;                  ///< the class's own trace on std::cout: 0 to 2
    bool proxyOnce = false;         ///< the proxy of an origin is looked up once, whatever changes later
    std::uint64_t uploadBuffer = 0; ///< bytes asked of streamed content at a time; 0: the choice of the class
};
/// The transport that a Client has unless it is given another: libcurl, by the module "netrove" in a host of its own.
/// @param settings  how the class is driven
/// @param onWarning called with each warning, on the thread of the call; empty: standard error
NETROVE_API std::unique_ptr<Transport>
networkTransport(NetworkSettings settings = {},
                 std::function<void(const std::string& identifier, const std::string& text)> onWarning = {});

} // namespace netrove
