// What a failed run says: exit status, one line with identifier, text and hint, or one JSON object; never a credential.
// Of wrong usage: OptionParserTest.cpp. Of a signal: SignalsTest.cpp.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <nlohmann/json.hpp>

#include <sstream>

namespace {

using namespace clitest;
struct FailureCase {
    int Status;
    std::string Identifier; // "cli:Usage" of the program, "Timeout" of a transfer
    std::string Line;       // words; "_" stands for a blank within one
    Text Shown = _;
    Script Server = {}; // that "URL" and "TLS" are of
};

void expectFailures(const std::vector<FailureCase>& cases) {
    for (const FailureCase& failure : cases) {
        SCOPED_TRACE(failure.Line);
        const ScriptedServer server(failure.Server);
        Words words;
        std::istringstream parts(failure.Line);
        for (std::string word; parts >> word; words.push_back(word)) {
            std::ranges::replace(word, '_', ' ');
        }
        std::ranges::replace(words, "TLS", "https://" + server.authority() + "/");
        const bool ofProgram = failure.Identifier.starts_with("cli:");
        const std::string start = "netrove: " + ((ofProgram ? "NETROVE:" : "VANTIK:webservices:") + failure.Identifier);
        const Outcome outcome = run(withUrl(words, server));
        EXPECT_THAT(outcome, ended(failure.Status, "", AllOf(StartsWith(start + ": "), failure.Shown)));
        EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "not one line";
    }
}

TEST(FailedCommand, IsSilentWhenAsked) {
    const auto told = StartsWith("netrove: VANTIK:webservices:MalformedURL: ");
    EXPECT_THAT(run({"get", "-s", "http://a b/"}), ended(3, "", ""));
    EXPECT_THAT(run({"get", "-sS", "http://a b/"}), ended(3, "", told));
    EXPECT_THAT(run({"get", "-s", "--json-errors", "http://a b/"}), ended(3, "", StartsWith("{")));
}

TEST(FailedCommand, NamesWhatIsWrongWithAUrl) {
    const auto withoutHint = Not(HasSubstr("Hint:"));
    const auto noScheme = AllOf(HasSubstr("Hint: put http:// or https:// in front of it.\n"), Not(HasSubstr("quotes")));
    expectFailures({
        {2, "cli:Usage", "", HasSubstr("no command; try 'netrove get URL'")},
        {3, "MalformedURL", "get example.org/x", noScheme},
        {3, "ExpectedProtocol", "get localhost:8080/x", noScheme},
        {3, "MalformedURL", "get my_page", noScheme},
        {3, "FileNotFound", "get http:/h/", HasSubstr("Hint: two slashes follow the scheme")},
        {3, "MalformedURL", "get http://a_b/", HasSubstr("put the URL in quotes, and write %20 for a space")},
        {3, "MalformedURL", "get http://127.0.0.1:99999/", withoutHint},
        {3, "ExpectedProtocol", "get ftp://127.0.0.1/", withoutHint},
        {3, "FileNotFound", "get http:///x", withoutHint},
        // A name of a domain that is reserved for names that exist nowhere.
        {6, "UnknownHost", "get -x none http://no-such-host.invalid/"},
    });
}

TEST(FailedCommand, NamesTheLimitThatWasReached) {
    const Script silent = answering("");
    const Script half = answering(kOk + "Content-Length: 9\r\n\r\n");
    const Script interim = answering("HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n");
    const SilentPort unreachable;
    const auto setBy = [](const std::string& option) {
        return HasSubstr("Hint: " + option + " MS sets that limit, 0 lifts it.\n");
    };
    const auto both = HasSubstr("Hint: --connect-timeout MS and --response-timeout MS set that limit");
    const auto maxTime = HasSubstr("--max-time");
    expectFailures({
        {28, "Timeout", "get --connect-timeout 100 " + unreachable.url(), setBy("--connect-timeout")},
        {28, "Timeout", "get --response-timeout 100 URL", setBy("--response-timeout"), silent},
        {28, "Timeout", "get --response-timeout 100 URL", setBy("--response-timeout"), interim},
        {28, "Timeout", "get --simple --response-timeout 100 URL", both, silent},
        {28, "Timeout", "get --data-timeout 100 URL", setBy("--data-timeout"), half},
        {28, "cli:MaxTime", "get -m 0.2 URL", maxTime, silent},
        {28, "cli:MaxTime", "get -m 0.2 URL", maxTime, half},
        {28, "cli:MaxTime", "send -m 0.2 -T - URL", maxTime, silent},
    });
}

TEST(FailedCommand, NamesWhatIsWrongWithTheServersAnswer) {
    const Script packed = answering(response("plain", {"Content-Encoding: gzip"}));
    const Script locked = answering(response("", {"WWW-Authenticate: Basic realm=x"}, "401 Unauthorized"));
    const Script coloured = answering(response("", {}, "404 \x1b[31mred"));
    // What a server without TLS makes of a hello: it answers in plain text. And one with TLS, of a request in plain
    // text: it closes.
    const Script plain = {step::send(response("", {}, "400 Bad Request")), step::awaitPeerEnd()};
    const Script closing = {step::expectHead(), step::close()};
    expectFailures({
        {61, "DecodingError", "get URL", HasSubstr("Hint: --no-decode keeps the content as it was sent.\n"), packed},
        {22, "cli:StatusError", "get -f URL", HasSubstr("Hint: log in with --user NAME, or check name and password."),
         locked},
        {22, "cli:StatusError", "get -f URL", AllOf(HasSubstr("\\x1B[31mred"), Not(HasSubstr("\x1b"))), coloured},
        {60, "SSLConnectionSystemFailure", "get TLS",
         HasSubstr("the server does not speak TLS on this port; try http://"), plain},
        {60, "SSLConnectionFailure", "get --ca-file /no/such/ca.pem TLS", _, {step::awaitPeerEnd()}},
        {1, "CopyContentToDataStreamError", "get URL",
         HasSubstr("the server may expect TLS on this port; try https://"), closing},
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
        EXPECT_THAT(run(words), ended(3, "",
                                      AllOf(HasSubstr("***@h"), Not(HasSubstr("s3cr3t")), Not(HasSubstr("more")),
                                            Not(HasSubstr("alice")))));
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
