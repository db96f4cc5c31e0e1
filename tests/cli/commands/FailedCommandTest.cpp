// What a failed run says: exit status, one line with identifier, text and hint, or one JSON object; never a credential.
// Of wrong usage: OptionParserTest.cpp. Of a signal: SignalsTest.cpp.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <nlohmann/json.hpp>

namespace {

using namespace clitest;
using testing::AllOf;

struct FailureCase {
    int Status;
    const char* Identifier;
    Words Arguments;
    Text Line = HasSubstr("");
    Script Server = {}; // that "URL" is of
};

void expectFailures(const std::vector<FailureCase>& cases) {
    for (const FailureCase& failure : cases) {
        std::string command;
        for (const std::string& word : failure.Arguments) {
            command += word + " ";
        }
        SCOPED_TRACE(command);
        const ScriptedServer server(failure.Server);
        Words words = withUrl(failure.Arguments, server);
        std::ranges::replace(words, "TLS", "https://" + server.authority() + "/");
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.Status, failure.Status);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, AllOf(StartsWith("netrove: " + std::string(failure.Identifier) + ": "), failure.Line));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "not one line: " << outcome.Err;
    }
}

TEST(FailedCommand, NamesWhatIsWrongWithAUrl) {
    const auto withoutHint = Not(HasSubstr("Hint:"));
    const auto noScheme = AllOf(HasSubstr("Hint: put http:// or https:// in front of it.\n"), Not(HasSubstr("quotes")));
    expectFailures({
        {2, "NETROVE:cli:Usage", {}, HasSubstr("no command; try 'netrove get URL'")},
        {3, "VANTIK:webservices:MalformedURL", {"get", "example.org/x"}, noScheme},
        {3, "VANTIK:webservices:ExpectedProtocol", {"get", "localhost:8080/x"}, noScheme},
        {3, "VANTIK:webservices:MalformedURL", {"get", "my page"}, noScheme},
        {3, "VANTIK:webservices:FileNotFound", {"get", "http:/h/"}, HasSubstr("Hint: two slashes follow the scheme")},
        {3,
         "VANTIK:webservices:MalformedURL",
         {"get", "http://a b/"},
         HasSubstr("put the URL in quotes, and write %20 for a space")},
        {3, "VANTIK:webservices:MalformedURL", {"get", "http://127.0.0.1:99999/"}, withoutHint},
        {3, "VANTIK:webservices:ExpectedProtocol", {"get", "ftp://127.0.0.1/"}, withoutHint},
        {3, "VANTIK:webservices:FileNotFound", {"get", "http:///x"}, withoutHint},
        // A name of a domain that is reserved for names that exist nowhere.
        {6, "VANTIK:webservices:UnknownHost", {"get", "-x", "none", "http://no-such-host.invalid/"}},
    });
}

TEST(FailedCommand, NamesTheLimitThatWasReached) {
    const Script silent = answering("");
    const Script half = answering(kOk + "Content-Length: 9\r\n\r\n");
    const SilentPort unreachable;
    expectFailures({
        {28,
         "VANTIK:webservices:Timeout",
         {"get", "--connect-timeout", "100", unreachable.url()},
         HasSubstr("Hint: --connect-timeout MS sets that limit, 0 lifts it.\n")},
        {28,
         "VANTIK:webservices:Timeout",
         {"get", "--response-timeout", "100", "URL"},
         HasSubstr("Hint: --response-timeout MS sets that limit, 0 lifts it.\n"),
         silent},
        {28,
         "VANTIK:webservices:Timeout",
         {"get", "--simple", "--response-timeout", "100", "URL"},
         HasSubstr("Hint: --connect-timeout MS and --response-timeout MS set that limit"),
         silent},
        {28,
         "VANTIK:webservices:Timeout",
         {"get", "--data-timeout", "100", "URL"},
         HasSubstr("Hint: --data-timeout MS sets that limit, 0 lifts it.\n"),
         half},
        {28, "NETROVE:cli:MaxTime", {"get", "-m", "0.2", "URL"}, HasSubstr("--max-time"), silent},
        {28, "NETROVE:cli:MaxTime", {"get", "-m", "0.2", "URL"}, HasSubstr("--max-time"), half},
        {28, "NETROVE:cli:MaxTime", {"send", "-m", "0.2", "-T", "-", "URL"}, HasSubstr("--max-time"), silent},
    });
}

TEST(FailedCommand, NamesWhatIsWrongWithTheServersAnswer) {
    expectFailures({
        {61,
         "VANTIK:webservices:DecodingError",
         {"get", "URL"},
         HasSubstr("Hint: --no-decode keeps the content as it was sent.\n"),
         answering(response("plain", {"Content-Encoding: gzip"}))},
        {22,
         "NETROVE:cli:StatusError",
         {"get", "-f", "URL"},
         HasSubstr("Hint: log in with --user NAME, or check name and password."),
         answering(response("", {"WWW-Authenticate: Basic realm=x"}, "401 Unauthorized"))},
        {22,
         "NETROVE:cli:StatusError",
         {"get", "-f", "URL"},
         AllOf(HasSubstr("\\x1B[31mred"), Not(HasSubstr("\x1b"))),
         answering(response("", {}, "404 \x1b[31mred"))},
        // What a server without TLS makes of a hello: it answers in plain text.
        {60,
         "VANTIK:webservices:SSLConnectionSystemFailure",
         {"get", "TLS"},
         HasSubstr("the server does not speak TLS on this port; try http://"),
         {step::send(response("", {}, "400 Bad Request")), step::awaitPeerEnd()}},
        {60,
         "VANTIK:webservices:SSLConnectionFailure",
         {"get", "--ca-file", "/no/such/ca.pem", "TLS"},
         HasSubstr(""),
         {step::awaitPeerEnd()}},
        // And a server with TLS, of a request in plain text: it closes.
        {1,
         "VANTIK:webservices:CopyContentToDataStreamError",
         {"get", "URL"},
         HasSubstr("the server may expect TLS on this port; try https://"),
         {step::expectHead(), step::close()}},
    });
}

TEST(FailedCommand, IsAJsonObjectWhereAsked) {
    const RefusingPort port;
    const Outcome refused = run({"get", "--json-errors", port.url("/x")});
    EXPECT_EQ(refused.Status, 7);
    EXPECT_EQ(refused.Err.find('\n'), refused.Err.size() - 1);
    const auto object = nlohmann::json::parse(refused.Err);
    EXPECT_EQ(object.at("identifier"), "VANTIK:webservices:ConnectionRefused");
    EXPECT_EQ(object.at("exit"), 7);
    EXPECT_EQ(object.at("arguments").at(0), port.url("/x"));
    EXPECT_NE(object.at("message"), "");

    const Outcome usage = run({"get", "--json-errors", "--nonsense", "http://h/"});
    EXPECT_EQ(usage.Status, 2);
    EXPECT_EQ(nlohmann::json::parse(usage.Err).at("identifier"), "NETROVE:cli:Usage");
    EXPECT_THAT(run({"save", "--json-errors", "http://127.0.0.1:1/", "/no/such/folder/file"}).Err,
                HasSubstr("\"hint\":\"create the folder first\""));
}

TEST(FailedCommand, NeverShowsCredentials) {
    const RefusingPort port;
    const std::string authority = "127.0.0.1:" + std::to_string(port.port());
    for (const Words& words : {Words{"http://me:s3cr3t@" + authority + "/x"},
                               {"-u", "me", "--password", "s3cr3t", port.url()},
                               {"-x", "me:s3cr3t@" + authority, "http://127.0.0.1:1/"},
                               {"ftp://me:s3cr3t@h/"}}) {
        for (const char* option : {"--no-progress", "--json-errors"}) {
            const Outcome outcome = run(Words{"get", option} + words);
            EXPECT_NE(outcome.Status, 0);
            EXPECT_THAT(outcome.Err, AllOf(StartsWith(option[2] == 'j' ? "{" : "netrove: "), Not(HasSubstr("s3cr3t"))));
        }
    }
}

// Where nobody can tell the parts of a URL, everything before its last '@' is secret.
TEST(FailedCommand, NeverShowsCredentialsOfAUrlThatIsRefused) {
    const auto expectMasked = [](const Words& words) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.Status, 3) << outcome.Err << outcome.Out;
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, AllOf(HasSubstr("***@h"), Not(HasSubstr("s3cr3t")), Not(HasSubstr("more")),
                                       Not(HasSubstr("alice"))));
    };
    for (const char* url :
         {"alice:s3cr3t@h/x", "http:/alice:s3cr3t@h/", "http:alice:s3cr3t@h/", "https//alice:s3cr3t@h",
          "//alice:s3cr3t@h/", ":/alice:s3cr3t@h/", "http://alice:s3cr3t/more@h/", "http://alice:s3cr3t?more@h/",
          "alice:s3cr3t more@h/", "ftp://alice:s3cr3t/more@h/"}) {
        SCOPED_TRACE(url);
        expectMasked({"get", "-x", "none", "--json-errors", url}); // shows the message and its arguments
    }
    expectMasked({"get", "-x", "none", "alice:s3cr3t@h/x"});
    expectMasked({"proxy", "http://alice:s3cr3t/more@h/"});
}

} // namespace
