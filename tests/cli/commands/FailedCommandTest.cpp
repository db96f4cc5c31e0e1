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
    const auto instead = [](const std::string& url) {
        return AllOf(HasSubstr(". Hint: write " + url + ", or https:// if it speaks TLS.\n"),
                     Not(HasSubstr("Write it as")));
    };
    expectFailures({
        {2, "cli:Usage", "", HasSubstr("no command; try 'netrove get URL'")},
        {3, "MalformedURL", "get example.org/x", instead("http://example.org/x")},
        {3, "ExpectedProtocol", "get localhost:8080/x", instead("http://localhost:8080/x")},
        {3, "MalformedURL", "get 127.0.0.1:9080/x", instead("http://127.0.0.1:9080/x")},
        {3, "MalformedURL", "get my_page", HasSubstr("Hint: put http:// or https:// in front of it.\n")},
        {3, "FileNotFound", "get http:/h/", HasSubstr("Hint: two slashes follow the scheme")},
        {3, "MalformedURL", "get http://a_b/", HasSubstr("put the URL in quotes, and write %20 for a space")},
        {3, "MalformedURL", "get http://127.0.0.1:99999/", HasSubstr("Hint: the port 99999 is above 65535")},
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
        return AllOf(HasSubstr(" for 0.100 s, the limit of " + option + ". Hint: 0 lifts that limit.\n"),
                     Not(HasSubstr("options.")), Not(HasSubstr("Options.")));
    };
    const auto maxTime = HasSubstr("--max-time");
    expectFailures({
        {28, "Timeout", "get --connect-timeout 100 " + unreachable.url(), setBy("--connect-timeout")},
        {28, "Timeout", "get --response-timeout 100 URL", setBy("--response-timeout"), silent},
        {28, "Timeout", "get --response-timeout 100 URL", setBy("--response-timeout"), interim},
        {28, "Timeout", "get --simple --response-timeout 100 URL", setBy("--response-timeout"), silent},
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
         testing::EndsWith(" does not speak TLS on this port. Hint: try http:// or another port.\n"), plain},
        {60, "SSLConnectionFailure", "get --ca-file /no/such/ca.pem TLS", _, {step::awaitPeerEnd()}},
        {1, "CopyContentToDataStreamError", "get URL",
         HasSubstr("the server may expect TLS on this port; try https://"), closing},
    });
}

TEST(FailedCommand, NamesTheProxyWhereItIsTheOneThatFails) {
    const RefusingPort dead;
    const SilentPort silent;
    const auto ofProxy = [](const std::string& text) {
        return AllOf(HasSubstr(": " + text), Not(HasSubstr("h.test")));
    };
    const auto at = [](std::uint16_t port) { return "the proxy 127.0.0.1:" + std::to_string(port); };
    for (const std::string url : {" http://h.test/", " https://h.test/"}) {
        expectFailures({
            {7, "ConnectionRefused", "get -x 127.0.0.1:" + std::to_string(dead.port()) + url,
             ofProxy("no connection to " + at(dead.port()) + ": nothing listens there")},
            {28, "Timeout", "get --connect-timeout 100 -x " + silent.url().substr(7) + url,
             ofProxy("no connection to the proxy ")},
        });
        const ScriptedServer plain(Script{step::send(response("", {}, "400 Bad Request")), step::awaitPeerEnd()});
        expectFailures({{60, "SSLConnectionSystemFailure", "get -x https://" + plain.authority() + url,
                         ofProxy("the proxy https://" + plain.authority() +
                                 " does not speak TLS on this port. Hint: write the proxy with http:// in front")}});
    }
    const ScriptedServer closing(Script{step::expectHead(), step::close()});
    expectFailures({{1, "CopyContentToDataStreamError", "get -x " + closing.authority() + " http://h.test/",
                     AllOf(ofProxy("the proxy " + closing.authority() + " closed the connection without a response"),
                           Not(HasSubstr("Hint")))}});
}

TEST(FailedCommand, SaysHowFarAConnectionCame) {
    const std::string half = kOk + "Content-Length: 9\r\n\r\nhalf";
    expectFailures({
        {7,
         "ConnectionRefused",
         "get URL",
         AllOf(HasSubstr(" reset the connection before its response. Hint: the server may expect TLS on this port"),
               Not(HasSubstr("heck the port"))),
         {step::expectHead(), step::reset()}},
        {18,
         "PartialFileWarning",
         "get -o /dev/null URL",
         HasSubstr(" is incomplete: 4 of 9 bytes came; the connection was closed 5 bytes before the end\n"),
         {step::expectHead(), step::send(half), step::close()}},
    });
}

TEST(FailedCommand, NamesTheSchemesThatAreOffered) {
    const Script locked = answering(response("", {"WWW-Authenticate: Basic realm=x"}, "401 Unauthorized"));
    expectFailures({
        {22, "cli:StatusError", "get --auth digest -u me --password pw URL",
         HasSubstr("Hint: the server offers only basic; --auth basic allows that.\n"), locked},
        {22, "cli:StatusError", "get --auth basic -u me --password pw URL",
         HasSubstr("Hint: check name and password.\n"), locked},
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
