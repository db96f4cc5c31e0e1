// Content as it is sent, from the words of a command line.
#include "cli/exchange/ContentOf.h"

#include "cli/options/parser/OptionParser.h"
#include "tests/client/request/MultipartReading.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using clienttest::readBack;
using clienttest::ReadPart;
using Words = std::vector<std::string>;

Settings settingsOf(const Words& words) {
    std::vector<const char*> argv = {"netrove", "send", "http://h/p?x=1#f"};
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    return parseCommandLine(static_cast<int>(argv.size()), argv.data()).Settings;
}

Words withMore(Words words, const std::string& more) {
    words.push_back(more);
    return words;
}

TEST(ContentOf, ContentHasATypeAndALength) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("data"), "c d\n");
    const std::string file = folder.file("data");
    struct {
        Words Options;
        std::string Content;
        std::string Type;
    } const rows[] = {
        {{"-d", "a=1", "-d", "@" + file}, "a=1&c d\n", "application/x-www-form-urlencoded"},
        {{"--json", "{\"a\":", "--json", "@" + file, "--json", "}"}, "{\"a\":c d\n}", "application/json"},
        {{"--body-file", file}, "c d\n", ""},
        {{"-T", file}, "c d\n", ""},
    };
    for (const auto& row : rows) {
        const netrove::Body content = contentOf(settingsOf(row.Options), {});
        EXPECT_EQ(clienttest::readWhole(content), row.Content);
        EXPECT_EQ(content.contentType(), row.Type);
        EXPECT_EQ(content.length(), row.Content.size());
        const netrove::Body chunked = contentOf(settingsOf(withMore(row.Options, "--chunked")), {});
        EXPECT_EQ(chunked.length(), std::nullopt);
        for (int time = 0; time < 2; ++time) {
            EXPECT_EQ(clienttest::readWhole(chunked), row.Content);
        }
    }
    EXPECT_FALSE(contentOf(settingsOf({}), {}));
    EXPECT_FALSE(contentOf(settingsOf({"-G", "-d", "a=1"}), {}));
}

TEST(ContentOf, AFormHasItsParts) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("page.html"), "<p>");
    testsupport::writeFile(folder.file("raw"), std::string("\0\xFF", 2));
    const std::string page = folder.file("page.html");
    const std::string raw = folder.file("raw");
    const netrove::Body form =
        contentOf(settingsOf({"-F", "a=1", "-F", "b=2;type=text/csv", "-F", "c=<" + page, "-F", "d=@" + page, "-F",
                              "e=@" + raw + ";filename=\"x;y\",\"" + page + "\";type=text/plain; charset=utf-8",
                              "--form-string", "f=@g;type=h/i"}),
                  {});
    const Words plain = {"Content-Disposition"};
    const Words typed = {"Content-Disposition", "Content-Type"};
    EXPECT_THAT(readBack(form),
                testing::ElementsAre(ReadPart{"a", {}, plain, "", "31"}, ReadPart{"b", {}, typed, "text/csv", "32"},
                                     ReadPart{"c", {}, plain, "", "3c703e"},
                                     ReadPart{"d", "page.html", typed, "text/html", "3c703e"},
                                     ReadPart{"e", "x;y", typed, "application/octet-stream", "00ff"},
                                     ReadPart{"e", "page.html", typed, "text/plain;charset=utf-8", "3c703e"},
                                     ReadPart{"f", {}, plain, "", "40673b747970653d682f69"}));
    EXPECT_TRUE(form.repeatable());
    EXPECT_TRUE(form.length().has_value());
}

TEST(ContentOf, OptionsAddToTheQuery) {
    EXPECT_EQ(requestUrl(settingsOf({})), "http://h/p?x=1#f");
    EXPECT_EQ(requestUrl(settingsOf({"-d", "a=1"})), "http://h/p?x=1#f");
    EXPECT_EQ(requestUrl(settingsOf({"-G", "-d", "a=1", "--url-query", "b=2"})), "http://h/p?x=1&b=2&a=1#f");
}

} // namespace
