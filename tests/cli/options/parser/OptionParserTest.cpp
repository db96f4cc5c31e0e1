// Of what the options stand for, and which of them contradict each other: Settings.cpp, by way of the parser.
#include "cli/options/parser/OptionParser.h"

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using testing::HasSubstr;
using Words = std::vector<std::string>;

// The words of a line, which are parted by blanks; '' is an empty one, URL one that is in order.
Words wordsOf(const std::string& line) {
    Words words;
    std::istringstream parts(line);
    for (std::string word; parts >> word;) {
        words.push_back(word == "''" ? "" : word == "URL" ? "http://h/" : word);
    }
    return words;
}

ParseResult parse(const Words& words) {
    std::vector<const char*> argv = {"netrove"};
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    return parseCommandLine(static_cast<int>(argv.size()), argv.data());
}
Settings parsed(const std::string& line) {
    return parse(wordsOf(line)).Settings;
}

constexpr double kNever = std::numeric_limits<double>::infinity();

// The text of the usage failure, which is one line.
std::string refusal(const Words& words) {
    const vantik::Message message = testsupport::failureOf([&] { parse(words); });
    EXPECT_EQ(message.identifier(), "NETROVE:cli:Usage");
    EXPECT_EQ(message.Text.find('\n'), message.Text.npos);
    return message.Text;
}
std::string refusal(const std::string& line) {
    return refusal(wordsOf(line));
}

TEST(OptionParser, TakesACommandAndItsUrl) {
    const Settings settings = parsed("get http://h/x");
    EXPECT_EQ(settings.Command, Command::Get);
    EXPECT_EQ(settings.Url, "http://h/x");
    EXPECT_EQ(settings.effectiveMethod(), "GET");
    EXPECT_EQ(settings.redirectLimit(), 20);
    EXPECT_TRUE(settings.VerifyPeer && settings.VerifyName && settings.Decode);
    EXPECT_EQ(settings.Proxy, "auto");
    EXPECT_EQ(parsed("save http://h/x file").Target, "file");
    EXPECT_EQ(parsed("save http://h/ -- -f").Target, "-f");
}

TEST(OptionParser, EveryOptionReachesItsSetting) {
    const Settings s =
        parsed("send URL -X PATCH -H A:1 -H B:2 --remove-field C -T data --buffer-size 4k --chunked -o out -i "
               "--consumer --no-decode --follow 3 -f -u me --password pw --auth Digest,ntlm --proxy-user you "
               "--proxy-password qw --proxy-auth basic -x p:3128 --connect-timeout 100 --response-timeout 200.5 "
               "--data-timeout 0 -m 1.5 --ca-file ca.pem --no-verify-name --progress -vv --json-errors --color never");
    EXPECT_EQ(s.Method, "PATCH");
    EXPECT_EQ(s.Fields, (std::vector<netrove::Field>{{"A", "1"}, {"B", "2"}}));
    EXPECT_EQ(s.RemovedFields, Words{"C"});
    EXPECT_EQ(s.StreamFile, "data");
    EXPECT_EQ(s.BufferSize, 4096u);
    EXPECT_EQ(parsed("send -T f --buffer-size 64M URL").BufferSize, 64u << 20);
    EXPECT_EQ(parsed("send -T f --buffer-size 67108864 URL").BufferSize, 64u << 20);
    EXPECT_TRUE(s.Chunked && s.Include && !s.Decode);
    EXPECT_EQ(s.onStatus(), StatusChoice::Fail);
    EXPECT_EQ(s.OutputFile, "out");
    EXPECT_EQ(s.redirectLimit(), 3);
    EXPECT_EQ(s.User, "me");
    EXPECT_EQ(s.Password, "pw");
    EXPECT_EQ(s.Auth, (Words{"Digest", "NTLM"}));
    EXPECT_EQ(s.ProxyUser, "you");
    EXPECT_EQ(s.ProxyPassword, "qw");
    EXPECT_EQ(s.ProxyAuth, Words{"Basic"});
    EXPECT_EQ(s.Proxy, "p:3128");
    EXPECT_EQ(s.ConnectTimeout, 100);
    EXPECT_EQ(s.ResponseTimeout, 200.5);
    EXPECT_EQ(s.DataTimeout, std::numeric_limits<double>::infinity());
    EXPECT_EQ(s.MaxTime, 1.5);
    EXPECT_EQ(s.CaFile, "ca.pem");
    EXPECT_FALSE(s.VerifyName);
    EXPECT_EQ(s.Progress, true);
    EXPECT_EQ(s.Verbose, 2);
    EXPECT_TRUE(s.JsonErrors);
    EXPECT_EQ(s.Color, ColorChoice::Never);
}

TEST(OptionParser, TimesHaveUnitsAndPlainNumbersKeepTheirs) {
    const std::pair<const char*, double> limits[] = {{"250", 250},     {"250ms", 250},    {"1.5s", 1500},
                                                     {"2m", 120'000},  {"1h", 3'600'000}, {"0s", kNever},
                                                     {"0.5m", 30'000}, {"1e3ms", 1000}};
    for (const auto& [text, wanted] : limits) {
        const Settings s = parsed("get URL --connect-timeout " + std::string(text) + " --response-timeout " + text +
                                  " --data-timeout " + text);
        EXPECT_EQ(s.ConnectTimeout, wanted) << text;
        EXPECT_EQ(s.ResponseTimeout, wanted) << text;
        EXPECT_EQ(s.DataTimeout, wanted) << text;
    }
    const std::pair<const char*, double> times[] = {
        {"1.5", 1.5}, {"500ms", 0.5}, {"10s", 10}, {"2m", 120}, {"1h", 3600}};
    for (const auto& [text, wanted] : times) {
        EXPECT_DOUBLE_EQ(parsed("get URL -m " + std::string(text)).MaxTime.value(), wanted) << text;
        EXPECT_DOUBLE_EQ(parsed("batch list --retry-max-wait 2h --retry-wait " + std::string(text)).Retry.Wait, wanted)
            << text;
    }
}

TEST(OptionParser, SilenceIsOfProgressAndMessages) {
    struct Row {
        const char* Line;
        bool Silent;
        bool HidesFailures;
        std::optional<bool> Progress;
    };
    const Row rows[] = {
        {"get URL", false, false, std::nullopt},
        {"get -s URL", true, true, false},
        {"get -sS URL", true, false, false},
        {"save -S -s URL", true, false, false},
        {"get -S URL", false, false, std::nullopt},
        {"get -s --progress URL", true, true, true},
        {"get -s --json-errors URL", true, false, false},
        {"get --silent --show-error URL", true, false, false},
        {"get -fsSL URL", true, false, false},
        {"get -# URL", false, false, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.Line);
        const Settings s = parsed(row.Line);
        EXPECT_EQ(s.Silent, row.Silent);
        EXPECT_EQ(s.hidesFailures(), row.HidesFailures);
        EXPECT_EQ(s.Progress, row.Progress);
    }
}

TEST(OptionParser, NamesOfOtherProgramsAreUnderstood) {
    const Settings s = parsed("send URL --request PATCH --header A:1 --data x --output-document out --show-headers "
                              "--max-redirs 3 --check-status --http-user me --http-password pw --insecure -#");
    EXPECT_EQ(s.Method, "PATCH");
    EXPECT_EQ(s.Fields, (std::vector<netrove::Field>{{"A", "1"}}));
    EXPECT_EQ(s.BodyText, "x");
    EXPECT_EQ(s.OutputFile, "out");
    EXPECT_TRUE(s.Include && s.onStatus() == StatusChoice::Fail && !s.VerifyPeer);
    EXPECT_EQ(s.redirectLimit(), 3);
    EXPECT_EQ(s.User, "me");
    EXPECT_EQ(s.Password, "pw");
    EXPECT_EQ(s.Progress, true);
    EXPECT_EQ(parsed("send URL --upload-file f --cacert ca.pem").StreamFile, "f");
    EXPECT_EQ(parsed("send URL --upload-file f --cacert ca.pem").CaFile, "ca.pem");
    EXPECT_EQ(parsed("batch list --parallel-max 7").Batch.Jobs, 7);
    EXPECT_EQ(refusal("get URL --post-file x"), "unknown option '--post-file' for get; send has it");
}

TEST(OptionParser, FormatsAreNamed) {
    for (const char* line : {"send URL", "proxy URL", "describe", "batch list"}) {
        EXPECT_FALSE(parsed(line).json()) << line;
        EXPECT_TRUE(parsed(std::string(line) + " --format json").json()) << line;
        EXPECT_FALSE(parsed(std::string(line) + " --format json --format text").json()) << line;
    }
}

TEST(OptionParser, TheLastOfContradictingOptionsCounts) {
    EXPECT_EQ(parsed("send -L --no-follow URL").redirectLimit(), 0);
    EXPECT_EQ(parsed("send --no-follow -v -L URL").redirectLimit(), 20);
    EXPECT_EQ(parsed("get --no-progress --progress URL").Progress, true);
    EXPECT_EQ(parsed("get --follow 5 --follow 7 URL").redirectLimit(), 7);
}

TEST(OptionParser, JoinsBodiesAndReadsFiles) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("part"), "c=3");
    testsupport::writeFile(folder.file("fields"), "Authorization: Bearer hush\nX-Key: k\n");
    const Settings settings = parsed("send URL -d a=1 -d b=2 -d @" + folder.file("part"));
    EXPECT_EQ(settings.BodyText, "a=1&b=2&c=3");
    EXPECT_EQ(settings.effectiveMethod(), "POST");
    EXPECT_EQ(parsed("send URL -d ''").BodyText, "");
    EXPECT_EQ(parsed("send URL -T -").effectiveMethod(), "PUT");
    EXPECT_EQ(parsed("get -H A:1 -H @" + folder.file("fields") + " -H B:2 URL").Fields,
              (std::vector<netrove::Field>{{"A", "1"}, {"Authorization", "Bearer hush"}, {"X-Key", "k"}, {"B", "2"}}));
    EXPECT_THROW(parsed("get -H @" + folder.file("none") + " URL"), vantik::Failure);
}

TEST(OptionParser, TakesDataAsItIsEncodedOrForTheQuery) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("part"), "c d\n");
    const std::string part = folder.file("part");
    EXPECT_EQ(parsed("send URL --data-raw @a --data-binary @" + part + " --data x --data-ascii y").BodyText,
              "@a&c d\n&x&y");
    EXPECT_EQ(parsed("send URL -d a=1 --data-urlencode b=2&3 --data-urlencode c@" + part).BodyText,
              "a=1&b=2%263&c=c+d%0A");
    const Settings get = parsed("get -G -d a=1 --url-query b=2&3 --url-query +c=/ URL");
    EXPECT_EQ(get.effectiveMethod(), "GET");
    EXPECT_EQ(get.MoreQuery, "b=2%263&c=/");
    EXPECT_EQ(parsed("send -G -d a=1 -X DELETE URL").effectiveMethod(), "DELETE");
    EXPECT_EQ(parsed("send -F a=b URL").effectiveMethod(), "POST");
}

TEST(OptionParser, TakesTokens) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("token"), "abc-._~+/=\n");
    EXPECT_EQ(parsed("get --bearer @" + folder.file("token") + " URL").Bearer, "abc-._~+/=");
    EXPECT_EQ(parsed("get --oauth2-bearer t URL").Bearer, "t");
    // Not even a part of it is shown.
    EXPECT_EQ(refusal(Words{"get", "--bearer", "to ken", "http://h/"}),
              "the token of --bearer has characters that a token cannot have");
}

TEST(OptionParser, TakesCredentialsOutOfTheUrl) {
    const auto taken = [](const std::string& line) {
        const Settings settings = parsed(line);
        return Words{settings.Url, settings.User.value_or("none"), settings.Password.value_or("none")};
    };
    EXPECT_EQ(taken("get http://me:pass%20word@h/x"), (Words{"http://h/x", "me", "pass word"}));
    EXPECT_EQ(taken("get -u other:pw:d http://me:secret@h/x"), (Words{"http://h/x", "other", "pw:d"}));
}

TEST(OptionParser, RefusesWhatContradictsItself) {
    std::istringstream lines(R"(get ''; get --unknown URL; send --remove-field X: URL; send -d a --body-file b URL;
        send -X GET -d a URL; send -X head -d a URL; send -T f --simple URL; send --chunked URL; get -o '' URL;
        send --buffer-size 10 URL; send -T f --buffer-size 0 URL; send -T f --buffer-size 65M URL; send --body-file '' URL; get --ca-file '' URL;
        get --ca-file x -k URL; get --follow -1 URL; get --follow many URL; get --connect-timeout nan URL;
        get --connect-timeout -1 URL; get --response-timeout 1e12 URL; get --data-timeout 10d URL; get --data-timeout s URL; get --data-timeout -1s URL; get --data-timeout 600h URL; get -m 0.5ms URL; get -m 1,5 URL;
        get --color pink URL; get --auth basic URL; get -u me --auth magic URL; get -u me --auth '' URL;
        get --password pw URL; get --proxy-password pw URL; get -u me:pw --auth basic --simple URL;
        send -G -T f URL; send -F a=b -d c URL; send -F a=b --simple URL; send --form-string a URL;
        get --bearer t -u me:pw URL; get --bearer '' URL; get --bearer t,u URL; get --pretty no URL;
        get -x p:99999 URL; get -x ftp://h:80 URL; get -x p:3128/path URL; save URL -; describe URL;
        proxy -X GET URL; send --format json -i URL; send --format json -o - URL; send --format xml URL)");
    for (std::string line; std::getline(lines, line, ';');) {
        SCOPED_TRACE(line);
        refusal(line);
    }
    for (const Words& words : {Words{"get", "--", "http://h/\r\nX: y"},
                               {"send", "-X", "BAD METHOD", "http://h/"},
                               {"send", "-H", "no field", "http://h/"},
                               {"send", "-b", "a=b\r\nX: y", "http://h/"},
                               {"send", "-A", "a\r\nX: y", "http://h/"},
                               {"send", "-e", "http://h/;auto", "http://h/"},
                               {"send", "-H", "X: a\r\nY: b", "http://h/"},
                               {"get", "-u", "m\ne:pw", "http://h/"}}) {
        SCOPED_TRACE(words.at(2));
        refusal(words);
    }
    for (const char* more : {"-T -", "--body-file -", "-d @-", "-F a=@-", "-F a=<-", "--netrc-file -"}) {
        EXPECT_THAT(refusal("send http://h/ -H @- " + std::string(more)),
                    HasSubstr("standard input can be read for one thing only"));
    }
}

TEST(OptionParser, SaysWhatToWriteInstead) {
    const std::pair<const char*, const char*> rows[] = {
        {"", "no command; try 'netrove get URL', or 'netrove --help' for all of them"},
        {"URL", "no command; try 'netrove get http://h/'"},
        {"get", "no URL; give it as in 'netrove get https://example.org/'"},
        {"gte URL", "unknown command 'gte'; did you mean get?"},
        {"fetch URL", "unknown command 'fetch'; did you mean get?"},
        {"version", "unknown command 'version'; did you mean --version?"},
        {"-V", "unknown option '-V'; did you mean --version?"},
        {"get --ouput=x URL", "unknown option '--ouput' for get; did you mean --output?"},
        {"get --hedaer=x URL", "unknown option '--hedaer' for get; did you mean --header?"},
        {"save -C - --compressed URL", "--continue-at takes content as it is; leave out --compressed"},
        {"get -r 0-1 --compressed URL", "--range counts the bytes of content as it is; leave out --compressed"},
        {"get URL more", "unexpected argument 'more' for get"},
        {"get -o", "--output needs a value"},
        {"get -X POST URL", "unknown option '-X' for get; send has it"},
        {"get -d a=b URL", "get sends no content; use send, or --get to put the data into the query of the URL"},
        {"get -F a=b URL", "unknown option '-F' for get; send has it"},
        {"save -ox URL", "unknown option '-o' for save; the file follows the URL: netrove save URL FILE"},
        {"save -c URL",
         "unknown option '-c' for save; use -C - to go on with a file, --skip-existing to leave it alone; "
         "cookies are not kept between runs"},
        {"get -c jar URL", "unknown option '-c' for get; cookies are not kept between runs"},
        {"get -4 URL",
         "unknown option '-4' for get; addresses of both kinds are tried, and the first that answers is used"},
        {"get -9 URL", "unknown option '-9' for get"},
        {"-v get URL", "'-v' is an option of get and comes after it: netrove get -v"},
        {"GET URL", "unknown command 'GET'; did you mean get?"},
        {"DELETE URL", "unknown command 'DELETE'; did you mean send --method DELETE?"},
        {"send URL a=1",
         "unexpected argument 'a=1' for send; --body, --form and --json take content, as in --body a=1"},
        {"save -O file URL", "'file' is not a URL; the file follows the URL: netrove save URL file"},
        {"get -O file URL", "'file' is not a URL"},
        {"proxy", "no URL; give it as in 'netrove proxy https://example.org/'"},
        {"batch", "no list; give it as in 'netrove batch list.txt'"},
        {"get --jobs=3 URL", "unknown option '--jobs' for get; batch has it"},
        {"proxy --json URL", "unknown option '--json' for proxy; use --format json"},
        {"describe --json", "unknown option '--json' for describe; use --format json"},
        {"batch -w x list", "unknown option '-w' for batch; each line of the result has status, sizes and times"},
        {"save --read-timeout=9 URL", "unknown option '--read-timeout' for save; use --data-timeout"},
        {"demo --location", "unknown option '--location' for demo; get, save, send and batch have it"},
        {"-i URL", "unknown option '-i'; get and send have it"},
        {"get -psecret URL", "unknown option '-p' for get"},
        {"alice:s3cr3t@h/x", "unknown command '***@h/x'"},
        {"http://alice:s3cr3t/@h/", "no command; try 'netrove get http://***@h/'"},
        {"get URL alice:s3cr3t@h/x", "unexpected argument '***@h/x' for get"},
        {"get --connect-timeout abc URL",
         "'abc' is not a valid value for --connect-timeout; "
         "it takes milliseconds from 0 to 2147483647, or a time such as 500ms, 10s, 2m or 1h"},
        {"get -m 0 URL",
         "'0' is not a valid value for --max-time; it takes seconds from 0.001 to 100000000, or a time such as "
         "500ms, 10s, 2m or 1h"},
        {"batch --jobs 65 list", "'65' is not a valid value for --jobs; it takes a whole number from 1 to 64"},
        {"get --debug 7 URL", "'7' is not a valid value for --debug; it takes a whole number from 0 to 2"},
        {"send -T f --buffer-size 1G URL", "'1G' is not a valid value for --buffer-size; it takes a whole number from "
                                           "1 to 64M, which k, M or G may follow"},
    };
    for (const auto& [line, text] : rows) {
        EXPECT_EQ(refusal(std::string(line)), text);
    }
}

TEST(OptionParser, HelpIsTextAndNoFailure) {
    const std::pair<Words, Words> rows[] = {
        {{"--help"}, {"get", "save", "send", "proxy", "describe", "demo", "--version"}},
        {{"send", "--help"}, {"-X, --method", "-T, --stream-file", "--help all"}},
        {{"send", "--help", "all"}, {"--no-verify-name", "130", "basic and digest"}},
        {{"send", "-h", "tls"}, {"--ca-file FILE"}},
        {{"--help", "all"}, {"--no-verify-name", "Environment"}},
        {{"help"}, {"  exit          exit statuses\n"}},
        {{"help", "exit"}, {"  130  interrupted (Ctrl-C)\n"}},
        {{"help", "tls"}, {"--ca-file FILE"}},
    };
    for (const auto& [words, shown] : rows) {
        for (const std::string& text : shown) {
            EXPECT_THAT(parse(words).Help.value(), HasSubstr(text));
        }
    }
    EXPECT_EQ(parse({"help", "send"}).Help, parse({"send", "--help"}).Help);
    EXPECT_THAT(refusal("help nonsense"),
                HasSubstr("no help on 'nonsense'; the topics are the commands and request, content, response"));
}

TEST(OptionParser, JsonErrorsAreNoticedBeforeTheParse) {
    const char* with[] = {"netrove", "get", "--json-errors"};
    const char* without[] = {"netrove", "get", "--", "--json-errors"};
    EXPECT_TRUE(wantsJsonErrors(3, with));
    EXPECT_FALSE(wantsJsonErrors(4, without));
}

TEST(OptionParser, WipesSecretsFromTheArguments) {
    const auto lineWith = [](const std::string& line, const std::string& authorization) {
        Words words = wordsOf(line);
        words.insert(words.end(), {"-H", "Authorization: " + authorization});
        return words;
    };
    Words words = lineWith("netrove send -u me:first --password=second --proxy-user you --proxy-password third "
                           "-x a:b@p:1 http://x:fourth@h/p@th -HCookie:s=1 --field=proxy-authorization:b -H Accept:a "
                           "-H Cookie: -b s=2",
                           "\tBearer tok");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    const ParseResult result = parseCommandLine(static_cast<int>(argv.size()), argv.data());
    EXPECT_EQ(result.Settings.Password, "second");
    EXPECT_EQ(result.Settings.Fields.back(), (netrove::Field{"Authorization", "Bearer tok"}));
    wipeSecrets(static_cast<int>(argv.size()), argv.data(), result.Secrets);
    EXPECT_EQ(words, lineWith("netrove send -u me:xxxxx --password=xxxxxx --proxy-user you --proxy-password xxxxx "
                              "-x xxx@p:1 http://xxxxxxxx@h/p@th -HCookie:xxx --field=proxy-authorization:x "
                              "-H Accept:a -H Cookie: -b xxx",
                              "\txxxxxxxxxx"));
}

} // namespace
