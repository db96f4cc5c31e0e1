#include "cli/failures/ExitStatus.h"

#include "cli/failures/CliFailure.h"

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace netrove::cli;
using Words = std::vector<std::string>;

vantik::Message ofTransfer(const std::string& key, std::vector<vantik::MessageArgument> arguments = {}) {
    return {"VANTIK:webservices", key, std::move(arguments), "text"};
}
const vantik::Message kStopped{"VANTIK:host", "Interrupted", {}, "text"};

TEST(ExitStatus, EachIdentifierHasItsNumber) {
    const std::map<int, Words> ofTransfers = {
        {1, {"InternalError", "EncodingFailure", "RandomError", "CopyContentToDataStreamError"}},
        {3, {"MalformedURL", "ExpectedProtocol", "FileNotFound"}},
        {6, {"UnknownHost"}},
        {7, {"ConnectionRefused", "ConnectionFailed"}},
        {18, {"PartialFileWarning"}},
        {22, {"StatusError"}},
        {23, {"InvalidFilename"}},
        {28, {"Timeout"}},
        {42, {"OperationTerminatedByConsumer"}},
        {60,
         {"SSLConnectionNoFile", "SSLConnectionSystemFailure", "SSLConnectionFailure",
          "CertificateFailedVerification"}},
        {61, {"DecodingError", "DecodedContentTooLarge"}},
    };
    const std::map<int, Words> ofProgram = {
        {1, {"Failure", "DemoFailed"}},
        {2, {"Usage"}},
        {3, {"RedirectRefused"}},
        {22, {"StatusError", "RetryTooLate"}},
        {23, {"FileNotWritten", "FileExists", "BinaryToTerminal", "ContentTooLarge", "NoJournal", "JournalInUse"}},
        {26, {"FileNotRead", "ContentChanged", "ContentNotRewound"}},
        {28, {"MaxTime"}},
        {47, {"TooManyRedirects"}},
        {63, {"ContentLimit"}},
    };
    for (const auto& [catalogue, numbers] :
         {std::pair("VANTIK:webservices", &ofTransfers), {"NETROVE:cli", &ofProgram}}) {
        for (const auto& [status, keys] : *numbers) {
            for (const std::string& key : keys) {
                EXPECT_EQ(exitStatus({catalogue, key, {}, "text"}), status) << key;
            }
        }
    }
    EXPECT_EQ(exitStatus({"VANTIK:http", "OnlyOneTransferAtATime", {}, "text"}), 1);
    // Of a copy it depends on who failed.
    const std::string copy = "CopyContentToDataStreamError";
    EXPECT_EQ(exitStatus(ofTransfer(copy, {"Error saving to local data stream.", "http://h/"})), 23);
    EXPECT_EQ(exitStatus(ofTransfer(copy, {"Empty reply from server (CURLE code 52)", "http://h/"})), 1);
}

TEST(ExitStatus, EveryStatusOfTheTableIsExplained) {
    std::set<int> explained;
    for (const ExitMeaning& meaning : exitMeanings()) {
        EXPECT_FALSE(meaning.Meaning.empty());
        EXPECT_TRUE(explained.insert(meaning.Status).second) << meaning.Status;
    }
    EXPECT_EQ(explained,
              (std::set<int>{0, 1, 2, 3, 6, 7, 18, 22, 23, 26, 28, 33, 36, 42, 47, 60, 61, 63, 105, 129, 130, 143}));
}

TEST(Judge, ASignalIsAnInterruptWhateverTheIdentifier) {
    for (const char* key : {"ConnectionFailed", "Timeout"}) {
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            const Verdict verdict = judge(ofTransfer(key), {.Signal = number});
            EXPECT_EQ(verdict.Status, 128 + number);
            EXPECT_EQ(verdict.Message.identifier(), "NETROVE:cli:Interrupted");
        }
    }
}

TEST(Judge, AnElapsedTotalTimeIsATimeoutWhereAnInterruptCouldHaveCausedTheFailure) {
    Circumstances late = {.MaxTimeSeconds = 1.5, .MaxTimeElapsed = true};
    const Verdict verdict = judge(ofTransfer("ConnectionFailed"), late);
    EXPECT_EQ(verdict.Status, 28);
    EXPECT_EQ(verdict.Message.identifier(), "NETROVE:cli:MaxTime");
    EXPECT_EQ(verdict.Message.Text, "not complete after 1.5 s, the limit of --max-time");
    EXPECT_EQ(verdict.Message.Arguments, (std::vector<vantik::MessageArgument>{"1.5"}));
    // A failure that no interrupt can have caused stays what it is.
    EXPECT_EQ(judge(ofTransfer("ConnectionRefused"), late).Status, 7);
    late.Interrupted = true;
    EXPECT_EQ(judge(kStopped, late).Status, 28);
}

TEST(Judge, AFailureOfTheClientIsReportedUnderTheProgramsOwnCatalogue) {
    const netrove::Error late(netrove::ErrorKind::Timeout, "NETROVE:client:AttemptTime", {}, "late");
    EXPECT_EQ(judge(late, {.MaxTimeSeconds = 2}).Message.Text, "not complete after 2 s, the limit of --max-time");
    const netrove::Error stopped(netrove::ErrorKind::Interrupted, "NETROVE:client:Interrupted", {}, "interrupted");
    EXPECT_EQ(judge(stopped, {}).Status, 130);
    const netrove::Error there(netrove::ErrorKind::File, "NETROVE:client:FileExists", {"f"}, "f exists");
    const Verdict verdict = judge(there, {});
    EXPECT_EQ(verdict.Status, 23);
    EXPECT_EQ(verdict.Message.identifier(), "NETROVE:cli:FileExists");
    EXPECT_EQ(verdict.Message.Arguments, (std::vector<vantik::MessageArgument>{"f"}));
    EXPECT_EQ(verdict.Message.Text, "f exists; use --force to replace it");
}

TEST(Judge, ReportsAnOrdinaryFailureAsItIs) {
    const Verdict verdict = judge(ofTransfer("UnknownHost", {"http://h/"}), {});
    EXPECT_EQ(verdict.Status, 6);
    EXPECT_EQ(verdict.Message.identifier(), "VANTIK:webservices:UnknownHost");
    EXPECT_EQ(verdict.Message.Text, "text");
}

} // namespace
