#include "cli/batch/BatchManifest.h"

#include "cli/failures/CliFailure.h"
#include "cli/text/SafeText.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

BatchManifest parsed(const std::string& text, std::size_t piece = std::string::npos) {
    BatchManifestParser parser([](const std::string&) {});
    parser.reserve("list.txt", "the manifest");
    for (std::size_t i = 0; i < text.size(); i += std::min(piece, text.size())) {
        parser.feed(std::string_view(text).substr(i, piece));
    }
    return parser.finish();
}

BatchLine only(const std::string& text) {
    BatchManifest manifest = parsed(text);
    EXPECT_TRUE(manifest.Bad.empty()) << manifest.Bad.front().Problem;
    EXPECT_EQ(manifest.Lines.size(), 1u) << text;
    return std::move(manifest.Lines.at(0));
}

std::string problem(const std::string& text) {
    const BatchManifest manifest = parsed(text);
    EXPECT_EQ(manifest.Bad.size(), 1u) << text;
    return manifest.Bad.empty() ? "" : manifest.Bad.back().Problem;
}

TEST(BatchManifest, LinesAreUrlAndTarget) {
    const std::string text =
        "\xEF\xBB\xBF# list\r\n\r\n  http://h/a  one two\r\nHTTPS://h/b\tb.txt\n \t\nhttp://h/c%20d";
    for (const std::size_t piece : {std::string::npos, std::size_t{1}, std::size_t{7}}) {
        const BatchManifest manifest = parsed(text, piece);
        ASSERT_TRUE(manifest.Bad.empty());
        ASSERT_EQ(manifest.Lines.size(), 3u);
        EXPECT_EQ(manifest.Lines[0].Number, 3u);
        EXPECT_EQ(manifest.Lines[0].Url, "http://h/a");
        EXPECT_EQ(manifest.Lines[0].Target, "one two");
        EXPECT_EQ(manifest.Lines[1].Url, "HTTPS://h/b");
        EXPECT_EQ(manifest.Lines[1].Target, "b.txt");
        EXPECT_EQ(manifest.Lines[2].Number, 6u);
        EXPECT_EQ(manifest.Lines[2].Target, "c d") << "the name that the URL gives";
        EXPECT_EQ(manifest.Lines[2].method(), "GET");
    }
}

TEST(BatchManifest, TargetsStayAsTheyAreGiven) {
    EXPECT_EQ(only("http://h/a ../b/./c").Target, "../b/./c");
    EXPECT_EQ(only("http://h/a \xFF\xFE").Target, "\xFF\xFE");
    EXPECT_EQ(only("http://h/a #1").Target, "#1");
    EXPECT_EQ(only("{\"url\":\"http://h/a\",\"target\":\" b \"}").Target, " b ");
}

TEST(BatchManifest, AFolderTakesTheNameOfTheUrl) {
    const testsupport::TemporaryFolder folder;
    EXPECT_EQ(only("http://h/x/a.bin?v=1 " + folder.path()).Target, folder.file("a.bin"));
    EXPECT_EQ(only("http://h/x/a.bin not/there/").Target, "not/there/a.bin");
    EXPECT_EQ(only("http://h/%2e%2e%2fescape").Target, "_escape");
    EXPECT_EQ(only("http://h").Target, "download");
}

TEST(BatchManifest, AJsonLineHasEverything) {
    const BatchLine line =
        only(R"( {"url":"http://h/a","target":"t","method":"PATCH","fields":{"A":"1","B":["2","3"]},)"
             R"("body":"text","id":"seven"})");
    EXPECT_EQ(line.Target, "t");
    EXPECT_EQ(line.method(), "PATCH");
    EXPECT_EQ(line.Extras->Fields, (std::vector<Field>{{"A", "1"}, {"B", "2"}, {"B", "3"}}));
    EXPECT_EQ(line.Extras->Body, "text");
    EXPECT_EQ(line.id(), "seven");
    EXPECT_NE(line.digest(), "seven");
    const BatchLine other = only(R"({"url":"http://h/a","fields":["A: 1"],"body_file":"f","id":7})");
    EXPECT_EQ(other.Extras->Fields, (std::vector<Field>{{"A", "1"}}));
    EXPECT_EQ(other.Extras->BodyFile, "f");
    EXPECT_EQ(other.method(), "POST");
    EXPECT_EQ(other.id(), "7");
    EXPECT_EQ(other.Target, "a");
}

TEST(BatchManifest, NullIsNoTarget) {
    EXPECT_FALSE(only(R"({"url":"http://h/a","target":null})").Target);
}

TEST(BatchManifest, AStructuredBodyIsJson) {
    const BatchLine line = only(R"({"url":"http://h/a","body":{"b":[1,"ü"],"a":null}})");
    EXPECT_EQ(line.Extras->Body, R"({"b":[1,"ü"],"a":null})");
    EXPECT_EQ(line.Extras->Fields, (std::vector<Field>{{"Content-Type", "application/json"}}));
    const BatchLine own = only(R"({"url":"http://h/a","body":[],"fields":{"content-type":"a/b"}})");
    EXPECT_EQ(own.Extras->Fields.size(), 1u);
}

TEST(BatchManifest, EveryBadLineIsToldOf) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"ftp://h/a", "'ftp://h/a' is not an http or https URL"},
        {"a.txt http://h/a", "'a.txt' is not an http or https URL"},
        {"http:///path", "'http:///path' has no host"},
        {"http://u:secret@", "'http://***@' has no host"},
        {"http://h/\x01", "the URL has control characters or is not UTF-8"},
        {"http://h/\xFF", "the URL has control characters or is not UTF-8"},
        {"http://h/a b ", "the line ends with a blank; write a target that ends with one as JSON"},
        {"http://h/a b\x1B", "the target has control characters"},
        {"http://h/a ./x/../list.txt", "the target './x/../list.txt' is the manifest"},
        {"http://h/a /dev/null", "the target '/dev/null' is not a regular file; \"target\":null drops the content"},
        {"{}", "the key 'url' is missing"},
        {"{\"url\":7}", "the value of \"url\" is not a string"},
        {"{\"url\":\"http://h/a\",\"target\":\"\"}", "the value of \"target\" is empty"},
        {"{\"url\":\"http://h/a\",\"Target\":\"b\"}",
         "unknown key 'Target'; the keys are url, target, method, fields, body, body_file and id"},
        {"{\"url\":\"http://h/a\",\"url\":\"http://h/b\"}", "the key 'url' is given twice"},
        {"{\"url\":\"http://h/a\",\"method\":\"A B\"}", "'A B' is not a request method"},
        {"{\"url\":\"http://h/a\",\"fields\":{\"A\":\"1\\r\\nB: 2\"}}",
         "the value of the header field 'A' is not printable ASCII"},
        {"{\"url\":\"http://h/a\",\"fields\":{\"A:\":\"1\"}}", "'A:' is not the name of a header field"},
        {"{\"url\":\"http://h/a\",\"fields\":7}", "the value of \"fields\" is neither an object nor an array"},
        {"{\"url\":\"http://h/a\",\"body\":7}", "the value of \"body\" is not a string"},
        {"{\"url\":\"http://h/a\",\"body\":\"\",\"body_file\":\"b\"}",
         "only one of \"body\" and \"body_file\" can be given"},
        {"{\"url\":\"http://h/a\",\"body\":\"x\",\"method\":\"GET\"}",
         "a request with the method GET or HEAD has no body; name another as \"method\""},
        {"{\"url\":\"http://h/a\",\"body_file\":\"-\"}",
         "\"body_file\" must name a file; standard input cannot be used"},
        {"{\"url\":\"http://h/a\",\"id\":\"\"}", "the value of \"id\" is empty"},
        {"http://h/a b\nhttp://h/c ./b", "the target './b' is already used by line 1"},
        {"{\"url\":\"http://h/a\",\"id\":1}\n{\"url\":\"http://h/b\",\"id\":\"1\"}",
         "the id '1' is already used by line 1"},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(problem(text), expected) << text;
    }
}

TEST(BatchManifest, BrokenJsonIsToldOfWithoutItsSecrets) {
    const std::string text = problem("{\"url\":\"http://h/a\",\"fields\":{\"Authorization\":\"topsecret\"");
    EXPECT_EQ(text.find("no JSON: parse error at line 1, column "), 0u) << text;
    EXPECT_EQ(text.find("topsecret"), text.npos) << text;
    EXPECT_EQ(problem("{bad").find("no JSON: "), 0u);
}

TEST(BatchManifest, AnArrayInAnArrayHasALimit) {
    const auto line = [](std::size_t depth) {
        return R"({"url":"http://h/a","target":"t","body":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    EXPECT_EQ(only(line(500)).Extras->Body, std::string(500, '[') + std::string(500, ']'));
    const std::string expected = "not usable JSON: arrays and objects are nested more than 500 deep";
    for (const std::size_t depth : {501, 50'000}) {
        const BatchManifest manifest = parsed("http://h/b b\n" + line(depth) + "\nhttp://h/c c\n");
        ASSERT_EQ(manifest.Bad.size(), 1u);
        EXPECT_EQ(manifest.Bad[0].Number, 2u);
        EXPECT_EQ(manifest.Bad[0].Problem, expected);
        EXPECT_EQ(manifest.Lines.size(), 2u);
    }
    std::string objects;
    for (int depth = 0; depth < 50'000; ++depth) {
        objects += R"({"a":)";
    }
    EXPECT_EQ(problem(R"({"url":"http://h/a","body":)" + objects), expected) << "whether they end or not";
}

TEST(BatchManifest, AFileHasOneLineHoweverItIsWritten) {
    const testsupport::TemporaryFolder folder;
    const std::filesystem::path path = folder.path();
    std::filesystem::create_directories(path / "real/deep");
    std::filesystem::create_directory_symlink("real", path / "linked");
    std::filesystem::create_directory_symlink("real/deep", path / "below");
    testsupport::writeFile(folder.file("real/list"), "");
    testsupport::writeFile(folder.file("real/there"), "");
    std::filesystem::create_symlink("real/there", path / "link");
    std::filesystem::create_symlink("nowhere", path / "dangling");
    const std::string relative = std::filesystem::relative(path).string();
    const auto problems = [&](const std::string& first, const std::string& second) -> std::string {
        BatchManifestParser parser([](const std::string&) {});
        parser.reserve(folder.file("real/list"), "the manifest");
        parser.feed("http://h/1 " + first + "\nhttp://h/2 " + second + "\n");
        const BatchManifest manifest = parser.finish();
        return manifest.Bad.empty() ? "" : manifest.Bad.back().Problem;
    };
    const auto same = [&](const std::string& first, const std::string& second) {
        return problems(first, second) == "the target '" + second + "' is already used by line 1";
    };
    EXPECT_TRUE(same(folder.file("new"), relative + "/new"));
    EXPECT_TRUE(same("new", std::filesystem::current_path().string() + "/new"));
    EXPECT_TRUE(same("not/there", std::filesystem::current_path().string() + "//not/./there"));
    EXPECT_TRUE(same(folder.file("real/new"), folder.file("linked/new")));
    EXPECT_TRUE(same(folder.file("real/new"), relative + "/below/../new")) << "the folder above what the link names";
    EXPECT_TRUE(same(folder.file("real/not/there"), folder.file("linked/not/there")));
    EXPECT_TRUE(same(folder.file("link"), folder.file("real/there"))) << "with --force the file behind it is replaced";
    EXPECT_EQ(problems(folder.file("new"), folder.file("below/../new")), "");
    EXPECT_EQ(problems(folder.file("dangling"), folder.file("nowhere")), "") << "such a link is replaced itself";
    for (const std::string& name : {relative + "/real/list", folder.file("linked/list"), relative + "/below/../list"}) {
        EXPECT_EQ(problems("other", name), "the target '" + name + "' is the manifest");
    }
}

TEST(BatchManifest, NoLineNamesAJournalOfAnyPart) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("elsewhere"), "");
    std::filesystem::create_symlink("elsewhere", folder.file("j.3-of-4"));
    const auto problems = [&](const std::string& target) -> std::string {
        BatchManifestParser parser([](const std::string&) {});
        parser.reserveJournals(folder.file("j"));
        parser.feed("http://h/1 " + folder.file(target) + "\n");
        const BatchManifest manifest = parser.finish();
        return manifest.Bad.empty() ? "" : manifest.Bad.back().Problem;
    };
    for (const char* name : {"j", "./j", "j.1-of-2", "not-there/../j.12-of-30", "j.3-of-4", "elsewhere"}) {
        EXPECT_EQ(problems(name), "the target '" + folder.file(name) + "' is a journal of this manifest") << name;
    }
    for (const char* name : {"j2", "j.1-of-", "j.old", "k.1-of-2", "below/j.1-of-2"}) {
        EXPECT_EQ(problems(name), "") << name;
    }
}

TEST(BatchManifest, OfManyBadLinesTheFirstAreKeptAndTheRestCounted) {
    std::string text = "http://h/a\n";
    for (int i = 0; i < 100; ++i) {
        text += "bad\n";
    }
    const BatchManifest few = parsed(text);
    EXPECT_EQ(few.Bad.size(), 100u);
    EXPECT_EQ(few.MoreBad, 0u);
    for (int i = 0; i < 900; ++i) {
        text += "bad\n";
    }
    const BatchManifest many = parsed(text, 1000);
    EXPECT_EQ(many.Bad.size(), 100u);
    EXPECT_EQ(many.Bad.back().Number, 101u);
    EXPECT_EQ(many.MoreBad, 900u);
}

TEST(BatchManifest, OfALongBadLineStartAndReasonAreShown) {
    for (const std::size_t shift : {0, 1}) { // so that the cut falls into a character and beside one
        std::string text(10 + shift, 'a');
        for (int i = 0; i < 100'000; ++i) {
            text += "\u00e4";
        }
        const std::string told = problem(text);
        EXPECT_LT(told.size(), 1100u);
        EXPECT_TRUE(told.starts_with("'aaaaaaaaaa")) << told;
        EXPECT_NE(told.find("\u00e4 ... \u00e4"), told.npos) << told;
        EXPECT_TRUE(told.ends_with("\u00e4' is not an http or https URL")) << told;
        EXPECT_TRUE(isUtf8(told)) << told;
    }
}

TEST(BatchManifest, TheCheckOfUrlsIsAskedAndItsReasonShown) {
    std::vector<std::string> asked;
    BatchManifestParser parser([&](const std::string& url) {
        asked.push_back(url);
        if (url.ends_with("bad")) {
            failUsage("not that one");
        }
    });
    parser.feed("http://u:p@h/good\nhttp://h/bad\n");
    const BatchManifest manifest = parser.finish();
    EXPECT_EQ(asked, (std::vector<std::string>{"http://h/good", "http://h/bad"}));
    ASSERT_EQ(manifest.Bad.size(), 1u);
    EXPECT_EQ(manifest.Bad[0].Number, 2u);
    EXPECT_EQ(manifest.Bad[0].Problem, "not that one");
}

TEST(BatchManifest, CredentialsLeaveTheUrl) {
    const BatchLine line = only("http://al%20ice:p%40ss@h/a");
    EXPECT_EQ(line.Url, "http://h/a");
    EXPECT_EQ(line.Extras->User, "al ice");
    EXPECT_EQ(line.Extras->Password, "p@ss");
}

TEST(BatchManifest, TheDigestIsThatOfTheContentWithoutCredentials) {
    const std::string plain = only("http://h/a t").digest();
    EXPECT_EQ(only("\n\nhttp://h/a  t").digest(), plain);
    EXPECT_EQ(only(R"({"target":"t","url":"http://h/a","id":"x"})").digest(), plain);
    EXPECT_EQ(only("http://u:p@h/a t").digest(), plain);
    std::set<std::string> digests = {plain};
    for (const char* text :
         {"http://h/b t", "http://h/a u", R"({"url":"http://h/a","target":null})",
          R"({"url":"http://h/a","target":"t","method":"HEAD"})", R"({"url":"http://h/a","target":"t","body":""})",
          R"({"url":"http://h/a","target":"t","body":"x"})", R"({"url":"http://h/a","target":"t","body_file":"x"})",
          R"({"url":"http://h/a","target":"t","fields":["A: 1"]})",
          R"({"url":"http://h/a","target":"t","fields":["A: 2"]})",
          R"({"url":"http://h/a","target":"t","fields":["Cookie: 2"]})"}) {
        EXPECT_TRUE(digests.insert(only(text).digest()).second) << text;
    }
    EXPECT_TRUE(digests.contains(only(R"({"url":"http://h/a","target":"t","fields":["Cookie: 3"]})").digest()));
}

TEST(BatchManifest, EqualLinesWithoutATargetAreTransfersOfTheirOwn) {
    const std::string line = R"({"url":"http://h/a","target":null})";
    const BatchManifest manifest = parsed(line + "\n" + line + "\n" + line);
    ASSERT_EQ(manifest.Lines.size(), 3u);
    EXPECT_EQ((std::set{manifest.Lines[0].id(), manifest.Lines[1].id(), manifest.Lines[2].id()}.size()), 3u);
    EXPECT_EQ(only(line).id(), manifest.Lines[0].id());
}

} // namespace
