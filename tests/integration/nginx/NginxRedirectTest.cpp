// Redirects of nginx: the class tells the target and stays where it is, the command line follows.
#include "tests/integration/nginx/RoadFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

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
    const char* Target; // "/…": on the same server; "…": as it is, with PLAIN and TLS for the ports; empty: none
    const char* Found;  // what is there; null where the command line does not go there
};

void PrintTo(const Row& row, std::ostream* stream) { // for GoogleTest
    *stream << row.Name;
}

const Row kRows[] = {
    {"ToARelativePath", "relative", 302, "/files/200", "two hundred"},
    {"ToAPathWithAQuery", "path", 301, "/files/200?x=1&y=2", "two hundred"},
    {"ToAFragment", "fragment", 303, "/files/200#part", "two hundred"},
    {"ToABlank", "space", 302, "/files/with%20space.txt", "with a blank"},
    {"ToAnEscapedBlank", "escaped", 302, "/files/with%20space.txt", "with a blank"},
    {"ToOtherLetters", "letters", 302, "/files/fr%C3%BCh%20%E4%B8%AD.txt", "other letters"},
    {"ToAnotherServer", "absolute", 307, "http://127.0.0.1:PLAIN/files/200", "two hundred"},
    {"ToTls", "to-tls", 308, "https://127.0.0.1:TLS/files/200", "two hundred"},
    {"ToNothingThatCanBeRead", "malformed", 302, "", nullptr},
    {"ToAnotherScheme", "elsewhere", 302, "ftp://127.0.0.1/files/200", nullptr},
};

class NginxRedirect : public RoadFixture {
protected:
    void writeTargets() {
        writeFile(nginx().documentFile("200"), "two hundred");
        writeFile(nginx().documentFile("with space.txt"), "with a blank");
        writeFile(nginx().documentFile("fr\u00FCh \u4E2D.txt"), "other letters");
    }
    static std::string targetOn(Road road, const std::string& target) {
        if (target.starts_with('/')) {
            return urlOn(road, target);
        }
        if (const std::string server = "http://127.0.0.1:PLAIN"; target.starts_with(server)) {
            return nginx().url(target.substr(server.size()));
        }
        if (const std::string server = "https://127.0.0.1:TLS"; target.starts_with(server)) {
            return nginx().secureUrl(target.substr(server.size()));
        }
        return target;
    }
};

class NginxRedirectRow : public NginxRedirect, public ::testing::WithParamInterface<std::tuple<Road, Row>> {};

TEST_P(NginxRedirectRow, IsToldAndNotFollowed) {
    const auto& [road, row] = GetParam();
    writeTargets();
    const Object connection = openOn(road, std::string("/redirect/") + row.Path);
    EXPECT_NE(receiveBytes(connection).find("<html>"), std::string::npos) << "the page of the redirect itself";
    EXPECT_EQ(connection.get("ResponseCode").number(), row.Status);
    const std::string target = connection.get("RedirectURL").text();
    EXPECT_EQ(target, targetOn(road, row.Target));
    connection.call("closeConnection");
    if (row.Found != nullptr) {
        connection.set("URL", target);
        connection.set("CertificateFilename", target.starts_with(nginx().secureUrl("/")) ? nginx().certificateFile()
                                                                                         : certificateFileOn(road));
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), row.Found);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    }
    expectRoadUsable(road, connection);
}

TEST_P(NginxRedirectRow, IsFollowedOnTheCommandLine) {
    const auto& [road, row] = GetParam();
    writeTargets();
    const std::string trusted = folder().file("trusted.pem"); // both servers'
    writeFile(trusted,
              testsupport::readFile(certificateFileOn(road)) + testsupport::readFile(nginx().certificateFile()));
    const Outcome outcome = run({"get", "--ca-file", trusted, urlOn(road, std::string("/redirect/") + row.Path)});
    if (row.Found != nullptr) {
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, row.Found);
        EXPECT_EQ(outcome.Err, "");
    } else {
        const std::string target = row.Target;
        EXPECT_EQ(outcome.Status, 3);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:RedirectRefused: the server redirects to " +
                                   (target.empty() ? "what is not a valid URL: http://[files"
                                                   : "a URL that is neither http nor https: " + target) +
                                   "\n");
    }
}

INSTANTIATE_TEST_SUITE_P(kRows, NginxRedirectRow,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads), ::testing::ValuesIn(kRows)),
                         [](const auto& info) {
                             return std::string(nameOf(std::get<0>(info.param))) + std::get<1>(info.param).Name;
                         });

class NginxRedirectChain : public NginxRedirect, public ::testing::WithParamInterface<Road> {
protected:
    static Outcome follow(const std::string& path) {
        return run({"get", "--ca-file", certificateFileOn(GetParam()), urlOn(GetParam(), path)});
    }
};

TEST_P(NginxRedirectChain, OfTwentyIsFollowedToItsEnd) {
    const Outcome outcome = follow("/redirect/chain/" + std::string(20, 'x'));
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "end of the chain");
}

TEST_P(NginxRedirectChain, OfOneMoreIsGivenUp) {
    const Outcome outcome = follow("/redirect/chain/" + std::string(21, 'x'));
    EXPECT_EQ(outcome.Status, 47);
    EXPECT_EQ(outcome.Out, "");
}

TEST_P(NginxRedirectChain, WithoutEndIsGivenUp) {
    const Outcome outcome = follow("/redirect/endless");
    EXPECT_EQ(outcome.Status, 47);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:TooManyRedirects: more than 20 redirects, the next to " +
                               urlOn(GetParam(), "/redirect/endless") + "\n");
}

TEST_P(NginxRedirectChain, WithoutEndIsOneAnswerForTheClass) {
    const Object connection = openOn(GetParam(), "/redirect/endless");
    EXPECT_NE(receiveBytes(connection).find("302 Found"), std::string::npos);
    EXPECT_EQ(connection.get("RedirectURL").text(), urlOn(GetParam(), "/redirect/endless"));
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxRedirectChain, ::testing::ValuesIn(kAllRoads),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

} // namespace
