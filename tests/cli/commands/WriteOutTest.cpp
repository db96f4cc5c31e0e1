// What is written of a transfer after its end.
#include "tests/cli/ProgramFixture.h"

#include <nlohmann/json.hpp>

namespace {

using namespace clitest;

using WriteOut = ProgramFixture;

TEST_F(WriteOut, NamesWhatCurlsUsersKnow) {
    const std::string answer = response("hello", {"Content-Type: text/plain", "X-A: one", "Set-Cookie: a=secret"});
    const std::pair<std::string, std::string> rows[] = {
        {"%{http_code}", "200"},
        {"%{response_code}|%{exitcode}|%{errormsg}", "200|0|"},
        {"%{size_download}\\n", "5\n"},
        {"%{content_type}\\t%{num_redirects} %{num_retries}", "text/plain\t0 0"},
        {"%{method} %{scheme} %{http_version} %{urlnum} %{num_headers}", "GET http 1.1 0 4"},
        {"100%% %{filename_effective}.", "100% ."},
        {"%header{x-a} %header{set-cookie} %header{none}.", "one *** ."},
        {"%{onerror}never", ""},
        {"%{stderr}lost%{stdout}kept", "kept"},
        {"{ %a %{", "{ %a %{"},
    };
    for (const auto& [format, text] : rows) {
        EXPECT_THAT(runAgainst(answering(answer), {"get", "-o", "/dev/null", "-w", format, "URL"}), ended(0, text))
            << format;
    }
    EXPECT_THAT(runAgainst(answering(answer), {"get", "-w", "%{time_total} %{time_starttransfer}", "URL"}).Out,
                testing::MatchesRegex("hello[0-9]+\\.[0-9]{6} [0-9]+\\.[0-9]{6}"));
    EXPECT_THAT(runAgainst(answering(answer), {"get", "-w", "%{stderr}said", "URL"}), ended(0, "hello", "said"));
    const Exchanged headers =
        runAgainst(answering(answer), {"get", "-I", "-o", "/dev/null", "-w", "%{header_json}", "URL"});
    EXPECT_EQ(nlohmann::json::parse(headers.Out),
              nlohmann::json::parse(R"({"content-type": ["text/plain"], "x-a": ["one"], "set-cookie": ["***"],
                                        "content-length": ["5"]})"));
}

TEST_F(WriteOut, SaysHowATransferFailed) {
    const Exchanged failed = runAgainst(answering(response("sorry", {}, "404 Not Found")),
                                        {"save", "-w", "%{json}", "URL/x", "file"}, here());
    EXPECT_EQ(failed.Status, 22);
    const auto object = nlohmann::json::parse(failed.Out);
    EXPECT_EQ(object.at("http_code"), 404);
    EXPECT_EQ(object.at("exitcode"), 22);
    EXPECT_EQ(object.at("url"), failed.Url + "x");
    EXPECT_EQ(object.at("filename_effective"), "file");
    EXPECT_THAT(object.at("errormsg").get<std::string>(), HasSubstr("404 Not Found"));
    EXPECT_GT(object.at("time_total").get<double>(), 0.0);
}

} // namespace
