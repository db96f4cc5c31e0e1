// One call of a Client: attempts, each with its chain of redirects, until there is a response or no hope.
#pragma once

#include "client/exchange/RetryPolicy.h"

#include <netrove/descriptor.h>
#include <netrove/transport.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>

namespace netrove {

class RedirectChain;

// What a Client has that a call works with.
struct CallTools {
    Transport& TheTransport;
    const WakeEvent& Wake;
    const std::atomic<bool>& Stopped; // somebody has asked the call to end
    const RetryPolicy& Policy;
    std::optional<std::chrono::steady_clock::time_point> End; // of the whole call
};

// When something that begins now has to be over; nothing: never.
std::optional<std::chrono::steady_clock::time_point> endOf(Limit limit);

// How many bytes of content will be delivered, if the response says.
std::optional<std::uint64_t> announcedLength(const Response& response, const Request& request);

class Call {
public:
    // Takes the head of the response of an attempt; returns what takes its content, or nothing.
    using HeadReceiver = std::function<Taker(Response& head)>;

    // `request` is complete, and outlives the call.
    Call(const CallTools& tools, const Request& request, HeadReceiver onHead);
    Call(const CallTools& tools, Request&& request, HeadReceiver onHead) = delete;

    // Adds fields to each request just before it goes out.
    void beforeEach(std::function<void(Request&)> hook) { BeforeEach = std::move(hook); }
    // Whether an attempt may follow though content has been passed on: the next head takes it back, or it goes on.
    void mayFollow(std::function<bool()> may) { MayFollow = std::move(may); }

    // May be called again: what came was of no use, and the request is to be made anew.
    Response run();

private:
    using Clock = std::chrono::steady_clock;

    // What becomes of a response, settled with its head.
    enum class Fate { None, Final, Failure, Followed };

    Response attempt();
    // One request; returns the one that follows it, if it is redirected. `response` is the one that led there, and
    // becomes its own.
    std::optional<Request> hop(const Request& current, RedirectChain& chain, Response& response, bool first);
    // `current` with what is added when it goes out; nothing if that is nothing.
    std::optional<Request> changed(const Request& current, const Response* redirect);
    void addCookies(Request& sent, const Response* redirect) const;
    Taker takerFor(const Head& head, const Request& current, Response& response, Fate& fate);
    Taker errorPage(Response& response) const;
    bool isFinalStatus(const Response& response, const Request& current) const;
    Taker counted(Taker taker, Response& response);
    void refuseLarge(const Response& head) const;
    [[noreturn]] void failLarge(std::int64_t announced) const;
    Body paced(const Body& body, const std::string& host);
    void pace(const std::string& host, std::size_t bytes) const;
    void forgetAttemptsEnd();
    void waitForNext(const Error& failure);
    bool sleepUntil(Clock::time_point end) const; // false: somebody has asked the call to end
    ///@{ Negative: no limit.
    Limit timeLeft() const;    // for the call
    Limit timeForNext() const; // for waits before another attempt
    ///@}
    static Error stopped();
    void report();
    void note(const std::string& text) const;

    CallTools Tools;
    std::optional<Clock::time_point> End; // of the call or of this attempt, whichever comes first
    const Request& Asked;
    HeadReceiver OnHead;
    std::function<void(Request&)> BeforeEach;
    std::function<bool()> MayFollow; // empty: it may not
    bool PassedOn = false;           // content has reached the program
    bool Foreign = false;            // the failure is one of the program's own
    int Attempts = 0;
    std::vector<Hop> Hops;
    const std::optional<Clock::time_point> LastStart; // of an attempt
    Progress Now;
};

} // namespace netrove
