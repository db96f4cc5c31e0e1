#include <gtest/gtest.h>
#include <netrove/refusedurl.h>

#include <string>
#include <vector>

namespace {

using namespace netrove;
using Arguments = std::vector<vantik::MessageArgument>;

vantik::Message refusal(std::string key, Arguments arguments, std::string text) {
    return {"VANTIK:webservices", std::move(key), std::move(arguments), std::move(text)};
}

// In brackets: what is masked.
TEST(RefusedUrl, WhatIsInFrontOfTheLastAtIsMasked) {
    for (const std::string text :
         {"[alice:wonder]@h/x", "[alice:w@n]@h/x", "http:/[alice:wonder]@h/", "https//[alice:wonder]@h",
          "HTTP:[alice:wonder]@h", "//[alice:wonder]@h/", "://[alice:wonder]@h/", "http://[alice:won/der]@h/",
          "ftp://[alice:won/der]@h/", "[alice:https://]@h/", "[]@"}) {
        const auto begin = text.find('[');
        const auto end = text.find(']');
        EXPECT_EQ(
            maskRefusedUrl(text.substr(0, begin) + text.substr(begin + 1, end - begin - 1) + text.substr(end + 1)),
            text.substr(0, begin) + "***" + text.substr(end + 1));
    }
    for (const char* url : {"", "example.org", "http://h:99999/", "mailto:"}) {
        EXPECT_EQ(maskRefusedUrl(url), url);
    }
}

struct MessageRow {
    std::string Url;
    vantik::Message Raised;
    std::string Text;
    Arguments Shown;
};

TEST(RefusedUrl, AMessageShowsItMaskedInTextAndArguments) {
    const MessageRow rows[] = {
        {"https//alice:wo\"n der@h",
         refusal("MalformedURL", {"\"https//alice:wo\"n der@h\" (no protocol)"}, "Bad: \"https//alice:wo\"n der@h\"."),
         "Bad: \"https//***@h\".",
         {"\"https//***@h\" (no protocol)"}},
        // A user name that was taken for a scheme.
        {"alice:wonder@h",
         refusal("ExpectedProtocol", {"alice", "alice:wonder@h", "http", "https"},
                 "The URL alice:wonder@h has the scheme \"alice\". Expected \"http\" or \"https\"."),
         "The URL ***@h has the scheme \"***\". Expected \"http\" or \"https\".",
         {"***", "***@h", "http", "https"}},
        // What the host wrote in another form is masked word by word.
        {"alice:w\xE4@h",
         refusal("MalformedURL", {"alice:w%C3%A4@h"}, "Bad: alice:w%C3%A4@h."),
         "Bad: ***@h.",
         {"***@h"}},
    };
    for (const MessageRow& row : rows) {
        const vantik::Message message = withRefusedUrlMasked(row.Raised, row.Url);
        EXPECT_EQ(message.Text, row.Text);
        EXPECT_EQ(message.Arguments, row.Shown) << row.Text;
    }
}

} // namespace
