// The speed of calls, on a clock that the test moves.
#include "tests/client/ErrorOf.h"

#include <gtest/gtest.h>
#include <netrove/client.h>
#include <netrove/ratelimit.h>
#include <netrove/testing.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

using namespace netrove;
using namespace std::chrono_literals;
using clienttest::errorOf;
using netrove::testing::Script;

namespace {

using Time = RateLimit::Clock::time_point;

constexpr Time kStart{std::chrono::hours(1)};

// Seconds that one transfer of `bytes` takes if nothing else holds it up.
double secondsFor(RateLimit& limit, std::uint64_t bytes) {
    Time now = kStart;
    for (std::uint64_t left = bytes; left != 0;) {
        const std::uint64_t count = std::min(left, limit.step());
        now = std::max(now, limit.take("a:80", count, now));
        left -= count;
    }
    return std::chrono::duration<double>(now - kStart).count();
}

TEST(RateLimit, HoldsItsSpeedOverSomeSeconds) {
    struct Row {
        RateLimit::Rates Rates;
        std::uint64_t Bytes;
        double Seconds;
    };
    const Row rows[] = {
        {{.total = 1}, 10, 10},
        {{.total = 1000}, 5000, 5},
        {{.total = 10 << 20}, 50 << 20, 5},
        {{.host = 100'000}, 300'000, 3},
        {{.total = 1000, .host = 500}, 5000, 10},
        {{.total = 500, .host = 1000}, 5000, 10},
        {{.total = std::uint64_t{10} << 30}, std::uint64_t{20} << 30, 2},
    };
    for (const Row& row : rows) {
        RateLimit limit(row.Rates);
        EXPECT_NEAR(secondsFor(limit, row.Bytes), row.Seconds, row.Seconds * 0.06)
            << row.Rates.total << " " << row.Rates.host;
    }
}

TEST(RateLimit, WithoutARateNothingWaits) {
    RateLimit limit({});
    EXPECT_EQ(secondsFor(limit, 1 << 20), 0);
}

TEST(RateLimit, TransfersShareTheTotalAndHostsHaveTheirOwn) {
    RateLimit total({.total = 1000});
    RateLimit hosts({.host = 1000});
    Time ofTotal = kStart;
    Time ofHosts = kStart;
    for (int i = 0; i < 20; ++i) {
        for (const char* host : {"a:80", "b:80"}) {
            ofTotal = std::max(ofTotal, total.take(host, 100, kStart));
            ofHosts = std::max(ofHosts, hosts.take(host, 100, kStart));
        }
    }
    EXPECT_NEAR(std::chrono::duration<double>(ofTotal - kStart).count(), 4, 0.2);
    EXPECT_NEAR(std::chrono::duration<double>(ofHosts - kStart).count(), 2, 0.2);
}

TEST(RateLimit, WhatWasNotUsedIsNotMadeUpForLater) {
    RateLimit limit({.total = 1000});
    limit.take("a:80", 1000, kStart);
    const Time later = kStart + 1h;
    EXPECT_GE(limit.take("a:80", 1000, later), later + 900ms);
}

TEST(RateLimit, AHostThatWaitsIsNotForgottenForManyOthers) {
    RateLimit limit({.host = 10});
    const Time busy = limit.take("busy:80", 100'000, kStart);
    for (int i = 0; i < 5000; ++i) {
        limit.take("host" + std::to_string(i) + ":80", 1, kStart + std::chrono::seconds(i));
    }
    EXPECT_GT(limit.take("busy:80", 1, kStart + 5000s), busy);
}

// Calls: over the system's clock, at speeds at which a wait that is not ended would outlast any test.

Request slowly(std::function<void(const Progress&)> progress, std::stop_token stop = {}) {
    return {.limits = {.total = kUnlimited},
            .retry = {.attempts = 1},
            .progress = std::move(progress),
            .rate = std::make_shared<RateLimit>(RateLimit::Rates{.total = 1}),
            .stop = std::move(stop)};
}

TEST(RateLimit, AStopEndsAWaitAtOnce) {
    Script script{{.content = std::string(1 << 20, 'x')}};
    Client client({}, script.transport());
    std::stop_source stop;
    const Error error = errorOf([&] {
        client.get("http://a.example/", slowly([&](const Progress&) { stop.request_stop(); }, stop.get_token()));
    });
    EXPECT_EQ(error.kind(), ErrorKind::Interrupted);
    EXPECT_EQ(error.response().content, "x") << "content goes on in steps";
}

TEST(RateLimit, AStopEndsAWaitOfContentThatIsSent) {
    Script script{{}};
    Client client({}, script.transport());
    std::stop_source stop;
    Request request = slowly({}, stop.get_token());
    request.url = "http://a.example/";
    request.body = generator([&]() -> std::span<const std::byte> {
        static constexpr std::byte kByte[2] = {};
        stop.request_stop();
        return kByte;
    });
    EXPECT_EQ(errorOf([&] { client.request(request); }).kind(), ErrorKind::Interrupted);
}

TEST(RateLimit, TheLimitsOfACallEndAWait) {
    Script script{{.content = std::string(1 << 20, 'x')}};
    Client client({}, script.transport());
    Request request = slowly({});
    request.limits.total = 10ms;
    EXPECT_EQ(errorOf([&] { client.get("http://a.example/", request); }).identifier(), "NETROVE:client:TotalTime");
}

TEST(RateLimit, ContentIsWholeInBothDirections) {
    const std::string content(300'000, 'c');
    Script script{{.content = content}};
    Client client({}, script.transport());
    const auto rate = std::make_shared<RateLimit>(RateLimit::Rates{.total = std::uint64_t{1} << 40});
    EXPECT_EQ(client.post("http://a.example/", text(content), {.rate = rate}).content, content);
    EXPECT_EQ(script.requests().at(0).content, content);
}

} // namespace
