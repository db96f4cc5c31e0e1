// Hosts of identifiers: names, their form in ASCII, and addresses.
#include "embedded/iri/IriHost.h"

#include "IriHelpers.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <gtest/gtest.h>

using foundation::network::IRI;

TEST(IriHost, NamesBecomeAscii) {
    const std::pair<std::string, std::string> rows[] = {
        {"Example.COM", "example.com"},
        {"b\u00FCcher.example", "xn--bcher-kva.example"},
        {"B\u00DCCHER.example", "xn--bcher-kva.example"},
        {"b%C3%BCcher.example", "xn--bcher-kva.example"},
        {"xn--bcher-kva.example", "xn--bcher-kva.example"},
        {"stra\u00DFe.example", "xn--strae-oqa.example"},
        {"\u4F8B\u3048.jp", "xn--r8jz45g.jp"},
        {"\u4F8B\u3002\u30C6\u30B9\u30C8", "xn--fsq.xn--zckzah"},
        {"\uFF27\uFF4F.example", "go.example"},
        {"%65xample", "example"},
        {"127.0.0.1", "127.0.0.1"},
        {"my_host", "my_host"},
        {"r3---sn-x.example", "r3---sn-x.example"},
        {"-a-.example", "-a-.example"},
        {"example.com.", "example.com."},
        {"a~b!c$d&e'f(g)h*i+j,k;l=m", "a~b!c$d&e'f(g)h*i+j,k;l=m"},
    };
    for (const auto& [text, form] : rows) {
        const IRI value = iri("http://" + text + "/");
        EXPECT_TRUE(value.hasHost());
        EXPECT_EQ(narrow(value.getHost(IRI::Encoding::Ascii)), form);
        EXPECT_EQ(ascii(value), "http://" + form + "/");
        EXPECT_EQ(ascii(IRI(value.toAsciiString(false))), ascii(value)); // its own form is read back
    }
    static_assert(static_cast<int>(IRI::Encoding::Ascii) == 3); // callers name it by its number
}

// Names of letters, digits and hyphens are mapped without ICU.
TEST(IriHost, PlainNamesBecomeWhatIcuMakesOfThem) {
    const std::u16string label(63, u'a');
    const std::u16string longest = label + u"." + label + u"." + label + u"." + std::u16string(61, u'b');
    ASSERT_EQ(longest.size(), 253U);
    for (const std::u16string& name :
         {std::u16string(u"Example.COM"), std::u16string(u"a"), std::u16string(u"127.0.0.1"), std::u16string(u"0.x-1"),
          std::u16string(u"-a-.B-"), std::u16string(u"a--b.c"), std::u16string(u"a-.--"), label, longest}) {
        std::uint32_t errors = 0;
        const std::u16string mapped = netrove::lateCalls<netrove::IcuCalls>().hostName(name, errors);
        EXPECT_EQ(vantik::detail::hostToAscii(name, 0), std::string(mapped.begin(), mapped.end()));
    }
}

TEST(IriHost, Ipv6AddressesStandInBrackets) {
    for (const std::string host : {"[::1]", "[2001:db8::7]", "[::ffff:192.0.2.1]", "[1:2:3:4:5:6:7:8]", "[::]"}) {
        const IRI value = iri("http://" + host + ":8080/x");
        EXPECT_TRUE(value.hasHost());
        EXPECT_EQ(narrow(value.getHost(IRI::Encoding::Ascii)), host);
        EXPECT_EQ(ascii(value), "http://" + host + ":8080/x");
    }
    EXPECT_EQ(iri("http://[2001:DB8::A]/").getHost(IRI::Encoding::Ascii), u"[2001:db8::a]");
    for (const char* host : {"[", "[]", "[::1", "::1]", "[1:2:3]", "[::1]x", "[::g]", "[1::2::3]", "[127.0.0.1]",
                             "[fe80::1%25eth0]", "[v]", "[::1]]", "[[::1]]", "a[::1]", "[::\u0661]"}) {
        EXPECT_NE(refusal("http://" + std::string(host) + "/"), "") << host;
    }
}

TEST(IriHost, WhatIsNotANameIsRefused) {
    const std::string longLabel(64, 'a');
    const std::string longName =
        std::string(63, 'a') + "." + std::string(63, 'b') + "." + std::string(63, 'c') + "." + std::string(62, 'd');
    for (const std::string host :
         {"a..b",     ".a",       "a<b",      "a>b",      "a\"b",     "a^b",      "a`b",      "a{b",
          "a|b",      "a}b",      "a%00b",    "a%20b",    "a%2Fb",    "a%3Ab",    "a%40b",    "a%23b",
          "a%3Fb",    "a%5Cb",    "a%25b",    "a%FFb",    "a%C3b",    "\u00A0",   "a\u3000b", "\u00AD",
          "a\uFF0Fb", "a\uFF1Ab", "a\uFF20b", "a\uFF03b", "a\uFF1Fb", "a\uFF3Cb", "a\uFF05b", "a\u2100b",
          "\u0301a",  "xn--a",    "xn--0",    "a\u200Db", "\u05D0a",  "\uFFFD",   "a\u2028b", "\uD7A4"}) {
        EXPECT_NE(refusal("http://" + host + "/"), "") << host;
    }
    EXPECT_EQ(refusal("http://" + std::string(100'000, 'a') + "/"), "host of 100000 characters at position 7");
    EXPECT_EQ(refusal("http://a..b/"), "empty label in the host name at position 7");
    EXPECT_EQ(refusal("http://u@" + longLabel + "/"),
              "label of more than 63 characters in the host name at position 9");
    EXPECT_EQ(refusal("http://" + longName + "/"), "host name of more than 253 characters at position 7");
    // Labels that take the mapping longest are refused by their length first.
    std::u16string hostile;
    for (char16_t c = 0x4E00; c < 0x9F00; ++c) {
        hostile.push_back(c);
    }
    EXPECT_EQ(refusal(u"http://" + hostile + u"/"), "host of 20736 characters at position 7");
}
