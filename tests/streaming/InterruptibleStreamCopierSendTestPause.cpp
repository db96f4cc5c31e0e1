// libcurl may read more than once in one perform. While the provider can still give content, that must pause the upload
// and never end it.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <stdexcept>
#include <string>

using namespace streamingtest;

namespace {

constexpr std::size_t kRoom = 65536;

class SendPumpPause : public CopierFixture {
protected:
    SendPumpPause() {
        Curl.OnEasyPause = [](int) { return CURLE_OK; };
    }

    // Reads until nothing more is given, as libcurl does when a request starts. `Answers` gets each answer in words.
    Perform readsUntilNothingComes(int running) {
        return [this, running] {
            std::string answer;
            do {
                answer = read(kRoom);
                const std::size_t blank = answer.find(' ');
                Uploaded += blank == std::string::npos ? "" : answer.substr(blank + 1);
                Answers += answer.substr(0, blank) + ' ';
            } while (answer != "pause" && answer != "end");
            return running;
        };
    }

    std::string Answers;
};

TEST_F(SendPumpPause, SecondReadInOnePerformDoesNotEndTheUpload) {
    const std::string content = std::string(16384, 'a') + std::string(16384, 'b') + std::string(100, 'c');
    const auto provider = provide(content);
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(1), readsUntilNothingComes(1), readsUntilNothingComes(1)});
    copier.sendRequest();
    EXPECT_EQ(Answers, "16384 pause 16384 pause 100 pause ");
    EXPECT_EQ(Uploaded, content);
    EXPECT_EQ(copier.TotalSent, content.size());
    EXPECT_EQ(read(kRoom), "end") << "after the pump nothing will come";
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(SendPumpPause, PassAfterAPauseRefillsWithoutWaitingAndResumes) {
    const auto provider = provide(std::string(16384 + 10, 'a'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(1), sends(kRoom, 1)});
    Curl.clear();
    copier.sendRequest();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll", //
                            "get 16384", "curl_easy_pause 0", "curl_multi_perform", "interrupt poll",             //
                            "curl_multi_wait 1000", "get 16384"));
}

// Resuming may read at once: the provider has said the end by then, so this read is told the end.
TEST_F(SendPumpPause, EndOfContentResumesSoThatLibcurlSeesTheEnd) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        note("read while resuming: " + read(kRoom));
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1)});
    Curl.clear();
    copier.sendRequest();
    EXPECT_THAT(pumpJournal(),
                ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform", "interrupt poll",
                            "get 16384", "curl_easy_pause 0", "read while resuming: end"));
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(SendPumpPause, ReadWhileResumingMayPauseAgain) {
    const auto provider = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        readsUntilNothingComes(1)();
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1), leaves(1)});
    copier.sendRequest();
    EXPECT_EQ(Answers, "3 pause 3 pause end ");
    EXPECT_EQ(Uploaded, "abcdef");
}

TEST_F(SendPumpPause, NeitherContentInMemoryNorOneReadInEachPerformPauses) {
    setPayload("in memory");
    InterruptibleStreamCopier fromMemory(Connection);
    willPerform({readsUntilNothingComes(1)});
    fromMemory.sendRequest();
    EXPECT_EQ(Answers, "9 end ");

    setPayload("");
    const auto provider = provide(std::string(40000, 'x'));
    InterruptibleStreamCopier fromProvider(Connection);
    Uploaded.clear();
    willPerform({sends(kRoom, 1), sends(kRoom, 1), sends(kRoom, 1)});
    fromProvider.sendRequest();
    EXPECT_EQ(Uploaded.size(), 40000U);
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
}

// libcurl must come to ask, or it would never see that the upload is broken.
TEST_F(SendPumpPause, PumpThatFailsWhileItIsPausedEndsThePause) {
    const auto provider = provide("abcdef");
    provider->OnRead = [](int call, std::uint64_t) -> vantik::Array {
        if (call == 2) {
            throw std::runtime_error("no more");
        }
        return vantik::Array::bytes(std::string_view("abcdef"));
    };
    InterruptibleStreamCopier copier(Connection);
    std::string answer;
    Curl.OnEasyPause = [&](int mask) {
        EXPECT_EQ(mask, CURLPAUSE_CONT);
        answer = read(kRoom);
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1)});
    EXPECT_THROW(copier.sendRequest(), std::exception);
    EXPECT_EQ(answer, "abort");
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(SendPumpPause, FinishedTransferIsNotResumed) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(0)});
    copier.sendRequest();
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
    EXPECT_EQ(provider->Wanted.size(), 1U);
}

TEST_F(SendPumpPause, ResumeThatFailsIsNamed) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    Curl.failCall(CurlFunction::EasyPause, CURLE_OUT_OF_MEMORY);
    willPerform({readsUntilNothingComes(1)});
    EXPECT_EQ(failureText([&] { copier.sendRequest(); }),
              internalError("\"curl_easy_pause\" failed with CURLcode Out of memory"));
}

TEST_F(SendPumpPause, WhatACallbackRaisesWhileResumingComesBeforeTheFailureToResume) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        Connection.inCallback(0, []() -> int { throw std::out_of_range("in a callback"); });
        return CURLE_WRITE_ERROR;
    };
    willPerform({readsUntilNothingComes(1)});
    EXPECT_THROW(copier.sendRequest(), std::out_of_range);
}

TEST_F(SendPumpPause, RewindWhilePausedSendsTheContentFromItsStart) {
    const auto provider = provide("abcdef");
    InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
                     const int running = readsUntilNothingComes(1)();
                     EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                     return running;
                 },
                 sends(kRoom, 0)});
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "abcdefabcdef") << "once before the rewind, once after it";
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 1U);
    EXPECT_EQ(provider->Starts, 2);
}

} // namespace
