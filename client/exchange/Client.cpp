#include "client/exchange/Call.h"
#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/save/JoinedContent.h"
#include "http/MappedAhead.h"

#include <netrove/client.h>
#include <netrove/outputfile.h>
#include <netrove/url.h>

#include <atomic>
#include <optional>
#include <random>
#include <utility>

namespace netrove {

namespace {

constexpr int kNotModified = 304;
constexpr int kRangeNotSatisfiable = 416;
constexpr std::uint64_t kMostReserved = 1 << 30; // bytes, on the word of a server; none is touched before it comes

double randomShare() {
    thread_local std::minstd_rand engine(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

// What `save` puts the content into.
JoinedContent savedContent(const std::filesystem::path& target, const Request& request) {
    if (target.native().find('\0') != std::string::npos) {
        failUsage("the name of the file has a NUL");
    }
    const bool folder = target.empty() || !target.has_filename() || isFolder(target);
    if (!request.resume) {
        return {folder ? namedFile(target, request.replace) : wholeFile(target, request.replace, true), {}};
    }
    // What is there already must be known before the server can name it.
    const std::filesystem::path file = folder ? target / fileNameFor(request.url) : target;
    const bool unproven = request.resumeUnproven || request.resumeAt;
    JoinedContent content(partFile(file, request.replace, unproven), {.Unproven = unproven, .At = request.resumeAt});
    if (const std::uint64_t at = request.resumeAt.value_or(0); at > content.size()) {
        fail(failure::kBadOffset, {static_cast<std::int64_t>(at), static_cast<std::int64_t>(content.size())},
             file.string() + " has " + std::to_string(content.size()) + " bytes, so byte " + std::to_string(at) +
                 " does not follow them");
    }
    removeLeftovers(file.string());
    return content;
}

} // namespace

struct [[gnu::visibility("hidden")]] Client::State {
    State(Request defaults, std::unique_ptr<Transport> transport)
        : Defaults(std::move(defaults)), TheTransport(std::move(transport)),
          Policy(randomShare, [] { return WallClock::now(); }) {
        checkRequest(Defaults, Use::Defaults);
        if (!TheTransport) {
            failUsage("a client needs a transport");
        }
    }

    static State& of(const std::unique_ptr<State>& own) {
        if (!own) {
            failUsage("the client has been moved from");
        }
        return *own;
    }

    void interrupt() noexcept {
        Stopped = true;
        TheTransport->interrupt();
        Wake.raise();
        Raised = true;
    }

    // Runs one call; nobody else may meanwhile.
    template <class Run>
    auto alone(const Request& request, Run run) {
        const Turn turn(*this);
        const std::stop_callback onStop(request.stop, [this] { interrupt(); });
        return run(CallTools{*TheTransport, Wake, Stopped, Policy, endOf(*request.limits.total)});
    }

    // Checks the request, and fills in everything that it leaves open.
    void prepare(Request& request, Use use) const {
        checkRequest(request, use);
        complete(request, Defaults);
    }

    Response perform(const Request& request, const Call::HeadReceiver& onHead, bool mayRestart) {
        return alone(request, [&](const CallTools& tools) {
            Call call(tools, request, onHead);
            call.mayFollow([mayRestart] { return mayRestart; });
            return call.run();
        });
    }

    // What comes goes into `content`, which `onHead` prepares for it.
    template <class OnHead>
    Response collect(Request& request, Collector& content, OnHead onHead) {
        prepare(request, Use::Collect);
        const std::uint64_t most = *request.limits.memory;
        const auto begin = [&](Response& head) -> Taker {
            onHead(head);
            content.begin(std::min(announcedLength(head, request).value_or(0), most));
            return [&content, most, came = std::uint64_t{0}](std::span<const std::byte> piece) mutable {
                if (piece.size() > most - came) {
                    fail(failure::kContentTooLarge, {static_cast<std::int64_t>(most)},
                         "the content is larger than " + std::to_string(most) +
                             " bytes, the limit `memory`; save it to a file, or stream it");
                }
                came += piece.size();
                content.add(piece);
                return true;
            };
        };
        return perform(request, begin, true);
    }

    // What comes goes into `content`, in as many responses as it takes.
    static Response join(JoinedContent& content, const Request& request, const CallTools& tools, bool saves);

    Request Defaults;
    std::unique_ptr<Transport> TheTransport;
    RetryPolicy Policy;
    WakeEvent Wake;
    std::atomic<bool> Stopped = false;
    std::atomic<bool> Raised = false; // Wake may be; spares each call the system call that clears it
    std::atomic<bool> Busy = false;

private:
    // What asks the client to stop before a call stops that call; what asks a call to stop does not stop the next one.
    class Turn {
    public:
        explicit Turn(State& state) : Own(state) {
            if (Own.Busy.exchange(true)) {
                fail(failure::kInUse, {}, "the client is in use: one call at a time, and none from within another");
            }
            Own.TheTransport->clearInterrupt();
            if (Own.Stopped) {
                Own.interrupt();
            }
        }
        ~Turn() {
            // The event is raised after the first flag and before the second.
            const bool stopped = Own.Stopped.exchange(false);
            if (Own.Raised.exchange(false) || stopped) {
                Own.Wake.clear();
            }
            Own.TheTransport->release();
            Own.TheTransport->endAt(std::nullopt);
            Own.TheTransport->clearInterrupt();
            Own.Busy = false;
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        State& Own;
    };
};

Response Client::State::join(JoinedContent& content, const Request& request, const CallTools& tools, bool saves) {
    bool again = false; // what came is of no use
    const auto beyondItsEnd = [&](Response& head) { again = !content.isWhole(head); };
    Call call(tools, request, [&](Response& head) -> Taker {
        again = false;
        if (saves && request.onHead) {
            request.onHead(head);
        }
        if (saves && head.status == kNotModified) {
            return {};
        }
        if (head.status == kRangeNotSatisfiable && content.asksForPart()) {
            beyondItsEnd(head);
            return {};
        }
        again = !content.begin(head);
        if (again) {
            return {};
        }
        return [&](std::span<const std::byte> piece) {
            const Piece fate = content.write(piece);
            again = fate == Piece::Wrong;
            return fate == Piece::Taken;
        };
    });
    call.beforeEach([&](Request& hop) { content.ask(hop); });
    call.mayFollow([&] { return content.mayFollow(); });
    for (int idle = 0;;) {
        const std::uint64_t before = content.size();
        Response response;
        try {
            response = call.run();
        } catch (const Error& failure) {
            response = failure.response();
            if (response.status != kRangeNotSatisfiable || failure.kind() != ErrorKind::Status ||
                !content.asksForPart()) {
                throw;
            }
            beyondItsEnd(response);
            response.content.clear(); // the page that said so
        }
        if (again && !content.asksForPart()) {
            throw clientError(failure::kIncomplete, {"0", "-1"}, "the server sends parts that nobody has asked for")
                .with(std::move(response), true);
        }
        if (again) {
            continue;
        }
        if (saves && response.status == kNotModified) {
            return response;
        }
        // A server may send less than was asked for, as long as it sends something.
        idle = content.size() > before ? 0 : idle + 1;
        if (content.wantsMore() && response.whole) {
            if (idle < 2) {
                continue;
            }
            const std::string came = std::to_string(content.size());
            const std::string end = std::to_string(content.end());
            throw clientError(failure::kIncomplete, {came, end},
                              "the content is incomplete: " + came + " of " + end + " bytes came")
                .with(std::move(response), true);
        }
        try {
            content.finish(request, response);
        } catch (const Error& failure) {
            // Parts may not have belonged together, whatever the server says.
            if (!failure.identifier().ends_with(netrove::failure::kDigestMismatch) || !content.discard()) {
                throw;
            }
            continue;
        }
        return response;
    }
}

Client::Client(Request defaults) : Client(std::move(defaults), networkTransport()) {}

Client::Client(Request defaults, std::unique_ptr<Transport> transport)
    : Own(std::make_unique<State>(std::move(defaults), std::move(transport))) {}

Client::~Client() = default;
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;

namespace {

void setUrl(Request& more, std::string url) {
    if (!more.url.empty()) {
        failUsage("the URL of this call is given twice");
    }
    more.url = std::move(url);
}

void name(Request& more, const char* method, std::string url) {
    if (!more.method.empty()) {
        failUsage("the method of this call is given twice");
    }
    more.method = method;
    setUrl(more, std::move(url));
}

void name(Request& more, const char* method, std::string url, Body body) {
    if (more.body) {
        failUsage("the content of this call is given twice");
    }
    more.body = std::move(body);
    name(more, method, std::move(url));
}

} // namespace

Response Client::get(std::string url, Request more) {
    name(more, "GET", std::move(url));
    return request(std::move(more));
}

Response Client::head(std::string url, Request more) {
    name(more, "HEAD", std::move(url));
    return request(std::move(more));
}

Response Client::del(std::string url, Request more) {
    name(more, "DELETE", std::move(url));
    return request(std::move(more));
}

Response Client::post(std::string url, Body body, Request more) {
    name(more, "POST", std::move(url), std::move(body));
    return request(std::move(more));
}

Response Client::put(std::string url, Body body, Request more) {
    name(more, "PUT", std::move(url), std::move(body));
    return request(std::move(more));
}

Response Client::patch(std::string url, Body body, Request more) {
    name(more, "PATCH", std::move(url), std::move(body));
    return request(std::move(more));
}

Response Client::request(Request request) {
    // Into the response itself, so that an error carries what came before it.
    class Memory final : public Collector {
    public:
        void begin(std::uint64_t expected) override {
            Content->reserve(std::min(expected, kMostReserved));
            Ahead = {};
        }
        void add(std::span<const std::byte> piece) override {
            Ahead.advance(Content->data(), Content->size(), Content->capacity());
            Content->append(reinterpret_cast<const char*>(piece.data()), piece.size());
        }
        std::string* Content = nullptr;

    private:
        MappedAhead Ahead;
    } memory;
    return State::of(Own).collect(request, memory, [&](Response& head) { memory.Content = &head.content; });
}

Response Client::request(Request request, Collector& content) {
    return State::of(Own).collect(request, content, [](Response&) {});
}

Response Client::stream(std::string url, Consumer consumer, Request more) {
    State& own = State::of(Own);
    if (!consumer.taker()) {
        failUsage("a consumer is missing");
    }
    setUrl(more, std::move(url));
    own.prepare(more, Use::Stream);
    return own.perform(
        more, [&](Response&) { return consumer.taker(); }, false);
}

Response Client::stream(Request request, const std::function<Taker(const Response&)>& onHead) {
    State& own = State::of(Own);
    if (!onHead) {
        failUsage("a callable that takes the head is missing");
    }
    own.prepare(request, Use::Stream);
    if (!request.resume) {
        return own.perform(request, onHead, true);
    }
    return own.alone(request, [&](const CallTools& tools) {
        JoinedContent content(passedOn(onHead), {});
        Response response = State::join(content, request, tools, false);
        response.received = content.size();
        return response;
    });
}

Response Client::save(std::string url, std::filesystem::path target, Request more) {
    setUrl(more, std::move(url));
    return save(std::move(more), std::move(target));
}

Response Client::save(Request request, std::filesystem::path target) {
    State& own = State::of(Own);
    own.prepare(request, Use::Save);
    if (request.resume) {
        request.checkStatus = true; // no page of an error goes into what may be resumed
    }
    return own.alone(request, [&](const CallTools& tools) {
        JoinedContent content = savedContent(target, request); // first, so that a bad target costs no request
        Response response = State::join(content, request, tools, true);
        if (!response.file.empty()) {
            content.store().settle(false);
            content.store().name();
        }
        return response;
    });
}

Response Client::receive(Request request, std::filesystem::path target, ReceivedFile& file, Receiving how) {
    State& own = State::of(Own);
    own.prepare(request, Use::Receive);
    const bool resumes =
        request.method == "GET" && !request.fields.contains("Range") && !request.fields.contains("If-Range");
    return own.alone(request, [&](const CallTools& tools) {
        JoinedContent content(listedFile(target, request.replace, *request.decode,
                                         resumes ? std::optional(how.resumedFrom) : std::nullopt,
                                         std::move(how.onTemporary)),
                              {});
        Response response = State::join(content, request, tools, true);
        if (!response.file.empty()) {
            file.Content = content.release();
        }
        return response;
    });
}

void Client::interrupt() noexcept {
    if (Own) {
        Own->interrupt();
    }
}

Response get(std::string url, Request more) {
    return Client().get(std::move(url), std::move(more));
}

Response head(std::string url, Request more) {
    return Client().head(std::move(url), std::move(more));
}

Response del(std::string url, Request more) {
    return Client().del(std::move(url), std::move(more));
}

Response post(std::string url, Body body, Request more) {
    return Client().post(std::move(url), std::move(body), std::move(more));
}

Response put(std::string url, Body body, Request more) {
    return Client().put(std::move(url), std::move(body), std::move(more));
}

Response patch(std::string url, Body body, Request more) {
    return Client().patch(std::move(url), std::move(body), std::move(more));
}

Response request(Request request) {
    return Client().request(std::move(request));
}

Response save(std::string url, std::filesystem::path target, Request more) {
    return Client().save(std::move(url), std::move(target), std::move(more));
}

} // namespace netrove
