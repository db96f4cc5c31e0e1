#include "cli/options/OptionParser.h"

#include "tests/support/process/TemporaryFolder.h"
#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

ParseResult parse(const std::vector<std::string>& words) {
    std::vector<const char*> argv = {"netrove"};
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    return parseCommandLine(static_cast<int>(argv.size()), argv.data());
}

// The text of the usage failure; empty where the line is accepted.
std::string refusal(const std::vector<std::string>& words) {
    try {
        parse(words);
    } catch (const vantik::Failure& failure) {
        EXPECT_EQ(failure.identifier(), "NETROVE:cli:Usage");
        return failure.what();
    }
    return {};
}

TEST(OptionParser, ACommandAndItsUrlAreTaken) {
    const Settings settings = parse({"get", "http://h/x"}).Settings;
    EXPECT_EQ(settings.Command, Command::Get);
    EXPECT_EQ(settings.Url, "http://h/x");
    EXPECT_EQ(settings.effectiveMethod(), "GET");
    EXPECT_EQ(settings.redirectLimit(), 20);
    EXPECT_TRUE(settings.VerifyPeer);
    EXPECT_TRUE(settings.VerifyName);
    EXPECT_TRUE(settings.Decode);
    EXPECT_EQ(settings.Proxy, "auto");
    EXPECT_EQ(parse({"save", "http://h/x", "file"}).Settings.Target, "file");
}

TEST(OptionParser, EveryOptionReachesItsSetting) {
    const Settings s = parse({"send",
                              "http://h/",
                              "-X",
                              "PATCH",
                              "-H",
                              "A: 1",
                              "-H",
                              "B: 2",
                              "--remove-field",
                              "C",
                              "-T",
                              "data",
                              "--buffer-size",
                              "4k",
                              "--chunked",
                              "-o",
                              "out",
                              "-i",
                              "--consumer",
                              "--no-decode",
                              "--follow",
                              "3",
                              "-f",
                              "-u",
                              "me",
                              "--password",
                              "pw",
                              "--auth",
                              "Digest,ntlm",
                              "--proxy-user",
                              "you",
                              "--proxy-password",
                              "qw",
                              "--proxy-auth",
                              "basic",
                              "-x",
                              "p:3128",
                              "--connect-timeout",
                              "100",
                              "--response-timeout",
                              "200.5",
                              "--data-timeout",
                              "0",
                              "-m",
                              "1.5",
                              "--ca-file",
                              "ca.pem",
                              "--no-verify-name",
                              "--progress",
                              "-vv",
                              "--json-errors",
                              "--color",
                              "never"})
                           .Settings;
    EXPECT_EQ(s.Method, "PATCH");
    EXPECT_EQ(s.Fields, (std::vector<Field>{{"A", "1"}, {"B", "2"}}));
    EXPECT_EQ(s.RemovedFields, (std::vector<std::string>{"C"}));
    EXPECT_EQ(s.StreamFile, "data");
    EXPECT_EQ(s.BufferSize, 4096u);
    EXPECT_TRUE(s.Chunked && s.Include && !s.Decode && s.Fail);
    EXPECT_EQ(s.OutputFile, "out");
    EXPECT_EQ(s.redirectLimit(), 3);
    EXPECT_EQ(s.User, "me");
    EXPECT_EQ(s.Password, "pw");
    EXPECT_EQ(s.Auth, (std::vector<std::string>{"Digest", "NTLM"}));
    EXPECT_EQ(s.ProxyUser, "you");
    EXPECT_EQ(s.ProxyPassword, "qw");
    EXPECT_EQ(s.ProxyAuth, (std::vector<std::string>{"Basic"}));
    EXPECT_EQ(s.Proxy, "p:3128");
    EXPECT_EQ(s.ConnectTimeout, 100);
    EXPECT_EQ(s.ResponseTimeout, 200.5);
    EXPECT_EQ(s.DataTimeout, std::numeric_limits<double>::infinity());
    EXPECT_EQ(s.MaxTime, 1.5);
    EXPECT_EQ(s.CaFile, "ca.pem");
    EXPECT_FALSE(s.VerifyName);
    EXPECT_EQ(s.Progress, true);
    EXPECT_EQ(s.Debug, 2);
    EXPECT_TRUE(s.JsonErrors);
    EXPECT_EQ(s.Color, ColorChoice::Never);
}

TEST(OptionParser, AFlagTakesNoValueFromTheUrl) {
    const Settings settings = parse({"get", "-v", "-L", "http://h/"}).Settings;
    EXPECT_EQ(settings.Url, "http://h/");
    EXPECT_EQ(settings.Debug, 1);
    EXPECT_EQ(settings.redirectLimit(), 20);
}

TEST(OptionParser, TheLastOfContradictingOptionsCounts) {
    EXPECT_EQ(parse({"send", "-L", "--no-follow", "http://h/"}).Settings.redirectLimit(), 0);
    EXPECT_EQ(parse({"send", "--no-follow", "-L", "http://h/"}).Settings.redirectLimit(), 20);
    EXPECT_EQ(parse({"get", "--no-progress", "--progress", "http://h/"}).Settings.Progress, true);
    EXPECT_EQ(parse({"get", "--follow", "5", "--follow", "7", "http://h/"}).Settings.redirectLimit(), 7);
}

TEST(OptionParser, OptionsEndAtTwoDashes) {
    EXPECT_EQ(parse({"save", "http://h/", "--", "-f"}).Settings.Target, "-f");
}

TEST(OptionParser, SeveralBodiesAreJoinedAndFilesAreRead) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("part"), "c=3");
    const Settings settings =
        parse({"send", "http://h/", "-d", "a=1", "-d", "b=2", "-d", "@" + folder.file("part")}).Settings;
    EXPECT_EQ(settings.BodyText, "a=1&b=2&c=3");
    EXPECT_EQ(settings.effectiveMethod(), "POST");
    EXPECT_EQ(parse({"send", "http://h/", "-d", ""}).Settings.BodyText, "");
    EXPECT_EQ(parse({"send", "http://h/", "-T", "-"}).Settings.effectiveMethod(), "PUT");
}

TEST(OptionParser, FieldsOfAFileStandAmongTheOthers) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("fields"), "Authorization: Bearer hush\nX-Key: k\n");
    EXPECT_EQ(
        parse({"get", "-H", "A: 1", "-H", "@" + folder.file("fields"), "-H", "B: 2", "http://h/"}).Settings.Fields,
        (std::vector<Field>{{"A", "1"}, {"Authorization", "Bearer hush"}, {"X-Key", "k"}, {"B", "2"}}));
    EXPECT_THROW(parse({"get", "-H", "@" + folder.file("none"), "http://h/"}), vantik::Failure);
}

TEST(OptionParser, CredentialsInTheUrlAreTakenOutOfIt) {
    Settings settings = parse({"get", "http://me:pass%20word@h/x"}).Settings;
    EXPECT_EQ(settings.Url, "http://h/x");
    EXPECT_EQ(settings.User, "me");
    EXPECT_EQ(settings.Password, "pass word");
    settings = parse({"get", "-u", "other:pw:d", "http://me:secret@h/x"}).Settings;
    EXPECT_EQ(settings.Url, "http://h/x");
    EXPECT_EQ(settings.User, "other");
    EXPECT_EQ(settings.Password, "pw:d");
}

TEST(OptionParser, WrongUsageIsRefused) {
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"fetch", "http://h/"},
        {"get"},
        {"get", ""},
        {"get", "http://h/", "http://i/"},
        {"get", "--unknown", "http://h/"},
        {"get", "-X", "POST", "http://h/"},
        {"get", "http://h/\r\nX: y"},
        {"send", "-X", "BAD METHOD", "http://h/"},
        {"send", "-H", "no field", "http://h/"},
        {"send", "-H", "X: a\r\nY: b", "http://h/"},
        {"send", "--remove-field", "X:", "http://h/"},
        {"send", "-d", "a", "--body-file", "b", "http://h/"},
        {"send", "-X", "GET", "-d", "a", "http://h/"},
        {"send", "-X", "head", "-d", "a", "http://h/"},
        {"send", "-T", "f", "--simple", "http://h/"},
        {"send", "--chunked", "http://h/"},
        {"send", "--buffer-size", "10", "http://h/"},
        {"send", "-T", "f", "--buffer-size", "0", "http://h/"},
        {"send", "-T", "f", "--buffer-size", "1G", "http://h/"},
        {"send", "--body-file", "", "http://h/"},
        {"get", "-o", "", "http://h/"},
        {"get", "--ca-file", "", "http://h/"},
        {"get", "--ca-file", "x", "-k", "http://h/"},
        {"get", "--follow", "-1", "http://h/"},
        {"get", "--follow", "many", "http://h/"},
        {"get", "--connect-timeout", "nan", "http://h/"},
        {"get", "--connect-timeout", "-1", "http://h/"},
        {"get", "--response-timeout", "1e12", "http://h/"},
        {"get", "--data-timeout", "10s", "http://h/"},
        {"get", "-m", "0", "http://h/"},
        {"get", "-m", "1,5", "http://h/"},
        {"get", "--color", "pink", "http://h/"},
        {"get", "--auth", "basic", "http://h/"},
        {"get", "-u", "me", "--auth", "magic", "http://h/"},
        {"get", "-u", "me", "--auth", "", "http://h/"},
        {"get", "-u", "m\ne:pw", "http://h/"},
        {"get", "--password", "pw", "http://h/"},
        {"get", "--proxy-password", "pw", "http://h/"},
        {"get", "-u", "me:pw", "--auth", "basic", "--simple", "http://h/"},
        {"get", "-x", "p:99999", "http://h/"},
        {"get", "-x", "ftp://h:80", "http://h/"},
        {"get", "--debug", "3", "http://h/"},
        {"get", "-x", "p:3128/path", "http://h/"},
        {"save", "http://h/", "-"},
        {"describe", "http://h/"},
        {"proxy", "-X", "GET", "http://h/"},
    };
    for (const auto& line : lines) {
        std::string shown;
        for (const std::string& word : line) {
            shown += word + " ";
        }
        const std::string text = refusal(line);
        EXPECT_NE(text, "") << shown;
        EXPECT_EQ(text.find('\n'), std::string::npos) << shown;
    }
}

TEST(OptionParser, ARefusedValueComesWithItsRange) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> lines = {
        {{"get", "--connect-timeout", "abc", "http://h/"},
         "'abc' is not a valid value for --connect-timeout; it takes a number from 0 to 2147483647"},
        {{"get", "-m", "0", "http://h/"}, "'0' is not a valid value for --max-time; it takes a number from 0.001 to 100000000"},
        {{"batch", "--jobs", "65", "list"}, "'65' is not a valid value for --jobs; it takes a whole number from 1 to 64"},
        {{"get", "--debug", "7", "http://h/"}, "'7' is not a valid value for --debug; it takes a whole number from 0 to 2"},
        {{"send", "-T", "f", "--buffer-size", "1G", "http://h/"},
         "'1G' is not a valid value for --buffer-size; it takes a whole number from 1 to 64M, which k or M may follow"},
        {{"send", "-T", "f", "--buffer-size", "65M", "http://h/"},
         "'65M' is not a valid value for --buffer-size; it takes a whole number from 1 to 64M, which k or M may follow"},
    };
    for (const auto& [line, text] : lines) {
        EXPECT_EQ(refusal(line), text);
    }
    EXPECT_EQ(parse({"send", "-T", "f", "--buffer-size", "64M", "http://h/"}).Settings.BufferSize, 64u << 20);
    EXPECT_EQ(parse({"send", "-T", "f", "--buffer-size", "67108864", "http://h/"}).Settings.BufferSize, 64u << 20);
}

TEST(OptionParser, AnOptionOfAnotherCommandIsSaidToBeThere) {
    EXPECT_EQ(refusal({"get", "-X", "POST", "http://h/"}), "unknown option '-X' for get; send has it");
    EXPECT_EQ(refusal({"get", "-d", "a=b", "http://h/"}), "unknown option '-d' for get; send has it");
    EXPECT_EQ(refusal({"save", "-ox", "http://h/"}), "unknown option '-o' for save; get and send have it");
    EXPECT_EQ(refusal({"get", "--jobs=3", "http://h/"}), "unknown option '--jobs' for get; batch has it");
    EXPECT_EQ(refusal({"-i", "http://h/"}), "unknown option '-i'; get and send have it");
    EXPECT_EQ(refusal({"get", "-psecret", "http://h/"}), "unknown option '-p' for get");
}

TEST(OptionParser, HelpIsTextAndNoFailure) {
    const auto help = parse({"--help"}).Help;
    ASSERT_TRUE(help);
    for (const char* word : {"get", "save", "send", "proxy", "describe", "demo", "--version"}) {
        EXPECT_NE(help->find(word), std::string::npos) << word;
    }
    const auto sendHelp = parse({"send", "--help"}).Help;
    ASSERT_TRUE(sendHelp);
    for (const char* word : {"-X,--method", "-T,--stream-file", "--no-verify", "130", "basic and digest"}) {
        EXPECT_NE(sendHelp->find(word), std::string::npos) << word;
    }
}

TEST(OptionParser, JsonErrorsAreNoticedBeforeTheParse) {
    const char* with[] = {"netrove", "get", "--json-errors"};
    const char* without[] = {"netrove", "get", "--", "--json-errors"};
    EXPECT_TRUE(wantsJsonErrors(3, with));
    EXPECT_FALSE(wantsJsonErrors(4, without));
}

TEST(OptionParser, SecretsAreWipedFromTheArguments) {
    std::vector<std::string> words = {
        "netrove",          "send",  "-u", "me:first", "--password=second",     "--proxy-user", "you",
        "--proxy-password", "third", "-x", "a:b@p:1",  "http://x:fourth@h/p@th"};
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    const ParseResult result = parseCommandLine(static_cast<int>(argv.size()), argv.data());
    EXPECT_EQ(result.Settings.Password, "second");
    wipeSecrets(static_cast<int>(argv.size()), argv.data(), result.Secrets);
    EXPECT_EQ(words[3], "me:xxxxx");
    EXPECT_EQ(words[4], "--password=xxxxxx");
    EXPECT_EQ(words[8], "xxxxx");
    EXPECT_EQ(words[10], "xxx@p:1");
    EXPECT_EQ(words[11], "http://xxxxxxxx@h/p@th");
    EXPECT_EQ(words[6], "you");
}

TEST(OptionParser, CredentialsInFieldsAreWipedFromTheArguments) {
    std::vector<std::string> words = {"netrove",      "get",
                                      "-H",           "Authorization: Bearer tok",
                                      "-HCookie:s=1", "--field=proxy-authorization: \tb",
                                      "-H",           "Accept: text/html",
                                      "-H",           "Cookie:",
                                      "http://h/"};
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    const ParseResult result = parseCommandLine(static_cast<int>(argv.size()), argv.data());
    EXPECT_EQ(result.Settings.Fields.at(0), (Field{"Authorization", "Bearer tok"}));
    wipeSecrets(static_cast<int>(argv.size()), argv.data(), result.Secrets);
    EXPECT_EQ(words[3], "Authorization: xxxxxxxxxx");
    EXPECT_EQ(words[4], "-HCookie:xxx");
    EXPECT_EQ(words[5], "--field=proxy-authorization: \tx");
    EXPECT_EQ(words[7], "Accept: text/html");
    EXPECT_EQ(words[9], "Cookie:");
}

} // namespace
