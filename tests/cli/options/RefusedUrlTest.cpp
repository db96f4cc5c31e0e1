#include "cli/options/RefusedUrl.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace netrove::cli;

vantik::Message refusal(std::string key, std::vector<vantik::MessageArgument> arguments, std::string text) {
    return {"VANTIK:webservices", std::move(key), std::move(arguments), std::move(text)};
}

TEST(RefusedUrl, WhatStandsBeforeTheLastAtIsMasked) {
    EXPECT_EQ(maskRefusedUrl("alice:wonder@h/x"), "***@h/x");
    EXPECT_EQ(maskRefusedUrl("alice:w@n@h/x"), "***@h/x");
    EXPECT_EQ(maskRefusedUrl("http:/alice:wonder@h/"), "http:/***@h/");
    EXPECT_EQ(maskRefusedUrl("https//alice:wonder@h"), "https//***@h");
    EXPECT_EQ(maskRefusedUrl("HTTP:alice:wonder@h"), "HTTP:***@h");
    EXPECT_EQ(maskRefusedUrl("//alice:wonder@h/"), "//***@h/");
    EXPECT_EQ(maskRefusedUrl("://alice:wonder@h/"), "://***@h/");
    EXPECT_EQ(maskRefusedUrl("http://alice:won/der@h/"), "http://***@h/");
    EXPECT_EQ(maskRefusedUrl("ftp://alice:won/der@h/"), "ftp://***@h/");
    EXPECT_EQ(maskRefusedUrl("alice:https://@h/"), "***@h/");
    EXPECT_EQ(maskRefusedUrl("@"), "***@");
    for (const char* url : {"", "example.org", "http://h:99999/", "mailto:"}) {
        EXPECT_EQ(maskRefusedUrl(url), url);
    }
}

TEST(RefusedUrl, AMessageShowsItMaskedInTextAndArguments) {
    const std::string url = "https//alice:wo\"n der@h";
    const vantik::Message message = withRefusedUrlMasked(
        refusal("MalformedURL", {'"' + url + "\" (no protocol)"}, "Not usable: \"" + url + "\"."), url);
    EXPECT_EQ(message.Text, "Not usable: \"https//***@h\".");
    EXPECT_EQ(std::get<std::string>(message.Arguments.at(0)), "\"https//***@h\" (no protocol)");
}

TEST(RefusedUrl, AUserNameTakenForASchemeIsMaskedToo) {
    const vantik::Message message = withRefusedUrlMasked(
        refusal("ExpectedProtocol", {"alice", "alice:wonder@h", "http", "https"},
                "The URL alice:wonder@h has the scheme \"alice\". Expected \"http\" or \"https\"."),
        "alice:wonder@h");
    EXPECT_EQ(message.Text, "The URL ***@h has the scheme \"***\". Expected \"http\" or \"https\".");
    EXPECT_EQ(message.Arguments, (std::vector<vantik::MessageArgument>{"***", "***@h", "http", "https"}));
}

TEST(RefusedUrl, WhatTheHostWroteInAnotherFormIsMaskedByWords) {
    const vantik::Message message = withRefusedUrlMasked(
        refusal("MalformedURL", {"alice:w%C3%A4@h"}, "Not usable: alice:w%C3%A4@h."), "alice:w\xE4@h");
    EXPECT_EQ(message.Text, "Not usable: ***@h.");
    EXPECT_EQ(std::get<std::string>(message.Arguments.at(0)), "***@h");
}

TEST(RefusedUrl, OnlyFailuresOfTheUrlAreChanged) {
    const auto raised = [](std::string key) {
        try {
            maskingRefused("http://h/a@b", [&] { throw vantik::Failure(refusal(key, {}, "about http://h/a@b")); });
        } catch (const vantik::Failure& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_EQ(raised("MalformedURL"), "about http://***@b");
    EXPECT_EQ(raised("UnknownHost"), "about http://h/a@b");
    EXPECT_EQ(maskingRefused("", [] { return 7; }), 7);
}

TEST(RefusedUrl, TheUrlMayChangeMeanwhile) {
    std::string url = "http:/alice:wonder@h/";
    try {
        maskingRefused(url, [&] {
            url = "another URL, which is longer";
            throw vantik::Failure(refusal("FileNotFound", {}, "about http:/alice:wonder@h/"));
        });
        FAIL();
    } catch (const vantik::Failure& failure) {
        EXPECT_STREQ(failure.what(), "about http:/***@h/");
    }
}

} // namespace
