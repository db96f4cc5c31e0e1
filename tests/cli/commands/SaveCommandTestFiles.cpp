// What becomes of files: those that go on, those that are fetched only if new, their names and times.
#include "tests/cli/ProgramFixture.h"

#include <netrove/descriptor.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

using namespace clitest;

const std::string kTag = "ETag: \"v1\"\r\n";
constexpr const char* kDigest = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"; // of "hello"

// A part of "hello".
std::string part(const std::string& range, const std::string& content) {
    return "HTTP/1.1 206 Partial Content\r\n" + kTag + "Content-Range: bytes " + range +
           "\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" + content;
}

// "hello" that breaks off after "hel".
Script broken() {
    return {step::expectHead(), step::send(kOk + kTag + "Content-Length: 5\r\n\r\nhel"), step::close()};
}

class SaveFiles : public ProgramFixture {
protected:
    Exchanged run(const Script& script, const Words& words) const { return runAgainst(script, words, here()); }
    Exchanged run(const std::vector<Script>& scripts, const Words& words) const {
        return runAgainst(scripts, words, here());
    }
};

TEST_F(SaveFiles, GoOnWhereAnEarlierRunEnded) {
    EXPECT_EQ(run(broken(), {"save", "-C", "-", "URL/f"}).Status, 18);
    EXPECT_EQ(readFile(file("f.part")), "hel");
    const Exchanged second = run(answering(part("3-4/5", "lo")), {"save", "--continue", "URL/f"});
    EXPECT_THAT(second, ended(0, "", ""));
    EXPECT_EQ(second.field("Range"), "bytes=3-");
    EXPECT_EQ(second.field("If-Range"), "\"v1\"");
    EXPECT_EQ(readFile(file("f")), "hello");
    EXPECT_EQ(names(), Words{"f"});
}

TEST_F(SaveFiles, GoOnWithAFileOfAnotherProgramAndSaySo) {
    for (const Words& words : {Words{"save", "-C", "-", "URL", "f"}, {"get", "-C", "-", "-o", "f", "URL"}}) {
        writeFile(file("f"), "hel");
        EXPECT_THAT(run(answering(part("3-4/5", "lo")), words),
                    ended(0, "", HasSubstr("nothing proves that what was in f is the beginning of the same content")));
        EXPECT_EQ(readFile(file("f")), "hello");
    }
    writeFile(file("f"), "hello");
    EXPECT_THAT(run(answering("HTTP/1.1 416 No\r\nContent-Range: bytes */5\r\nContent-Length: 0\r\n\r\n"),
                    {"save", "-C-", "URL", "f"}),
                ended(0, "", HasSubstr("f has as many bytes as the server's content")));
    EXPECT_EQ(readFile(file("f")), "hello");
}

TEST_F(SaveFiles, GoOnAtAByteOrFail) {
    writeFile(file("f"), "hel");
    EXPECT_EQ(run(answering(response("hello")), {"save", "-C", "3", "URL", "f"}).Status, 33);
    EXPECT_EQ(readFile(file("f")), "hel");
    EXPECT_EQ(run(answering(part("3-4/5", "lo")), {"save", "-C", "3", "URL", "f"}).Status, 0);
    EXPECT_EQ(readFile(file("f")), "hello");
    EXPECT_EQ(testsupport::run({"save", "-C", "9", "http://127.0.0.1:1/", "f"}, here()).Status, 36);
    EXPECT_EQ(readFile(file("f")), "hello");
}

TEST_F(SaveFiles, WhatCannotGoOnIsRefused) {
    for (const Words& more : {Words{"-r", "1-2"},
                              {"--compressed"},
                              {"--no-fail"},
                              {"-J"},
                              {"-z", "f"},
                              {"--etag-compare", "e"},
                              {"--skip-existing"}}) {
        EXPECT_EQ(testsupport::run(Words{"save", "-C", "-", "http://127.0.0.1:1/f"} + more, here()).Status, 2);
    }
    EXPECT_EQ(testsupport::run({"get", "-C", "-", "http://127.0.0.1:1/f"}, here()).Status, 2);
    EXPECT_EQ(testsupport::run({"save", "-C", "x", "http://127.0.0.1:1/f"}, here()).Status, 2);
}

TEST_F(SaveFiles, EveryRetryGoesOn) {
    const Exchanged saved = run(std::vector<Script>{broken(), answering(part("3-4/5", "lo"))},
                                {"save", "--retry", "1", "--retry-delay", "1ms", "URL/f"});
    EXPECT_THAT(saved, ended(0, "", AllOf(StartsWith("netrove: note: the content from "), HasSubstr("tries again"))));
    EXPECT_EQ(saved.field("Range"), "bytes=3-");
    EXPECT_EQ(readFile(file("f")), "hello");
    EXPECT_EQ(names(), Words{"f"});
}

TEST_F(SaveFiles, ARetryWritesNothingTwiceToStandardOutput) {
    const std::vector<Script> goesOn = {broken(), answering(part("3-4/5", "lo"))};
    EXPECT_THAT(run(goesOn, {"get", "--retry", "1", "--retry-delay", "1ms", "URL/f"}), ended(0, "hello"));
    const std::string busy = "HTTP/1.1 503 Busy\r\nRetry-After: 0\r\nContent-Length: 4\r\n\r\nbusy";
    const Script both = {step::expectHead(), step::send(busy), step::expectHead(), step::send(response("hello")),
                         step::awaitPeerEnd()};
    EXPECT_THAT(run(both, {"get", "--retry", "1", "URL/f"}), ended(0, "hello"));
    const Script unproven = {step::expectHead(), step::send(kOk + "Content-Length: 5\r\n\r\nhel"), step::close()};
    EXPECT_THAT(run(unproven, {"get", "--retry", "1", "URL/f"}), ended(18, "hel"));
}

TEST_F(SaveFiles, ALongWaitIsNamedAndEndsWithItsTime) {
    const std::string busy = "HTTP/1.1 503 Busy\r\nRetry-After: 100\r\nContent-Length: 0\r\n\r\n";
    EXPECT_THAT(run(answering(busy), {"get", "--retry", "1", "--retry-max-time", "5", "URL"}),
                ended(22, "", HasSubstr("it asks to be left alone for 100 s")));
}

TEST_F(SaveFiles, ARangeIsThatOrAFailure) {
    const Exchanged some = run(answering(part("1-3/5", "ell")), {"get", "-r", "1-3", "URL"});
    EXPECT_THAT(some, ended(0, "ell"));
    EXPECT_EQ(some.field("Range"), "bytes=1-3");
    EXPECT_THAT(run(answering(part("3-4/5", "lo")), {"get", "-r", "-2", "URL"}), ended(0, "lo"));
    EXPECT_THAT(run(answering(response("hello")), {"get", "-r", "0-", "URL"}), ended(0, "hello"));
    for (const std::string& answer : {response("hello"), part("2-3/5", "ll")}) {
        EXPECT_THAT(run(answering(answer), {"get", "-r", "1-3", "URL"}), ended(33, ""));
        EXPECT_EQ(run(answering(answer), {"save", "-r", "1-3", "URL", "f"}).Status, 33);
        EXPECT_EQ(names(), Words{});
    }
    for (const char* range : {"", "-", "3", "3-1", "0-1,3-4", "a-b"}) {
        EXPECT_EQ(testsupport::run({"get", "-r", range, "http://127.0.0.1:1/"}, here()).Status, 2) << range;
    }
}

TEST_F(SaveFiles, AreFetchedOnlyIfTheirTagDiffers) {
    const Words words = {"save", "--etag-compare", "tag", "--etag-save", "tag", "URL", "f"};
    const Exchanged first = run(answering(kOk + kTag + "Content-Length: 5\r\n\r\nhello"), words);
    EXPECT_EQ(first.Status, 0);
    EXPECT_FALSE(first.field("If-None-Match"));
    EXPECT_EQ(readFile(file("tag")), "\"v1\"\n");
    const Exchanged second = run(answering("HTTP/1.1 304 Not Modified\r\n" + kTag + "\r\n"), words);
    EXPECT_THAT(second, ended(0, "", "netrove: note: not modified: f is left as it is\n"));
    EXPECT_EQ(second.field("If-None-Match"), "\"v1\"");
    EXPECT_EQ(readFile(file("f")), "hello");
    EXPECT_EQ(run(answering(kOk + "ETag: \"v2\"\r\nContent-Length: 3\r\n\r\nnew"), words).Status, 0);
    EXPECT_EQ(readFile(file("f")), "new");
    EXPECT_EQ(readFile(file("tag")), "\"v2\"\n");
}

TEST_F(SaveFiles, AreFetchedOnlyIfNewer) {
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    writeFile(file("f"), "old");
    const timespec times[2] = {{784111777, 0}, {784111777, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file("f").c_str(), times, 0), 0);
    const std::string unchanged = "HTTP/1.1 304 Not Modified\r\n\r\n";
    EXPECT_EQ(run(answering(unchanged), {"save", "-z", "f", "URL", "f"}).field("If-Modified-Since"), date);
    EXPECT_EQ(run(answering(unchanged), {"save", "-z", date, "URL", "f"}).field("If-Modified-Since"), date);
    EXPECT_EQ(run(answering(unchanged), {"save", "-z", "1994-11-06", "URL", "f"}).field("If-Modified-Since"),
              "Sun, 06 Nov 1994 00:00:00 GMT");
    EXPECT_EQ(run(answering(response("x")), {"get", "-z", "-f", "URL"}).field("If-Unmodified-Since"), date);
    EXPECT_EQ(readFile(file("f")), "old");
    EXPECT_EQ(testsupport::run({"get", "-z", "no such time", "http://127.0.0.1:1/"}, here()).Status, 2);
}

TEST_F(SaveFiles, HaveTheServersNameAndTime) {
    const std::string named = kOk + "Content-Disposition: attachment; filename*=UTF-8''%2e%2e%2fna%C3%AFve.txt\r\n" +
                              "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nContent-Length: 1\r\n\r\n1";
    EXPECT_THAT(run(answering(named), {"save", "-J", "-R", "URL/x"}),
                ended(0, "", HasSubstr("saved na\xC3\xAFve.txt")));
    EXPECT_EQ(names(), Words{"na\xC3\xAFve.txt"});
    struct stat facts {};
    ASSERT_EQ(stat(file("na\xC3\xAFve.txt").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mtime, 784111777);
    EXPECT_EQ(run(answering(named), {"save", "-J", "URL/x"}).Status, 23);
    EXPECT_EQ(run(answering(named), {"save", "-J", "--no-clobber", "URL/x"}).Status, 0);
}

TEST_F(SaveFiles, WithoutANameInTheUrlTellTheirs) {
    EXPECT_THAT(run(answering(response("abc")), {"save", "URL/"}),
                ended(0, "", "netrove: note: saved download (3 B)\n"));
    EXPECT_THAT(run(answering(response("abc")), {"save", "URL/named"}), ended(0, "", ""));
}

TEST_F(SaveFiles, ThatExistCanBeSkippedWithoutARequest) {
    writeFile(file("f"), "old");
    EXPECT_THAT(testsupport::run({"save", "--skip-existing", "http://127.0.0.1:1/", "f"}, here()),
                ended(0, "", "netrove: note: f exists and is left as it is\n"));
    EXPECT_EQ(readFile(file("f")), "old");
}

TEST_F(SaveFiles, GoIntoTheirFolder) {
    const Words words = {"save", "--output-dir", "a/b", "URL/f"};
    EXPECT_EQ(testsupport::run({"save", "--output-dir", "a/b", "http://127.0.0.1:1/f"}, here()).Status, 23);
    EXPECT_EQ(run(answering(response("abc")), words + Words{"--create-dirs"}).Status, 0);
    EXPECT_EQ(readFile(file("a/b/f")), "abc");
    EXPECT_EQ(run(answering(response("d")), {"get", "--output-dir", "a", "-o", "g", "URL"}).Status, 0);
    EXPECT_EQ(readFile(file("a/g")), "d");
    // A folder that is named is one below it, whatever there is here.
    std::filesystem::create_directory(file("c"));
    const Words there = {"save", "--output-dir", "a", "http://127.0.0.1:1/f", "b"};
    EXPECT_THAT(testsupport::run(there, here()), ended(23, "", HasSubstr(": a/b/f exists; ")));
    EXPECT_EQ(run(answering(response("e")), {"save", "--output-dir", "a", "URL/g", "b"}).Status, 0);
    EXPECT_EQ(run(answering(response("f")), {"save", "--output-dir", "a", "URL/f", "c"}).Status, 0);
    EXPECT_EQ(readFile(file("a/b/g")) + readFile(file("a/c")), "ef");
    EXPECT_EQ(run(answering(response("g")), {"save", "--output-dir", "a", "--create-dirs", "URL/f", "new/"}).Status, 0);
    EXPECT_EQ(readFile(file("a/new/f")), "g");
    EXPECT_EQ(namesIn(file("c")), Words{});
}

TEST_F(SaveFiles, HaveTheDigestThatWasGiven) {
    const std::string digest = kDigest;
    EXPECT_EQ(run(answering(response("hello")), {"save", "--digest", "sha256:" + digest, "URL", "f"}).Status, 0);
    EXPECT_EQ(run(answering(response("other")), {"save", "--checksum", "sha256=" + digest, "URL", "g"}).Status, 105);
    for (const std::string& written : {digest, "sha-256=" + digest}) {
        EXPECT_EQ(run(answering(response("hello")), {"save", "--force", "--digest", written, "URL", "f"}).Status, 0);
    }
    EXPECT_EQ(names(), Words{"f"});
    EXPECT_EQ(testsupport::run({"save", "--digest", "sha256:abc", "http://127.0.0.1:1/f"}, here()).Status, 2);
}

} // namespace
