// What bounds a transfer: its size and its speed; and what asks for less.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/Gzip.h"

#include <csignal>

namespace {

using namespace clitest;

using LimitsCommand = ProgramFixture;

const std::string kChunks = kOk + "Transfer-Encoding: chunked\r\n\r\n";

TEST_F(LimitsCommand, ContentThatIsTooLargeIsRefusedAndNothingIsKept) {
    struct Row {
        std::string Answer;
        std::string Out;
        std::string Says;
    };
    const std::string says = "netrove: NETROVE:cli:ContentLimit: the content is larger than 1024 bytes, the limit of "
                             "--max-filesize";
    const Row rows[] = {
        {response(std::string(1025, 'x')), "", ": it has 1025\n"},
        {kChunks + chunked(std::string(1100, 'x'), 100), "", "\n"},
    };
    EXPECT_THAT(runAgainst(answering(rows[0].Answer), {"get", "--max-filesize", "1k", "URL"}),
                ended(63, "", says + rows[0].Says));
    for (const Row& row : rows) {
        EXPECT_EQ(runAgainst(answering(row.Answer), {"save", "--max-filesize", "1k", "URL", "file"}, here()).Status,
                  63);
        EXPECT_EQ(names(), Words{});
    }
    EXPECT_THAT(runAgainst(answering(response(std::string(1024, 'x'))), {"get", "--max-filesize", "1k", "URL"}),
                ended(0, std::string(1024, 'x')));
}

TEST_F(LimitsCommand, ContentAtALimitedSpeedIsWhole) {
    const std::string content = patternedBytes(50'000);
    for (const std::string option : {"--limit-rate", "--limit-rate-host"}) {
        EXPECT_EQ(difference(runAgainst(answering(response(content)), {"get", option, "1G", "URL"}).Out, content), "");
        writeFile(file("body"), content);
        const Exchanged sent =
            runAgainst(takingBody(content.size()), {"send", option, "1G", "-T", file("body"), "URL"});
        EXPECT_EQ(sent.Status, 0) << sent.Err;
        EXPECT_EQ(difference(sent.Seen.Bodies.at(0), content), "");
    }
}

// At this speed the content takes longer than any test, and so would a wait that does not end.
TEST_F(LimitsCommand, ASignalEndsTheWaitsOfALimitedSpeed) {
    const ScriptedServer server(answering(response(patternedBytes(1'000'000))));
    Program program({"get", "--limit-rate", "10", server.url()});
    program.waitForOutput(patternedBytes(1));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait().Status, 128 + SIGTERM);
}

TEST_F(LimitsCommand, CompressedContentIsAskedForAndDecoded) {
    const Exchanged got =
        runAgainst(answering(response(gzip("hello\n"), {"Content-Encoding: gzip"})), {"get", "--compressed", "URL"});
    EXPECT_THAT(got, ended(0, "hello\n", ""));
    EXPECT_THAT(got.field("Accept-Encoding").value_or(""), HasSubstr("gzip"));
    const Exchanged own =
        runAgainst(answering(response("hello\n")), {"get", "--compressed", "-H", "Accept-Encoding: br", "URL"});
    EXPECT_EQ(own.field("Accept-Encoding"), "br");
}

} // namespace
