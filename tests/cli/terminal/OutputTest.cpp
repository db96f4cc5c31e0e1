// How a failure is shown: the line, the JSON object, and what is kept out of both.
#include "cli/terminal/Output.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace {

using namespace netrove::cli;
using testing::HasSubstr;
using testing::Not;

Verdict verdict(std::string text, std::vector<vantik::MessageArgument> arguments = {}) {
    return {{"VANTIK:webservices", "Timeout", std::move(arguments), std::move(text)}, 28};
}

TEST(FailureText, IsOneLineWithoutControlCharacters) {
    EXPECT_EQ(Console().failureText(verdict("a\r\nb\x1b[31m")), "netrove: VANTIK:webservices:Timeout: a  b\\x1B[31m");
}

TEST(FailureText, MasksCredentials) {
    Console console;
    console.hide("Bearer 12345");
    console.hide("abc"); // too short to tell from ordinary text
    EXPECT_EQ(console.failureText(verdict("http://me:pw@h/ said Bearer 12345, Bearer 12345, abc")),
              "netrove: VANTIK:webservices:Timeout: http://***@h/ said ***, ***, abc");
    console.configure(ColorChoice::Never, true);
    EXPECT_THAT(console.failureText(verdict("x", {"http://me:pw@h/", "Bearer 12345"})),
                testing::AllOf(Not(HasSubstr("pw@")), Not(HasSubstr("12345"))));
}

TEST(FailureText, InJsonIsAsciiInOneLine) {
    Console console;
    console.configure(ColorChoice::Never, true);
    const std::string text = console.failureText(verdict("caf\xC3\xA9 \x1b \xFF", {std::int64_t{404}, "two\nlines"}));
    EXPECT_THAT(text, testing::Each(testing::Ge(' ')));
    EXPECT_EQ(nlohmann::json::parse(text), (nlohmann::json{{"identifier", "VANTIK:webservices:Timeout"},
                                                           {"message", "caf\xC3\xA9 \x1b \xEF\xBF\xBD"},
                                                           {"arguments", {404, "two\nlines"}},
                                                           {"exit", 28}}));
}

} // namespace
