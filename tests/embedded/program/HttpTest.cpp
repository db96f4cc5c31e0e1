// Header fields and time limits on their way into and out of a connection.
#include "vantik/Http.h"

#include "tests/embedded/program/ProgramFixture.h"

#include <cmath>

using namespace std::chrono_literals;
using Fields = std::vector<vantik::HttpField>;
using Http = ProgramFixture;

TEST_F(Http, FieldsGoInAndComeOutInOrder) {
    const Fields fields = {{"Accept", "text/plain"}, {"X-A", "1"}, {"X-A", "2"}, {"Expect", ""}};
    const Array value = vantik::httpFields(fields);
    EXPECT_EQ(shapeOf(value.handle()), "1-by-4 struct");
    EXPECT_EQ(value.fieldNames(), (std::vector<std::string>{"Name", "Value"}));
    EXPECT_EQ(value.field("Value", 2).text(), "2");
    EXPECT_EQ(vantik::readHttpFields(value), fields);
    EXPECT_EQ(vantik::readHttpFields(vantik::httpFields({{"Accept", "a/b"}})), (Fields{{"Accept", "a/b"}}));
    EXPECT_EQ(vantik::readHttpFields(vantik::httpFields(Fields())), Fields());
    const Array sparse = Array::structure({{"Name", "X"}, {"Value", Array()}});
    EXPECT_EQ(vantik::readHttpFields(sparse), (Fields{{"X", ""}})) << "without a value it is empty";
}

TEST_F(Http, NameThatIsNotATokenIsRefused) {
    EXPECT_EQ(failureOf([] { vantik::httpFields({{"!#$%&'*+-.^_`|~09AZaz", "x"}}); }), "");
    for (const std::string name : {"", "a b", "a:", "a\r\nb", "\xC3\xBC", "(a)", "a\t", "a\x7F"}) {
        const Fields fields = {{name, "x"}};
        EXPECT_EQ(failureOf([&] { vantik::httpFields(fields); }), "VANTIK:host:InvalidFieldName(" + name + ")");
    }
}

TEST_F(Http, ValueThatWouldEndItsFieldIsRefusedAndNotRepeated) {
    for (const std::string& value :
         {std::string("a\r\nb"), std::string("a\n"), std::string("\r"), std::string("secret\0x", 8)}) {
        const Fields fields = {{"Good", "x"}, {"Authorization", value}};
        EXPECT_EQ(failureOf([&] { vantik::httpFields(fields); }), "VANTIK:host:InvalidFieldValue(Authorization)");
    }
    EXPECT_EQ(failureOf([] { vantik::httpFields({{"X", "tab\tand \xC3\xBC"}}); }), "");
}

TEST_F(Http, WhatIsNotAListOfFieldsIsRefused) {
    EXPECT_EQ(failureOf([] { vantik::readHttpFields(Array()); }), "VANTIK:vx:ExpectedClass(struct, )");
    EXPECT_EQ(failureOf([] { vantik::readHttpFields(Array("text")); }), "VANTIK:vx:ExpectedClass(struct, char)");
    const Array nameless = Array::structure({{"Name", "x"}});
    EXPECT_EQ(failureOf([&] { vantik::readHttpFields(nameless); }), "VANTIK:vx:NoSuchField(Value)");
}

TEST(HttpSecrets, ValuesOfSecretFieldsAreReplaced) {
    for (const auto& [text, shown] : std::vector<std::pair<std::string, std::string>>{
             {"", ""},
             {"no head at all", "no head at all"},
             {"Authorization: Bearer abc", "Authorization: ***"},
             {"AUTHORIZATION:abc\r\nHost: h\r\n", "AUTHORIZATION: ***\r\nHost: h\r\n"},
             {"a head:\r\nproxy-authorization \t: abc\nX: y", "a head:\r\nproxy-authorization: ***\nX: y"},
             {"cookie: a=1; b=2\nset-cookie: c=3\n", "cookie: ***\nset-cookie: ***\n"},
             {"Set-Cookie:", "Set-Cookie: ***"},
             {"Cookie: a\r\n b\n\tc\r\nHost: h", "Cookie: ***\r\nHost: h"},
             {"the line 'Cookie: a' is bad", "the line 'Cookie: ***"},
             {"Cookie: a\rb", "Cookie: ***"},
             {"X-Authorization: a\nCookies: b\nCookie\nAuthorization = c",
              "X-Authorization: a\nCookies: b\nCookie\nAuthorization = c"},
             {"Cookie: ***", "Cookie: ***"},
         }) {
        EXPECT_EQ(vantik::withoutSecrets(text), shown);
        EXPECT_EQ(vantik::withoutSecrets(shown), shown) << "once is enough";
    }
}

// Where the piece begins is not known, so that no name in it can be told from a value.
TEST(HttpSecrets, BytesOfAHeadThatWasCutAreCounted) {
    for (const std::string& piece : {std::string("Authorization: Bearer abc"), std::string("ization: Bearer abc"),
                                     std::string("abc: def\r"), std::string("abc\0\r\nCookie: d", 15)}) {
        const std::string shown =
            "A state: CRLF not found in headers (" + std::to_string(piece.size()) + " bytes, not shown)";
        EXPECT_EQ(vantik::withoutSecrets("A state: CRLF not found in headers:\n" + piece), shown);
        EXPECT_EQ(vantik::withoutSecrets(shown), shown);
    }
    EXPECT_EQ(vantik::withoutSecrets("CRLF not found at the end of the received headers"),
              "CRLF not found at the end of the received headers");
}

TEST_F(Http, LimitsAreMilliseconds) {
    const Array limits = vantik::httpTimeouts({.Connect = 2s, .Response = 1500us, .Data = 1min});
    EXPECT_EQ(shapeOf(limits.handle()), "1-by-3 double");
    EXPECT_EQ(limits.doubles(), (std::vector<double>{2000, 1.5, 60000}));
    EXPECT_EQ(vantik::httpTimeouts().doubles(), (std::vector<double>{10000, 60000, 60000}));
}

TEST_F(Http, LongerThanTheClassCanStoreMeansNoLimit) {
    const Array limits = vantik::httpTimeouts({.Connect = vantik::kNoLimit,
                                               .Response = vantik::Milliseconds(2147483648.0),
                                               .Data = std::chrono::nanoseconds::max()});
    EXPECT_EQ(limits.doubles(), (std::vector<double>(3, INFINITY)));
    EXPECT_EQ(vantik::httpTimeouts({.Response = vantik::Milliseconds(2147483647.0)}).doubles()[1], 2147483647.0);
}

TEST_F(Http, LimitNotAboveZeroIsRefused) {
    for (const double limit : {0.0, -1.0, std::nan(""), -double(INFINITY)}) {
        const vantik::Milliseconds time(limit);
        const std::string expected = "VANTIK:host:InvalidTimeLimit(" + std::to_string(limit) + ")";
        EXPECT_EQ(failureOf([&] { vantik::httpTimeouts({.Connect = time}); }), expected);
        EXPECT_EQ(failureOf([&] { vantik::httpTimeouts({.Response = time}); }), expected);
        EXPECT_EQ(failureOf([&] { vantik::httpTimeouts({.Data = time}); }), expected);
    }
}
