#include <gtest/gtest.h>
#include <netrove/url.h>

#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace netrove;

TEST(UrlText, APartIsFoundWhereverItIs) {
    const std::string whole = "HTTP://user:pa@ss@Example.ORG:8080/a/b?c=/d#e/f";
    EXPECT_EQ(userInfoIn(whole), "user:pa@ss");
    // Scheme, host, port and path. Missing parts stay empty; some schemes have a port of their own.
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {whole, {"http", "example.org", "8080", "/a/b"}},
        {"https://h", {"https", "h", "443", ""}},
        {"http://h:", {"http", "h", "80", ""}},
        {"ftp://h", {"ftp", "h", "", ""}},
        {"http://h?x=/y", {"http", "h", "80", ""}},
        {"http://[::1]/", {"http", "[::1]", "80", "/"}},
        {"http://[::1]:99/", {"http", "[::1]", "99", "/"}},
    };
    for (const auto& [url, expected] : rows) {
        const UrlParts parts = splitUrl(url);
        EXPECT_EQ((std::vector<std::string>{parts.Scheme, parts.Host, parts.Port, parts.Path}), expected) << url;
    }
    for (const char* text : {"", "example.org", "://", "mailto:a@b", "http:/h"}) {
        EXPECT_EQ(splitUrl(text).Host, "") << text;
    }
}

TEST(UrlText, TheOriginIsSchemeHostAndPort) {
    EXPECT_TRUE(sameOrigin("http://h/a", "HTTP://H:80/b"));
    EXPECT_TRUE(sameOrigin("https://h:443/", "https://h"));
    EXPECT_FALSE(sameOrigin("http://h/", "https://h/"));
    EXPECT_FALSE(sameOrigin("http://h/", "http://h:8080/"));
    EXPECT_FALSE(sameOrigin("http://h/", "http://www.h/"));
    EXPECT_FALSE(sameOrigin("http://h/", "http://h@evil/"));
    EXPECT_FALSE(sameOrigin("http://h/", "http://h\\@evil/"));
}

TEST(UrlText, UserNameAndPasswordAreTakenOutOfAUrl) {
    std::string url = "http://J%C3%BCrgen:p%40ss:word@h:1/path@here";
    const UserInfo info = takeUserInfo(url);
    EXPECT_EQ(url, "http://h:1/path@here");
    EXPECT_TRUE(info.Present);
    EXPECT_EQ(info.User, "J\xC3\xBCrgen");
    EXPECT_EQ(info.Password, "p@ss:word");

    url = "http://only@h/";
    EXPECT_EQ(takeUserInfo(url).Password, std::nullopt);
    EXPECT_EQ(url, "http://h/");

    url = "http://h/?next=a@b";
    EXPECT_FALSE(takeUserInfo(url).Present);
    EXPECT_EQ(url, "http://h/?next=a@b");
}

TEST(UrlText, CredentialsInUrlsAreMasked) {
    EXPECT_EQ(maskUserInfo("http://u:p@h/x"), "http://***@h/x");
    EXPECT_EQ(maskUserInfo("\"http://u:p@w@h/x\" (no protocol), ftp://a@b"),
              "\"http://***@h/x\" (no protocol), ftp://***@b");
    EXPECT_EQ(maskUserInfo("http://h/a@b and me@home"), "http://h/a@b and me@home");
    EXPECT_EQ(maskUserInfo("http://@h/"), "http://***@h/");
    EXPECT_EQ(maskUserInfo("://@"), "://***@");
    EXPECT_EQ(maskUserInfo(""), "");
}

TEST(UrlText, EscapesAreDecodedAndInvalidOnesStay) {
    EXPECT_EQ(percentDecode("a%20b%2Fc%c3%a9"), "a b/c\xC3\xA9");
    EXPECT_EQ(percentDecode("%zz%4%"), "%zz%4%");
    EXPECT_EQ(percentDecode("%41"), "A");
}

TEST(UrlText, AFileNameComesFromTheLastSegmentAndStaysInItsFolder) {
    const std::pair<const char*, const char*> rows[] = {
        {"dir/report.pdf?version=2#page", "report.pdf"},
        {"a%20b.txt", "a b.txt"},
        {"caf%C3%A9", "caf\xC3\xA9"},
        {"%2e%2e%2Fetc%2Fpasswd", "_etc_passwd"},
        {"..%5C..%5Cx", "_.._x"},
        {".bashrc", "bashrc"},
        {"a%0Ab%1Bc%00d%7F", "a_b_c_d_"},
        {"a%FFb", "a_b"},
        {"photo%E2%80%AEgpj.exe", "photo___gpj.exe"},
        {"", "download"},
        {"dir/", "download"},
        {"..", "download"},
        {"%2e", "download"},
        {"?q=/x", "download"},
    };
    for (const auto& [path, name] : rows) {
        EXPECT_EQ(fileNameFor(std::string("http://h/") + path), name) << path;
    }
    EXPECT_EQ(fileNameFor("http://h"), "download");
}

TEST(UrlText, ALongNameIsCutBetweenCharacters) {
    std::string url = "http://h/x";
    for (int i = 0; i < 200; ++i) {
        url += "%C3%A9";
    }
    const std::string name = fileNameFor(url);
    EXPECT_EQ(name.size(), 199u);
    EXPECT_TRUE(name.ends_with("\xC3\xA9"));
}

} // namespace
