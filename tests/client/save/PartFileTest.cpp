#include "tests/client/save/SaveFixture.h"

#include <sys/stat.h>

namespace {

using namespace clienttest;

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

// What a killed program has written counts to its last byte; what a machine without power had, only if it is on the
// disk.
TEST_F(Resume, AfterAPowerCutOnlyWhatIsOnTheDiskCounts) {
    put("f.part", "helXX");
    put("f.part.json", R"({"validator": "\"v1\"", "boot": "another one", "synced": 3})");
    goOn({.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(content("f"), "hello");
}

// Once the file is whole.
TEST_F(Resume, LeavesNothingAfterASaveThatDoesNotGoOn) {
    const std::string leftover = ".f.abcdefghijklmnop.part";
    for (const bool goesOn : {false, true}) {
        breakOff({{"ETag", "\"v1\""}});
        put("f.part.new", "h");
        put("f.part.json.new", "{");
        put("f", "old");
        put(leftover, "half");
        Server.add({.content = "he", .fault = Fault::Short});
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = goesOn}), Error);
        EXPECT_EQ(content("f.part"), "hel");
        Server.add({.content = "hello"});
        TheClient.save(kUrl, path("f"));
        EXPECT_EQ(content("f"), "hello");
        EXPECT_EQ(names(), std::vector<std::string>{"f"});
    }
    breakOff({{"ETag", "\"v1\""}});
    fs::remove(path("f.part"));
    Server.add({.content = "hello"});
    TheClient.save(kUrl, path("f"));
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, LeavesAPartThatIsInUseOrNotItsOwn) {
    netrove::testing::Script other{};
    Client second({}, other.transport());
    other.add({.content = "other"});
    Server.add({.fields = {{"ETag", "\"v1\""}}, .content = "hello"});
    TheClient.save(kUrl, path("f"), {.resume = true, .onHead = [&](const Response&) { second.save(kUrl, path("f")); }});
    EXPECT_EQ(other.requests().size(), 1u);
    EXPECT_EQ(content("f"), "hello");

    const std::string note = R"({"validator": "\"v1\""})";
    for (const std::string& text : {std::string(), std::string("mine"), note}) {
        put("f.part", "hel");
        put("f.part.json", text);
        fs::remove(path("same"));
        if (text == note) {
            fs::create_hard_link(path("f.part"), path("same"));
        }
        Server.add({.content = "hello"});
        TheClient.save(kUrl, path("f"));
        EXPECT_EQ(content("f.part"), "hel");
        EXPECT_EQ(content("f.part.json"), text);
    }
}

TEST_F(Resume, OneProgramAtATimeGoesOnWithAFileOfAnother) {
    std::string inner;
    netrove::testing::Script other{};
    Client second({}, other.transport());
    put("f", "hel");
    const auto first = [&](const Response&) {
        inner = errorOf([&] { second.save(kUrl, path("f"), {.resume = true, .resumeUnproven = true}); }).what();
    };
    Server.add({.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    TheClient.save(kUrl, path("f"), {.resume = true, .resumeUnproven = true, .onHead = first});
    EXPECT_THAT(inner, HasSubstr("f is in use"));
    EXPECT_EQ(content("f"), "hello");
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

} // namespace
