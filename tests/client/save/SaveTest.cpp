#include "tests/client/save/SaveFixture.h"

#include <sys/stat.h>

namespace {

using namespace clienttest;
using Words = std::vector<std::string>;

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
    const Fields tag = {{"ETag", "\"1\""}, {"Content-Length", "10"}};
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
