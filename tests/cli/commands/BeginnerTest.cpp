// What somebody sees who makes the mistakes that everybody makes first: one sentence, and what to do.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace testsupport;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string complaint(const std::vector<std::string>& arguments, int status, const std::string& folder = {}) {
    const Outcome outcome = run(arguments, {.Folder = folder});
    EXPECT_EQ(outcome.Status, status) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "not one line: " << outcome.Err;
    return outcome.Err;
}

constexpr const char* kUsage = "netrove: NETROVE:cli:Usage: ";

TEST(Beginner, WhoGivesNoUrlIsToldHow) {
    EXPECT_EQ(complaint({}, 2), std::string(kUsage) +
                                    "no command; try 'netrove get URL', or 'netrove --help' for all of "
                                    "them\n");
    EXPECT_EQ(complaint({"get"}, 2), std::string(kUsage) + "no URL; give it as in 'netrove get https://example.org/'\n");
    EXPECT_EQ(complaint({"http://h/"}, 2), std::string(kUsage) + "no command; try 'netrove get http://h/'\n");
}

TEST(Beginner, WhoMistypesIsToldWhatWasMeant) {
    EXPECT_EQ(complaint({"gte", "http://h/"}, 2), std::string(kUsage) + "unknown command 'gte'; did you mean get?\n");
    EXPECT_EQ(complaint({"get", "--ouput=x", "http://h/"}, 2),
              std::string(kUsage) + "unknown option '--ouput' for get; did you mean --output?\n");
    EXPECT_EQ(complaint({"demo", "--location"}, 2),
              std::string(kUsage) + "unknown option '--location' for demo; get, save, send and batch have it\n");
    EXPECT_EQ(complaint({"fetch", "http://h/"}, 2),
              std::string(kUsage) + "unknown command 'fetch'; did you mean get?\n");
    for (const char* word : {"version", "-V"}) {
        EXPECT_THAT(complaint({word}, 2), HasSubstr("; did you mean --version?\n"));
    }
    EXPECT_EQ(complaint({"get", "http://h/", "more"}, 2), std::string(kUsage) + "unexpected argument 'more' for get\n");
    EXPECT_EQ(complaint({"get", "-o"}, 2), std::string(kUsage) + "--output needs a value\n");
}

TEST(Beginner, WhoForgetsTheSchemeIsToldToWriteIt) {
    for (const char* url : {"example.org/x", "localhost:8080/x", "my page"}) {
        EXPECT_THAT(complaint({"get", url}, 3),
                    AllOf(HasSubstr("Hint: put http:// or https:// in front of it.\n"), Not(HasSubstr("quotes"))))
            << url;
    }
    EXPECT_THAT(complaint({"get", "http:/h/"}, 3), HasSubstr("Hint: two slashes follow the scheme"));
}

TEST(Beginner, WhoHasABlankInAUrlIsToldAndNobodyElse) {
    EXPECT_THAT(complaint({"get", "http://a b/"}, 3), HasSubstr("put the URL in quotes, and write %20 for a blank"));
    for (const char* url : {"http://h:99999/", "ftp://h/", "http:///x"}) {
        EXPECT_THAT(complaint({"get", url}, 3), Not(HasSubstr("Hint:"))) << url;
    }
}

TEST(Beginner, WhoMeetsALimitIsToldItsOption) {
    ScriptedServer silent({step::expectHead(), step::awaitPeerEnd()});
    EXPECT_THAT(complaint({"get", "--response-timeout", "100", silent.url()}, 28),
                HasSubstr("Hint: --response-timeout MS sets that limit, 0 lifts it.\n"));
    ScriptedServer slow(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n"), step::awaitPeerEnd()});
    EXPECT_THAT(complaint({"get", "--data-timeout", "100", slow.url()}, 28),
                HasSubstr("Hint: --data-timeout MS sets that limit, 0 lifts it.\n"));
    const SilentPort unreachable;
    EXPECT_THAT(complaint({"get", "--connect-timeout", "100", unreachable.url()}, 28),
                HasSubstr("Hint: --connect-timeout MS sets that limit, 0 lifts it.\n"));
    ScriptedServer old({step::expectHead(), step::awaitPeerEnd()});
    EXPECT_THAT(complaint({"get", "--simple", "--response-timeout", "100", old.url()}, 28),
                HasSubstr("Hint: --connect-timeout MS and --response-timeout MS set that limit"));
}

TEST(Beginner, WhoCannotDecodeIsToldHowNotTo) {
    ScriptedServer server({step::expectHead(),
                           step::send("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nplain"),
                           step::awaitPeerEnd()});
    EXPECT_THAT(complaint({"get", server.url()}, 61),
                HasSubstr("Hint: --no-decode keeps the content as it was sent.\n"));
}

TEST(Beginner, WhoMixesUpHttpAndHttpsIsToldSo) {
    // What a server without TLS makes of a hello: it answers in plain text.
    ScriptedServer plain({step::send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"), step::awaitPeerEnd()});
    EXPECT_THAT(complaint({"get", "https://" + plain.authority() + "/"}, 60),
                HasSubstr("the server does not speak TLS on this port; try http://"));
    // And a server with TLS, of a request in plain text: it closes.
    ScriptedServer secure({step::expectHead(), step::close()});
    EXPECT_THAT(complaint({"get", secure.url()}, 1), HasSubstr("the server may expect TLS on this port; try https://"));
}

TEST(Beginner, WhoHasNoFolderOrHasTheFileIsToldSo) {
    const TemporaryFolder folder;
    writeFile(folder.file("here"), "old");
    EXPECT_THAT(complaint({"save", "http://127.0.0.1:1/", "missing/file"}, 23, folder.path()),
                HasSubstr("missing/file: No such file or directory. Hint: create the folder first."));
    EXPECT_THAT(complaint({"save", "http://127.0.0.1:1/", "here"}, 23, folder.path()),
                HasSubstr("here exists; use --force to replace it"));
    EXPECT_EQ(readFile(folder.file("here")), "old");
}

TEST(Beginner, WhoIsNotLoggedInIsToldHow) {
    ScriptedServer server(
        {step::expectHead(),
         step::send("HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=x\r\nContent-Length: 0\r\n\r\n")});
    EXPECT_THAT(complaint({"get", "-f", server.url()}, 22),
                HasSubstr("Hint: log in with --user NAME, or check name and password."));
}

TEST(Beginner, HintsAreForProgramsToo) {
    const Outcome outcome = run({"save", "--json-errors", "http://127.0.0.1:1/", "/no/such/folder/file"});
    EXPECT_THAT(outcome.Err, HasSubstr("\"hint\":\"create the folder first\""));
}

} // namespace
