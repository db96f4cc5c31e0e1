#include "cli/batch/manifest/BatchManifest.h"

#include "cli/batch/manifest/LineReader.h"
#include "cli/failures/CliFailure.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <netrove/text.h>

#include <filesystem>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace netrove;
using namespace netrove::cli;

const ManifestLines::UrlCheck kAnyUrl = [](const std::string&) {};

LineReader::Read inPieces(const std::string& text, std::size_t piece) {
    return [&text, piece, place = std::size_t{0}](std::span<char> room) mutable {
        const std::size_t count = text.copy(room.data(), std::min(piece, room.size()), place);
        place += count;
        return count;
    };
}

struct Manifest {
    std::vector<BatchLine> Lines;
    BadLines Bad;
};

Manifest read(const std::string& text, ManifestLines& lines, std::size_t piece = std::string::npos) {
    Manifest result;
    LineReader reader(inPieces(text, piece));
    while (const auto line = reader.next()) {
        try {
            result.Lines.push_back(lines.once(line->Number, line->Text));
        } catch (const vantik::Failure& failure) {
            result.Bad.add(line->Number, failure.message().Text);
        }
    }
    return result;
}

Manifest parsed(const std::string& text, std::size_t piece = std::string::npos) {
    ManifestLines lines(kAnyUrl);
    lines.reserve("list.txt", "the manifest");
    return read(text, lines, piece);
}

BatchLine only(const std::string& text) {
    Manifest manifest = parsed(text);
    EXPECT_TRUE(manifest.Bad.First.empty()) << manifest.Bad.First.front().Problem;
    EXPECT_EQ(manifest.Lines.size(), 1u) << text;
    return std::move(manifest.Lines.at(0));
}

// What is wrong with each line that is bad, in one line each.
std::string problems(const std::string& text, const std::function<void(ManifestLines&)>& prepare) {
    ManifestLines lines(kAnyUrl);
    prepare(lines);
    std::string all;
    for (const auto& bad : read(text, lines).Bad.First) {
        all += (all.empty() ? "" : "\n") + bad.Problem;
    }
    return all;
}
std::string problem(const std::string& text) {
    return problems(text, [](ManifestLines& lines) { lines.reserve("list.txt", "the manifest"); });
}

TEST(BatchManifest, LinesAreUrlAndTarget) {
    const std::string text =
        "\xEF\xBB\xBF# list\r\n\r\n  http://h/a  one two\r\nHTTPS://h/b\tb.txt\n \t\nhttp://h/c%20d";
    for (const std::size_t piece : {std::string::npos, std::size_t{1}, std::size_t{7}}) {
        const Manifest manifest = parsed(text, piece);
        ASSERT_TRUE(manifest.Bad.First.empty());
        std::vector<std::string> lines;
        for (const BatchLine& line : manifest.Lines) {
            lines.push_back(std::to_string(line.Number) + " " + line.method() + " " + line.Url + " > " + *line.Target);
        }
        EXPECT_EQ(lines, (std::vector<std::string>{"3 GET http://h/a > one two", "4 GET HTTPS://h/b > b.txt",
                                                   "6 GET http://h/c%20d > c d"}));
    }
}

TEST(BatchManifest, TargetsStayAsTheyAreGivenOrTakeTheNameOfTheUrl) {
    const testsupport::TemporaryFolder folder;
    const std::pair<std::string, std::string> rows[] = {
        {"http://h/a ../b/./c", "../b/./c"},
        {"http://h/a \xFF\xFE", "\xFF\xFE"},
        {"http://h/a #1", "#1"},
        {"http://h/a b c \t ", "b c"},
        {"http://h/a  ", "a"},
        {"{\"url\":\"http://h/a\",\"target\":\" b \"}", " b "},
        {"http://h/x/a.bin?v=1 " + folder.path(), folder.file("a.bin")},
        {"http://h/x/a.bin not/there/", "not/there/a.bin"},
        {"http://h/%2e%2e%2fescape", "_escape"},
        {"http://h", "download"},
    };
    for (const auto& [line, target] : rows) {
        EXPECT_EQ(only(line).Target, target) << line;
    }
    EXPECT_FALSE(only(R"({"url":"http://h/a","target":null})").Target);
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

TEST(BatchManifest, AStructuredBodyIsJson) {
    const BatchLine line = only(R"({"url":"http://h/a","body":{"b":[1,"ü"],"a":null}})");
    EXPECT_EQ(line.Extras->Body, R"({"b":[1,"ü"],"a":null})");
    EXPECT_EQ(line.Extras->Fields, (std::vector<Field>{{"Content-Type", "application/json"}}));
    const BatchLine own = only(R"({"url":"http://h/a","body":[],"fields":{"content-type":"a/b"}})");
    EXPECT_EQ(own.Extras->Fields.size(), 1u);
}

TEST(BatchManifest, SaysWhatIsWrongWithALine) {
    const std::pair<std::string, std::string> rows[] = {
        {"ftp://h/a", "'ftp://h/a' is not an http or https URL"},
        {"a.txt http://h/a", "'a.txt' is not an http or https URL"},
        {"http:///path", "'http:///path' has no host"},
        {"http://u:secret@", "'http://***@' has no host"},
        {"http://h/\x01", "the URL has control characters or is not UTF-8"},
        {"http://h/\xFF", "the URL has control characters or is not UTF-8"},
        {"http://h/a b\x1B", "the target has control characters"},
        {"http://h/a ./x/../list.txt", "the target './x/../list.txt' is the manifest"},
        {"http://h/a /dev/null", "the target '/dev/null' is not a regular file; \"target\":null drops the content"},
        {"http://h/a b\nhttp://h/c ./b", "the target './b' is already used by line 1"},
        {"{\"url\":\"http://h/a\",\"id\":1}\n{\"url\":\"http://h/b\",\"id\":\"1\"}",
         "the id '1' is already used by line 1"},
        {"{}", "the key 'url' is missing"},
        {R"({"url":7})", "the value of \"url\" is not a string"},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(problem(text), expected) << text;
    }
    // After "url":"http://h/a".
    const std::pair<std::string, std::string> keys[] = {
        {R"("target":"")", "the value of \"target\" is empty"},
        {R"("Target":"b")",
         "unknown key 'Target'; the keys are url, target, method, fields, body, body_file, sha256 and id"},
        {R"("url":"http://h/b")", "the key 'url' is given twice"},
        {R"("method":"A B")", "'A B' is not a request method"},
        {R"("fields":{"A":"1\r\nB: 2"})", "the value of the header field 'A' is not printable ASCII"},
        {R"("fields":{"A:":"1"})", "'A:' is not the name of a header field"},
        {R"("fields":7)", "the value of \"fields\" is neither an object nor an array"},
        {R"("body":7)", "the value of \"body\" is not a string"},
        {R"("body":"","body_file":"b")", "only one of \"body\" and \"body_file\" can be given"},
        {R"("body":"x","method":"GET")",
         "a request with the method GET or HEAD has no body; name another as \"method\""},
        {R"("body_file":"-")", "\"body_file\" must name a file; standard input cannot be used"},
        {R"("id":"")", "the value of \"id\" is empty"},
        {R"("sha256":"12")", "the value of \"sha256\" is not 64 hexadecimal digits"},
        {R"("sha256":")" + std::string(63, 'a') + R"(g")", "the value of \"sha256\" is not 64 hexadecimal digits"},
        {R"("target":null,"sha256":")" + std::string(64, 'a') + R"(")",
         "\"sha256\" is of a file; the line has no target"},
    };
    for (const auto& [rest, expected] : keys) {
        EXPECT_EQ(problem(R"({"url":"http://h/a",)" + rest + "}"), expected) << rest;
    }
}

TEST(BatchManifest, ShowsNoSecretOfBrokenJson) {
    const std::string text = problem("{\"url\":\"http://h/a\",\"fields\":{\"Authorization\":\"topsecret\"");
    EXPECT_EQ(text.find("not valid JSON: parse error at line 1, column "), 0u) << text;
    EXPECT_EQ(text.find("topsecret"), text.npos) << text;
    EXPECT_EQ(problem("{bad").find("not valid JSON: "), 0u);
}

TEST(BatchManifest, AnArrayInAnArrayHasALimit) {
    const auto line = [](std::size_t depth) {
        return R"({"url":"http://h/a","target":"t","body":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    EXPECT_EQ(only(line(500)).Extras->Body, std::string(500, '[') + std::string(500, ']'));
    const std::string expected = "not usable JSON: arrays and objects are nested more than 500 deep";
    for (const std::size_t depth : {501, 50'000}) {
        const Manifest manifest = parsed("http://h/b b\n" + line(depth) + "\nhttp://h/c c\n");
        ASSERT_EQ(manifest.Bad.First.size(), 1u);
        EXPECT_EQ(manifest.Bad.First[0].Number, 2u);
        EXPECT_EQ(manifest.Bad.First[0].Problem, expected);
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
    const auto problemsOf = [&](const std::string& first, const std::string& second) {
        return problems("http://h/1 " + first + "\nhttp://h/2 " + second + "\n",
                        [&](ManifestLines& lines) { lines.reserve(folder.file("real/list"), "the manifest"); });
    };
    const auto same = [&](const std::string& first, const std::string& second) {
        return problemsOf(first, second) == "the target '" + second + "' is already used by line 1";
    };
    const std::string here = std::filesystem::current_path().string();
    EXPECT_TRUE(same(folder.file("new"), relative + "/new"));
    EXPECT_TRUE(same("new", here + "/new"));
    EXPECT_TRUE(same("not/there", here + "//not/./there"));
    EXPECT_TRUE(same(folder.file("real/new"), folder.file("linked/new")));
    EXPECT_TRUE(same(folder.file("real/new"), relative + "/below/../new")) << "the folder above what the link names";
    EXPECT_TRUE(same(folder.file("real/not/there"), folder.file("linked/not/there")));
    EXPECT_TRUE(same(folder.file("link"), folder.file("real/there"))) << "--force replaces that file";
    EXPECT_EQ(problemsOf(folder.file("new"), folder.file("below/../new")), "");
    EXPECT_EQ(problemsOf(folder.file("dangling"), folder.file("nowhere")), "") << "such a link is replaced itself";
    for (const std::string& name : {relative + "/real/list", folder.file("linked/list"), relative + "/below/../list"}) {
        EXPECT_EQ(problemsOf("other", name), "the target '" + name + "' is the manifest");
    }
}

TEST(BatchManifest, NoLineNamesAJournalOfAnyPart) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("elsewhere"), "");
    std::filesystem::create_symlink("elsewhere", folder.file("j.3-of-4"));
    const auto problemsOf = [&](const std::string& target) {
        return problems("http://h/1 " + folder.file(target) + "\n",
                        [&](ManifestLines& lines) { lines.reserveJournals(folder.file("j")); });
    };
    for (const char* name : {"j", "./j", "j.1-of-2", "not-there/../j.12-of-30", "j.3-of-4", "elsewhere"}) {
        EXPECT_EQ(problemsOf(name), "the target '" + folder.file(name) + "' is a journal of this manifest") << name;
    }
    for (const char* name : {"j2", "j.1-of-", "j.old", "k.1-of-2", "below/j.1-of-2"}) {
        EXPECT_EQ(problemsOf(name), "") << name;
    }
}

TEST(BatchManifest, OfManyBadLinesTheFirstAreKeptAndTheRestCounted) {
    std::string text = "http://h/a\n";
    for (int i = 0; i < 100; ++i) {
        text += "bad\n";
    }
    const Manifest few = parsed(text);
    EXPECT_EQ(few.Bad.First.size(), 100u);
    EXPECT_EQ(few.Bad.More, 0u);
    for (int i = 0; i < 900; ++i) {
        text += "bad\n";
    }
    const Manifest many = parsed(text, 1000);
    EXPECT_EQ(many.Bad.First.size(), 100u);
    EXPECT_EQ(many.Bad.First.back().Number, 101u);
    EXPECT_EQ(many.Bad.More, 900u);
}

TEST(BatchManifest, OfALongBadLineStartAndReasonAreShown) {
    for (const std::size_t shift : {0, 1}) { // so that the cut falls into a character and beside one
        std::string text(10 + shift, 'a');
        for (int i = 0; i < 100'000; ++i) {
            text += "\u00e4";
        }
        const std::string shown = problem(text);
        EXPECT_LT(shown.size(), 1100u);
        EXPECT_THAT(shown, testing::AllOf(testing::StartsWith("'aaaaaaaaaa"), testing::HasSubstr("\u00e4 ... \u00e4"),
                                          testing::EndsWith("\u00e4' is not an http or https URL")));
        EXPECT_TRUE(isUtf8(shown)) << shown;
    }
}

TEST(BatchManifest, TheCheckOfUrlsIsAskedAndItsReasonShown) {
    std::vector<std::string> asked;
    ManifestLines lines([&](const std::string& url) {
        asked.push_back(url);
        if (url.find("bad") != url.npos) {
            failUsage("not that one");
        }
    });
    lines.check(1, "http://u:p@h/good");
    lines.check(2, "http://h/also?good=1");
    for (const char* bad : {"http://bad/x", "http://bad/y", "http://h/[bad]"}) {
        EXPECT_EQ(testsupport::failureOf([&] { lines.check(3, bad); }).Text, "not that one");
    }
    EXPECT_EQ(testsupport::failureOf([&] { lines.check(6, "http://h/\x7f"); }).Text,
              "the URL has control characters or is not UTF-8");
    EXPECT_EQ(asked, (std::vector<std::string>{"http://h/good", "http://bad/x", "http://bad/y", "http://h/[bad]"}))
        << "an origin is asked for once if there is nothing wrong with it";
}

TEST(BatchManifest, AMissingFolderIsOneProblem) {
    const testsupport::TemporaryFolder folder;
    std::filesystem::create_directory(folder.file("there"));
    testsupport::writeFile(folder.file("file"), "");
    const std::string missing = folder.file("a/b");
    const std::string text = "http://h/0 0\nhttp://h/1 " + missing + "/1\nhttp://h/2 " + missing + "/2\nhttp://h/3 " +
                             folder.file("there/") + "\nhttp://h/4 " + folder.file("file/4") + "\nhttp://h/5 " +
                             missing + "/\nhttp://h/6 /7\n";
    EXPECT_EQ(problems(text, [](ManifestLines& lines) { lines.requireFolders(); }),
              "there is no folder '" + missing + "' for the target; --create-dirs creates it\n" +
                  "there is no folder '" + folder.file("file") + "' for the target; --create-dirs creates it");
    EXPECT_EQ(problems(text, [](ManifestLines&) {}), "");
}

// What a run makes meanwhile does not change what a line means.
TEST(BatchManifest, ALineIsTheSameWhenItIsReadAgain) {
    const testsupport::TemporaryFolder folder;
    std::filesystem::create_directory(folder.file("old"));
    const std::string null = R"({"url":"http://h/a","target":null})";
    const std::vector<std::string> texts = {"http://u:p@h/1 " + folder.file("old"), "http://h/2 " + folder.file("new"),
                                            null, null, R"({"url":"http://h/b","id":"b"})"};
    ManifestLines twice(kAnyUrl);
    ManifestLines once(kAnyUrl);
    std::vector<std::string> expected;
    for (const std::string& text : texts) {
        const BatchLine line = once.once(expected.size() + 1, text);
        twice.check(expected.size() + 1, text);
        expected.push_back(line.id() + " " + line.digest() + " " + line.Target.value_or("-"));
    }
    EXPECT_NE(expected[0].find("old/1"), std::string::npos);
    std::filesystem::create_directory(folder.file("new"));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const BatchLine line = twice.again(i + 1, texts[i]);
        EXPECT_EQ(line.id() + " " + line.digest() + " " + line.Target.value_or("-"), expected[i]);
        EXPECT_EQ(line.Text, texts[i]);
    }
    // So it is where another shard has the lines before.
    ManifestLines second(kAnyUrl);
    second.pass(texts[2]);
    EXPECT_EQ(second.once(4, texts[3]).digest(), expected[3].substr(0, 16));
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
    std::set<std::string> digests = {plain, only("http://h/b t").digest(), only("http://h/a u").digest(),
                                     only(R"({"url":"http://h/a","target":null})").digest()};
    EXPECT_EQ(digests.size(), 4u);
    const auto digestWith = [](const std::string& more) {
        return only(R"({"url":"http://h/a","target":"t",)" + more + "}").digest();
    };
    for (const char* more : {R"("method":"HEAD")", R"("body":"")", R"("body":"x")", R"("body_file":"x")",
                             R"("fields":["A: 1"])", R"("fields":["A: 2"])", R"("fields":["Cookie: 2"])",
                             R"("sha256":"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef")"}) {
        EXPECT_TRUE(digests.insert(digestWith(more)).second) << more;
    }
    EXPECT_TRUE(digests.contains(digestWith(R"("fields":["Cookie: 3"])")));
}

TEST(BatchManifest, EqualLinesWithoutATargetAreTransfersOfTheirOwn) {
    const std::string line = R"({"url":"http://h/a","target":null})";
    const Manifest manifest = parsed(line + "\n" + line + "\n" + line);
    ASSERT_EQ(manifest.Lines.size(), 3u);
    EXPECT_EQ((std::set{manifest.Lines[0].id(), manifest.Lines[1].id(), manifest.Lines[2].id()}.size()), 3u);
    EXPECT_EQ(only(line).id(), manifest.Lines[0].id());
}

} // namespace
