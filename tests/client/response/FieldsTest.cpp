#include <gtest/gtest.h>
#include <netrove/error.h>
#include <netrove/response.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using netrove::Fields;
using netrove::Hop;
using netrove::Response;
using Values = std::vector<std::string>;

TEST(Fields, AreFoundWithoutRegardToCase) {
    const Fields fields = {{"Content-Type", "text/html"}, {"Set-Cookie", "a=1"}, {"set-cookie", "b=2"}, {"Empty", ""}};
    EXPECT_EQ(fields.find("content-TYPE"), "text/html");
    EXPECT_EQ(fields["SET-COOKIE"], "a=1");
    EXPECT_EQ(fields.all("Set-Cookie"), (Values{"a=1", "b=2"}));
    EXPECT_TRUE(fields.contains("empty"));
    EXPECT_EQ(fields["empty"], "");
    EXPECT_FALSE(fields.contains("Content"));
    EXPECT_EQ(fields.find("Content-Types"), std::nullopt);
    EXPECT_EQ(fields["other"], "");
    EXPECT_EQ(fields.all("other"), Values{});
}

TEST(Fields, KeepTheirOrder) {
    Fields fields;
    EXPECT_TRUE(fields.empty());
    fields.add("B", "1");
    fields.add("a", "2");
    fields.add("b", "3");
    EXPECT_EQ(fields, (Fields{{"B", "1"}, {"a", "2"}, {"b", "3"}}));
    fields.set("b", "4");
    EXPECT_EQ(fields, (Fields{{"a", "2"}, {"b", "4"}}));
    fields.set("c", "5");
    fields.erase("A");
    EXPECT_EQ(fields, (Fields{{"b", "4"}, {"c", "5"}}));
    EXPECT_EQ(fields.size(), 2U);
}

TEST(Fields, EraseTakesTheNameOfItsOwnField) {
    Fields fields = {{"X-One-Long-Enough-To-Be-Allocated", "1"}, {"x-one-long-enough-to-be-allocated", "2"}, {"Y", ""}};
    fields.erase(fields.begin()->name);
    EXPECT_EQ(fields, (Fields{{"Y", ""}}));
}

TEST(Response, StatusFrom200To299IsOk) {
    Response response;
    for (const auto& [status, ok] : {std::pair{0, false}, {199, false}, {200, true}, {299, true}, {300, false}}) {
        response.status = status;
        EXPECT_EQ(response.ok(), ok) << status;
    }
}

Hop hop(const std::string& url, int status, const std::string& failure = {}) {
    return {.url = url, .method = "GET", .status = status, .failure = failure};
}

Values redirectsOf(std::vector<Hop> hops) {
    Response response;
    response.hops = std::move(hops);
    Values urls;
    for (const Hop& redirect : response.redirects()) {
        urls.push_back(redirect.url);
    }
    return urls;
}

TEST(Response, RedirectsAreThoseOfTheLastAttempt) {
    EXPECT_EQ(redirectsOf({}), Values{});
    EXPECT_EQ(redirectsOf({hop("a", 200)}), Values{});
    EXPECT_EQ(redirectsOf({hop("a", 302)}), Values{}); // not followed: it is the response
    EXPECT_EQ(redirectsOf({hop("a", 301), hop("b", 302), hop("c", 303), hop("d", 307), hop("e", 308), hop("f", 200)}),
              (Values{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(redirectsOf({hop("a", 302), hop("b", 503), hop("a", 307), hop("c", 200)}), Values{"a"});
    EXPECT_EQ(redirectsOf({hop("a", 302), hop("b", 0, "reset"), hop("c", 200)}), Values{});
    EXPECT_EQ(redirectsOf({hop("a", 302, "cut off"), hop("a", 302), hop("b", 200)}), Values{"a"});
    EXPECT_EQ(redirectsOf({hop("a", 304), hop("b", 200)}), Values{});
}

TEST(Response, JsonIsUtf8WhateverTheTypeSays) {
    Response response;
    response.fields = {{"Content-Type", "application/json;charset=iso-8859-1"}};
    response.content = "\xEF\xBB\xBF{\"name\":\"\xC3\xA9\"}";
    EXPECT_EQ(response.json<nlohmann::json>()["name"], "\xC3\xA9");
    response.content = "no";
    EXPECT_THROW(response.json<nlohmann::json>(), nlohmann::json::parse_error);
}

} // namespace
