#include "client/exchange/Redirects.h"

#include "client/request/RequestChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>
#include <netrove/testing.h>

using namespace netrove;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

netrove::testing::Answer redirect(int status, std::string location, Fields more = {}) {
    more.add("Location", std::move(location));
    return {.status = status, .fields = std::move(more)};
}

// Which method arrives after a redirect, and whether the content does (RFC 9110, sections 15.4.2 to 15.4.9).
struct MethodRow {
    int Status;
    std::string Method;
    std::string Then;
    bool KeepsContent;
};

class RedirectedMethod : public ::testing::TestWithParam<MethodRow> {};

TEST_P(RedirectedMethod, ArrivesAsTheStatusSays) {
    const MethodRow& row = GetParam();
    netrove::testing::Script script{redirect(row.Status, "/there"), {.content = "done"}};
    Client client({}, script.transport());
    const bool sends = row.Method != "GET" && row.Method != "HEAD";
    const Response response = client.request({.url = "http://a.example/here",
                                              .method = row.Method,
                                              .fields = {{"Content-Language", "en"}, {"X-Mine", "1"}},
                                              .body = sends ? text("content") : Body()});
    EXPECT_EQ(response.url, "http://a.example/there");
    const auto requests = script.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].method, row.Then);
    EXPECT_EQ(requests[1].content, row.KeepsContent ? "content" : "");
    EXPECT_EQ(requests[1].fields.contains("Content-Language"), row.KeepsContent || !sends);
    EXPECT_EQ(requests[1].fields["X-Mine"], "1");
}

INSTANTIATE_TEST_SUITE_P(Redirects, RedirectedMethod,
                         ::testing::Values(MethodRow{303, "POST", "GET", false}, MethodRow{303, "PUT", "GET", false},
                                           MethodRow{303, "HEAD", "HEAD", false}, MethodRow{301, "POST", "GET", false},
                                           MethodRow{302, "POST", "GET", false}, MethodRow{301, "PUT", "PUT", true},
                                           MethodRow{302, "PATCH", "PATCH", true}, MethodRow{307, "POST", "POST", true},
                                           MethodRow{308, "PUT", "PUT", true}, MethodRow{307, "GET", "GET", false}),
                         [](const auto& info) { return std::to_string(info.param.Status) + info.param.Method; });

TEST(Redirects, ContentThatCannotBeRepeatedMakesThe307TheResponse) {
    netrove::testing::Script script{redirect(307, "/there")};
    Client client({}, script.transport());
    bool given = false;
    const Body once = generator([&]() -> std::span<const std::byte> {
        static constexpr std::byte piece[] = {std::byte{'x'}};
        return std::exchange(given, true) ? std::span<const std::byte>() : piece;
    });
    EXPECT_EQ(client.post("http://a.example/", once).status, 307);
}

// What stays behind when scheme, host or port changes (RFC 9110, section 15.4), and never comes back.
struct OriginRow {
    std::string Name;
    std::string Target;
    bool Keeps;
};

class RedirectedOrigin : public ::testing::TestWithParam<OriginRow> {};

TEST_P(RedirectedOrigin, DecidesWhatIsStillSent) {
    netrove::testing::Script script{redirect(302, GetParam().Target), redirect(302, "https://a.example/back"), {}};
    Client client({}, script.transport());
    client.get("https://a.example/", {.fields = {{"Authorization", "Basic eA=="},
                                                 {"Cookie", "a=b"},
                                                 {"Proxy-Authorization", "Basic eA=="},
                                                 {"Host", "other"},
                                                 {"If-Match", "\"1\""},
                                                 {"X-Key", "secret"},
                                                 {"X-Mine", "1"}},
                                      .login = {.user = "ada", .password = "x"},
                                      .redirects = {.downgrade = true, .secret = {"x-key"}}});
    const auto requests = script.requests();
    ASSERT_EQ(requests.size(), 3u);
    for (const std::size_t hop : {1u, 2u}) {
        for (const char* name : {"Authorization", "Cookie", "Proxy-Authorization", "Host", "If-Match", "X-Key"}) {
            EXPECT_EQ(requests[hop].fields.contains(name), GetParam().Keeps) << name << " in request " << hop;
        }
        EXPECT_EQ(requests[hop].fields["X-Mine"], "1");
    }
}

INSTANTIATE_TEST_SUITE_P(Redirects, RedirectedOrigin,
                         ::testing::Values(OriginRow{"SamePort", "https://A.EXAMPLE:443/x", true},
                                           OriginRow{"Scheme", "http://a.example/x", false},
                                           OriginRow{"Host", "https://b.example/x", false},
                                           OriginRow{"Port", "https://a.example:444/x", false}),
                         [](const auto& info) { return info.param.Name; });

TEST(Redirects, LoginStaysBehindOnAnotherOrigin) {
    Request first = {.url = "http://a.example/", .login = {.user = "ada", .password = "x"}};
    complete(first, {});
    RedirectChain chain(first);
    Head head{.status = 302};
    head.redirectUrl = "http://a.example/2";
    const Request same = chain.next(first, head);
    EXPECT_EQ(same.login.user, "ada");
    head.redirectUrl = "http://b.example/";
    const Request other = chain.next(same, head);
    EXPECT_EQ(other.login.user, "");
    EXPECT_EQ(other.login.password, "");
    head.redirectUrl = "http://a.example/3";
    EXPECT_EQ(chain.next(other, head).login.user, "");
}

// What a Location becomes (RFC 3986, section 5; RFC 9110, section 10.2.2), and what is refused.
TEST(Redirects, LocationIsResolvedAgainstTheUrl) {
    const std::string base = "http://a.example/b/c?q#frag";
    for (const auto& [location, url] :
         std::initializer_list<std::pair<const char*, const char*>>{{"d", "http://a.example/b/d#frag"},
                                                                    {"../e", "http://a.example/e#frag"},
                                                                    {"?x", "http://a.example/b/c?x#frag"},
                                                                    {"//h.example/", "http://h.example/#frag"},
                                                                    {"/x#own", "http://a.example/x#own"},
                                                                    {"/\xC3\xA9", "http://a.example/%C3%A9#frag"},
                                                                    {"http://[bad", ""}}) {
        EXPECT_EQ(resolvedUrl(base, location), url) << location;
    }
}

struct RefusedRow {
    std::string Name;
    std::string From;
    std::vector<std::string> Locations;
    std::string Identifier;
    std::string Says;
};

class RefusedRedirect : public ::testing::TestWithParam<RefusedRow> {};

TEST_P(RefusedRedirect, IsAnErrorWithTheLastResponse) {
    netrove::testing::Script script{};
    for (const std::string& location : GetParam().Locations) {
        script.add(redirect(302, location, {{"X-Last", location}}));
    }
    Client client({.redirects = {.most = 3}}, script.transport());
    try {
        client.get(GetParam().From);
        FAIL() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::Url);
        EXPECT_EQ(error.identifier(), GetParam().Identifier);
        EXPECT_THAT(error.what(), HasSubstr(GetParam().Says));
        EXPECT_EQ(error.response().status, 302);
        EXPECT_EQ(error.response().fields["X-Last"], GetParam().Locations.back());
        EXPECT_EQ(error.response().hops.size(), GetParam().Locations.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Redirects, RefusedRedirect,
    ::testing::Values(
        RefusedRow{"OtherScheme",
                   "http://a.example/",
                   {"ftp://a.example/x"},
                   "NETROVE:client:RedirectRefused",
                   "neither http nor https: ftp://a.example/x"},
        RefusedRow{"UserName",
                   "http://a.example/",
                   {"http://u:p@b.example/"},
                   "NETROVE:client:RedirectRefused",
                   "with a user name: http://***@b.example/"},
        RefusedRow{"Downgrade",
                   "https://a.example/",
                   {"http://a.example/"},
                   "NETROVE:client:RedirectRefused",
                   "from https to http"},
        RefusedRow{"Circle", "http://a.example/1", {"/2", "/1"}, "NETROVE:client:TooManyRedirects", "in a circle"},
        RefusedRow{"TooMany",
                   "http://a.example/1",
                   {"/2", "/3", "/4", "/5"},
                   "NETROVE:client:TooManyRedirects",
                   "more than 3 redirects"},
        RefusedRow{"NotAUrl",
                   "http://a.example/1",
                   {"http://[bad"},
                   "NETROVE:client:RedirectRefused",
                   "to what is not a valid URL: http://[bad"}),
    [](const auto& info) { return info.param.Name; });

TEST(Redirects, CookiesAreAskedForWithEachRequest) {
    netrove::testing::Script script{redirect(302, "http://b.example/"), {.status = 503}, {.content = "done"}};
    Client client({.retry = {.wait = std::chrono::milliseconds(1)}}, script.transport());
    std::vector<std::string> asked;
    const auto cookies = [&](const std::string& url, const Response* redirect) {
        asked.push_back(url + (redirect != nullptr ? " after " + redirect->url : ""));
        return "n=" + std::to_string(asked.size());
    };
    client.get("http://a.example/", {.fields = {{"Cookie", "mine=1"}}, .cookies = cookies});
    EXPECT_THAT(asked,
                ElementsAre("http://a.example/", "http://b.example/ after http://a.example/", "http://a.example/"));
    const auto requests = script.requests();
    EXPECT_THAT(requests.at(0).fields.all("Cookie"), ElementsAre("mine=1", "n=1"));
    EXPECT_THAT(requests.at(1).fields.all("Cookie"), ElementsAre("n=2")) << "what was set by hand is not for others";
    const auto broken = [](const std::string&, const Response*) { return "a\r\nb"; };
    EXPECT_THROW(client.get("http://a.example/", {.cookies = broken}), Error);
    EXPECT_EQ(script.requests().size(), 3u);
}

TEST(Redirects, TheSameUrlAgainIsFollowedAfterANewCookie) {
    netrove::testing::Script script{redirect(302, "/", {{"Set-Cookie", "seen=1"}}), {.content = "in"}};
    EXPECT_EQ(Client({}, script.transport()).get("http://a.example/").text(), "in");
}

TEST(Redirects, DowngradeAndRefererAreAQuestionOfThePrograms) {
    netrove::testing::Script script{redirect(302, "http://a.example/"), {}};
    Client client({.redirects = {.downgrade = true}}, script.transport());
    const Response response = client.get("https://a.example/", {.fields = {{"Referer", "https://a.example/private"}}});
    EXPECT_EQ(response.url, "http://a.example/");
    EXPECT_FALSE(script.requests()[1].fields.contains("Referer"));
}

TEST(Redirects, AreListedAndCanBeSwitchedOff) {
    netrove::testing::Script script{redirect(302, "/2"), redirect(303, "/3"), {}, redirect(302, "/2")};
    Client client({}, script.transport());
    const Response response = client.post("http://a.example/1", text("x"));
    std::vector<std::string> way;
    for (const Hop& hop : response.redirects()) {
        way.push_back(hop.method + " " + hop.url + " " + std::to_string(hop.status));
    }
    EXPECT_THAT(way, ElementsAre("POST http://a.example/1 302", "GET http://a.example/2 303"));
    EXPECT_EQ(client.get("http://a.example/", {.redirects = {.most = 0}}).status, 302);
}

} // namespace
