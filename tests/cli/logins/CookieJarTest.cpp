#include "cli/logins/CookieJar.h"

#include "tests/support/host/HostFixture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace netrove::cli;

constexpr CookieJar::Time kNow{std::chrono::seconds(1'000'000)};

std::string sent(const std::string& file, const std::string& url) {
    CookieJar jar;
    jar.load(file, "file");
    return jar.headerFor(url, kNow);
}

struct Row {
    std::string Line;
    std::string Url;
    std::string Sent;
};

TEST(CookieJar, SendsACookieWhereItBelongs) {
    const std::string host = "h.org\tFALSE\t/\tFALSE\t0\ta\t1\n";
    const std::string below = ".H.org\tTRUE\t/\tFALSE\t0\ta\t1\n";
    const std::string path = "h.org\tFALSE\t/p\tFALSE\t0\ta\t1\r\n";
    const std::string secure = "#HttpOnly_h.org\tFALSE\t/\tTRUE\t0\ta\t1";
    const Row rows[] = {
        {host, "http://h.org", "a=1"},
        {host, "https://H.ORG:8443/x?y", "a=1"},
        {host, "http://w.h.org/", ""},
        {host, "http://other.org/", ""},
        {below, "http://h.org/", "a=1"},
        {below, "http://w.h.org/", "a=1"},
        {below, "http://evilh.org/", ""},
        {".0.0.1\tTRUE\t/\tFALSE\t0\ta\t1", "http://127.0.0.1/", ""},
        {"[::1]\tFALSE\t/\tFALSE\t0\ta\t1", "http://[::1]:80/", "a=1"},
        {path, "http://h.org/p", "a=1"},
        {path, "http://h.org/p/q", "a=1"},
        {path, "http://h.org/pq", ""},
        {path, "http://h.org/", ""},
        {secure, "https://h.org/", "a=1"},
        {secure, "http://h.org/", ""},
        {"localhost\tFALSE\t/\tTRUE\t0\ta\t1", "http://localhost:8080/", "a=1"},
        {"h.org\tFALSE\t/\tFALSE\t1000001\ta\t1", "http://h.org/", "a=1"},
        {"h.org\tFALSE\t/\tFALSE\t1000000\ta\t1", "http://h.org/", ""},
        {"h.org\tFALSE\t/\tFALSE\t0\ta\t", "http://h.org/", "a="},
        {"h.org\tFALSE\t/\tFALSE\t0\ta", "http://h.org/", "a="},
        {"# Netscape HTTP Cookie File\n\n" + host + "h.org\tFALSE\t/p/\tFALSE\t0\tb\t2\n", "http://h.org/p/",
         "b=2; a=1"},
        // A line that could break out of its field is skipped.
        {host + "h.org\tFALSE\t/\tFALSE\t0\tb\tx\rY: z\n", "http://h.org/", "a=1"},
        {host + "h.org\tFALSE\t/\tFALSE\t0\tb\tx;y\n", "http://h.org/", "a=1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(sent(row.Line, row.Url), row.Sent) << row.Line << row.Url;
    }
}

TEST(CookieJar, ForgetsWhatAServerReplaces) {
    const std::string all = ".h.org\tTRUE\t/\tFALSE\t0\ta\t1\nh.org\tFALSE\t/p/\tFALSE\t0\ta\t2\n";
    struct {
        const char* SetCookie;
        const char* Url;
        const char* Sent;
    } const rows[] = {
        {"b=9", "http://h.org/", "a=2; a=1"},
        {"a=9", "http://h.org/", "a=2"}, // the path is that of the URL
        {"a=9", "http://h.org", "a=2"},
        {"a=9", "http://h.org/x", "a=2"},
        {"a=9", "http://h.org/p/x", "a=1"},
        {" a = 9 ; secure; PATH=/p ;x", "http://h.org/", "a=1"},
        {"a=9; Path=/p/x", "http://h.org/", "a=2; a=1"},
        {"a=9; Path=p", "http://h.org/", "a=2"},
        {"a=9", "http://w.h.org/", "a=2; a=1"},
        {"a=9;domain=.H.org", "http://w.h.org/", "a=2"},
        {"a=9; Domain=h.org; Path=/p", "http://w.h.org/", "a=2; a=1"}, // not its own
        {"a=9; Domain=h.org", "http://evil.org/", "a=2; a=1"},
        {"", "http://h.org/", "a=2; a=1"},
        {";", "http://h.org/", "a=2; a=1"},
    };
    for (const auto& [setCookie, url, left] : rows) {
        CookieJar jar;
        jar.load(all, "file");
        jar.forgetReplaced(setCookie, url);
        EXPECT_EQ(jar.headerFor("http://h.org/p/q", kNow), left) << setCookie << " of " << url;
    }
}

TEST(CookieJar, RefusesAFileOfAnotherFormat) {
    const vantik::Message message = testsupport::failureOf([] { sent("[{\"name\":\"a\"}]", "http://h/"); });
    EXPECT_EQ(message.Text, "file has no cookies in Netscape's format");
    EXPECT_EQ(sent("# nothing yet\n", "http://h/"), "");
    EXPECT_EQ(sent("", "http://h/"), "");
}

} // namespace
