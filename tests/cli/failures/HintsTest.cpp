#include "cli/failures/Hints.h"

#include "cli/failures/ExitStatus.h"
#include "cli/options/table/OptionTable.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

vantik::Message messageOf(const HintRow& row) {
    const std::string identifier(row.Identifier);
    const auto colon = identifier.rfind(':');
    vantik::Message message;
    message.Catalogue = identifier.substr(0, colon);
    message.Key = identifier.substr(colon + 1);
    const std::string words = row.Lacks ? "something else" : "before " + std::string(row.Needle) + " after";
    message.Text = row.Of == Party::Proxy ? "no secure connection to the proxy h:1" : "";
    if (row.Argument == kWholeText) {
        message.Text += words;
    } else {
        message.Arguments.assign(row.Argument + 1, "");
        message.Arguments.back() = words;
    }
    return message;
}

TEST(Hints, EachRowIsTheFirstThatFitsItsOwnWordsAndPartOfASentence) {
    for (const HintRow& row : hintTable()) {
        EXPECT_EQ(hintFor(messageOf(row)), row.Hint) << row.Identifier << ": " << row.Needle;
        EXPECT_FALSE(row.Hint.empty());
        EXPECT_FALSE(row.Hint.ends_with('.')) << row.Hint;
        EXPECT_EQ(row.Hint.find('\n'), row.Hint.npos);
    }
}

TEST(Hints, OtherFailuresHaveNone) {
    const vantik::Message rows[] = {
        {"VANTIK:webservices", "UnknownHost", {"a b", "wrong version number"}, "wrong version number"},
        {"VANTIK:webservices", "Timeout", {"http://h/", "1", "reason", "the system"}, "a text"},
        // The catalogue's text speaks of certificates, and has blanks, whatever the reason is.
        {"VANTIK:webservices", "MalformedURL", {"http://h:99/[x"}, "Not a usable URL: http://h:99/[x."},
        // What was asked for is TLS already, and a proxy is not the server.
        {"VANTIK:webservices", "CopyContentToDataStreamError", {"Empty reply from server", "https://h/"}, "a text"},
        {"VANTIK:webservices",
         "CopyContentToDataStreamError",
         {"Empty reply from server", "http://h/"},
         "the proxy h:1"},
        {"VANTIK:webservices",
         "ConnectionRefused",
         {"http://h/", "Connection reset"},
         "h:80 reset the connection after 4 bytes of content"},
        {"VANTIK:webservices",
         "SSLConnectionSystemFailure",
         {"https://h/", "unexpected eof while reading"},
         "No secure connection with the certificates of this system"},
        // An argument that is missing, and a number.
        {"VANTIK:webservices", "MalformedURL", {}, "a b"},
        {"NETROVE:cli", "StatusError", {std::int64_t{404}}, "answered 401"}};
    for (const vantik::Message& message : rows) {
        EXPECT_EQ(hintFor(message), "") << message.identifier();
    }
    EXPECT_NE(hintFor({"NETROVE:cli", "StatusError", {std::int64_t{401}}, "it said so"}), "");
}

TEST(Hints, OfAUrlSayWhatToWriteInstead) {
    const std::map<std::string, std::string> rows = {
        {"127.0.0.1:9080/x", "write http://127.0.0.1:9080/x, or https:// if it speaks TLS"},
        {"\"example.org/x\" (no protocol)", "write http://example.org/x, or https:// if it speaks TLS"},
        {"[::1]:80/x", "write http://[::1]:80/x, or https:// if it speaks TLS"},
        {"\"//h/x\" (no protocol)", "put http:// or https:// in front of it"},
        {"***@h/x", ""},
        {"http://h:99999/", "the port 99999 is above 65535, the largest there is"},
        {"http://me:1@h:123456789012345678901/", "the port 123456789012345678901 is above 65535, the largest there is"},
        {"http://[::1]:65536", "the port 65536 is above 65535, the largest there is"},
        {"http://h:8o80/", "'8o80' is not a port; a port is a number from 1 to 65535"},
        {"http://h:65535/", ""},
        {"http://[::1]/", ""},
    };
    for (const auto& [url, hint] : rows) {
        EXPECT_EQ(hintFor({"VANTIK:webservices", "MalformedURL", {url}, "a text"}), hint) << url;
    }
    EXPECT_EQ(hintFor({"VANTIK:webservices", "ExpectedProtocol", {"h", "h:8080/x"}, "a text"}),
              "write http://h:8080/x, or https:// if it speaks TLS");
    EXPECT_EQ(hintFor({"VANTIK:webservices", "ExpectedProtocol", {"mailto", "mailto:me"}, "a text"}),
              "put http:// or https:// in front of it");
}

TEST(NearestWord, IsAtMostTwoLettersAwayAndOneWhereItIsShort) {
    const std::vector<std::string> known = {"save", "send", "batch", "describe", "get", "--version"};
    const std::map<std::string, std::vector<const char*>> rows = {
        {"get", {"gte", "gat", "fetch"}}, // and what other programs say
        {"send", {"sned"}},
        {"describe", {"discribe", "describes", "decsribed"}},
        {"batch", {"batsh"}},
        {"--version", {"version", "-V"}},
        {"", {"beach", "gut!", "x", ""}},
    };
    for (const auto& [nearest, words] : rows) {
        for (const char* word : words) {
            EXPECT_EQ(nearestWord(word, known), nearest) << word;
        }
    }
    EXPECT_EQ(nearestWord("upload", std::vector<std::string>{"batch", "get"}), "");
}

} // namespace
