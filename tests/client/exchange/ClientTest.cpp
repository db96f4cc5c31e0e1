// Calls over the network: what goes out, what comes back, and whose fault a failure was.
#include "tests/client/ErrorOf.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>

#include <thread>

using namespace netrove;
using namespace std::chrono_literals;
using namespace testsupport;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using clienttest::errorOf;

// Limits that no working test reaches, no proxy of the surroundings, one attempt.
Request direct() {
    return {.proxy = Proxy::none(), .limits = {.response = 60s, .data = 60s}, .retry = {.attempts = 1}};
}

Script answer(std::string bytes) {
    return {step::expectHead(), step::send(std::move(bytes))};
}

TEST(Client, GetReturnsTheResponseWithAllItsParts) {
    ScriptedServer server(answer("HTTP/1.1 203 Fine\r\nContent-Type: text/plain; charset=iso-8859-1\r\nX-A: 1\r\n"
                                 "x-a: 2\r\nContent-Length: 4\r\n\r\ncaf\xE9"));
    Client client(direct());
    const Response response = client.get(server.url("/page"), {.fields = {{"X-Mine", "yes"}}});
    EXPECT_EQ(response.status, 203);
    EXPECT_EQ(response.reason, "Fine");
    EXPECT_EQ(response.version, "HTTP/1.1");
    EXPECT_EQ(response.url, server.url("/page"));
    EXPECT_EQ(response.text(), "caf\xC3\xA9");
    EXPECT_EQ(response.bytes().size(), 4u);
    EXPECT_EQ(response.received, 4u);
    EXPECT_EQ(response.fields["X-A"], "1");
    EXPECT_EQ(response.fields.all("X-a"), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(response.ok());
    const std::string head = server.record().Heads.at(0);
    EXPECT_THAT(head, HasSubstr("GET /page HTTP/1.1\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nX-Mine: yes\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nUser-Agent: netrove/"));
}

TEST(Client, EachVerbSendsItsMethodAndContent) {
    const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    ScriptedServer server(Script{step::expectHead(), step::send(ok), step::expectHead(), step::send(ok),
                                 step::expectHead(), step::expectBody(12), step::send(ok), step::expectHead(),
                                 step::expectBody(4), step::send(ok), step::expectHead(), step::expectBody(2),
                                 step::send(ok)});
    Client client(direct());
    client.head(server.url());
    client.del(server.url());
    client.post(server.url(), form({{"name", "a b"}, {"x", "1"}}));
    client.put(server.url(), text("text"));
    client.patch(server.url(), json("{}"));
    const Record record = server.waitUntilDone();
    EXPECT_EQ(server.connectionCount(), 1u) << "the connection is kept";
    EXPECT_EQ(record.Bodies, (std::vector<std::string>{"name=a+b&x=1", "text", "{}"}));
    const char* lines[] = {"HEAD /", "DELETE /", "POST /", "PUT /", "PATCH /"};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_THAT(record.Heads.at(i), ::testing::StartsWith(lines[i]));
    }
    EXPECT_THAT(record.Heads.at(2), HasSubstr("\r\nContent-Type: application/x-www-form-urlencoded\r\n"));
    EXPECT_THAT(record.Heads.at(4), HasSubstr("\r\nContent-Type: application/json\r\n"));
    EXPECT_THAT(record.Heads.at(4), Not(HasSubstr("Expect:")));
}

TEST(Client, WhatDiffersFromTheCallBeforeIsSentAnew) {
    Script three;
    for (int i = 0; i < 3; ++i) {
        three.insert(three.end(), {step::expectHead(), step::send(response(""))});
    }
    ScriptedServer server(three);
    ScriptedServer proxy(answer(response("")));
    Client client(direct());
    client.get(server.url("/a"), {.fields = {{"X-A", "1"}}});
    client.get(server.url("/b"), {.fields = {{"X-A", "2"}}, .limits = {.response = 50s}});
    client.get("http://elsewhere.invalid/c", {.fields = {{"X-A", "2"}}, .proxy = {.url = proxy.url()}});
    client.get(server.url("/d"));
    const std::vector<std::string> heads = server.waitUntilDone().Heads;
    EXPECT_THAT(heads.at(0), HasSubstr("\r\nX-A: 1\r\n"));
    EXPECT_THAT(heads.at(1), HasSubstr("\r\nX-A: 2\r\n"));
    EXPECT_THAT(proxy.waitUntilDone().Heads.at(0), HasSubstr("GET http://elsewhere.invalid/c HTTP/1.1\r\n"));
    EXPECT_THAT(heads.at(2), Not(HasSubstr("X-A")));
    EXPECT_THAT(heads.at(2), HasSubstr("GET /d HTTP/1.1\r\n"));
}

TEST(Client, UrlsAreIris) {
    ScriptedServer server(answer(response("")));
    Client client({.url = server.url("/base/"), .proxy = Proxy::none()});
    EXPECT_EQ(client.get("\xC3\xA9t\xC3\xA9?q=\xC3\xBC").url, server.url("/base/%C3%A9t%C3%A9?q=%C3%BC"));
}

// Errors

struct FaultRow {
    std::string Name;
    std::function<std::string(ScriptedServer&)> Url;
    Script Answer;
    Request More;
    ErrorKind Kind;
    std::string Says;
};

class ClientFault : public ::testing::TestWithParam<FaultRow> {};

TEST_P(ClientFault, SaysWhatFailedAndWhoseFaultItWas) {
    const FaultRow& row = GetParam();
    ScriptedServer server(row.Answer);
    Client client(direct());
    const Error error = errorOf([&] { client.get(row.Url(server), row.More); });
    EXPECT_EQ(error.kind(), row.Kind) << nameOf(error.kind()) << ": " << error.what();
    EXPECT_THAT(error.what(), HasSubstr(row.Says));
    EXPECT_THAT(error.what(), Not(HasSubstr("secret")));
    EXPECT_THAT(error.what(), Not(HasSubstr("\n")));
    EXPECT_FALSE(error.identifier().empty());
}

std::string atServer(ScriptedServer& server) {
    return server.url();
}

INSTANTIATE_TEST_SUITE_P(
    Client, ClientFault,
    ::testing::Values(
        FaultRow{"Reset",
                 atServer,
                 {step::expectHead(), step::reset()},
                 {},
                 ErrorKind::Connect,
                 "reset the connection before its response"},
        FaultRow{"NoAnswer",
                 atServer,
                 {step::expectHead(), step::close()},
                 {},
                 ErrorKind::Connect,
                 "closed the connection without a response"},
        FaultRow{"NotHttp", atServer, answer("hello\r\n\r\n"), {}, ErrorKind::Content, "does not speak HTTP"},
        FaultRow{"Short",
                 atServer,
                 {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour"), step::close()},
                 {},
                 ErrorKind::Content,
                 "is incomplete: 4 of 9 bytes came; the connection was closed 5 bytes before the end"},
        FaultRow{"NoLastChunk",
                 atServer,
                 {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nfour\r\n"),
                  step::close()},
                 {},
                 ErrorKind::Content,
                 "is incomplete: 4 bytes came; the connection was closed before the last chunk"},
        FaultRow{"Silence",
                 atServer,
                 {step::expectHead()},
                 {.limits = {.response = 100ms}},
                 ErrorKind::Timeout,
                 " for 0.100 s, the limit `response`"},
        FaultRow{"SilenceInContent",
                 atServer,
                 {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour")},
                 {.limits = {.data = 100ms}},
                 ErrorKind::Timeout,
                 "the limit `data`"},
        FaultRow{"TotalTime",
                 atServer,
                 {step::expectHead()},
                 {.limits = {.total = 100ms}},
                 ErrorKind::Timeout,
                 "the limit `total`"},
        FaultRow{"Status",
                 atServer,
                 answer("HTTP/1.1 404 Gone Fishing\r\nContent-Length: 4\r\n\r\npage"),
                 {},
                 ErrorKind::Status,
                 "the server answered 404 Gone Fishing for http://127.0.0.1"},
        FaultRow{"UnknownHost",
                 [](ScriptedServer&) { return "http://nosuch.invalid/"; },
                 {},
                 {},
                 ErrorKind::Name,
                 "no such host: nosuch.invalid"},
        FaultRow{"Refused",
                 [](ScriptedServer&) { return "http://127.0.0.1:1/"; },
                 {},
                 {},
                 ErrorKind::Connect,
                 "no connection to 127.0.0.1:1"},
        FaultRow{"NoTls",
                 [](ScriptedServer& server) { return "https://" + server.authority(); },
                 {step::send("HTTP/1.1 400 Bad\r\n\r\n"), step::close()},
                 {},
                 ErrorKind::Tls,
                 " does not speak TLS on this port"},
        FaultRow{"NoScheme",
                 [](ScriptedServer&) { return "me:secret@example.org/x"; },
                 {},
                 {},
                 ErrorKind::Url,
                 "has the scheme \"***\""},
        FaultRow{"OtherScheme", [](ScriptedServer&) { return "ftp://example.org/"; }, {}, {}, ErrorKind::Url, "ftp"},
        FaultRow{"DeadProxy",
                 atServer,
                 {},
                 {.proxy = {.url = "me:secret@127.0.0.1:1"}},
                 ErrorKind::Proxy,
                 "no connection to the proxy 127.0.0.1:1"},
        FaultRow{"UnknownProxy",
                 atServer,
                 {},
                 {.proxy = {.url = "nosuch.invalid:3128"}},
                 ErrorKind::Proxy,
                 "no such host: the proxy nosuch.invalid:3128"}),
    [](const auto& info) { return info.param.Name; });

// The same with the scripted server as the proxy.
struct ProxyRow {
    std::string Name;
    std::string Scheme; // of the proxy
    std::string Url;
    Script Answer;
    std::string Says;
};

class ProxyFault : public ::testing::TestWithParam<ProxyRow> {};

TEST_P(ProxyFault, NamesTheProxy) {
    const ProxyRow& row = GetParam();
    ScriptedServer proxy(row.Answer);
    Client client(direct());
    const Error error =
        errorOf([&] { client.get(row.Url, {.proxy = {.url = row.Scheme + "me:secret@" + proxy.authority()}}); });
    EXPECT_EQ(error.kind(), ErrorKind::Proxy) << error.what();
    EXPECT_THAT(error.what(), HasSubstr(row.Says));
    EXPECT_THAT(error.what(), HasSubstr(proxy.authority()));
    EXPECT_THAT(error.what(), Not(HasSubstr("secret")));
}

INSTANTIATE_TEST_SUITE_P(
    Client, ProxyFault,
    ::testing::Values(
        ProxyRow{"Reset", "", "http://a.invalid/", {step::expectHead(), step::reset()}, "reset the connection"},
        ProxyRow{
            "ResetByTunnel", "", "https://a.invalid/", {step::expectHead(), step::reset()}, "reset the connection"},
        ProxyRow{
            "ClosedTunnel", "", "https://a.invalid/", {step::expectHead(), step::close()}, "closed the connection"},
        ProxyRow{"RefusedTunnel", "", "https://a.invalid/", answer("HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n"),
                 "did not connect to the server: it answered 403"},
        ProxyRow{"Login", "", "http://a.invalid/", answer("HTTP/1.1 407 Who\r\nContent-Length: 0\r\n\r\n"),
                 "asks for a login: it answered 407"},
        ProxyRow{"LoginOfTunnel", "", "https://a.invalid/", answer("HTTP/1.1 407 Who\r\nContent-Length: 0\r\n\r\n"),
                 "asks for a login: it answered 407"},
        ProxyRow{"NoTls",
                 "https://",
                 "http://a.invalid/",
                 {step::send("HTTP/1.1 400 Bad\r\n\r\n"), step::close()},
                 " does not speak TLS on this port"},
        ProxyRow{"NoTlsForATunnel",
                 "https://",
                 "https://a.invalid/",
                 {step::send("HTTP/1.1 400 Bad\r\n\r\n"), step::close()},
                 " does not speak TLS on this port"},
        ProxyRow{"NoSocks",
                 "socks5://",
                 "http://a.invalid/",
                 {step::send("HTTP/1.1 400 Bad\r\n\r\n"), step::close()},
                 "SOCKS"}),
    [](const auto& info) { return info.param.Name; });

TEST(Client, AResetInTheContentSaysHowMuchHadCome) {
    ScriptedServer server(Script{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour"),
                                 step::await("got"), step::reset()});
    Client client(direct());
    const Error error =
        errorOf([&] { client.stream(server.url(), [&](std::span<const std::byte>) { server.raise("got"); }); });
    EXPECT_EQ(error.kind(), ErrorKind::Connect);
    EXPECT_THAT(error.what(), HasSubstr("reset the connection after 4 bytes of content"));
}

TEST(Client, AnErrorCarriesThePageThatCameWithIt) {
    ScriptedServer server(answer("HTTP/1.1 422 No\r\nX-Why: 1\r\nContent-Length: 4\r\n\r\npage"));
    Client client(direct());
    const Error error = errorOf([&] { client.put(server.url(), text("")); });
    EXPECT_EQ(error.response().status, 422);
    EXPECT_EQ(error.response().fields["X-Why"], "1");
    EXPECT_EQ(error.response().text(), "page");
    EXPECT_TRUE(error.sent());
}

TEST(Client, CheckStatusFalseMakesEveryStatusAResponse) {
    ScriptedServer server(answer("HTTP/1.1 404 No\r\nContent-Length: 4\r\n\r\npage"));
    const Response response = Client(direct()).get(server.url(), {.checkStatus = false});
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.text(), "page");
}

// Values that make no sense are refused before anything is sent.
TEST(Client, RefusesWhatMakesNoSense) {
    Client client(direct());
    const auto refused = [&](Request request, const std::string& says) {
        request.url = "http://127.0.0.1:1/";
        const Error error = errorOf([&] { client.request(request); });
        EXPECT_EQ(error.kind(), ErrorKind::Usage) << error.what();
        EXPECT_THAT(error.what(), HasSubstr(says));
    };
    refused({.method = "GE T"}, "is not a request method");
    refused({.method = "GET", .body = text("x")}, "has no body");
    for (const char* bad : {"a\r\nX: 1", "a\nb", "a\x01", "caf\xC3\xA9"}) {
        refused({.fields = {{"X-A", bad}}}, "'X-A' is not printable ASCII");
    }
    refused({.fields = {{"X-A", std::string("a\0b", 3)}}}, "'X-A' is not printable ASCII");
    refused({.fields = {{"X A", "1"}}}, "'X A' is not the name of a header field");
    refused({.login = {.user = "a:b"}}, "has a colon");
    refused({.login = {.user = "a", .password = "x\ny"}}, "password for the server has control characters");
    refused({.login = {.password = "x"}}, "needs a user name");
    refused({.login = {.user = "a", .bearer = "t"}}, "not both");
    refused({.login = {.bearer = "a b"}}, "characters that a token cannot have");
    refused({.proxy = {.url = "gopher://x"}}, "the proxy cannot be used");
    refused({.limits = {.connect = 0ms}}, "connect is not above zero");
    refused({.limits = {.total = -1ms}}, "total is not above zero");
    refused({.tls = {.verify = false, .file = "ca.pem"}}, "tls.verify");
    refused({.redirects = {.most = -1}}, "redirects.most is below zero");
    refused({.retry = {.attempts = 0}}, "retry.attempts is not above zero");
    refused({.resume = true}, "are for save");
    EXPECT_THROW(Client({.method = "PUT"}), Error);
    EXPECT_THROW(client.get("http://a/", {.url = "http://b/"}), Error);
    EXPECT_THROW(client.put("http://a/", text("x"), {.body = text("y")}), Error);
}

TEST(Client, ContentBeyondTheMemoryLimitIsRefused) {
    ScriptedServer server(answer(response(std::string(2000, 'x'))));
    const Error error = errorOf([&] { Client(direct()).get(server.url(), {.limits = {.memory = 1000}}); });
    EXPECT_EQ(error.identifier(), "NETROVE:client:ContentTooLarge");
    EXPECT_THAT(error.what(), HasSubstr("`memory`"));
}

// By what is announced nothing has been written yet; by what comes, no more than the limit.
TEST(Client, ContentBeyondItsLimitIsRefused) {
    struct Row {
        std::string Answer;
        std::uint64_t Limit;
        std::string Passed;
        std::vector<Error::Argument> Arguments; // empty: it fits
    };
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const Row rows[] = {
        {response("12345"), 4, "", {std::int64_t{4}, std::int64_t{5}}},
        {response("12345"), 5, "12345", {}},
        {response(""), 0, "", {}},
        {chunked + "3\r\nabc\r\n0\r\n\r\n", 3, "abc", {}},
        {chunked + "5\r\nabcde\r\n0\r\n\r\n", 4, "", {std::int64_t{4}, std::int64_t{-1}}},
    };
    for (const Row& row : rows) {
        ScriptedServer server(answer(row.Answer));
        Request request = direct();
        request.limits.content = row.Limit;
        std::string passed;
        const auto take = [&](std::span<const std::byte> piece) {
            passed.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        };
        Client client(request);
        if (row.Arguments.empty()) {
            client.stream(server.url(), take);
        } else {
            const Error error = errorOf([&] { client.stream(server.url(), take); });
            EXPECT_EQ(error.identifier(), "NETROVE:client:ContentLimit");
            EXPECT_EQ(error.kind(), ErrorKind::Content);
            EXPECT_EQ(error.arguments(), row.Arguments);
        }
        EXPECT_EQ(passed, row.Passed) << row.Answer;
    }
}

TEST(Client, CompressedContentIsAskedForAndDecoded) {
    // "compressed" by gzip
    const std::string gzip =
        std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) +
        std::string("\x4b\xce\xcf\x2d\x28\x4a\x2d\x2e\x4e\x4d\x01\0\x1e\x4b\x56\x97\x0a\0\0\0", 20);
    const std::string coded =
        "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " + std::to_string(gzip.size()) + "\r\n\r\n" +
        gzip;
    ScriptedServer server(Script{step::expectHead(), step::send(coded), step::expectHead(), step::send(coded)});
    Client client(direct());
    EXPECT_EQ(client.get(server.url(), {.compressed = true}).text(), "compressed");
    EXPECT_EQ(client.get(server.url()).text(), "compressed");
    const Record record = server.waitUntilDone();
    EXPECT_THAT(record.Heads.at(0), HasSubstr("\r\nAccept-Encoding: deflate, gzip"));
    EXPECT_THAT(record.Heads.at(1), Not(HasSubstr("Accept-Encoding")));
}

// Logins

TEST(Client, StreamedContentIsSentOnceTheSchemeIsKnown) {
    const std::string challenge = "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"Digest, x\"\r\n"
                                  "Connection: close\r\nContent-Length: 0\r\n\r\n";
    ScriptedServer server({Script{step::expectHead(), step::expectBody(7), step::send(challenge)},
                           Script{step::expectHead(), step::expectBody(7), step::send(response("in"))}});
    int starts = 0;
    const Body body = generators(
        [&] {
            ++starts;
            return [left = true]() mutable -> std::span<const std::byte> {
                static constexpr std::string_view content = "content";
                return std::exchange(left, false) ? std::as_bytes(std::span(content)) : std::span<const std::byte>();
            };
        },
        7);
    Client client(direct());
    EXPECT_EQ(client.put(server.url(), body, {.login = {.user = "ada", .password = "x"}}).text(), "in");
    EXPECT_EQ(starts, 2);
    EXPECT_THAT(server.record(0).Heads.at(0), Not(HasSubstr("Authorization")));
    EXPECT_THAT(server.record(1).Heads.at(0), HasSubstr("Authorization: Basic YWRhOng="));
}

TEST(Client, ContentThatCanBeSentOnceNeedsANamedScheme) {
    const auto once = [] {
        return generator([left = true]() mutable -> std::span<const std::byte> {
            static constexpr std::string_view content = "content";
            return std::exchange(left, false) ? std::as_bytes(std::span(content)) : std::span<const std::byte>();
        });
    };
    ScriptedServer server(Script{step::expectHead(), step::expectChunkedBody(), step::send(response("in"))});
    Client client(direct());
    const Error error = errorOf([&] { client.put(server.url(), once(), {.login = {.user = "ada"}}); });
    EXPECT_EQ(error.kind(), ErrorKind::Usage);
    EXPECT_THAT(error.what(), HasSubstr("name the one scheme"));
    EXPECT_EQ(server.connectionCount(), 0u);
    EXPECT_EQ(client.put(server.url(), once(), {.login = {.user = "ada", .schemes = {Scheme::Basic}}}).text(), "in");
    EXPECT_EQ(server.record().Bodies.at(0), "content");
}

TEST(Client, BearerTokensAndUserNamesInUrlsAreLogins) {
    ScriptedServer server(
        Script{step::expectHead(), step::send(response("")), step::expectHead(), step::send(response(""))});
    Client client(direct());
    client.get(server.url(), {.login = {.bearer = "abc.def"}});
    client.get("http://ada:p%40ss@" + server.authority() + "/", {.login = {.schemes = {Scheme::Basic}}});
    const Record record = server.waitUntilDone();
    EXPECT_THAT(record.Heads.at(0), HasSubstr("\r\nAuthorization: Bearer abc.def\r\n"));
    EXPECT_THAT(record.Heads.at(1), HasSubstr("\r\nAuthorization: Basic YWRhOnBAc3M=\r\n"));
}

// Streams, progress, trace

TEST(Client, StreamPassesPiecesOnAndStopsWhereTheConsumerWants) {
    ScriptedServer server(Script{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour"),
                                 step::await("more"), step::send(" more")});
    Client client(direct());
    std::string content;
    const Response response = client.stream(server.url(), [&](std::span<const std::byte> piece) {
        content.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        return false;
    });
    EXPECT_EQ(content, "four");
    EXPECT_FALSE(response.whole);
    EXPECT_EQ(response.received, 4u);
    EXPECT_TRUE(response.bytes().empty());
}

// The server need not wait for the next call to learn that nobody reads on.
TEST(Client, AServerWhoseContentIsNotWantedIsLeftAtOnce) {
    const auto sends = [](const std::string& status, std::string begin) {
        return Script{step::expectHead(),
                      step::send("HTTP/1.1 " + status + "\r\nContent-Length: 9000000\r\n\r\n" + std::move(begin)),
                      step::awaitPeerEnd()};
    };
    Client client(direct());
    ScriptedServer stopped(sends("200 OK", "begin"));
    client.stream(stopped.url(), [](std::span<const std::byte>) { return false; });
    EXPECT_TRUE(stopped.waitUntilDone().PeerEnded);

    ScriptedServer unwanted(sends("200 OK", "begin"));
    client.stream(Request{.url = unwanted.url()}, [](const Response&) { return Taker(); });
    EXPECT_TRUE(unwanted.waitUntilDone().PeerEnded);

    // A page of more than a megabyte, before the wait for the next attempt.
    ScriptedServer failing({sends("503 Busy", std::string(1'100'000, 'x')), answer(response("good"))});
    const auto onWait = [&](const Error&, Limit) { return failing.waitUntilDone().PeerEnded; };
    EXPECT_EQ(client.get(failing.url(), {.retry = {.attempts = 2, .wait = 1ms}, .onWait = onWait}).text(), "good");
}

TEST(Client, ExceptionsOfCallablesArriveUnchangedAndTheClientGoesOn) {
    struct Own {};
    const std::string last = response("next", {"Connection: close"});
    ScriptedServer server({answer(last), answer(last), answer(last)});
    Client client(direct());
    EXPECT_THROW(client.stream(server.url(), [](std::span<const std::byte>) { throw Own(); }), Own);
    const Body bad = generator([]() -> std::span<const std::byte> { throw Own(); });
    EXPECT_THROW(client.put(server.url(), bad), Own);
    EXPECT_EQ(client.get(server.url()).text(), "next");
}

TEST(Client, ProgressCountsBothDirections) {
    ScriptedServer server(Script{step::expectHead(), step::expectBody(7), step::send(response("answer"))});
    std::vector<Progress> seen;
    Client(direct()).put(server.url(),
                         generator(
                             [left = true]() mutable -> std::span<const std::byte> {
                                 static constexpr std::string_view content = "content";
                                 return std::exchange(left, false) ? std::as_bytes(std::span(content))
                                                                   : std::span<const std::byte>();
                             },
                             7),
                         {.progress = [&](const Progress& progress) { seen.push_back(progress); }});
    ASSERT_GE(seen.size(), 2u);
    EXPECT_EQ(seen.front().sent, 7u);
    EXPECT_EQ(seen.front().toSend, 7u);
    EXPECT_EQ(seen.back().sent, 7u);
    EXPECT_EQ(seen.back().received, 6u);
    EXPECT_EQ(seen.back().toReceive, 6u);
}

TEST(Client, TraceShowsHeadsWithoutSecrets) {
    ScriptedServer server(answer("HTTP/1.1 200 OK\r\nSet-Cookie: secret=1\r\nContent-Length: 0\r\n\r\n"));
    std::string trace;
    Client(direct()).get(server.url("/t"), {.login = {.bearer = "secret"}, .trace = [&](const TraceLine& line) {
                                                trace += std::string(1, "*><"[static_cast<int>(line.kind)]) + " " +
                                                         line.text + "\n";
                                            }});
    EXPECT_THAT(trace, HasSubstr("* direct connection (as asked)\n> GET /t HTTP/1.1\n"));
    EXPECT_THAT(trace, HasSubstr("\n> Authorization: ***\n"));
    EXPECT_THAT(trace, HasSubstr("\n< HTTP/1.1 200 OK\n< Set-Cookie: ***\n"));
}

TEST(Client, TheLimitOfOneAttemptIsNothingToTheNext) {
    ScriptedServer server({{step::expectHead()}, {step::expectHead(), step::reset()}});
    const Error error = errorOf([&] {
        Client(direct()).get(server.url(), {.limits = {.attempt = 200ms}, .retry = {.attempts = 2, .wait = 1ms}});
    });
    EXPECT_EQ(error.kind(), ErrorKind::Connect) << error.what();
    EXPECT_EQ(error.response().hops.size(), 2u);
}

TEST(Client, TraceHidesTheFieldsThatARequestCallsSecret) {
    ScriptedServer server(answer(response("")));
    std::string trace;
    Client(direct()).get(server.url(), {.fields = {{"X-Key", "hidden"}},
                                        .redirects = {.secret = {"x-key"}},
                                        .trace = [&](const TraceLine& line) { trace += line.text + "\n"; }});
    EXPECT_THAT(trace, HasSubstr("\nX-Key: ***\n"));
    EXPECT_THAT(trace, Not(HasSubstr("hidden")));
}

// A reader that counts wrongly must not make the library send what is next in memory.
TEST(Client, AReaderThatReturnsMoreThanThereIsRoomForIsRefused) {
    class Liar : public BodyReader {
    public:
        std::size_t read(std::span<std::byte> room) override { return room.size() + 1; }
    };
    for (const std::optional<std::uint64_t> length :
         {std::optional<std::uint64_t>(), std::optional<std::uint64_t>(9)}) {
        ScriptedServer server(answer(""));
        const Body body([] { return std::make_unique<Liar>(); }, length, true, "");
        EXPECT_THAT(errorOf([&] { Client(direct()).put(server.url(), body); }).what(), HasSubstr("room for"));
    }
}

// Stopping, and one call at a time

TEST(Client, AStopTokenEndsTheCallAndTheNextOneWorks) {
    ScriptedServer server({{step::expectHead(), step::signal("asked")}, answer(response("next"))});
    Client client(direct());
    std::stop_source stop;
    std::jthread stopper([&] {
        server.waitFor("asked");
        stop.request_stop();
    });
    const Error error = errorOf([&] { client.get(server.url(), {.stop = stop.get_token()}); });
    EXPECT_EQ(error.kind(), ErrorKind::Interrupted) << error.what();
    EXPECT_EQ(client.get(server.url()).text(), "next");
    EXPECT_EQ(errorOf([&] { client.get(server.url(), {.stop = stop.get_token()}); }).kind(), ErrorKind::Interrupted);
}

TEST(Client, AStopEndsTheWaitForTheNextAttempt) {
    ScriptedServer server(answer("HTTP/1.1 503 Busy\r\nRetry-After: 3600\r\nContent-Length: 0\r\n\r\n"));
    Client client(direct());
    std::stop_source stop;
    const auto onTrace = [&](const TraceLine& line) {
        if (line.text.find("tries again") != line.text.npos) {
            stop.request_stop();
        }
    };
    const Error error = errorOf([&] {
        client.get(server.url(),
                   {.retry = {.attempts = 2, .longestWait = 2h}, .trace = onTrace, .stop = stop.get_token()});
    });
    EXPECT_EQ(error.kind(), ErrorKind::Interrupted) << error.what();
}

// A program whose signals are noticed only where it asks for them.
TEST(Client, WhatThePollThrowsEndsTheCallUnchanged) {
    for (const Script& script :
         {Script{step::expectHead()}, answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf")}) {
        ScriptedServer server({script, answer(response("next"))});
        Client client(direct());
        bool asked = false;
        const auto poll = [&] {
            asked = asked || (server.connectionCount() != 0 && server.record().AllDone);
            if (asked) {
                throw std::domain_error("of the program");
            }
        };
        EXPECT_THROW(client.get(server.url(), {.poll = poll}), std::domain_error);
        EXPECT_EQ(client.get(server.url(), {.poll = [] {}}).text(), "next");
    }
}

TEST(Client, InterruptStopsTheCallUnderWayOrTheNextOneOnly) {
    ScriptedServer server(answer(response("in")));
    Client client(direct());
    client.interrupt();
    EXPECT_EQ(errorOf([&] { client.get(server.url()); }).kind(), ErrorKind::Interrupted);
    EXPECT_EQ(client.get(server.url()).text(), "in");
}

TEST(Client, ACallFromWithinACallIsRefused) {
    ScriptedServer server(answer(response("in")));
    Client client(direct());
    std::string inner;
    client.stream(server.url(), [&](std::span<const std::byte>) {
        inner = errorOf([&] { client.get(server.url()); }).identifier();
        return true;
    });
    EXPECT_EQ(inner, "NETROVE:client:InUse");
}

TEST(Client, CanBeMovedWithItsConnection) {
    ScriptedServer server(
        Script{step::expectHead(), step::send(response("1")), step::expectHead(), step::send(response("2"))});
    Client first(direct());
    first.get(server.url());
    Client second(std::move(first));
    EXPECT_EQ(second.get(server.url()).text(), "2");
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(Client, CookiesLastForOneCall) {
    ScriptedServer server(
        Script{step::expectHead(),
               step::send("HTTP/1.1 302 Go\r\nSet-Cookie: a=1\r\nLocation: /2\r\nContent-Length: 0\r\n\r\n"),
               step::expectHead(), step::send(response("")), step::expectHead(), step::send(response(""))});
    Client client(direct());
    client.get(server.url());
    client.get(server.url());
    const Record record = server.waitUntilDone();
    EXPECT_THAT(record.Heads.at(1), HasSubstr("\r\nCookie: a=1\r\n"));
    EXPECT_THAT(record.Heads.at(2), Not(HasSubstr("Cookie")));
}

} // namespace
