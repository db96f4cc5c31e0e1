#include "client/exchange/Call.h"

#include "client/exchange/Drain.h"
#include "client/exchange/FailureTranslation.h"
#include "client/exchange/Redirects.h"
#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/save/ContentRange.h"
#include "client/text/Ascii.h"

#include <netrove/text.h>
#include <netrove/url.h>

#include <charconv>
#include <cstdio>
#include <utility>

namespace netrove {

namespace {

constexpr std::size_t kLargestErrorPage = std::size_t{1} << 20; // of content that comes with such a status

std::optional<std::uint64_t> number(const std::string& text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

constexpr std::chrono::milliseconds kPollInterval(100); // in which a program that waits is asked whether to go on

// Far enough away for any limit, and near enough for the clock to count.
constexpr std::chrono::hours kLongestWait(24 * 365 * 10);

std::chrono::steady_clock::time_point after(Limit time) {
    return std::chrono::steady_clock::now() + std::min<Limit>(time, kLongestWait);
}

// Negative: no limit.
Limit leftUntil(const std::optional<std::chrono::steady_clock::time_point>& end) {
    return end ? std::max(Limit::zero(), std::chrono::duration_cast<Limit>(*end - std::chrono::steady_clock::now()))
               : Limit(-1);
}

std::string secondsText(std::chrono::duration<double> time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", time.count());
    return text;
}

} // namespace

std::optional<std::uint64_t> announcedLength(const Response& response, const Request& request) {
    if (equalsIgnoringCase(response.method, "HEAD") || response.status == 204 || response.status == 304) {
        return 0;
    }
    const std::string encoding = response.fields["Content-Encoding"];
    const bool decoded = *request.decode && !encoding.empty() && !equalsIgnoringCase(encoding, "identity");
    if (decoded || response.fields.contains("Transfer-Encoding")) {
        return std::nullopt;
    }
    return number(response.fields["Content-Length"]);
}

std::optional<std::chrono::steady_clock::time_point> endOf(Limit limit) {
    return limit == kUnlimited ? std::nullopt : std::optional(after(limit));
}

Call::Call(const CallTools& tools, const Request& request, HeadReceiver onHead)
    : Tools(tools), Asked(request), OnHead(std::move(onHead)), Attempts(Asked.retry.made),
      LastStart(endOf(*Asked.retry.most)) {}

Response Call::run() {
    for (;;) {
        ++Attempts;
        const auto attemptEnd = endOf(*Asked.limits.attempt);
        End = Tools.End && attemptEnd ? std::min(Tools.End, attemptEnd) : Tools.End ? Tools.End : attemptEnd;
        Tools.TheTransport.endAt(End);
        try {
            Response response = attempt();
            response.hops = Hops;
            response.attempts = Attempts;
            return response;
        } catch (const Error& failure) {
            if (Foreign) {
                throw;
            }
            Response before = failure.response();
            before.hops = Hops;
            before.attempts = Attempts;
            const bool attemptOver =
                failure.identifier().ends_with(netrove::failure::kTotalTime) && timeLeft() != Limit::zero();
            const Error& told =
                attemptOver ? clientError(netrove::failure::kAttemptTime, {}, "not complete within the limit `attempt`")
                            : failure;
            forgetAttemptsEnd();
            waitForNext(told.with(std::move(before), failure.sent()));
        }
    }
}

// What ended one attempt, or would have, is nothing to the next one.
void Call::forgetAttemptsEnd() {
    Tools.TheTransport.release();
    Tools.TheTransport.endAt(Tools.End);
    Tools.TheTransport.clearInterrupt();
    if (Tools.Stopped) {
        Tools.TheTransport.interrupt();
    }
}

// Returns when it is time for the next attempt; raises the failure where there is to be none.
void Call::waitForNext(const Error& failure) {
    if (PassedOn && !(MayFollow && MayFollow())) {
        throw failure;
    }
    const auto wait = Tools.Policy.waitAfter(Attempts, Asked, failure, timeForNext());
    if (!wait) {
        throw failure;
    }
    const auto next = after(*wait);
    if ((Tools.End && next >= *Tools.End) || (LastStart && next > *LastStart)) {
        throw failure;
    }
    note("tries again in " + secondsText(*wait) + " (attempt " + std::to_string(Attempts + 1) + " of " +
         std::to_string(*Asked.retry.attempts) + "): " + failure.what());
    if (Asked.onWait && !Asked.onWait(failure, *wait)) {
        throw failure;
    }
    if (Tools.Stopped || !sleepUntil(next)) {
        throw stopped().with(failure.response(), failure.sent());
    }
}

bool Call::sleepUntil(Clock::time_point end) const {
    while (Asked.poll) {
        Asked.poll();
        const auto pause = Clock::now() + kPollInterval;
        if (pause >= end) {
            break;
        }
        if (!Tools.Wake.sleepUntil(pause)) {
            return false;
        }
    }
    return Tools.Wake.sleepUntil(end);
}

Response Call::attempt() {
    RedirectChain chain(Asked);
    Now = {};
    Response response;
    std::optional<Request> redirected;
    for (bool first = true;; first = false) {
        if (Tools.Stopped) {
            throw stopped();
        }
        redirected = hop(redirected ? *redirected : Asked, chain, response, first);
        if (!redirected) {
            return response;
        }
    }
}

std::optional<Request> Call::changed(const Request& current, const Response* redirect) {
    const bool paces = Asked.rate && current.body;
    if (!BeforeEach && !Asked.cookies && !Asked.progress && !paces) {
        return std::nullopt;
    }
    Request sent = current;
    if (BeforeEach) {
        BeforeEach(sent);
    }
    addCookies(sent, redirect);
    if (Asked.progress) {
        sent.progress = [this](const Progress& upload) {
            Now.sent = upload.sent;
            Now.toSend = upload.toSend;
            report();
        };
    }
    if (paces) {
        sent.body = paced(current.body, hostAndPort(current.url));
    }
    return sent;
}

std::optional<Request> Call::hop(const Request& current, RedirectChain& chain, Response& response, bool first) {
    const std::optional<Request> sent = changed(current, first ? nullptr : &response);
    response = {};
    const auto start = Clock::now();
    Hops.push_back({.url = maskUserInfo(current.url), .method = current.method});
    Head last;
    Fate fate = Fate::None;
    try {
        Tools.TheTransport.exchange(sent ? *sent : current, first, [&](const Head& head) {
            Hops.back().status = head.status;
            Hops.back().url = head.url;
            Hops.back().untilHead = Clock::now() - start;
            // The function that is returned owns its target, which the analyzer takes for lost.
            Taker taker = takerFor(head, current, response, fate); // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
            if (fate != Fate::Final) {
                last = head;
            }
            return taker;
        });
        Hops.back().time = Clock::now() - start;
        if (fate == Fate::None) {
            fail("Failure", {"no head"}, "the transport ended without a response");
        }
        if (fate == Fate::Followed) {
            std::optional<Request> next;
            try {
                next = chain.next(current, last);
            } catch (const Error& refusal) {
                throw refusal.with(response, true);
            }
            note("follows the redirect to " + next->url);
            return next;
        }
        if (fate == Fate::Failure) {
            throw statusError(response.status, response.reason, {.Url = response.url, .Proxy = last.proxy})
                .with(response, true);
        }
    } catch (const Error& failure) {
        // A callable of the program may have made a call of its own, of another client.
        Foreign = failure.response().attempts != 0;
        if (Foreign) {
            throw;
        }
        Hops.back().time = Clock::now() - start;
        Hops.back().failure = failure.what();
        Response before = failure.response().fields.empty() ? response : failure.response();
        before.method = current.method;
        if (before.url.empty()) {
            before.url = Hops.back().url;
        }
        throw failure.with(std::move(before), failure.sent() || chain.followed() > 0 || response.status != 0);
    }
    return std::nullopt;
}

void Call::addCookies(Request& sent, const Response* redirect) const {
    if (!Asked.cookies) {
        return;
    }
    const std::string more = Asked.cookies(sent.url, redirect);
    if (!isFieldValue(more)) {
        failUsage("what `cookies` returned is not printable ASCII");
    }
    if (!more.empty()) {
        sent.fields.add("Cookie", more);
    }
}

Taker Call::takerFor(const Head& head, const Request& current, Response& response, Fate& fate) {
    response = {.status = head.status,
                .reason = head.reason,
                .version = head.version,
                .fields = head.fields,
                .url = head.url,
                .method = current.method,
                .hops = Hops};
    // Content that is gone cannot go where a redirect sends it; the response itself says so best (RFC 9110, section
    // 15.4.8).
    const bool keepsContent = current.body && !becomesGet(current, head.status);
    if (isRedirect(head.status) && *Asked.redirects.most > 0 && head.fields.contains("Location") &&
        (!keepsContent || current.body.repeatable())) {
        fate = Fate::Followed;
        return drain();
    }
    if (!isFinalStatus(response, current)) {
        fate = Fate::Failure;
        return errorPage(response);
    }
    fate = Fate::Final;
    response.attempts = Attempts;
    Now.toReceive = announcedLength(response, current);
    Now.received = 0;
    refuseLarge(response);
    Taker taker = OnHead(response);
    return taker ? counted(std::move(taker), response) : Taker();
}

// False for a status that is a failure: because the program wants that, or because another attempt may do better.
bool Call::isFinalStatus(const Response& response, const Request& current) const {
    if (!response.failed()) {
        return true;
    }
    if (*Asked.checkStatus) {
        return false;
    }
    const Error failure = statusError(response.status, response.reason, {.Url = current.url}).with(response, true);
    try {
        return (PassedOn && !(MayFollow && MayFollow())) ||
               !Tools.Policy.waitAfter(Attempts, Asked, failure, timeForNext());
    } catch (const Error&) {
        return true; // it would have to wait too long
    }
}

Taker Call::errorPage(Response& response) const {
    return [&response](std::span<const std::byte> piece) {
        const std::size_t room = kLargestErrorPage - response.content.size();
        response.content.append(reinterpret_cast<const char*>(piece.data()), std::min(room, piece.size()));
        return piece.size() <= room;
    };
}

Taker Call::counted(Taker taker, Response& response) {
    Now.received = response.resumedAt;
    if (Now.toReceive) {
        *Now.toReceive += response.resumedAt;
    }
    const auto take = [this, &response, taker = std::move(taker)](std::span<const std::byte> piece) {
        if (piece.size() > *Asked.limits.content - std::min(*Asked.limits.content, Now.received)) {
            failLarge(-1);
        }
        PassedOn = true;
        const bool more = taker(piece);
        response.received += piece.size();
        response.whole = more;
        Now.received += piece.size();
        report();
        return more;
    };
    if (!Asked.rate) {
        return take;
    }
    return [this, take, host = hostAndPort(response.url)](std::span<const std::byte> bytes) {
        while (!bytes.empty()) {
            const std::size_t count = std::min<std::uint64_t>(bytes.size(), Asked.rate->step());
            if (!take(bytes.first(count))) {
                return false;
            }
            pace(host, count);
            bytes = bytes.subspan(count);
        }
        return true;
    };
}

// Before anything is written. What a response says of its length it says of content as it is on the wire, which is
// rarely longer than what is delivered.
void Call::refuseLarge(const Response& head) const {
    if (equalsIgnoringCase(head.method, "HEAD") || head.status == 304 || head.fields.contains("Transfer-Encoding")) {
        return;
    }
    std::optional<std::uint64_t> length = number(head.fields["Content-Length"]);
    if (head.status == 206) {
        const auto range = parseContentRange(head.fields["Content-Range"]);
        length = range && range->First && Asked.resume ? range->Total : length;
    }
    if (length && *length > *Asked.limits.content) {
        failLarge(static_cast<std::int64_t>(*length));
    }
}

void Call::failLarge(std::int64_t announced) const {
    const std::uint64_t most = *Asked.limits.content;
    fail(failure::kContentLimit, {static_cast<std::int64_t>(most), announced},
         "the content is larger than " + std::to_string(most) + " bytes, the limit `content`" +
             (announced < 0 ? "" : ": it has " + std::to_string(announced)));
}

// Content that is sent at the speed allowed. What is sent in one step anyway stays as it is.
Body Call::paced(const Body& body, const std::string& host) {
    class Reader final : public BodyReader {
    public:
        Reader(const Call& call, std::string host, std::unique_ptr<BodyReader> content)
            : TheCall(call), Host(std::move(host)), Content(std::move(content)) {}
        std::size_t read(std::span<std::byte> room) override {
            const std::size_t count =
                Content->read(room.first(std::min<std::uint64_t>(room.size(), TheCall.Asked.rate->step())));
            TheCall.pace(Host, count);
            return count;
        }

    private:
        const Call& TheCall;
        std::string Host;
        std::unique_ptr<BodyReader> Content;
    };
    if (body.inMemory() && body.inMemory()->size() <= Asked.rate->step()) {
        return body;
    }
    const auto open = [this, body, host] { return std::make_unique<Reader>(*this, host, body.open()); };
    return {open, body.length(), body.repeatable(), body.contentType()};
}

// The transport notices by itself that the time is over.
void Call::pace(const std::string& host, std::size_t bytes) const {
    const auto next = Asked.rate->take(host, bytes, Clock::now());
    if (!sleepUntil(End ? std::min(next, *End) : next)) {
        throw stopped();
    }
}

Limit Call::timeLeft() const {
    return leftUntil(Tools.End);
}

Limit Call::timeForNext() const {
    return leftUntil(LastStart && (!Tools.End || *LastStart < *Tools.End) ? LastStart : Tools.End);
}

Error Call::stopped() {
    return clientError(failure::kInterrupted, {}, "interrupted");
}

void Call::report() {
    if (Asked.progress) {
        Asked.progress(Now);
    }
}

void Call::note(const std::string& text) const {
    if (Asked.trace) {
        Asked.trace({TraceLine::Kind::Note, printable(text)});
    }
}

} // namespace netrove
