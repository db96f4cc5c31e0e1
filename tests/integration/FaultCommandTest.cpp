// What the command line makes of servers that misbehave: exit status, one line that a person understands, and no file
// unless it is complete.
#include "tests/support/ProgramRun.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WireText.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

struct Row {
    const char* Name;
    Script Answer;
    std::vector<std::string> Options;
    int Status;
    std::string Identifier; // without its catalogue
    std::string Words;      // in the text
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
    const std::string nine = head + "Content-Length: 9\r\n\r\n";
    return {
        {"SilentHead", {step::awaitPeerEnd()}, {"--response-timeout", "300"}, 28, "Timeout", "0.300 seconds"},
        {"SilentContent", {step::send(nine + "part"), step::awaitPeerEnd()}, {"--data-timeout", "300"}, 28, "Timeout", "stopped sending"},
        {"EmptyAnswer", {step::close()}, {}, 1, "CopyContentToDataStreamError", "Empty reply from server"},
        {"ResetInTheHead", {step::send(head), step::reset()}, {}, 7, "ConnectionRefused", "reset by peer"},
        {"ResetInTheContent", {step::send(nine + "part"), step::reset()}, {}, 7, "ConnectionRefused", "reset by peer"},
        {"ShortContent", closing(nine + "part"), {}, 18, "PartialFileWarning", "4 of 9 bytes"},
        {"ChunksWithoutAnEnd", closing(chunks + "4\r\nbody\r\n"), {}, 18, "PartialFileWarning", "behind 4 bytes"},
        {"WrongChunk", closing(chunks + "4\r\nbody\r\nzz\r\n"), {}, 7, "ConnectionRefused", "hex"},
        {"WrongLength", closing(head + "Content-Length: -4\r\n\r\nbody"), {}, 1, "CopyContentToDataStreamError", "Invalid Content-Length"},
        {"LineFeedsOnly", closing("HTTP/1.1 200 OK\nContent-Length: 4\n\nbody"), {}, 1, "InternalError", "CRLF not found"},
        {"OtherProtocol", closing("220 mail.test ESMTP\r\n"), {}, 1, "CopyContentToDataStreamError", "HTTP/0.9"},
        {"LongHead", closing(response("body", std::vector<std::string>(400, "X: " + std::string(1024, 'f')))), {}, 7, "ConnectionRefused", "Too large response headers"},
        {"NotCompressed", closing(response("plain text", {"Content-Encoding: gzip"})), {}, 61, "DecodingError", "Content-Encoding \"gzip\""},
        {"UnknownCompression", closing(response("body", {"Content-Encoding: fancy"})), {}, 61, "DecodingError", "Content-Encoding \"fancy\""},
    };
}
// clang-format on

class FaultCommand : public testing::Test, public testing::WithParamInterface<Row> {};

TEST_P(FaultCommand, EndsWithItsStatusAndWithoutAFile) {
    const Row& row = GetParam();
    for (const bool consumer : {false, true}) {
        SCOPED_TRACE(consumer ? "through a consumer" : "into the file");
        Script script = {step::expectHead()};
        script.insert(script.end(), row.Answer.begin(), row.Answer.end());
        const TemporaryFolder folder;
        const ScriptedServer server(script);
        std::vector<std::string> arguments = {"save", server.url("/p"), "file"};
        arguments.insert(arguments.end(), row.Options.begin(), row.Options.end());
        if (consumer) {
            arguments.push_back("--consumer");
        }
        const Outcome outcome = run(arguments, {.Folder = folder.path()});
        EXPECT_EQ(outcome.Status, row.Status) << outcome.Err;
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, StartsWith("netrove: VANTIK:webservices:" + row.Identifier + ": "));
        EXPECT_THAT(outcome.Err, HasSubstr(row.Words));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "one line: " << outcome.Err;
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, FaultCommand, testing::ValuesIn(rows()),
                         [](const auto& info) { return info.param.Name; });

} // namespace
