// What the command line makes of servers that misbehave: exit status, one line that a person understands, and no file
// unless it is complete.
#include "tests/integration/faults/FrontPeer.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

namespace {

using namespace testsupport;
using integrationtest::Front;
using integrationtest::FrontPeer;
using testing::HasSubstr;
using testing::StartsWith;

struct Row {
    const char* Name;
    Script Answer;
    std::vector<std::string> Options;
    int Status;
    std::string Identifier; // without its catalogue
    std::string Words;      // in the text
    Front Road = Front::Direct;
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

Script closing(const std::string& answer) {
    return {step::send(answer), step::close()};
}

// clang-format off
std::vector<Row> rows() {
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::string chunks = head + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string hints = "HTTP/1.1 103 Early Hints\r\n\r\n";
    const std::string missing = "HTTP/1.1 404 Not Found\r\n";
    const std::string nine = head + "Content-Length: 9\r\n\r\n";
    return {
        {"SilentHead", {step::awaitPeerEnd()}, {"--response-timeout", "300"}, 28, "Timeout", "0.300 seconds"},
        {"SilentContent", {step::send(nine + "part"), step::awaitPeerEnd()}, {"--data-timeout", "3000"}, 28, "Timeout", "stopped sending"},
        {"EmptyAnswer", {step::close()}, {}, 1, "CopyContentToDataStreamError", "Empty reply from server"},
        {"ResetInTheHead", {step::send(head), step::reset()}, {}, 7, "ConnectionRefused", "reset by peer"},
        {"ResetInTheContent", {step::send(nine + "part"), step::reset()}, {}, 7, "ConnectionRefused", "reset by peer"},
        {"InterimHeadAlone", closing(hints), {}, 18, "PartialFileWarning", "incomplete"},
        {"InterimHeadThenSilence", {step::send(hints), step::awaitPeerEnd()}, {"--response-timeout", "300"}, 28, "Timeout", "0.300 seconds"},
        {"CutHeadOfAnError", closing(missing + "Content-Le"), {}, 18, "PartialFileWarning", "incomplete"},
        {"ShortContentOfAnError", closing(missing + "Content-Length: 9\r\n\r\npart"), {}, 18, "PartialFileWarning", "4 of 9 bytes"},
        {"ShortContent", closing(nine + "part"), {}, 18, "PartialFileWarning", "4 of 9 bytes"},
        {"ChunksWithoutAnEnd", closing(chunks + "4\r\nbody\r\n"), {}, 18, "PartialFileWarning", "after 4 bytes"},
        {"WrongChunk", closing(chunks + "4\r\nbody\r\nzz\r\n"), {}, 7, "ConnectionRefused", "hex"},
        {"WrongLength", closing(head + "Content-Length: -4\r\n\r\nbody"), {}, 1, "CopyContentToDataStreamError", "Invalid Content-Length"},
        {"LineFeedsOnly", closing("HTTP/1.1 200 OK\nContent-Length: 4\n\nbody"), {}, 1, "InternalError", "CRLF not found"},
        {"OtherProtocol", closing("220 mail.test ESMTP\r\n"), {}, 1, "CopyContentToDataStreamError", "HTTP/0.9"},
        {"LongHead", closing(response("body", std::vector<std::string>(400, "X: " + std::string(1024, 'f')))), {}, 7, "ConnectionRefused", "Too large response headers"},
        {"NotCompressed", closing(response("plain text", {"Content-Encoding: gzip"})), {}, 61, "DecodingError", "Content-Encoding \"gzip\""},
        {"UnknownCompression", closing(response("body", {"Content-Encoding: fancy"})), {}, 61, "DecodingError", "Content-Encoding \"fancy\""},
        {"UnknownTransferEncoding", closing(head + "Transfer-Encoding: fancy\r\n\r\nbody"), {"--no-decode"}, 61, "DecodingError", "Content-Encoding \"\""},
        {"SilentHead", {step::awaitPeerEnd()}, {"--response-timeout", "300"}, 28, "Timeout", "0.300 seconds", Front::Nghttpx},
        {"SilentContent", {step::send(nine + "part"), step::awaitPeerEnd()}, {"--data-timeout", "3000"}, 28, "Timeout", "stopped sending", Front::Nghttpx},
        {"ResetInTheContent", {step::send(nine + "part"), step::reset()}, {}, 1, "CopyContentToDataStreamError", "CURLE code 92", Front::Nghttpx},
        {"ShortContent", closing(nine + "part"), {}, 1, "CopyContentToDataStreamError", "CURLE code 92", Front::Nghttpx},
        {"ChunksWithoutAnEnd", closing(chunks + "4\r\nbody\r\n"), {}, 1, "CopyContentToDataStreamError", "CURLE code 92", Front::Nghttpx},
        {"WrongChunk", closing(chunks + "4\r\nbody\r\nzz\r\n"), {}, 1, "CopyContentToDataStreamError", "CURLE code 92", Front::Nghttpx},
        {"InterimHeadThenSilence", {step::send(hints), step::awaitPeerEnd()}, {"--response-timeout", "300"}, 28, "Timeout", "0.300 seconds", Front::Nghttpx},
        {"NotCompressed", closing(response("plain text", {"Content-Encoding: gzip"})), {}, 61, "DecodingError", "Content-Encoding \"gzip\"", Front::Nghttpx},
    };
}
// clang-format on

// One line, whatever has happened.
void expectFailure(const Outcome& outcome, int status, const std::string& identifier, const std::string& words) {
    EXPECT_EQ(outcome.Status, status) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, StartsWith("netrove: " + identifier + ": "));
    EXPECT_THAT(outcome.Err, HasSubstr(words));
    EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "one line: " << outcome.Err;
}

class FaultCommand : public testing::Test, public testing::WithParamInterface<Row> {};

TEST_P(FaultCommand, EndsWithItsStatusAndWithoutAFile) {
    const Row& row = GetParam();
    for (const bool consumer : {false, true}) {
        SCOPED_TRACE(consumer ? "through a consumer" : "into the file");
        Script script = {step::expectHead()};
        script.insert(script.end(), row.Answer.begin(), row.Answer.end());
        const TemporaryFolder folder;
        const ScriptedServer server(script);
        const FrontPeer road(row.Road, server.port(), "");
        std::vector<std::string> arguments = {"save", road.url(), "file"};
        arguments.insert(arguments.end(), row.Options.begin(), row.Options.end());
        if (!road.certificateFile().empty()) {
            arguments.insert(arguments.end(), {"--ca-file", road.certificateFile()});
        }
        if (consumer) {
            arguments.push_back("--consumer");
        }
        const Outcome outcome = run(arguments, {.Folder = folder.path()});
        expectFailure(outcome, row.Status, "VANTIK:webservices:" + row.Identifier, row.Words);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, FaultCommand, testing::ValuesIn(rows()),
                         [](const auto& info) { return info.param.Name + std::string(nameOf(info.param.Road)); });

TEST(FaultHeadCommand, CutShortAfterItsStatusIsNoAnswer) {
    const TemporaryFolder folder;
    const ScriptedServer server({{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Le"), step::close()},
                                 {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Le"), step::close()}});
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"get", server.url()}, {"save", server.url(), folder.file("file")}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.Status, 18);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_EQ(outcome.Err.find("netrove: VANTIK:webservices:PartialFileWarning: "), 0U) << outcome.Err;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

struct Ending {
    int Status;
    std::string Identifier;
    std::string Words;
};

struct UploadRow {
    const char* Name;
    Front Road;
    Script Answer; // behind the head of the request
    std::vector<std::string> Options;
    std::vector<Ending> Endings; // one of them: which one is a matter of moments
};

void PrintTo(const UploadRow& row, std::ostream* stream) {
    *stream << row.Name;
}

// More than every buffer on the way holds.
constexpr std::size_t kMuch = 24'000'000;

Script refusing() {
    return {step::discard(100'000), step::send(response("too large", {"Connection: close"}, "413 Too Large")),
            step::halfClose(), step::awaitPeerEnd()};
}

// libcurl 7 gives up an upload over HTTP/2 when the stream is ended early, and does not look at the answer then. It
// does not look at the limit of silence either.
std::vector<UploadRow> uploadRows() {
    const Script resetting = {step::discard(100'000), step::reset()};
    const Script deaf = {step::await("the end")};
    const Ending refused{22, "NETROVE:cli:StatusError", "the server answered 413"};
    const Ending received{7, "VANTIK:webservices:ConnectionRefused", "Recv failure: Connection reset by peer"};
    const Ending sent{1, "VANTIK:webservices:CopyContentToDataStreamError", "(CURLE code 55)"};
    const Ending streamEnded{1, "VANTIK:webservices:CopyContentToDataStreamError", "(CURLE code 92)"};
    const Ending badGateway{22, "NETROVE:cli:StatusError", "the server answered 502"};
    const Ending silent{28, "VANTIK:webservices:Timeout", "0.300 seconds"};
    const Ending late{28, "NETROVE:cli:MaxTime", "not complete after 1 s"};
    return {
        {"Refusal", Front::Direct, refusing(), {"--fail"}, {refused}},
        {"Refusal", Front::Nghttpx, refusing(), {"--fail"}, {refused, streamEnded}},
        {"Reset", Front::Direct, resetting, {}, {received, sent}},
        {"Reset", Front::Nghttpx, resetting, {"--fail"}, {badGateway, streamEnded}},
        {"ServerThatNeverReads", Front::Direct, deaf, {"--data-timeout", "300"}, {silent}},
        {"ServerThatNeverReads", Front::Nghttpx, deaf, {"--max-time", "1"}, {late}},
    };
}

class FaultUploadCommand : public testing::Test {
protected:
    FaultUploadCommand() { writeFile(Source.file("content"), patternedBytes(kMuch)); }

    // Sends to a server that plays a script, and receives into "file".
    Outcome send(Front front, const Script& answer, const std::vector<std::string>& options) {
        Script script = {step::expectHead()};
        script.insert(script.end(), answer.begin(), answer.end());
        ScriptedServer server(script);
        const FrontPeer road(front, server.port(), "");
        std::vector<std::string> arguments = {"send", "-X",   "PUT",     "-T", Source.file("content"),
                                              "-o",   "file", road.url()};
        if (!road.certificateFile().empty()) {
            arguments.insert(arguments.end(), {"--ca-file", road.certificateFile()});
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments, {.Folder = Folder.path()});
        server.raise("the end");
        return outcome;
    }

    const TemporaryFolder Source;
    const TemporaryFolder Folder;
};

class FaultUploadRows : public FaultUploadCommand, public testing::WithParamInterface<UploadRow> {};

TEST_P(FaultUploadRows, EndWithTheirStatusAndWithoutAFile) {
    const UploadRow& row = GetParam();
    const Outcome outcome = send(row.Road, row.Answer, row.Options);
    const auto ending = std::find_if(row.Endings.begin(), row.Endings.end(),
                                     [&](const Ending& each) { return each.Status == outcome.Status; });
    ASSERT_NE(ending, row.Endings.end()) << outcome.Status << " " << outcome.Err;
    expectFailure(outcome, ending->Status, ending->Identifier, ending->Words);
    EXPECT_TRUE(std::filesystem::is_empty(Folder.path()));
}

INSTANTIATE_TEST_SUITE_P(Table, FaultUploadRows, testing::ValuesIn(uploadRows()),
                         [](const auto& info) { return info.param.Name + std::string(nameOf(info.param.Road)); });

TEST_F(FaultUploadCommand, RefusalIsAnAnswerAndTold) {
    const Outcome outcome = send(Front::Direct, refusing(), {});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Err, "netrove: note: the server answered 413 Too Large; file holds that response\n");
    EXPECT_EQ(readFile(Folder.file("file")), "too large");
}

} // namespace
