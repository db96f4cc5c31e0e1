#include "cli/exchange/Redirects.h"

#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

Request post() {
    return {"http://h/a",
            "POST",
            {{"Content-Type", "text/plain"},
             {"X-Mine", "1"},
             {"Authorization", "Bearer t"},
             {"cookie", "a=1"},
             {"content-length", "3"},
             {"Host", "alias"}},
            {"Accept"},
            true,
            true};
}

TEST(Redirects, OnlyTheFiveStatusesAreFollowed) {
    for (const int status : {301, 302, 303, 307, 308}) {
        EXPECT_TRUE(isRedirect(status)) << status;
    }
    for (const int status : {200, 201, 300, 304, 305, 306, 309, 400}) {
        EXPECT_FALSE(isRedirect(status)) << status;
    }
}

TEST(Redirects, PostTurnsIntoGetWithoutItsBody) {
    for (const int status : {301, 302, 303}) {
        const Request next = followRedirect(post(), status, "http://h/b");
        EXPECT_EQ(next.Method, "GET") << status;
        EXPECT_FALSE(next.Body) << status;
        EXPECT_EQ(
            next.Fields,
            (std::vector<Field>{{"X-Mine", "1"}, {"Authorization", "Bearer t"}, {"cookie", "a=1"}, {"Host", "alias"}}))
            << status;
        EXPECT_EQ(next.RemovedFields, (std::vector<std::string>{"Accept"}));
        EXPECT_EQ(next.Url, "http://h/b");
    }
}

TEST(Redirects, PermanentAndTemporaryKeepMethodAndBody) {
    for (const int status : {307, 308}) {
        Request expected = post();
        expected.Url = "http://h/b";
        EXPECT_EQ(followRedirect(post(), status, "http://h/b"), expected) << status;
    }
}

TEST(Redirects, OtherMethodsChangeFor303Only) {
    Request request = post();
    request.Method = "PUT";
    EXPECT_EQ(followRedirect(request, 302, "http://h/b").Method, "PUT");
    EXPECT_TRUE(followRedirect(request, 302, "http://h/b").Body);
    EXPECT_EQ(followRedirect(request, 303, "http://h/b").Method, "GET");
    request.Method = "HEAD";
    request.Body = false;
    EXPECT_EQ(followRedirect(request, 303, "http://h/b").Method, "HEAD");
}

TEST(Redirects, LeaveCredentialsBehindWhenSchemeHostOrPortChanges) {
    for (const char* target : {"https://h/a", "http://other/a", "http://h:8080/a", "http://h.evil/a"}) {
        const Request next = followRedirect(post(), 307, target);
        // Nor do they come back on the way home.
        for (const Request& request : {next, followRedirect(next, 307, "http://h/a")}) {
            EXPECT_FALSE(request.Credentials) << target;
            EXPECT_EQ(request.Fields,
                      (std::vector<Field>{{"Content-Type", "text/plain"}, {"X-Mine", "1"}, {"content-length", "3"}}))
                << target;
        }
    }
    EXPECT_TRUE(followRedirect(post(), 307, "http://H:80/elsewhere").Credentials);
}

TEST(Redirects, AServerChoosesNoUserName) {
    EXPECT_EQ(followRedirect(post(), 307, "http://root:toor@h/b").Url, "http://h/b");
}

TEST(Redirects, OtherSchemesAreRefused) {
    for (const char* target : {"ftp://h/", "file:///etc/passwd", "javascript:alert(1)", "h/b", ""}) {
        try {
            followRedirect(post(), 302, target);
            ADD_FAILURE() << target;
        } catch (const vantik::Failure& failure) {
            EXPECT_EQ(failure.identifier(), "NETROVE:cli:RedirectRefused") << target;
        }
    }
}

} // namespace
