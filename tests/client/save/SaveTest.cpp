#include "tests/client/ErrorOf.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>
#include <netrove/testing.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace netrove;
using netrove::testing::Fault;
using ::testing::HasSubstr;

namespace {

using clienttest::errorOf;

namespace fs = std::filesystem;

using Answer = netrove::testing::Answer;
using Words = std::vector<std::string>;
constexpr const char* kUrl = "http://a.example/data.bin";
constexpr const char* kDigest = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"; // of "hello"

class Save : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return Folder.path() + "/" + name; }
    void put(const std::string& name, const std::string& content) const { std::ofstream(path(name)) << content; }
    std::string content(const std::string& name) const { return testsupport::readFile(path(name)); }
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : fs::directory_iterator(Folder.path())) {
            result.push_back(entry.path().filename());
        }
        std::sort(result.begin(), result.end());
        return result;
    }
    testsupport::TemporaryFolder Folder;
    netrove::testing::Script Server{};
    Client TheClient{{.retry = {.attempts = 1, .wait = std::chrono::milliseconds(1)}}, Server.transport()};
};

TEST_F(Save, WritesTheWholeFileAndSaysWhere) {
    Server.add({.content = "hello"});
    const Response response = TheClient.save(kUrl, path("f"), {.sha256 = kDigest});
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(response.file, path("f"));
    EXPECT_EQ(response.received, 5u);
    EXPECT_TRUE(response.bytes().empty());
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Save, KeepsNothingThatIsNotWholeAndRight) {
    put("f", "old");
    for (const auto& [answer, digest] :
         std::initializer_list<std::pair<Answer, const char*>>{{{.content = "half", .fault = Fault::Short}, ""},
                                                               {{.status = 404, .content = "page"}, ""},
                                                               {{.fault = Fault::Reset}, ""},
                                                               {{.content = "other"}, kDigest}}) {
        Server.add(answer);
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.sha256 = digest}), Error);
        EXPECT_EQ(content("f"), "old");
        EXPECT_EQ(names(), std::vector<std::string>{"f"});
    }
}

TEST_F(Save, ADigestThatDiffersIsNamed) {
    Server.add({.content = "other"});
    const Error error = errorOf([&] { TheClient.save(kUrl, path("f"), {.sha256 = kDigest}); });
    EXPECT_EQ(error.kind(), ErrorKind::Content);
    EXPECT_EQ(error.arguments().at(0), Error::Argument(kDigest));
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.sha256 = "abc"}), Error) << "not a digest";
}

TEST_F(Save, ReplacesOnlyWhereAllowedAndKeepsPermissions) {
    put("f", "old");
    chmod(path("f").c_str(), 0640);
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.replace = false}); }).identifier(),
              "NETROVE:client:FileExists");
    Server.add({.content = "new"});
    TheClient.save(kUrl, path("f"));
    EXPECT_EQ(content("f"), "new");
    EXPECT_EQ(fs::status(path("f")).permissions(), fs::perms(0640));
}

TEST_F(Save, AnAttemptThatFailedLeavesNothingInTheNextOne) {
    Server.add({.content = "first try", .fault = Fault::Short});
    Server.add({.content = "hello"});
    EXPECT_EQ(TheClient.save(kUrl, path("f"), {.retry = {.attempts = 2}}).attempts, 2);
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Save, KeepsTheServersTime) {
    Server.add({.fields = {{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}}, .content = "x"});
    TheClient.save(kUrl, path("f"), {.keepTime = true});
    struct stat facts {};
    ASSERT_EQ(stat(path("f").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mtime, 784111777);
}

TEST_F(Save, AFolderLetsTheServerNameTheFile) {
    Server.add({.fields = {{"Content-Disposition", "attachment; filename=\"../../caf\xC3\xA9.txt\""}}, .content = "1"});
    EXPECT_EQ(TheClient.save(kUrl, Folder.path()).file, path("caf\xC3\xA9.txt"));
    Server.add({.content = "2"});
    EXPECT_EQ(TheClient.save(kUrl, Folder.path() + "/").file, path("data.bin"));
}

TEST_F(Save, ATargetThatCannotBeMadeCostsNoRequest) {
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("none/f")); }).kind(), ErrorKind::File);
    EXPECT_TRUE(Server.requests().empty());
}

TEST_F(Save, NothingIsSavedWhereNothingHasChanged) {
    put("f", "old");
    for (const bool resume : {false, true}) {
        Server.add({.status = 304});
        const Response response =
            TheClient.save(kUrl, path("f"), {.fields = {{"If-None-Match", "\"v1\""}}, .resume = resume});
        EXPECT_EQ(response.status, 304);
        EXPECT_EQ(response.file, "");
        EXPECT_EQ(content("f"), "old");
        EXPECT_EQ(names(), std::vector<std::string>{"f"});
    }
    Server.add({.status = 304});
    EXPECT_EQ(TheClient.save(kUrl, Folder.path()).status, 304);
}

TEST_F(Save, RefusesWhatCannotBeSaved) {
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.method = "HEAD"}); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.body = text("x"), .resume = true}); }).kind(),
              ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] {
                  TheClient.save(kUrl, path("f"), {.fields = {{"Range", "bytes=1-"}}, .resume = true});
              }).kind(),
              ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path(std::string("f\0x", 3))); }).kind(), ErrorKind::Usage);
    for (const bool resume : {false, true}) {
        EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path(std::string(300, 'x')), {.resume = resume}); }).kind(),
                  ErrorKind::File);
    }
    EXPECT_TRUE(Server.requests().empty());
    EXPECT_TRUE(names().empty());
}

TEST_F(Save, A416WithoutARangeIsAnErrorLikeAnyOther) {
    Server.add({.status = 416});
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f")); }).kind(), ErrorKind::Status);
    EXPECT_EQ(Server.requests().size(), 1u);
}

// Resuming

class Resume : public Save {
protected:
    // A download that broke off after "hel".
    void breakOff(Fields fields) {
        Server.add({.fields = std::move(fields), .content = "hel", .fault = Fault::Short});
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    }
    Response goOn(Answer answer) {
        Server.add(std::move(answer));
        return TheClient.save(kUrl, path("f"), {.resume = true, .sha256 = kDigest});
    }
    Fields lastSent() const { return Server.requests().back().fields; }
};

TEST_F(Resume, AsksForTheRestOfTheSameContent) {
    breakOff({{"ETag", "\"v1\""}});
    EXPECT_EQ(content("f.part"), "hel");
    EXPECT_FALSE(fs::exists(path("f")));
    const Response response =
        goOn({.status = 206, .fields = {{"ETag", "\"v1\""}, {"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(lastSent()["If-Range"], "\"v1\"");
    EXPECT_EQ(lastSent()["Accept-Encoding"], "identity");
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(response.resumedAt, 3u);
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, BeginsAnewWhereTheServerSendsEverything) {
    breakOff({{"ETag", "\"v1\""}});
    EXPECT_EQ(goOn({.fields = {{"ETag", "\"v2\""}}, .content = "hello"}).resumedAt, 0u);
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, GoesOnWithinOneCall) {
    Server.add({.fields = {{"ETag", "\"v1\""}}, .content = "hel", .fault = Fault::Short});
    Server.add({.status = 206, .fields = {{"ETag", "\"v1\""}, {"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    TheClient.save(kUrl, path("f"), {.resume = true, .sha256 = kDigest, .retry = {.attempts = 2}});
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
}

// Without a validator that proves that the content is the same, everything is asked for again.
TEST_F(Resume, NeedsAStrongValidator) {
    for (const Fields& fields :
         {Fields{}, Fields{{"ETag", "W/\"v1\""}}, Fields{{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}},
          Fields{{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}, {"Date", "Sun, 06 Nov 1994 08:50:00 GMT"}}}) {
        breakOff(fields);
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range"));
        EXPECT_EQ(content("f"), "hello");
    }
    breakOff({{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}, {"Date", "Sun, 06 Nov 1994 08:51:00 GMT"}});
    goOn({.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    EXPECT_EQ(lastSent()["If-Range"], "Sun, 06 Nov 1994 08:49:37 GMT");
}

// Parts that nobody has asked for, and what else a server may do with a range.
TEST_F(Resume, TakesNoOtherPart) {
    for (const Fields& fields : {Fields{{"Content-Range", "bytes 2-4/5"}}, Fields{{"Content-Range", "bytes 3-4"}},
                                 Fields{{"Content-Range", "items 3-4/5"}}, Fields{},
                                 Fields{{"Content-Range", "bytes 3-4/5"}, {"ETag", "\"v2\""}}}) {
        breakOff({{"ETag", "\"v1\""}});
        Server.add({.status = 206, .fields = fields, .content = "lo"});
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range")) << "anew";
        EXPECT_EQ(content("f"), "hello");
    }
}

TEST_F(Resume, ARangeBeyondTheEndMeansThatAllIsThere) {
    Server.add({.fields = {{"ETag", "\"v1\""}}, .content = "hello", .fault = Fault::Short});
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    goOn({.status = 416, .fields = {{"Content-Range", "bytes */5"}}});
    EXPECT_EQ(content("f"), "hello");
    breakOff({{"ETag", "\"v1\""}});
    Server.add({.status = 416, .fields = {{"Content-Range", "bytes */2"}}});
    goOn({.content = "hello"});
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, ARangeBeyondTheEndMeansThatAllIsThereWhateverTheChecks) {
    Server.add({.fields = {{"ETag", "\"v1\""}}, .content = "hello", .fault = Fault::Short});
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    Server.add({.status = 416, .fields = {{"Content-Range", "bytes */5"}}, .content = "page"});
    const Response response = TheClient.save(kUrl, path("f"), {.resume = true, .checkStatus = false});
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(response.resumedAt, 5u);
    EXPECT_TRUE(response.bytes().empty());
}

// A server may send less than it was asked for.
TEST_F(Resume, APartThatEndsTooEarlyIsNotTheWhole) {
    breakOff({{"ETag", "\"v1\""}});
    Server.add({.status = 206, .fields = {{"ETag", "\"v1\""}, {"Content-Range", "bytes 3-3/5"}}, .content = "l"});
    const Error error = errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); });
    EXPECT_EQ(error.identifier(), "NETROVE:client:Incomplete");
    EXPECT_THAT(error.what(), HasSubstr("4 of 5 bytes"));
    EXPECT_FALSE(fs::exists(path("f")));
    EXPECT_EQ(goOn({.status = 206, .fields = {{"Content-Range", "bytes 4-4/5"}}, .content = "o"}).resumedAt, 4u);
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, APartThatNobodyAskedForIsNotTheWhole) {
    for (int i = 0; i < 2; ++i) {
        Server.add({.status = 206, .fields = {{"Content-Range", "bytes 0-1/5"}}, .content = "he"});
    }
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); }).identifier(),
              "NETROVE:client:Incomplete");
    EXPECT_TRUE(names().empty());
}

TEST_F(Resume, AskingAnewIsPartOfTheSameCall) {
    breakOff({{"ETag", "\"v1\""}});
    Server.add({.status = 206, .fields = {{"Content-Range", "bytes 0-1/5"}}, .content = "he"});
    const Response response = goOn({.content = "hello"});
    EXPECT_EQ(response.attempts, 2);
    ASSERT_EQ(response.hops.size(), 2u);
    EXPECT_EQ(response.hops[0].status, 206);
    EXPECT_EQ(response.hops[1].status, 200);
}

TEST_F(Resume, LeavesNothingWhereNothingCame) {
    Server.add({.fault = Fault::Refused});
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    put("f", "old");
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true, .replace = false}); }).identifier(),
              "NETROVE:client:FileExists");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, DoesNotReplaceWhatAppearsMeanwhile) {
    Server.add({.content = "hello"});
    const Error error = errorOf([&] {
        TheClient.save(kUrl, path("f"),
                       {.resume = true, .replace = false, .progress = [&](const Progress&) { put("f", "theirs"); }});
    });
    EXPECT_EQ(error.identifier(), "NETROVE:client:FileExists");
    EXPECT_EQ(content("f"), "theirs");
}

TEST_F(Resume, ReplacesTheFileThatALinkLeadsTo) {
    put("real", "old");
    fs::create_symlink("real", path("f"));
    EXPECT_EQ(goOn({.content = "hello"}).file, path("f"));
    EXPECT_TRUE(fs::is_symlink(path("f")));
    EXPECT_EQ(content("real"), "hello");
}

TEST_F(Resume, ReplacesNoPipe) {
    ASSERT_EQ(mkfifo(path("f").c_str(), 0600), 0);
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); }).kind(), ErrorKind::File);
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, NobodyReadsThePartWhoMayNotReadTheFile) {
    put("f", "old");
    chmod(path("f").c_str(), 0600);
    breakOff({{"ETag", "\"v1\""}});
    EXPECT_EQ(fs::status(path("f.part")).permissions(), fs::perms(0600));
}

// In a folder where others may write.
TEST_F(Resume, FollowsNoLinkOfItsNote) {
    fs::create_symlink(path("elsewhere"), path("f.part.json"));
    breakOff({{"ETag", "\"v1\""}});
    EXPECT_FALSE(fs::exists(path("elsewhere")));
    put("elsewhere", R"({"validator": "\"v1\""})");
    fs::remove(path("f.part.json"));
    fs::create_symlink(path("elsewhere"), path("f.part.json"));
    goOn({.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
}

TEST_F(Resume, BelievesNoNoteThatIsNotAValidator) {
    for (const char* note : {"", "{", "[]", "[[[[[[[[", R"({"validator": 1})", R"({"validator": "a\r\nX: 1"})",
                             R"({"validator": "\u00e9"})"}) {
        put("f.part", "hel");
        put("f.part.json", note);
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range")) << note;
        EXPECT_EQ(content("f"), "hello");
    }
}

TEST_F(Resume, RefusesAPartThatIsNotItsOwn) {
    fs::create_symlink(path("elsewhere"), path("f.part"));
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); }).kind(), ErrorKind::File);
    EXPECT_FALSE(fs::exists(path("elsewhere")));
    fs::remove(path("f.part"));
    put("other", "x");
    fs::create_hard_link(path("other"), path("f.part"));
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); }).kind(), ErrorKind::File);
}

TEST_F(Resume, OneProgramAtATime) {
    std::string inner;
    netrove::testing::Script other{};
    Client second({}, other.transport());
    Server.add({.fields = {{"ETag", "\"v1\""}}, .content = "hello"});
    TheClient.save(kUrl, path("f"), {.resume = true, .progress = [&](const Progress&) {
                                         inner =
                                             errorOf([&] { second.save(kUrl, path("f"), {.resume = true}); }).what();
                                     }});
    EXPECT_THAT(inner, HasSubstr("f.part is in use"));
}

// Content for a list: long content can go on, and leaves nothing of somebody else's in doubt.
class Received : public Save {
protected:
    ReceivedFile File{};
    Words Temporaries{};

    Response receive(Request more = {}, std::uint64_t resumedFrom = 4) {
        more.url = kUrl;
        return TheClient.receive(std::move(more), path("f"), File,
                                 {resumedFrom, [this](const std::string& name, int) { Temporaries.push_back(name); }});
    }
};

TEST_F(Received, GetsItsNameWhenTheProgramWants) {
    Server.add({.fields = {{"ETag", "\"1\""}}, .content = "abc"});
    EXPECT_EQ(receive().file, path("f"));
    EXPECT_EQ(names(), Words{}) << "short content has no name";
    File.settle();
    File.name();
    EXPECT_EQ(content("f"), "abc");
    EXPECT_EQ(Temporaries, Words{});
}

TEST_F(Received, WhatIsNotNamedIsDropped) {
    Server.add({.content = "abc"});
    receive();
    File = ReceivedFile();
    EXPECT_EQ(names(), Words{});
    EXPECT_FALSE(File);
}

TEST_F(Received, LongContentGoesOn) {
    const Fields tag = {{"ETag", "\"1\""}};
    Server.add({.fields = tag, .content = "hello", .fault = Fault::Short});
    EXPECT_THROW(receive(), Error);
    EXPECT_EQ(names(), (Words{"f.part", "f.part.json"}));
    EXPECT_EQ(Temporaries, Words{path("f.part")});
    Server.add({.status = 206, .fields = {{"ETag", "\"1\""}, {"Content-Range", "bytes 5-9/10"}}, .content = "world"});
    EXPECT_EQ(receive().resumedAt, 5u);
    EXPECT_EQ(Server.requests().back().fields["Range"], "bytes=5-");
    File.settle();
    File.name();
    EXPECT_EQ(content("f"), "helloworld");
    EXPECT_EQ(names(), Words{"f"});
}

TEST_F(Received, WhatCannotGoOnLeavesNothing) {
    struct Row {
        Answer Given;
        Request Asked{};
    };
    const Fields tag = {{"ETag", "\"1\""}};
    for (const Row& row :
         std::initializer_list<Row>{{{.content = "hello"}},
                                    {{.fields = {{"ETag", "W/\"1\""}}, .content = "hello"}},
                                    {{.fields = {{"ETag", "\"1\""}, {"Content-Encoding", "gzip"}}, .content = "hello"}},
                                    {{.fields = tag, .content = "ab"}},
                                    {{.fields = tag, .content = "hello"}, {.method = "POST"}},
                                    {{.fields = tag, .content = "hello"}, {.fields = {{"Range", "bytes=0-9"}}}}}) {
        Answer answer = row.Given;
        answer.fault = Fault::Short;
        Server.add(answer);
        EXPECT_THROW(receive(row.Asked), Error);
        EXPECT_EQ(names(), Words{});
    }
}

TEST_F(Received, AFileOfTheUsersOwnIsNoBeginning) {
    put("f.part", "mine");
    Server.add({.fields = {{"ETag", "\"1\""}}, .content = "hello"});
    receive();
    EXPECT_EQ(content("f.part"), "mine");
    EXPECT_FALSE(Server.requests().back().fields.contains("Range"));
    EXPECT_EQ(names(), Words{"f.part"});
}

} // namespace
