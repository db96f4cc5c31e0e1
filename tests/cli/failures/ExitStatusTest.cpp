#include "cli/failures/ExitStatus.h"

#include "cli/failures/CliFailure.h"

#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace netrove::cli;

vantik::Message message(const std::string& identifier, std::vector<vantik::MessageArgument> arguments = {}) {
    const auto colon = identifier.rfind(':');
    return {identifier.substr(0, colon), identifier.substr(colon + 1), std::move(arguments), "text"};
}

TEST(ExitStatus, EachIdentifierHasItsNumber) {
    const std::vector<std::pair<std::string, int>> expected = {
        {"VANTIK:webservices:MalformedURL", 3},
        {"VANTIK:webservices:ExpectedProtocol", 3},
        {"VANTIK:webservices:FileNotFound", 3},
        {"VANTIK:webservices:UnknownHost", 6},
        {"VANTIK:webservices:ConnectionRefused", 7},
        {"VANTIK:webservices:ConnectionFailed", 7},
        {"VANTIK:webservices:PartialFileWarning", 18},
        {"VANTIK:webservices:StatusError", 22},
        {"VANTIK:webservices:InvalidFilename", 23},
        {"VANTIK:webservices:Timeout", 28},
        {"VANTIK:webservices:OperationTerminatedByConsumer", 42},
        {"VANTIK:webservices:SSLConnectionNoFile", 60},
        {"VANTIK:webservices:SSLConnectionSystemFailure", 60},
        {"VANTIK:webservices:SSLConnectionFailure", 60},
        {"VANTIK:webservices:CertificateFailedVerification", 60},
        {"VANTIK:webservices:DecodingError", 61},
        {"VANTIK:webservices:DecodedContentTooLarge", 61},
        {"VANTIK:webservices:InternalError", 1},
        {"VANTIK:webservices:EncodingFailure", 1},
        {"VANTIK:webservices:RandomError", 1},
        {"VANTIK:http:OnlyOneTransferAtATime", 1},
        {"NETROVE:cli:Usage", 2},
        {"NETROVE:cli:RedirectRefused", 3},
        {"NETROVE:cli:StatusError", 22},
        {"NETROVE:cli:FileNotWritten", 23},
        {"NETROVE:cli:FileExists", 23},
        {"NETROVE:cli:BinaryToTerminal", 23},
        {"NETROVE:cli:ContentTooLarge", 23},
        {"NETROVE:cli:FileNotRead", 26},
        {"NETROVE:cli:ContentChanged", 26},
        {"NETROVE:cli:ContentNotRewound", 26},
        {"NETROVE:cli:MaxTime", 28},
        {"NETROVE:cli:TooManyRedirects", 47},
        {"NETROVE:cli:Failure", 1},
        {"NETROVE:cli:DemoFailed", 1},
    };
    for (const auto& [identifier, status] : expected) {
        EXPECT_EQ(exitStatus(message(identifier)), status) << identifier;
    }
}

TEST(ExitStatus, EveryStatusOfTheTableIsExplained) {
    std::set<int> explained;
    for (const ExitMeaning& meaning : exitMeanings()) {
        EXPECT_FALSE(meaning.Meaning.empty());
        EXPECT_TRUE(explained.insert(meaning.Status).second) << meaning.Status;
    }
    EXPECT_EQ(explained, (std::set<int>{0, 1, 2, 3, 6, 7, 18, 22, 23, 26, 28, 42, 47, 60, 61, 129, 130, 143}));
}

TEST(ExitStatus, ALocalWriteFailureIsToldFromOtherCopyFailures) {
    const std::string identifier = "VANTIK:webservices:CopyContentToDataStreamError";
    EXPECT_EQ(exitStatus(message(identifier, {"Error saving to local data stream.", "http://h/"})), 23);
    EXPECT_EQ(exitStatus(message(identifier, {"Empty reply from server (CURLE code 52)", "http://h/"})), 1);
    EXPECT_EQ(exitStatus(message(identifier)), 1);
}

TEST(Judge, ASignalSeenIsAnInterruptWhateverTheIdentifier) {
    for (const auto* identifier : {"VANTIK:webservices:ConnectionFailed", "VANTIK:webservices:Timeout"}) {
        const Verdict verdict = judge(message(identifier), {.Signal = SIGINT});
        EXPECT_EQ(verdict.Status, 130);
        EXPECT_EQ(verdict.Message.identifier(), "NETROVE:cli:Interrupted");
    }
    EXPECT_EQ(judge(message("VANTIK:webservices:ConnectionFailed"), {.Signal = SIGTERM}).Status, 143);
    EXPECT_EQ(judge(message("VANTIK:webservices:ConnectionFailed"), {.Signal = SIGHUP}).Status, 129);
}

TEST(Judge, AnElapsedTotalTimeIsATimeoutWhereAnInterruptCouldBeBehindTheFailure) {
    const Circumstances late = {.MaxTimeElapsed = true, .MaxTimeSeconds = 1.5};
    const Verdict verdict = judge(message("VANTIK:webservices:ConnectionFailed"), late);
    EXPECT_EQ(verdict.Status, 28);
    EXPECT_EQ(verdict.Message.identifier(), "NETROVE:cli:MaxTime");
    EXPECT_EQ(verdict.Message.Text, "not complete after 1.5 s, the limit of --max-time");
    EXPECT_EQ(verdict.Message.Arguments, (std::vector<vantik::MessageArgument>{"1.5"}));

    Circumstances interrupted = late;
    interrupted.Interrupted = true;
    EXPECT_EQ(judge(message("VANTIK:host:Interrupted"), interrupted).Status, 28);
    // A failure that no interrupt can have caused stays what it is.
    EXPECT_EQ(judge(message("VANTIK:webservices:ConnectionRefused"), late).Status, 7);
}

TEST(Judge, AStopByTheReporterIsNotAnInterruptByTheUser) {
    EXPECT_EQ(judge(message("VANTIK:host:Interrupted"), {.Interrupted = true, .StoppedByProgram = true}).Status, 42);
    EXPECT_EQ(judge(message("VANTIK:host:Interrupted"), {.Interrupted = true}).Status, 130);
}

TEST(Judge, AnOrdinaryFailureIsReportedAsItIs) {
    const Verdict verdict = judge(message("VANTIK:webservices:UnknownHost", {"http://h/"}), {});
    EXPECT_EQ(verdict.Status, 6);
    EXPECT_EQ(verdict.Message.identifier(), "VANTIK:webservices:UnknownHost");
    EXPECT_EQ(verdict.Message.Text, "text");
}

} // namespace
