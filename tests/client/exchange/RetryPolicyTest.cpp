#include "client/exchange/RetryPolicy.h"

#include "client/request/RequestChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>
#include <netrove/testing.h>

using namespace netrove;
using namespace std::chrono_literals;
using netrove::testing::Fault;
using ::testing::HasSubstr;

namespace {

using Answer = netrove::testing::Answer;

// A client that does not really wait.
Client quick(const netrove::testing::Script& script, Retry retry = {}) {
    retry.wait = 1ms;
    return Client({.retry = retry}, script.transport());
}

// What is tried again: the first answer, how the request went out, and whether there was a second one.
struct RetryRow {
    std::string Name;
    std::string Method;
    Answer First;
    bool Again;
    Retry Settings = {};
};

class RetriedRequest : public ::testing::TestWithParam<RetryRow> {};

TEST_P(RetriedRequest, IsSentAgainWhereThatIsSafe) {
    const RetryRow& row = GetParam();
    netrove::testing::Script script{row.First, {.content = "second"}};
    Client client = quick(script, row.Settings);
    const Body body = row.Method == "POST" || row.Method == "PUT" || row.Method == "PATCH" ? text("x") : Body();
    std::string content;
    try {
        const Response response = client.request({.url = "http://a.example/", .method = row.Method, .body = body});
        content = response.text();
        EXPECT_EQ(response.attempts, 2);
        EXPECT_FALSE(response.hops.front().failure.empty());
    } catch (const Error& error) {
        EXPECT_EQ(error.response().attempts, 1);
    }
    EXPECT_EQ(content, !row.Again || row.Method == "HEAD" ? "" : "second");
    EXPECT_EQ(script.left(), row.Again ? 0u : 1u);
}

Answer status(int number, Fields fields = {}) {
    return {.status = number, .fields = std::move(fields)};
}

INSTANTIATE_TEST_SUITE_P(
    RetryPolicy, RetriedRequest,
    ::testing::Values(RetryRow{"GetAfterReset", "GET", {.fault = Fault::Reset}, true},
                      RetryRow{"HeadAfterReset", "HEAD", {.fault = Fault::Reset}, true},
                      RetryRow{"PutAfterReset", "PUT", {.fault = Fault::Reset}, true},
                      RetryRow{"DeleteAfterReset", "DELETE", {.fault = Fault::Reset}, true},
                      RetryRow{"OptionsAfterReset", "OPTIONS", {.fault = Fault::Reset}, true},
                      RetryRow{"PostAfterReset", "POST", {.fault = Fault::Reset}, false},
                      RetryRow{"PatchAfterReset", "PATCH", {.fault = Fault::Reset}, false},
                      RetryRow{"PostThatWasNotSent", "POST", {.fault = Fault::Refused}, true},
                      RetryRow{"PostMarkedSafe", "POST", {.fault = Fault::Reset}, true, {.unsafe = true}},
                      RetryRow{"UnknownHost", "GET", {.fault = Fault::UnknownHost}, true},
                      RetryRow{"Timeout", "GET", {.fault = Fault::Timeout}, true},
                      RetryRow{"Short", "GET", {.content = "half", .fault = Fault::Short}, true},
                      RetryRow{"ShortAfterPost", "POST", {.content = "half", .fault = Fault::Short}, false},
                      RetryRow{"Status408", "GET", status(408), true}, RetryRow{"Status429", "GET", status(429), true},
                      RetryRow{"Status502", "GET", status(502), true}, RetryRow{"Status503", "GET", status(503), true},
                      RetryRow{"Status504", "GET", status(504), true}, RetryRow{"Status500", "GET", status(500), false},
                      RetryRow{"Status501", "GET", status(501), false},
                      RetryRow{"Status404", "GET", status(404), false},
                      RetryRow{"Status413", "GET", status(413), false},
                      RetryRow{"Status413WithTime", "GET", status(413, {{"Retry-After", "0"}}), true},
                      RetryRow{"Status503AfterPost", "POST", status(503), false},
                      RetryRow{"StatusOfTheProgram", "GET", status(500), true, {.statuses = std::vector<int>{500}}},
                      RetryRow{"AnyStatus", "GET", status(404), true, {.any = true}},
                      RetryRow{"AnyAfterPost", "POST", status(404), false, {.any = true}},
                      RetryRow{"OneAttempt", "GET", {.fault = Fault::Reset}, false, {.attempts = 1}}),
    [](const auto& info) { return info.param.Name; });

TEST(RetryPolicy, ContentThatCannotBeMadeAgainIsNotSentAgain) {
    netrove::testing::Script script{{.fault = Fault::Refused}, {}};
    Client client = quick(script);
    EXPECT_THROW(client.put("http://a.example/", generator([]() -> std::span<const std::byte> { return {}; })), Error);
    EXPECT_EQ(script.left(), 1u);
}

TEST(RetryPolicy, NoAttemptBeginsAfterTheTimeForThem) {
    netrove::testing::Script script{status(503, {{"Retry-After", "60"}}), {}};
    Client client = quick(script, {.longestWait = kUnlimited, .most = 10s});
    int waits = 0;
    const auto count = [&](const Error&, Limit) { return ++waits > 0; };
    try {
        client.request({.url = "http://a.example/", .onWait = count});
        FAIL() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(error.identifier(), "NETROVE:client:RetryTooLate");
    }
    EXPECT_EQ(waits, 0);
    EXPECT_EQ(script.left(), 1u);
}

TEST(RetryPolicy, EachWaitIsReportedWithItsCause) {
    netrove::testing::Script script{{.fault = Fault::Reset}, status(503, {{"Retry-After", "0"}}), {}};
    Client client = quick(script);
    std::vector<std::pair<ErrorKind, Limit>> seen;
    client.request({.url = "http://a.example/", .onWait = [&](const Error& failure, Limit wait) {
                        seen.emplace_back(failure.kind(), wait);
                        return true;
                    }});
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].first, ErrorKind::Connect);
    EXPECT_LE(seen[0].second, 1ms);
    EXPECT_EQ(seen[1], std::pair(ErrorKind::Status, Limit(0)));
}

TEST(RetryPolicy, ThreeAttemptsAreMadeAndAllAreListed) {
    netrove::testing::Script script{{.fault = Fault::Reset}, {.fault = Fault::Refused}, status(503), {}};
    Client client = quick(script);
    try {
        client.get("http://a.example/");
        FAIL() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::Status);
        EXPECT_EQ(error.response().attempts, 3);
        ASSERT_EQ(error.response().hops.size(), 3u);
        EXPECT_THAT(error.response().hops[0].failure, HasSubstr("reset"));
        EXPECT_THAT(error.response().hops[1].failure, HasSubstr("no connection"));
        EXPECT_EQ(error.response().hops[2].status, 503);
    }
}

// Waits, with a fixed share of the range: what the server asks for, or a random part of a doubled time.
struct WaitRow {
    std::string Name;
    int Attempts;
    std::string RetryAfter;
    std::optional<Limit> Wait; // nothing: the call ends
};

class RetryWait : public ::testing::TestWithParam<WaitRow> {};

TEST_P(RetryWait, IsWhatTheServerAsksForOrRandom) {
    const auto now = WallClock::time_point(std::chrono::sys_days(std::chrono::year(2026) / 11 / 22));
    const RetryPolicy policy([] { return 0.5; }, [&] { return now; });
    Request request = {.url = "http://a/", .retry = {.attempts = 9, .wait = 1s, .longestWait = 30s}};
    complete(request, {});
    const WaitRow& row = GetParam();
    Response response{.status = 503};
    if (!row.RetryAfter.empty()) {
        response.fields.add("Retry-After", row.RetryAfter);
    }
    const Error busy = Error(ErrorKind::Status, "x", {}, "busy").with(response, true);
    if (!row.Wait) {
        try {
            policy.waitAfter(row.Attempts, request, busy, 60s);
            FAIL() << "no error";
        } catch (const Error& error) {
            EXPECT_EQ(error.identifier(), "NETROVE:client:RetryTooLate");
            EXPECT_EQ(std::to_string(std::get<std::int64_t>(error.arguments().at(0))), "120");
        }
        return;
    }
    EXPECT_EQ(policy.waitAfter(row.Attempts, request, busy, 60s), row.Wait);
}

INSTANTIATE_TEST_SUITE_P(
    RetryPolicy, RetryWait,
    ::testing::Values(WaitRow{"First", 1, "", 500ms}, WaitRow{"Second", 2, "", 1000ms},
                      WaitRow{"Fourth", 4, "", 4000ms}, WaitRow{"AtMostTheLongest", 8, "", 15000ms},
                      WaitRow{"Seconds", 1, "7", 7000ms}, WaitRow{"Date", 1, "Sun, 22 Nov 2026 00:00:09 GMT", 9000ms},
                      WaitRow{"DateOfRfc850", 1, "Sunday, 22-Nov-26 00:00:09 GMT", 9000ms},
                      WaitRow{"DateOfAsctime", 1, "Sun Nov 22 00:00:09 2026", 9000ms},
                      WaitRow{"Past", 1, "Sat, 21 Nov 2026 00:00:00 GMT", 0ms}, WaitRow{"BadText", 1, "soon", 500ms},
                      WaitRow{"TooLong", 1, "120", std::nullopt}),
    [](const auto& info) { return info.param.Name; });

TEST(RetryPolicy, NoWaitGoesBeyondTheTotalTime) {
    const RetryPolicy policy([] { return 0.5; }, [] { return WallClock::now(); });
    Request request = {.url = "http://a/"};
    complete(request, {});
    const Error busy =
        Error(ErrorKind::Status, "x", {}, "busy").with({.status = 503, .fields = {{"Retry-After", "20"}}}, true);
    EXPECT_THROW(policy.waitAfter(1, request, busy, 10s), Error);
    EXPECT_EQ(policy.waitAfter(1, request, busy, 25s), 20s);
}

TEST(RetryPolicy, AResponseThatIsWantedWhateverItsStatusIsTriedAgainFirst) {
    netrove::testing::Script script{status(503), status(503), {.status = 503, .content = "busy"}};
    Client client = quick(script);
    const Response response = client.get("http://a.example/", {.checkStatus = false});
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.text(), "busy");
    EXPECT_EQ(response.attempts, 3);
}

} // namespace
