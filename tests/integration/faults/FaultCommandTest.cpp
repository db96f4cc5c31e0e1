// What the command line makes of servers that misbehave: exit status, one line that a person understands, and no file.
// Answers that are merely cut are in tests/cli.
#include "tests/integration/nginx/Nghttpx.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>

namespace {

using namespace testsupport;
using testing::HasSubstr;

struct Row {
    const char* Name;
    Script Answer; // after the request's head
    int Status;
    std::string Identifier; // without its catalogue
    std::string Words;      // in the text
    bool Http2 = false;
};

Script closing(const std::string& answer) {
    return {step::send(answer), step::close()};
}

// clang-format off
std::vector<Row> rows() {
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::string wrongChunk = head + "Transfer-Encoding: chunked\r\n\r\n4\r\nbody\r\nzz\r\n";
    const std::string notZipped = response("plain text", {"Content-Encoding: gzip"});
    return {
        {"EmptyAnswer", {step::close()}, 1, "CopyContentToDataStreamError", "Empty reply from server"},
        {"ResetInTheHead", {step::send(head), step::reset()}, 7, "ConnectionRefused", "reset by peer"},
        {"WrongChunk", closing(wrongChunk), 7, "ConnectionRefused", "hex"},
        {"WrongLength", closing(head + "Content-Length: -4\r\n\r\nbody"), 1, "CopyContentToDataStreamError", "Invalid Content-Length"},
        {"LineFeedsOnly", closing("HTTP/1.1 200 OK\nContent-Length: 4\n\nbody"), 1, "InternalError", "CRLF not found"},
        {"OtherProtocol", closing("220 mail.test ESMTP\r\n"), 1, "CopyContentToDataStreamError", "HTTP/0.9"},
        {"LongHead", closing(response("body", std::vector<std::string>(400, "X: " + std::string(1024, 'f')))), 7, "ConnectionRefused", "Too large response headers"},
        {"NotCompressed", closing(notZipped), 61, "DecodingError", "Content-Encoding \"gzip\""},
        {"UnknownTransferEncoding", closing(head + "Transfer-Encoding: fancy\r\n\r\nbody"), 61, "DecodingError", "Content-Encoding \"\""},
        {"SilentHeadOverHttp2", {step::awaitPeerEnd()}, 28, "Timeout", "0.300 seconds", true},
        {"ShortContentOverHttp2", closing(head + "Content-Length: 9\r\n\r\npart"), 1, "CopyContentToDataStreamError", "CURLE code 92", true},
        {"WrongChunkOverHttp2", closing(wrongChunk), 1, "CopyContentToDataStreamError", "CURLE code 92", true},
        {"NotCompressedOverHttp2", closing(notZipped), 61, "DecodingError", "Content-Encoding \"gzip\"", true},
    };
}
// clang-format on

class FaultCommand : public testing::TestWithParam<Row> {};

TEST_P(FaultCommand, EndsWithItsStatusAndWithoutAFile) {
    const Row& row = GetParam();
    for (const bool consumer : {false, true}) {
        SCOPED_TRACE(consumer ? "through a consumer" : "into the file");
        const TemporaryFolder folder;
        Script script = {step::expectHead()};
        script.insert(script.end(), row.Answer.begin(), row.Answer.end());
        const ScriptedServer server(script);
        std::vector<std::string> arguments = {"save", server.url(), "file"};
        std::unique_ptr<integrationtest::Nghttpx> front;
        if (row.Http2) {
            front = std::make_unique<integrationtest::Nghttpx>(server.port());
            arguments = {"save", front->url("/"), "file", "--ca-file", front->certificateFile()};
        }
        if (row.Status == 28) {
            arguments.insert(arguments.end(), {"--response-timeout", "300"});
        }
        if (consumer) {
            arguments.push_back("--consumer");
        }
        const Outcome outcome = run(arguments, {.Folder = folder.path()});
        EXPECT_EQ(outcome.Status, row.Status) << outcome.Err;
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, testing::StartsWith("netrove: VANTIK:webservices:" + row.Identifier + ": "));
        EXPECT_THAT(outcome.Err, HasSubstr(row.Words));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "one line: " << outcome.Err;
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, FaultCommand, testing::ValuesIn(rows()),
                         [](const auto& info) { return info.param.Name; });

} // namespace
