/// @file
/// The HTTP client: requests that read like what they do.
/// @code
/// netrove::Client client;
/// std::cout << client.get("https://example.org/").text();
/// client.save("https://example.org/data.bin", "data.bin", {.resume = true, .retry = {.attempts = 5}});
/// @endcode
#pragma once

#include <netrove/body.h>
#include <netrove/error.h>
#include <netrove/request.h>
#include <netrove/response.h>
#include <netrove/transport.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

namespace netrove {

/// Takes content piece by piece. A callable may return nothing, or whether it wants more.
class Consumer {
public:
    /// Made of any callable that takes a `std::span<const std::byte>`.
    template <class Callable>
        requires std::is_invocable_v<Callable&, std::span<const std::byte>>
    Consumer(Callable callable) {
        if constexpr (std::is_convertible_v<std::invoke_result_t<Callable&, std::span<const std::byte>>, bool>) {
            Take = std::move(callable);
        } else {
            Take = [callable = std::move(callable)](std::span<const std::byte> piece) mutable {
                callable(piece);
                return true;
            };
        }
    }
    const Taker& taker() const { return Take; } ///< what it does with a piece

private:
    Taker Take;
};

/// Where content is collected: memory of the program's own. What it throws ends the call.
class NETROVE_API Collector {
public:
    virtual ~Collector() = default;
    /// The content begins. Called again where a further attempt is made: what came before is of no use then.
    /// @param expected bytes, as the server announces them; 0 where it does not
    virtual void begin(std::uint64_t expected) = 0;
    /// The next piece. Together they are not larger than Limits::memory.
    virtual void add(std::span<const std::byte> piece) = 0;
};

/// How content of a list is received.
struct Receiving {
    /// The length from which content goes on where an earlier call or attempt has ended; as announced by the server.
    std::uint64_t resumedFrom = std::uint64_t{1} << 20;
    /// Called before anything is written to a file that a killed program leaves: its name and descriptor.
    std::function<void(const std::string& name, int descriptor)> onTemporary = {};
};

class ContentStore;

/// Content that has come whole and has no name yet. Without one it is dropped, except what may be resumed.
class NETROVE_API ReceivedFile {
public:
    ReceivedFile();
    ~ReceivedFile();
    ReceivedFile(ReceivedFile&&) noexcept;            ///< leaves the other one without content
    ReceivedFile& operator=(ReceivedFile&&) noexcept; ///< the same; drops what it had

    /// Brings the content to the disk, or finishes what the caller has brought there.
    /// @throws Error of kind File
    void settle(bool flushed = false);
    /// Gives it its name. A name that is on the disk before its content is an empty file after a power cut: so once
    /// `settle` has returned. @throws Error of kind File
    void name();
    int descriptor() const;               ///< of the file
    explicit operator bool() const;       ///< true: there is content
    std::filesystem::path target() const; ///< the name that it gets

private:
    friend class Client;
    std::unique_ptr<ContentStore> Content;
};

/// An HTTP client. It keeps its connections for the next call; cookies live for one call and its redirects.
///
/// Every call throws Error when it fails, a status of 400 or above included (see Request::checkStatus). Exceptions of
/// the program's own callables pass through unchanged. A Client is used by one thread at a time: a call while another
/// one runs, on another thread or from a callback, throws Error of kind Usage. `interrupt` may be called by anyone at
/// any time. For many requests at a time there is Pool.
class NETROVE_API Client {
public:
    /// @param defaults settings for all calls. A URL here is the base of relative ones; no method and no body.
    /// @throws Error of kind Usage for settings that make no sense
    explicit Client(Request defaults = {});
    /// The same over another transport.
    Client(Request defaults, std::unique_ptr<Transport> transport);
    ~Client();
    ///@{
    /// Movable while no call runs. A client that was moved from can only be assigned to or destroyed.
    Client(Client&&) noexcept;
    Client& operator=(Client&&) noexcept;
    ///@}

    ///@{
    /// A request with this method; the content is collected in memory, up to Limits::memory.
    Response get(std::string url, Request more = {});
    Response head(std::string url, Request more = {});
    Response del(std::string url, Request more = {});
    Response post(std::string url, Body body, Request more = {});
    Response put(std::string url, Body body, Request more = {});
    Response patch(std::string url, Body body, Request more = {});
    ///@}
    /// Any request; the content is collected in memory, up to Limits::memory.
    Response request(Request request);
    /// The same, but the content goes into `content`; Response::content is empty.
    Response request(Request request, Collector& content);

    ///@{
    /// Content into a file that is whole or not there: it is received beside its target and gets its name at the end.
    /// The target is a file, or a folder; then the server's Content-Disposition or the URL names the file.
    Response save(std::string url, std::filesystem::path target, Request more = {});
    Response save(Request request, std::filesystem::path target);
    ///@}

    /// As `save`, but the content gets its name later, by `file`: for many files at a time.
    Response receive(Request request, std::filesystem::path target, ReceivedFile& file, Receiving how = {});

    /// Content piece by piece, as it comes. A piece stays in place during the call only. A consumer that returns false
    /// ends the transfer quietly; Response::whole is false then.
    Response stream(std::string url, Consumer consumer, Request more = {});
    /// The same, with a look at the head (all but content) first: what it returns takes the content, an empty one none.
    Response stream(Request request, const std::function<Taker(const Response& head)>& onHead);

    /// Stops the call under way, or the next one, within a second. Any thread, also in a signal handler.
    void interrupt() noexcept;

private:
    struct State;
    std::unique_ptr<State> Own;
};

///@{
/// A single call with a Client of its own.
NETROVE_API Response get(std::string url, Request more = {});
NETROVE_API Response head(std::string url, Request more = {});
NETROVE_API Response del(std::string url, Request more = {});
NETROVE_API Response post(std::string url, Body body, Request more = {});
NETROVE_API Response put(std::string url, Body body, Request more = {});
NETROVE_API Response patch(std::string url, Body body, Request more = {});
NETROVE_API Response request(Request request);
NETROVE_API Response save(std::string url, std::filesystem::path target, Request more = {});
///@}

} // namespace netrove
