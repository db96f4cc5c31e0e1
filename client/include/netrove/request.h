/// @file
/// What is asked for, and how.
#pragma once

#include <netrove/body.h>
#include <netrove/error.h>
#include <netrove/fields.h>
#include <netrove/ratelimit.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

/// How a login is proven.
enum class Scheme { Basic, Digest, Ntlm, Negotiate };

/// A login at a server or a proxy.
struct Login {
    /// Without a colon. Empty: no login, whatever the client's says; with Negotiate, the ticket of the user who runs
    /// the program.
    std::optional<std::string> user = {};
    std::string password = {}; ///< in UTF-8
    std::vector<Scheme> schemes = {Scheme::Basic,
                                   Scheme::Digest}; ///< allowed; the safest that the server offers is used
    std::string bearer = {};                        ///< a token instead of user and password (RFC 6750)
};

/// Which proxy to use. Nothing set: that of the system's settings.
struct Proxy {
    std::string url = {}; ///< "[scheme://][user[:password]@]host[:port]"; http, https, socks4, socks4a, socks5, socks5h
    Login login = {};     ///< at the proxy; `url` may hold it instead
    std::optional<bool> automatic = {}; ///< without `url`: true the system's, false none

    ///@{
    /// A direct connection, or the proxy of the system's settings, whatever the client has.
    static Proxy none() { return {.automatic = false}; }
    static Proxy system() { return {.automatic = true}; }
    ///@}
};

/// A length of time; `kUnlimited` for no limit.
using Limit = std::chrono::milliseconds;
/// No limit.
inline constexpr Limit kUnlimited = Limit::max();

/// Longest times, most content. A transfer that keeps moving is limited by `total` only.
struct Limits {
    std::optional<Limit> connect = {};         ///< until there is a connection, name look-up and TLS included; 10 s
    std::optional<Limit> response = {};        ///< of silence before the response's head; 30 s
    std::optional<Limit> data = {};            ///< of silence while content moves, in either direction; 30 s
    std::optional<Limit> attempt = {};         ///< for one attempt with its redirects; unlimited
    std::optional<Limit> total = {};           ///< for the whole call with redirects, retries and waits; unlimited
    std::optional<std::uint64_t> memory = {};  ///< bytes of content collected in memory; 64 MiB
    std::optional<std::uint64_t> content = {}; ///< bytes of content, wherever they go; unlimited
};

/// How a server proves who it is.
struct Tls {
    std::optional<bool> verify = {};     ///< its certificate; true
    std::optional<bool> verifyName = {}; ///< that the certificate is for this host; true
    std::string file = {};               ///< PEM file of authorities to trust in addition to the system's
};

/// Redirects (RFC 9110, section 15.4). On another origin the login, Authorization, Proxy-Authorization, Cookie, Host,
/// If-* and what `secret` names stay behind.
struct Redirects {
    std::optional<int> most = {};         ///< 10; 0: a redirect is the response
    std::optional<bool> downgrade = {};   ///< from https to http; false: an error
    std::vector<std::string> secret = {}; ///< names of further fields that are meant for the first origin only
};

/// What is tried again, and when: failures that may pass, of requests that may be repeated (RFC 9110, section 9.2.2) or
/// were not sent. The wait is random between 0 and `wait` doubled for each attempt, or what Retry-After says.
struct Retry {
    std::optional<int> attempts = {};              ///< in all; 3
    std::optional<Limit> wait = {};                ///< 250 ms
    std::optional<Limit> longestWait = {};         ///< 30 s; a Retry-After beyond it ends the call
    std::optional<bool> unsafe = {};               ///< POST and PATCH too, which may then be done twice; false
    std::optional<std::vector<int>> statuses = {}; ///< that may pass; 408, 429, 502, 503, 504
    std::optional<Limit> most = {}; ///< no attempt begins later than this after the call has begun; unlimited
    std::optional<bool> any = {};   ///< whatever failure of the server or the way to it; false
    int made = 0;                   ///< attempts that the program has made before; they count
};

/// How far a call has come.
struct Progress {
    std::uint64_t sent = 0;     ///< bytes of content
    std::uint64_t received = 0; ///< bytes of content as delivered, what was resumed included
    ///@{
    /// How many there will be, where that is known.
    std::optional<std::uint64_t> toSend = {};
    std::optional<std::uint64_t> toReceive = {};
    ///@}
};

/// One line of what goes over the wire and why.
struct TraceLine {
    /// Where a line belongs.
    enum class Kind {
        Note,    ///< which proxy, why again, where to
        Sent,    ///< a line of the request's head
        Received ///< a line of the response's head
    };
    Kind kind;        ///< where it belongs
    std::string text; ///< without line end; values of fields that hold credentials are "***"
};

/// One request. Of the settings that a call leaves out, the client's apply, then the defaults named here.
struct Request {
    std::string url = {};    ///< http or https, UTF-8; an IRI is converted. Relative: to that of the client
    std::string method = {}; ///< empty: GET, with a body POST
    Fields fields = {};      ///< in order; a name here replaces the client's fields of that name
    Body body = {};          ///< content
    bool resume = false;     ///< `save`: what an earlier call has left in FILE.part goes on, if it is the same file.
                             ///< `stream`: `onHead` is called for the first content; what breaks off after it goes on
    bool resumeUnproven = false; ///< with `resume`: so does what nothing is known of, FILE itself included
    std::optional<std::uint64_t> resumeAt = {}; ///< with `resume`: from this byte on, whatever is known of others
    bool replace = true;                        ///< `save`: false: a file that is there is an error
    bool keepTime = false;                      ///< `save`: the file's time is that of Last-Modified
    std::string sha256 = {};  ///< `save`: of the whole content, in hex; anything else is an error and is not kept
    Login login = {};         ///< at the server
    Proxy proxy = {};         ///< on the way to it
    Limits limits = {};       ///< longest times, most content
    Tls tls = {};             ///< whom to trust
    Redirects redirects = {}; ///< how far to follow
    Retry retry = {};         ///< what to try again
    std::optional<bool> decode = {};      ///< by Content-Encoding; true
    std::optional<bool> compressed = {};  ///< asks for content in a coding that is decoded; not with `resume`; false
    std::optional<bool> checkStatus = {}; ///< 400 and above raise Error; true
    /// Called on the thread of the call when content has moved. What it throws ends the call.
    std::function<void(const Progress&)> progress = {};
    /// Called with each line of a head, and with what is decided.
    std::function<void(const TraceLine&)> trace = {};
    /// Called before each request of an attempt with its URL; what it returns is added to the field Cookie. `redirect`
    /// is the response that led there, null for the first request. What it throws ends the call.
    std::function<std::string(const std::string& url, const Response* redirect)> cookies = {};
    std::shared_ptr<RateLimit> rate = {}; ///< how fast content may move; waits for it are no silence of the server
    /// Called by `save` with the head of the response before its content. What it throws ends the call.
    std::function<void(const Response& head)> onHead = {};
    /// Called with what has failed before a wait for the next attempt. False: the call ends with that failure, for
    /// programs that wait themselves.
    std::function<bool(const Error& failure, Limit wait)> onWait = {};
    /// Called on the thread of the call, at least once a second while the call runs or waits. What it throws ends the
    /// call.
    std::function<void()> poll = {};
    std::stop_token stop = {}; ///< ends the call within a second
};

} // namespace netrove
