// Redirects of nginx: the class tells the target and stays where it is, the command line follows.
#include "tests/integration/nginx/RoadFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace integrationtest;
using testsupport::Outcome;
using testsupport::run;
using testsupport::writeFile;
using vantik::Object;

struct Row {
    const char* Name;
    const char* Path; // below /redirect/
    double Status;
    const char* Target; // "/…": on the same server; "https…": with TLS for the port; or as it is; empty: none
    const char* Found;  // what is there; null where the command line does not go there
};

// clang-format off
const Row kRows[] = {
    {"ToARelativePath", "relative", 302, "/files/200", "two hundred"},
    {"ToAPathWithAQuery", "path", 301, "/files/200?x=1&y=2", "two hundred"},
    {"ToAFragment", "fragment", 303, "/files/200#part", "two hundred"},
    {"ToABlank", "space", 302, "/files/with%20space.txt", "with a blank"},
    {"ToAnEscapedBlank", "escaped", 302, "/files/with%20space.txt", "with a blank"},
    {"ToOtherLetters", "letters", 302, "/files/fr%C3%BCh%20%E4%B8%AD.txt", "other letters"},
    {"ToTls", "to-tls", 308, "https://127.0.0.1:TLS/files/200", "two hundred"},
    {"ToNothingThatCanBeRead", "malformed", 302, "", nullptr},
    {"ToAnotherScheme", "elsewhere", 302, "ftp://127.0.0.1/files/200", nullptr},
};
// clang-format on

class NginxRedirect : public RoadFixture, public ::testing::WithParamInterface<Row> {
protected:
    void SetUp() override {
        writeFile(nginx().documentFile("200"), "two hundred");
        writeFile(nginx().documentFile("with space.txt"), "with a blank");
        writeFile(nginx().documentFile("fr\u00FCh \u4E2D.txt"), "other letters");
    }
    static std::string target() {
        const std::string text = GetParam().Target;
        const std::string server = "https://127.0.0.1:TLS";
        return text.starts_with('/')      ? nginx().url(text)
               : text.starts_with(server) ? nginx().http2Url(text.substr(server.size()))
                                          : text;
    }
};

TEST_P(NginxRedirect, IsToldAndNotFollowed) {
    const Row& row = GetParam();
    const Object connection = openOn(Road::Plain, std::string("/redirect/") + row.Path);
    EXPECT_NE(receiveBytes(connection).find("<html>"), std::string::npos) << "the page of the redirect itself";
    EXPECT_EQ(connection.get("ResponseCode").number(), row.Status);
    EXPECT_EQ(connection.get("RedirectURL").text(), target());
    connection.call("closeConnection");
    if (row.Found != nullptr) {
        connection.set("URL", target());
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), row.Found);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    }
    expectRoadUsable(Road::Plain, connection);
}

TEST_P(NginxRedirect, IsFollowedOnTheCommandLine) {
    const Row& row = GetParam();
    const Outcome outcome =
        run({"get", "--ca-file", nginx().certificateFile(), nginx().url(std::string("/redirect/") + row.Path)});
    if (row.Found != nullptr) {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, row.Found);
        EXPECT_EQ(outcome.Err, "");
    } else {
        EXPECT_EQ(outcome.Status, 3);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:RedirectRefused: the server redirects to " +
                                   (target().empty() ? "what is not a valid URL: http://[files"
                                                     : "a URL that is neither http nor https: " + target()) +
                                   "\n");
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, NginxRedirect, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

class NginxRedirectChain : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(NginxRedirectChain, OfTwentyIsFollowedAndOneMoreIsNot) {
    const auto follow = [](const std::string& path) {
        return run({"get", "--ca-file", nginx().certificateFile(), urlOn(GetParam(), path)});
    };
    const Outcome twenty = follow("/redirect/chain/" + std::string(20, 'x'));
    EXPECT_EQ(twenty.Status, 0) << twenty.Err;
    EXPECT_EQ(twenty.Out, "end of the chain");
    const Outcome more = follow("/redirect/chain/" + std::string(21, 'x'));
    EXPECT_EQ(more.Status, 47);
    EXPECT_EQ(more.Out, "");
    EXPECT_EQ(more.Err, "netrove: NETROVE:cli:TooManyRedirects: more than 20 redirects, the next to " +
                            urlOn(GetParam(), "/redirect/chain/") + "\n");
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxRedirectChain, ::testing::ValuesIn(kAllRoads), kRoadName);

} // namespace
