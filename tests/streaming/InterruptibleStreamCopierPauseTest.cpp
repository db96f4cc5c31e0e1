// libcurl may read more than once in one perform. While the provider can still give content, that must pause the upload
// and never end it.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <gmock/gmock.h>

#include <string>

using namespace streamingtest;
using testing::ElementsAre;

namespace {

constexpr std::size_t kRoom = 65536;

class CopierPause : public CopierFixture {
protected:
    CopierPause() {
        Curl.OnEasyPause = [](int) { return CURLE_OK; };
    }

    // Reads until nothing more is given, as libcurl does when a request starts. `Answers` gets each answer in words.
    Perform readsUntilNothingComes(int running) {
        return [this, running] {
            std::string given;
            while (true) {
                const std::size_t answer = Curl.callRead(given, kRoom);
                Uploaded += given;
                if (answer == CURL_READFUNC_PAUSE) {
                    Answers += "pause ";
                    return running;
                }
                Answers += answer == 0 ? std::string("end ") : std::to_string(answer) + ' ';
                if (answer == 0) {
                    return running;
                }
            }
        };
    }

    std::string Answers;
};

TEST_F(CopierPause, SecondReadInOnePerformDoesNotEndTheUpload) {
    const std::string content = std::string(16384, 'a') + std::string(16384, 'b') + std::string(100, 'c');
    const auto provider = provide(content);
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(1), readsUntilNothingComes(1), readsUntilNothingComes(1)});
    copier.sendRequest();
    EXPECT_EQ(Answers, "16384 pause 16384 pause 100 pause ");
    EXPECT_EQ(Uploaded, content);
    EXPECT_EQ(copier.TotalSent, content.size());

    // Behind the pump nothing will come, and the next read says so.
    std::string given;
    EXPECT_EQ(Curl.callRead(given, kRoom), 0U);
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(CopierPause, PassBehindAPauseRefillsWithoutWaitingAndResumes) {
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

TEST_F(CopierPause, EndOfContentResumesSoThatLibcurlSeesTheEnd) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(1)});
    Curl.clear();
    copier.sendRequest();
    EXPECT_THAT(pumpJournal(), ElementsAre("start", "curl_multi_wait 1000", "get 16384", "curl_multi_perform",
                                           "interrupt poll", "get 16384", "curl_easy_pause 0"));
    std::string given;
    EXPECT_EQ(Curl.callRead(given, kRoom), 0U);
}

// Resuming may read at once: the provider has said the end by then, so this read is told the end.
TEST_F(CopierPause, ReadWhileResumingBehindTheEndIsToldTheEnd) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        std::string given;
        EXPECT_EQ(Curl.callRead(given, kRoom), 0U);
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1)});
    copier.sendRequest();
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 1U);
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(CopierPause, ReadWhileResumingMayPauseAgain) {
    const auto provider = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        readsUntilNothingComes(1)();
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1), [] { return 1; }});
    copier.sendRequest();
    EXPECT_EQ(Answers, "3 pause 3 pause end ");
    EXPECT_EQ(Uploaded, "abcdef");
}

TEST_F(CopierPause, ContentInMemoryNeverPauses) {
    setPayload("in memory");
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(1)});
    copier.sendRequest();
    EXPECT_EQ(Answers, "9 end ");
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
}

TEST_F(CopierPause, OneReadInEachPerformNeverPauses) {
    const auto provider = provide(std::string(40000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({sends(kRoom, 1), sends(kRoom, 1), sends(kRoom, 1)});
    copier.sendRequest();
    EXPECT_EQ(Uploaded.size(), 40000U);
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
}

TEST_F(CopierPause, OutsideThePumpNothingPauses) {
    const auto provider = provide("abc");
    const InterruptibleStreamCopier copier(Connection);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, kRoom), 0U);
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(CopierPause, PumpThatFailsLeavesNothingThatPauses) {
    const auto provider = provide("abc");
    InterruptibleStreamCopier copier(Connection);
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY);
    EXPECT_NE(internalErrorOf([&] { copier.sendRequest(); }), "");
    std::string given;
    EXPECT_EQ(Curl.callRead(given, kRoom), std::size_t{CURL_READFUNC_ABORT});
    EXPECT_FALSE(copier.ReadPaused);
}

// libcurl must come to ask, or it would never see that the upload is broken.
TEST_F(CopierPause, PumpThatFailsWhileItIsPausedEndsThePause) {
    const auto provider = provide("abcdef");
    provider->OnRead = [reads = 0](int, std::uint64_t) mutable -> vantik::Array {
        if (++reads == 2) {
            throw std::runtime_error("no more");
        }
        return vantik::Array::bytes(std::string_view("abcdef"));
    };
    InterruptibleStreamCopier copier(Connection);
    std::size_t read = 0;
    Curl.OnEasyPause = [&](int mask) {
        EXPECT_EQ(mask, CURLPAUSE_CONT);
        std::string given;
        read = Curl.callRead(given, kRoom);
        return CURLE_OK;
    };
    willPerform({readsUntilNothingComes(1)});
    EXPECT_THROW(copier.sendRequest(), std::exception);
    EXPECT_EQ(read, std::size_t{CURL_READFUNC_ABORT});
    EXPECT_FALSE(copier.ReadPaused);
}

TEST_F(CopierPause, FinishedTransferIsNotResumed) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    willPerform({readsUntilNothingComes(0)});
    copier.sendRequest();
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
    EXPECT_EQ(provider->Wanted.size(), 1U);
}

TEST_F(CopierPause, ResumeThatFailsIsNamed) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    Curl.failCall(CurlFunction::EasyPause, CURLE_OUT_OF_MEMORY);
    willPerform({readsUntilNothingComes(1)});
    EXPECT_EQ(internalErrorOf([&] { copier.sendRequest(); }), "\"curl_easy_pause\" failed with CURLcode Out of memory");
}

TEST_F(CopierPause, WhatACallbackRaisesWhileResumingLeavesThePump) {
    const auto provider = provide(std::string(20000, 'x'));
    InterruptibleStreamCopier copier(Connection);
    Curl.OnEasyPause = [&](int) {
        Connection.inCallback(0, []() -> int { throw std::out_of_range("in a callback"); });
        return CURLE_WRITE_ERROR; // the failure is told, and not this
    };
    willPerform({readsUntilNothingComes(1)});
    EXPECT_THROW(copier.sendRequest(), std::out_of_range);
}

TEST_F(CopierPause, RewindWhilePausedSendsTheContentFromItsStart) {
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
