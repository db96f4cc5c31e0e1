// Fields of the request that options of their own stand for, and where they go with redirects.
#include "tests/cli/ProgramFixture.h"

namespace {

using namespace clitest;

using RequestFields = ProgramFixture;
using Sent = std::vector<std::pair<std::string, std::optional<std::string>>>; // nothing: it is not there

std::string redirectTo(const std::string& location, const std::string& more = "") {
    return "HTTP/1.1 302 Go\r\nLocation: " + location + "\r\n" + more + "Content-Length: 0\r\n\r\n";
}

struct Row {
    const char* Name;
    Words Arguments;
    std::string RequestLine;
    Sent Fields;
};

TEST_F(RequestFields, AreThoseOfTheirOptions) {
    // The scripted server is 127.0.0.1.
    writeFile(file("cookies"), "# Netscape HTTP Cookie File\n127.0.0.1\tFALSE\t/p\tFALSE\t0\tb\t2\n"
                               "other.org\tFALSE\t/\tFALSE\t0\tc\t3\n");
    writeFile(file("token"), "t0ken\n");
    const Row rows[] = {
        {"data in the query",
         {"get", "-G", "-d", "a=1", "-d", "b=2", "URL/x?q"},
         "GET /x?q&a=1&b=2",
         {{"Content-Length", std::nullopt}, {"Content-Type", std::nullopt}}},
        {"more in the query of a body",
         {"send", "--url-query", "q=a b", "-d", "x", "-X", "PUT", "URL/x"},
         "PUT /x?q=a+b",
         {{"Content-Length", "1"}}},
        {"JSON",
         {"send", "--json", "1", "URL"},
         "POST /",
         {{"Content-Type", "application/json"}, {"Accept", "application/json"}}},
        {"JSON of another type",
         {"send", "--json", "1", "-H", "Accept: */*", "-H", "Content-Type: a/b", "-X", "PUT", "URL"},
         "PUT /",
         {{"Content-Type", "a/b"}, {"Accept", "*/*"}}},
        {"a user agent",
         {"get", "-A", "me/1", "-e", "http://r/", "URL"},
         "GET /",
         {{"User-Agent", "me/1"}, {"Referer", "http://r/"}}},
        {"a user agent less", {"get", "-A", "", "URL"}, "GET /", {{"User-Agent", std::nullopt}}},
        {"a field counts more",
         {"get", "-A", "me", "-H", "user-agent: you", "-b", "a=1", "-H", "Cookie: z=0", "URL"},
         "GET /",
         {{"User-Agent", "you"}, {"Cookie", "z=0; "}}},
        {"cookies",
         {"get", "-b", "a=1; x=y", "-b", file("cookies"), "URL/p/q"},
         "GET /p/q",
         {{"Cookie", "a=1; x=y; b=2; "}}},
        {"a field less than its cookies",
         {"get", "-b", file("cookies"), "--remove-field", "cookie", "URL/p/q"},
         "GET /p/q",
         {{"Cookie", std::nullopt}}},
        {"a field for cookies of a file",
         {"get", "-b", file("cookies"), "-H", "Cookie: z=0", "URL/p/q"},
         "GET /p/q",
         {{"Cookie", "z=0; "}}},
        {"cookies of others", {"get", "-b", file("cookies"), "URL/"}, "GET /", {{"Cookie", std::nullopt}}},
        {"a token", {"get", "--bearer", "@" + file("token"), "URL"}, "GET /", {{"Authorization", "Bearer t0ken"}}},
        {"a token from the environment",
         {"get", "--bearer", "@env", "URL"},
         "GET /",
         {{"Authorization", "Bearer env-t"}}},
        {"a token in the environment alone", {"get", "URL"}, "GET /", {{"Authorization", std::nullopt}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.Name);
        const bool body = row.Arguments.at(0) == "send";
        const Exchanged run = runAgainst(body ? takingBody(1) : answering(response("done")), row.Arguments,
                                         {.Environment = {{"NETROVE_BEARER", "env-t"}}});
        EXPECT_THAT(run, ended(0, "done", ""));
        EXPECT_EQ(run.requestLine(), row.RequestLine + " HTTP/1.1");
        for (const auto& [name, value] : row.Fields) {
            EXPECT_EQ(run.field(name), value) << name;
        }
    }
}

TEST_F(RequestFields, OfCredentialsStayWithTheFirstServer) {
    writeFile(file("netrc"), "machine 127.0.0.1 login me password secret\n");
    std::filesystem::permissions(file("netrc"), std::filesystem::perms::owner_read);
    const std::string challenge =
        "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n";
    for (const Words& option : {Words{"--bearer", "t0ken"}, {"-b", "a=1"}, {"--netrc-file", file("netrc")}}) {
        SCOPED_TRACE(option.at(1));
        const ScriptedServer other(answering(challenge));
        const Exchanged run =
            runAgainst(answering(redirectTo(other.url("/b"))), Words{"send", "-L"} + option + Words{"URL"});
        EXPECT_EQ(run.Status, 0) << run.Err;
        const Record seen = other.waitUntilDone();
        ASSERT_EQ(seen.Heads.size(), 1u);
        EXPECT_EQ(fieldValue(seen.Heads.at(0), "Authorization"), std::nullopt);
        EXPECT_EQ(fieldValue(seen.Heads.at(0), "Cookie"), std::nullopt);
    }
}

// The cookies of each URL, and of each place that a redirect leads to, whatever the port, as in curl.
TEST_F(RequestFields, OfACookieFileAreChosenForEachRequest) {
    writeFile(file("cookies"), "127.0.0.1\tFALSE\t/a\tFALSE\t0\tat\ta\n127.0.0.1\tFALSE\t/b\tFALSE\t0\tat\tb\n"
                               "127.0.0.1\tFALSE\t/\tFALSE\t0\tall\t1\n127.0.0.1\tFALSE\t/\tFALSE\t1\told\t1\n"
                               "[::1]\tFALSE\t/\tFALSE\t0\tsix\t6\n");
    const ScriptedServer six(answering(response("6")), Pace::Whole, Family::IPv6);
    const ScriptedServer other({step::expectHead(), step::send(redirectTo(six.url("/a"))), step::awaitPeerEnd()});
    const Script first = {step::expectHead(),  step::send(response("0")),
                          step::expectHead(),  step::send(redirectTo("/b/c", "Set-Cookie: all=2; Path=/\r\n")),
                          step::expectHead(),  step::send(redirectTo(other.url("/a"))),
                          step::awaitPeerEnd()};
    const Exchanged run = runAgainst(first, {"get", "-b", "mine=1", "-b", file("cookies"), "URL/b", "URL/a"});
    EXPECT_THAT(run, ended(0, "06", ""));
    EXPECT_EQ(run.field("Cookie", 0), "mine=1; at=b; all=1; ");
    EXPECT_EQ(run.field("Cookie", 1), "mine=1; at=a; all=1; ");
    EXPECT_EQ(run.field("Cookie", 2), "all=2; mine=1; at=b; ");
    EXPECT_EQ(fieldValue(other.waitUntilDone().Heads.at(0), "Cookie"), "all=2; at=a; ");
    EXPECT_EQ(fieldValue(six.waitUntilDone().Heads.at(0), "Cookie"), "six=6; ");
}

TEST_F(RequestFields, OfCredentialsAreNotInTheListOfProcesses) {
    ScriptedServer server({step::expectHead(), step::signal("asked"), step::await("looked"),
                           step::send(response("done")), step::awaitPeerEnd()});
    Program program({"get", server.url(), "--bearer", "t0ken", "-b", "session=s3cret"});
    server.waitFor("asked");
    EXPECT_THAT(program.commandLine(), AllOf(HasSubstr("--bearer"), Not(HasSubstr("t0ken")), Not(HasSubstr("s3cret"))));
    server.raise("looked");
    EXPECT_THAT(program.wait(), ended(0, "done"));
}

TEST_F(RequestFields, AreTakenFromNetrcForTheHostOfTheUrl) {
    const std::string challenge =
        "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n";
    const Script asking = {step::expectHead(), step::send(challenge), step::expectHead(), step::send(response("in")),
                           step::awaitPeerEnd()};
    writeFile(file(".netrc"), "machine other login no password no\nmachine 127.0.0.1 login me password secret\n");
    std::filesystem::permissions(file(".netrc"), std::filesystem::perms::owner_read);
    constexpr const char* me = "Basic bWU6c2VjcmV0"; // me:secret
    for (const Words& options : {Words{"-n"}, {"--netrc-file", file(".netrc")}, {"-n", "-u", "me"}}) {
        const Exchanged run =
            runAgainst(asking, Words{"get", "URL"} + options, {.Environment = {{"HOME", Folder.path()}}});
        EXPECT_THAT(run, ended(0, "in", ""));
        EXPECT_EQ(run.field("Authorization", 1), me);
    }
    // In a list by the host of each line; a user of the command line or of the line counts more.
    const ScriptedServer server(asking);
    writeFile(file("list"), server.url() + " got\n");
    EXPECT_EQ(run({"batch", "list", "-n"}, {.Environment = {{"HOME", Folder.path()}}, .Folder = Folder.path()}).Status,
              0);
    EXPECT_EQ(fieldValue(server.waitUntilDone().Heads.at(1), "Authorization"), me);
}

TEST_F(RequestFields, ANetrcFileThatOthersMayReadIsNamed) {
    writeFile(file("netrc"), "machine other login no password no\n");
    std::filesystem::permissions(file("netrc"),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::others_read);
    const Exchanged run = runAgainst(answering(response("in")), {"get", "--netrc-file", file("netrc"), "URL"});
    EXPECT_THAT(run, ended(0, "in",
                           "netrove: note: " + file("netrc") +
                               " can be read by other users; 'chmod 600' keeps its passwords to you\n"));
    EXPECT_THAT(runAgainst(answering(response("in")), {"get", "-n", "URL"}), ended(0, "in", "")); // there is none
    EXPECT_THAT(
        clitest::run({"get", "--netrc-file", "/no/such/file", "http://127.0.0.1:1/"}),
        ended(26, "", "netrove: NETROVE:cli:FileNotRead: cannot read /no/such/file: No such file or directory\n"));
}

} // namespace
