// How a failure is shown: the line, the JSON object, and what is kept out of both.
#include "cli/failures/CliFailure.h"
#include "cli/terminal/Output.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace {

using namespace netrove::cli;

Verdict verdict(std::string text, std::vector<vantik::MessageArgument> arguments = {}) {
    return {{"VANTIK:webservices", "Timeout", std::move(arguments), std::move(text)}, 28};
}

TEST(DescriptionOfFailure, TheLineIsIdentifierThenText) {
    const Console console;
    EXPECT_EQ(console.failureText(verdict("too slow")), "netrove: VANTIK:webservices:Timeout: too slow");
}

TEST(DescriptionOfFailure, ItIsOneLineWithoutControlCharacters) {
    const Console console;
    EXPECT_EQ(console.failureText(verdict("a\r\nb\x1b[31m")), "netrove: VANTIK:webservices:Timeout: a  b\\x1B[31m");
}

TEST(DescriptionOfFailure, CredentialsAreMasked) {
    Console console;
    console.hide("Bearer 12345");
    console.hide("abc"); // too short to be told from ordinary text
    EXPECT_EQ(console.failureText(verdict("http://me:pw@h/ said Bearer 12345, Bearer 12345, abc")),
              "netrove: VANTIK:webservices:Timeout: http://***@h/ said ***, ***, abc");
    console.configure(ColorChoice::Never, true);
    const std::string json = console.failureText(verdict("x", {"http://me:pw@h/", "Bearer 12345"}));
    EXPECT_EQ(json.find("pw@"), std::string::npos);
    EXPECT_EQ(json.find("12345"), std::string::npos);
}

TEST(DescriptionOfFailure, JsonHoldsIdentifierMessageArgumentsAndStatus) {
    Console console;
    console.configure(ColorChoice::Never, true);
    const std::string text = console.failureText(verdict("caf\xC3\xA9 \x1b \xFF", {std::int64_t{404}, "two\nlines"}));
    EXPECT_EQ(text.find('\n'), std::string::npos);
    for (const char c : text) {
        EXPECT_GE(c, ' ') << "not plain ASCII";
    }
    const auto object = nlohmann::json::parse(text);
    EXPECT_EQ(object.at("identifier"), "VANTIK:webservices:Timeout");
    EXPECT_EQ(object.at("message"), "caf\xC3\xA9 \x1b \xEF\xBF\xBD");
    EXPECT_EQ(object.at("arguments"), (nlohmann::json{404, "two\nlines"}));
    EXPECT_EQ(object.at("exit"), 28);
    EXPECT_EQ(object.size(), 4u);
}

} // namespace
