#include "tests/support/process/ProgramRun.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using namespace testsupport;

void expectFailure(const std::vector<std::string>& arguments, int status, const std::string& identifier) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.Status, status) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err.find("netrove: " + identifier + ": "), 0u) << outcome.Err;
    EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "not one line: " << outcome.Err;
}

TEST(FailureReport, WrongUsageIsTwo) {
    expectFailure({}, 2, "NETROVE:cli:Usage");
    expectFailure({"get"}, 2, "NETROVE:cli:Usage");
    expectFailure({"fetch", "http://h/"}, 2, "NETROVE:cli:Usage");
    expectFailure({"get", "--nonsense", "http://h/"}, 2, "NETROVE:cli:Usage");
    expectFailure({"send", "-H", "X: a\r\nY: b", "http://h/"}, 2, "NETROVE:cli:Usage");
}

TEST(FailureReport, AUrlThatIsNoneIsThree) {
    expectFailure({"get", "example.org/x"}, 3, "VANTIK:webservices:MalformedURL");
    expectFailure({"get", "http://exa mple.org/"}, 3, "VANTIK:webservices:MalformedURL");
    expectFailure({"get", "http://127.0.0.1:99999/"}, 3, "VANTIK:webservices:MalformedURL");
    expectFailure({"get", "ftp://127.0.0.1/"}, 3, "VANTIK:webservices:ExpectedProtocol");
}

TEST(FailureReport, AnUnknownHostIsSix) {
    // Reserved for names that exist nowhere.
    expectFailure({"get", "-x", "none", "http://no-such-host.invalid/"}, 6, "VANTIK:webservices:UnknownHost");
}

TEST(FailureReport, ARefusedConnectionIsSeven) {
    const RefusingPort port;
    expectFailure({"get", port.url()}, 7, "VANTIK:webservices:ConnectionRefused");
}

TEST(FailureReport, ASilentServerIsTwentyEight) {
    ScriptedServer server({step::expectHead(), step::awaitPeerEnd()});
    expectFailure({"get", "--response-timeout", "100", server.url()}, 28, "VANTIK:webservices:Timeout");
}

TEST(FailureReport, AServerThatStopsInTheMiddleIsTwentyEight) {
    ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n"), step::awaitPeerEnd()});
    expectFailure({"get", "--data-timeout", "100", server.url()}, 28, "VANTIK:webservices:Timeout");
}

TEST(FailureReport, TheTotalTimeIsTwentyEightInEveryPhase) {
    ScriptedServer silent({step::expectHead(), step::awaitPeerEnd()});
    expectFailure({"get", "-m", "0.2", silent.url()}, 28, "NETROVE:cli:MaxTime");
    ScriptedServer half(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n"), step::awaitPeerEnd()});
    expectFailure({"get", "-m", "0.2", half.url()}, 28, "NETROVE:cli:MaxTime");
    ScriptedServer sending({step::expectHead(), step::awaitPeerEnd()});
    expectFailure({"send", "-m", "0.2", "-T", "-", sending.url()}, 28, "NETROVE:cli:MaxTime");
}

TEST(FailureReport, ContentCutShortIsEighteen) {
    ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::close()});
    const Outcome outcome = run({"get", server.url()});
    EXPECT_EQ(outcome.Status, 18) << outcome.Err;
    EXPECT_EQ(outcome.Out, "part");
    EXPECT_EQ(outcome.Err.find("netrove: VANTIK:webservices:PartialFileWarning: "), 0u) << outcome.Err;
}

TEST(FailureReport, HttpsToAPlainServerIsSixty) {
    ScriptedServer server({step::expectBody(1), step::send("HTTP/1.1 400 Bad\r\n\r\n"), step::close()});
    expectFailure({"get", "https://" + server.authority() + "/"}, 60, "VANTIK:webservices:SSLConnectionSystemFailure");
}

TEST(FailureReport, ACertificateFileThatIsNotThereIsSixty) {
    ScriptedServer server({step::awaitPeerEnd()});
    expectFailure({"get", "--ca-file", "/no/such/ca.pem", "https://" + server.authority() + "/"}, 60,
                  "VANTIK:webservices:SSLConnectionFailure");
}

TEST(FailureReport, JsonHoldsWhatTheLineHolds) {
    const RefusingPort port;
    const Outcome outcome = run({"get", "--json-errors", port.url("/x")});
    EXPECT_EQ(outcome.Status, 7);
    ASSERT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1);
    const auto object = nlohmann::json::parse(outcome.Err);
    EXPECT_EQ(object.at("identifier"), "VANTIK:webservices:ConnectionRefused");
    EXPECT_EQ(object.at("exit"), 7);
    EXPECT_EQ(object.at("arguments").at(0), port.url("/x"));
    EXPECT_NE(object.at("message"), "");
}

TEST(FailureReport, JsonServesForUsageToo) {
    const Outcome outcome = run({"get", "--json-errors", "--nonsense", "http://h/"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_EQ(nlohmann::json::parse(outcome.Err).at("identifier"), "NETROVE:cli:Usage");
}

TEST(FailureReport, CredentialsNeverAppear) {
    const RefusingPort port;
    std::string url = port.url("/x");
    url.insert(7, "me:s3cr3t@");
    for (const std::string option : {"--no-progress", "--json-errors"}) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"get", option, url},
              std::vector<std::string>{"get", option, "-u", "me", "--password", "s3cr3t", port.url()},
              std::vector<std::string>{"get", option, "-x", "me:s3cr3t@127.0.0.1:" + std::to_string(port.port()),
                                       "http://127.0.0.1:1/"},
              std::vector<std::string>{"get", option, "ftp://me:s3cr3t@h/"}}) {
            const Outcome outcome = run(arguments);
            EXPECT_NE(outcome.Status, 0);
            EXPECT_EQ(outcome.Err.find("s3cr3t"), std::string::npos) << outcome.Err;
        }
    }
}

TEST(FailureReport, CredentialsOfAUrlThatIsRefusedNeverAppear) {
    for (const std::string url :
         {"alice:s3cr3t@h/x", "http:/alice:s3cr3t@h/", "http:alice:s3cr3t@h/", "https//alice:s3cr3t@h",
          "//alice:s3cr3t@h/", ":/alice:s3cr3t@h/", "http://alice:s3cr3t/more@h/", "http://alice:s3cr3t?more@h/",
          "alice:s3cr3t more@h/", "ftp://alice:s3cr3t/more@h/"}) {
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"get", "-x", "none"}, {"get", "-x", "none", "--json-errors"}, {"proxy"}}) {
            std::vector<std::string> arguments = command;
            arguments.push_back(url);
            const Outcome outcome = run(arguments);
            EXPECT_EQ(outcome.Status, 3) << url << ": " << outcome.Err << outcome.Out;
            EXPECT_EQ(outcome.Out, "");
            EXPECT_NE(outcome.Err.find("***@h"), std::string::npos) << outcome.Err;
            for (const char* secret : {"s3cr3t", "more", "alice"}) {
                EXPECT_EQ(outcome.Err.find(secret), std::string::npos) << outcome.Err;
            }
        }
    }
}

TEST(FailureReport, CredentialsInAMisplacedUrlNeverAppear) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"alice:s3cr3t@h/x"},
                                                      {"http://alice:s3cr3t/@h/"},
                                                      {"get", "http://h/", "alice:s3cr3t@h/x"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.Status, 2);
        EXPECT_NE(outcome.Err.find("***@h/"), std::string::npos) << outcome.Err;
        EXPECT_EQ(outcome.Err.find("s3cr3t"), std::string::npos) << outcome.Err;
    }
}

TEST(FailureReport, WhatAServerSaysIsNotObeyed) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 404 \x1b[31mred\r\nContent-Length: 0\r\n\r\n"),
                           step::awaitPeerEnd()});
    const Outcome outcome = run({"get", "-f", server.url()});
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_EQ(outcome.Err.find('\x1b'), std::string::npos);
    EXPECT_NE(outcome.Err.find("\\x1B[31mred"), std::string::npos) << outcome.Err;
}

} // namespace
