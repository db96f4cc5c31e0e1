#include "tests/client/save/SaveFixture.h"

namespace {

using namespace clienttest;

const Fields kTagged = {{"ETag", "\"v1\""}};
constexpr const char* kOldDate = "Sun, 06 Nov 1994 08:49:37 GMT";

// A part of "hello", as the server that sent the beginning sends it.
Answer part(const std::string& range, const std::string& content) {
    return {.status = 206, .fields = {{"ETag", "\"v1\""}, {"Content-Range", "bytes " + range}}, .content = content};
}

TEST_F(Resume, AsksForTheRestOfTheSameContent) {
    breakOff(kTagged);
    EXPECT_EQ(content("f.part"), "hel");
    EXPECT_FALSE(fs::exists(path("f")));
    const Response response = goOn(part("3-4/5", "lo"));
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(lastSent()["If-Range"], "\"v1\"");
    EXPECT_EQ(lastSent()["Accept-Encoding"], "identity");
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(response.resumedAt, 3u);
    EXPECT_FALSE(response.unproven);
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, AsksForEverythingWhereNothingIsThere) {
    goOn({.fields = kTagged, .content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_FALSE(lastSent().contains("If-Range"));
    EXPECT_EQ(lastSent()["Accept-Encoding"], "identity");
}

TEST_F(Resume, AnEmptyContentIsWhole) {
    Server.add({.fields = kTagged});
    TheClient.save(kUrl, path("f"), {.resume = true});
    EXPECT_TRUE(fs::exists(path("f")));
    EXPECT_EQ(content("f"), "");
}

TEST_F(Resume, BeginsAnewWhereTheServerSendsEverything) {
    breakOff(kTagged);
    EXPECT_EQ(goOn({.fields = {{"ETag", "\"v2\""}}, .content = "hello"}).resumedAt, 0u);
    EXPECT_EQ(content("f"), "hello");
}

// What is there is worth more than less of something else.
TEST_F(Resume, KeepsThePartUntilTheNewContentIsLonger) {
    breakOff(kTagged);
    const auto beginAgain = [&](const char* came) {
        Server.add({.fields = {{"ETag", "\"v2\""}}, .content = came, .fault = Fault::Short});
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    };
    beginAgain("HE");
    EXPECT_EQ(content("f.part"), "hel");
    EXPECT_EQ(names(), (std::vector<std::string>{"f.part", "f.part.json"}));
    beginAgain("HELL");
    EXPECT_EQ(content("f.part"), "HELL");
    EXPECT_EQ(names(), (std::vector<std::string>{"f.part", "f.part.json"}));
    goOn({.status = 206, .fields = {{"ETag", "\"v2\""}, {"Content-Range", "bytes 4-4/5"}}, .content = "O"},
         "3733cd977ff8eb18b987357e22ced99f46097f31ecb239e878ae63760e83e4d5");
    EXPECT_EQ(lastSent()["If-Range"], "\"v2\"");
    EXPECT_EQ(content("f"), "HELLO");
}

TEST_F(Resume, TakesNewContentThatIsShorterAndWhole) {
    breakOff(kTagged);
    Server.add({.fields = {{"ETag", "\"v2\""}}, .content = "HE"});
    TheClient.save(kUrl, path("f"), {.resume = true});
    EXPECT_EQ(content("f"), "HE");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Resume, GoesOnWithinOneCall) {
    Server.add({.fields = {{"ETag", "\"v1\""}, {"Content-Length", "5"}}, .content = "hel", .fault = Fault::Short});
    Server.add(part("3-4/5", "lo"));
    TheClient.save(kUrl, path("f"), {.resume = true, .sha256 = kDigest, .retry = {.attempts = 2}});
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
}

// A date proves nothing if the content may have changed twice within its second.
TEST_F(Resume, NeedsAStrongValidator) {
    for (const Fields& fields :
         {Fields{}, Fields{{"ETag", "W/\"v1\""}}, Fields{{"Last-Modified", kOldDate}},
          Fields{{"Last-Modified", kOldDate}, {"Date", kOldDate}},
          Fields{{"ETag", "W/\"v1\""}, {"Last-Modified", kOldDate}, {"Date", "Sun, 06 Nov 1994 09:49:37 GMT"}}}) {
        breakOff(fields);
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range"));
        EXPECT_EQ(content("f"), "hello");
    }
    breakOff({{"Last-Modified", kOldDate}, {"Date", "Sun, 06 Nov 1994 08:49:38 GMT"}});
    goOn({.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    EXPECT_EQ(lastSent()["If-Range"], kOldDate);
}

// Parts that do not belong there, whatever their status says.
TEST_F(Resume, TakesNoOtherPart) {
    for (const Fields& fields :
         {Fields{{"Content-Range", "bytes 4-4/5"}}, Fields{{"Content-Range", "bytes 3-4"}},
          Fields{{"Content-Range", "bytes 4-3/5"}}, Fields{{"Content-Range", "bytes 3-5/5"}},
          Fields{{"Content-Range", "bytes */5"}}, Fields{{"Content-Range", "items 3-4/5"}},
          Fields{{"Content-Type", "multipart/byteranges; boundary=x"}}, Fields{{"Content-Range", "bytes 3-4/6"}},
          Fields{{"Content-Range", "bytes 3-4/5"}, {"Content-Encoding", "gzip"}},
          Fields{{"Content-Range", "bytes 3-4/5"}, {"ETag", "\"v2\""}}}) {
        breakOff(kTagged);
        Server.add({.status = 206, .fields = fields, .content = "lo"});
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range")) << "anew";
        EXPECT_EQ(content("f"), "hello");
    }
}

TEST_F(Resume, APartThatBeginsEarlierIsComparedFirst) {
    breakOff(kTagged);
    EXPECT_EQ(goOn(part("1-4/5", "ello")).resumedAt, 1u);
    EXPECT_EQ(content("f"), "hello");
    breakOff(kTagged);
    Server.add(part("1-4/5", "ELLO"));
    goOn({.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, APartOfUnknownLengthIsTakenForTheRest) {
    breakOff(kTagged);
    goOn(part("3-4/*", "lo"));
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, ARangeBeyondTheEndMeansThatAllIsThere) {
    for (const bool checks : {true, false}) {
        Server.add(
            {.fields = {{"ETag", "\"v1\""}, {"Content-Length", "5"}}, .content = "hello", .fault = Fault::Short});
        EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
        Server.add({.status = 416, .fields = {{"Content-Range", "bytes */5"}}, .content = "page"});
        const Response response = TheClient.save(kUrl, path("f"), {.resume = true, .checkStatus = checks});
        EXPECT_EQ(content("f"), "hello");
        EXPECT_EQ(response.resumedAt, 5u);
        EXPECT_FALSE(response.unproven);
        EXPECT_TRUE(response.bytes().empty());
    }
}

TEST_F(Resume, ARangeBeyondAnotherEndMeansThatTheContentIsAnother) {
    for (const char* range : {"bytes */2", "bytes */3", "bytes */9"}) {
        breakOff(kTagged);
        Server.add({.status = 416, .fields = {{"Content-Range", range}}});
        goOn({.content = "hello"});
        EXPECT_FALSE(lastSent().contains("Range"));
        EXPECT_EQ(content("f"), "hello");
    }
}

// Then the last byte tells whether it is the last.
TEST_F(Resume, ARangeBeyondAnEndThatTheServerDoesNotName) {
    Server.add({.fields = {{"ETag", "\"v1\""}, {"Content-Length", "5"}}, .content = "hello", .fault = Fault::Short});
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true}), Error);
    Server.add({.status = 416});
    goOn(part("4-4/5", "o"));
    EXPECT_EQ(lastSent()["Range"], "bytes=4-");
    EXPECT_EQ(lastSent()["If-Range"], "\"v1\"");
    EXPECT_EQ(content("f"), "hello");

    breakOff(kTagged);
    Server.add({.status = 416});
    Server.add({.status = 416});
    goOn({.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");
}

// A server may send less than it was asked for.
TEST_F(Resume, AsksForTheRestOfAPart) {
    breakOff(kTagged);
    Server.add(part("3-3/5", "l"));
    EXPECT_EQ(goOn(part("4-4/5", "o")).resumedAt, 4u);
    EXPECT_EQ(lastSent()["Range"], "bytes=4-");
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, PartsWithoutANewByteEndInAFailure) {
    breakOff(kTagged);
    Server.add(part("2-2/5", "l"));
    Server.add(part("2-2/5", "l"));
    const Error error = errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); });
    EXPECT_EQ(error.identifier(), "NETROVE:client:Incomplete");
    EXPECT_THAT(error.what(), HasSubstr("3 of 5 bytes"));
    EXPECT_EQ(content("f.part"), "hel");
}

TEST_F(Resume, APartThatNobodyAskedForIsNotTheWhole) {
    Server.add({.status = 206, .fields = {{"Content-Range", "bytes 0-1/5"}}, .content = "he"});
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true}); }).identifier(),
              "NETROVE:client:Incomplete");
    EXPECT_TRUE(names().empty());
}

TEST_F(Resume, AskingAnewIsPartOfTheSameCall) {
    breakOff(kTagged);
    Server.add({.status = 206, .content = "he"});
    const Response response = goOn({.content = "hello"});
    EXPECT_EQ(response.attempts, 2);
    ASSERT_EQ(response.hops.size(), 2u);
    EXPECT_EQ(response.hops[0].status, 206);
    EXPECT_EQ(response.hops[1].status, 200);
}

// Also where the redirect leads to another host: the validator belongs to the final answer.
TEST_F(Resume, ARedirectIsAskedForTheSamePart) {
    breakOff(kTagged);
    Server.add({.status = 302, .fields = {{"Location", "http://b.example/data.bin"}}});
    goOn(part("3-4/5", "lo"));
    EXPECT_EQ(Server.requests().back().url, "http://b.example/data.bin");
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(lastSent()["If-Range"], "\"v1\"");
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Resume, AnErrorLeavesThePartAsItIs) {
    for (const int status : {403, 404, 412, 503}) {
        for (const bool checks : {true, false}) {
            breakOff(kTagged);
            Server.add({.status = status, .content = "a page of an error"});
            EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true, .checkStatus = checks}); }).kind(),
                      ErrorKind::Status);
            EXPECT_EQ(content("f.part"), "hel");
            goOn(part("3-4/5", "lo"));
            EXPECT_EQ(content("f"), "hello");
        }
    }
}

// Conditions are looked at before a range, and would be answered with 304.
TEST_F(Resume, AConditionIsNotMixedWithARange) {
    breakOff(kTagged);
    Server.add(part("3-4/5", "lo"));
    TheClient.save(kUrl, path("f"), {.fields = {{"If-None-Match", "\"v1\""}}, .resume = true});
    EXPECT_FALSE(lastSent().contains("If-None-Match"));
}

// Parts that a validator calls the same and that are not.
TEST_F(Resume, AWrongDigestBeginsAnewOnce) {
    breakOff(kTagged);
    Server.add(part("3-4/5", "LO"));
    goOn({.fields = kTagged, .content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");

    breakOff(kTagged);
    Server.add(part("3-4/5", "LO"));
    Server.add({.fields = kTagged, .content = "other"});
    EXPECT_EQ(errorOf([&] { TheClient.save(kUrl, path("f"), {.resume = true, .sha256 = kDigest}); }).identifier(),
              "NETROVE:client:DigestMismatch");
    EXPECT_EQ(Server.left(), 0u);
    EXPECT_FALSE(fs::exists(path("f.part")));
}

// What nothing is known of

class Unproven : public Resume {
protected:
    Response goOn(Answer answer, const std::string& digest = "") {
        Server.add(std::move(answer));
        return TheClient.save(kUrl, path("f"), {.resume = true, .resumeUnproven = true, .sha256 = digest});
    }
    Answer rest() const { return {.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"}; }
};

TEST_F(Unproven, AFileOfAnotherProgramGoesOn) {
    put("f", "hel");
    EXPECT_TRUE(goOn(rest()).unproven);
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_FALSE(lastSent().contains("If-Range"));
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
    put("f", "hel");
    EXPECT_FALSE(goOn(rest(), kDigest).unproven);
    put("f.part", "hel");
    EXPECT_TRUE(goOn(rest()).unproven);
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Unproven, AFileThatIsWholeStays) {
    for (const char* digest : {"", kDigest}) {
        put("f", "hello");
        const Response response = goOn({.status = 416, .fields = {{"Content-Range", "bytes */5"}}}, digest);
        EXPECT_EQ(response.unproven, *digest == '\0');
        EXPECT_EQ(response.resumedAt, 5u);
        EXPECT_EQ(content("f"), "hello");
    }
}

TEST_F(Unproven, AFileIsReplacedOnlyByTheWhole) {
    put("f", "old content");
    Server.add({.content = "hel", .fault = Fault::Short});
    EXPECT_THROW(TheClient.save(kUrl, path("f"), {.resume = true, .resumeUnproven = true}), Error);
    EXPECT_EQ(content("f"), "old content");
    goOn({.content = "hello"});
    EXPECT_EQ(content("f"), "hello");
    put("f", "old content");
    Server.add({.status = 416, .fields = {{"Content-Range", "bytes */5"}}});
    goOn({.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Unproven, AFileOlderThanTheServersBeginsAnew) {
    put("f", "hel");
    fs::last_write_time(path("f"), fs::file_time_type::clock::now() - std::chrono::hours(24 * 365 * 60));
    Server.add(
        {.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}, {"Last-Modified", kOldDate}}, .content = "LO"});
    EXPECT_FALSE(goOn({.content = "hello"}).unproven);
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Unproven, WhatIsKnownToHaveNoValidatorBeginsAnew) {
    breakOff({});
    goOn({.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
}

// At a byte that the program names

class ResumeAt : public Resume {
protected:
    Response goOnAt(std::uint64_t at) { return TheClient.save(kUrl, path("f"), {.resume = true, .resumeAt = at}); }
};

TEST_F(ResumeAt, FetchesFromThereOn) {
    put("f", "helXXX");
    Server.add({.status = 206, .fields = {{"Content-Range", "bytes 3-4/5"}}, .content = "lo"});
    EXPECT_TRUE(goOnAt(3).unproven);
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(ResumeAt, LeavesTheFileAloneWhereTheServerSendsSomethingElse) {
    for (const Answer& answer :
         {Answer{.content = "hello"}, Answer{.status = 416, .fields = {{"Content-Range", "bytes */2"}}},
          Answer{.status = 416}}) {
        put("f", "hel");
        Server.add(answer);
        EXPECT_EQ(errorOf([&] { goOnAt(3); }).identifier(), "NETROVE:client:RangeRefused");
        EXPECT_EQ(content("f"), "hel");
        EXPECT_EQ(names(), std::vector<std::string>{"f"});
    }
}

TEST_F(ResumeAt, NeedsThatManyBytes) {
    put("f", "he");
    EXPECT_EQ(errorOf([&] { goOnAt(3); }).identifier(), "NETROVE:client:BadOffset");
    EXPECT_TRUE(Server.requests().empty());
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

// Attempts of one call without `resume`

class Attempts : public Resume {
protected:
    // The beginning of "hello" with these fields, then `answer`.
    Response saveAfter(Fields fields, Answer answer, Request more = {}) {
        fields.add("Content-Length", "5");
        Server.add({.fields = std::move(fields), .content = "hel", .fault = Fault::Short});
        Server.add(std::move(answer));
        more.retry.attempts = 2;
        return TheClient.save(kUrl, path("f"), std::move(more));
    }
};

TEST_F(Attempts, GoOnWhereTheLastOneBrokeOff) {
    EXPECT_EQ(saveAfter(kTagged, part("3-4/5", "lo")).resumedAt, 3u);
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(lastSent()["If-Range"], "\"v1\"");
    EXPECT_EQ(content("f"), "hello");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Attempts, BeginAnewWhereNothingProvesThatTheContentIsTheSame) {
    saveAfter({}, {.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range"));
    EXPECT_EQ(content("f"), "hello");
    saveAfter({{"ETag", "\"v1\""}, {"Content-Encoding", "gzip"}}, {.content = "hello"});
    EXPECT_FALSE(lastSent().contains("Range")) << "decoded content has other offsets";
    EXPECT_EQ(content("f"), "hello");
    saveAfter({{"ETag", "\"v1\""}, {"Content-Encoding", "gzip"}}, part("3-4/5", "lo"), {.decode = false});
    EXPECT_EQ(lastSent()["Range"], "bytes=3-");
    EXPECT_EQ(content("f"), "hello");
}

TEST_F(Attempts, GoOnUnderTheNameThatTheServerGave) {
    Server.add(
        {.fields = {{"ETag", "\"v1\""}, {"Content-Length", "5"}, {"Content-Disposition", "attachment; filename=named"}},
         .content = "hel",
         .fault = Fault::Short});
    Server.add(part("3-4/5", "lo"));
    EXPECT_EQ(TheClient.save(kUrl, Folder.path(), {.retry = {.attempts = 2}}).file, path("named"));
    EXPECT_EQ(content("named"), "hello");
}

TEST_F(Attempts, APartThatTheProgramAsksForIsFetchedAgain) {
    Server.add({.status = 206,
                .fields = {{"ETag", "\"v1\""}, {"Content-Range", "bytes 1-3/5"}, {"Content-Length", "3"}},
                .content = "e",
                .fault = Fault::Short});
    Server.add({.status = 206, .fields = {{"Content-Range", "bytes 1-3/5"}}, .content = "ell"});
    TheClient.save(kUrl, path("f"), {.fields = {{"Range", "bytes=1-3"}}, .retry = {.attempts = 2}});
    EXPECT_EQ(lastSent()["Range"], "bytes=1-3");
    EXPECT_EQ(content("f"), "ell");
}

// Content that has been passed on

class Passed : public Resume {
protected:
    Response streamAfter(Fields fields, std::vector<Answer> answers) {
        Came.clear();
        Heads = 0;
        fields.add("Content-Length", "5");
        Server.add({.fields = std::move(fields), .content = "hel", .fault = Fault::Short});
        for (Answer& answer : answers) {
            Server.add(std::move(answer));
        }
        return TheClient.stream({.url = kUrl, .resume = true, .retry = {.attempts = 3}}, [&](const Response&) -> Taker {
            ++Heads;
            return [&](std::span<const std::byte> piece) {
                Came.append(reinterpret_cast<const char*>(piece.data()), piece.size());
                return true;
            };
        });
    }
    std::string Came;
    int Heads = 0;
};

TEST_F(Passed, GoesOnWithTheRest) {
    EXPECT_EQ(streamAfter(kTagged, {part("3-4/5", "lo")}).received, 5u);
    EXPECT_EQ(Came, "hello");
    EXPECT_EQ(Heads, 1);
}

TEST_F(Passed, LeavesOutWhatComesAgain) {
    streamAfter(kTagged, {{.fields = kTagged, .content = "hello"}});
    EXPECT_EQ(Came, "hello");
    streamAfter(kTagged, {part("0-4/5", "hello")});
    EXPECT_EQ(Came, "hello");
}

TEST_F(Passed, IsNotTriedAgainWhereNothingProvesThatTheContentIsTheSame) {
    EXPECT_EQ(errorOf([&] { streamAfter({}, {}); }).identifier(), "NETROVE:client:Incomplete");
    EXPECT_EQ(errorOf([&] {
                  streamAfter(kTagged, {{.fields = {{"ETag", "\"v2\""}}, .content = "HELLO"}});
              }).identifier(),
              "NETROVE:client:NotResumed");
    EXPECT_EQ(Came, "hel");
}

TEST_F(Passed, NothingPassedOnIsAnotherAttempt) {
    Server.add({.fields = kTagged, .fault = Fault::Short});
    streamAfter(kTagged, {part("3-4/5", "lo")});
    EXPECT_EQ(Came, "hello");
    EXPECT_EQ(Heads, 2);
}

} // namespace
