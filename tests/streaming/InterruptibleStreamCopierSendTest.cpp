// The pump for request content: order and conditions of its steps, what a provider's array offers, and how it pauses.
#include "errors/HTTPException.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace streamingtest;

namespace {

constexpr std::size_t kRoom = 65536;

class SendPump : public CopierFixture {
protected:
    // Runs the pump with these performs on a new copier with an empty record.
    void sendBy(std::vector<Perform> performs) {
        Copier = std::make_shared<InterruptibleStreamCopier>(Connection);
        willPerform(std::move(performs));
        Curl.clear();
        Copier->sendRequest();
    }
    // What is sent when the provider returns this array, which is not copied, and then nothing.
    std::string uploadOf(const vantik::Array& content, std::size_t performs) {
        using matrix::detail::noninlined::vx_array_api::vxGetData;
        const auto provider = provide("");
        provider->OnRead = [content](int call, std::uint64_t) { return call == 1 ? content : vantik::Array(); };
        Uploaded.clear();
        sendBy(std::vector<Perform>(performs, [&] {
            EXPECT_EQ(static_cast<const void*>(Copier->SendData), vxGetData(content.handle()));
            return sends(1'000'000, 1)();
        }));
        EXPECT_EQ(provider->Wanted.size(), performs + 1) << "the end was not asked for";
        return Uploaded;
    }

    std::shared_ptr<InterruptibleStreamCopier> Copier;
};

TEST_F(SendPump, StepsOfContentInMemory) {
    setPayload("0123456789");
    sendBy({sends(4, 1), sends(100, 1)});
    EXPECT_EQ(pumpJournal(), "wait, perform, poll, wait, perform, poll, wait");
    EXPECT_EQ(Uploaded, "0123456789");
}

TEST_F(SendPump, WantedSizeIs16384UnlessSetAndStaysTheSameDuringThePump) {
    const auto provider = provide("");
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{5'000'000'000'000}}) {
        Connection.Settings.ProviderBufferSize = size;
        sendBy({});
    }
    EXPECT_THAT(provider->Wanted, ElementsAre(16384U, 1U, 5'000'000'000'000U));

    const auto another = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    sendBy({[&] {
                EXPECT_NE(Copier->ProviderArgs[1], nullptr);
                Connection.Settings.ProviderBufferSize = 999;
                return sends(100, 1)();
            },
            sends(100, 1)});
    EXPECT_THAT(another->Wanted, ElementsAre(3U, 3U, 3U));
    EXPECT_THAT(Copier->ProviderArgs, ElementsAre(Connection.Settings.Provider.get(), nullptr));
}

TEST_F(SendPump, TransferThatEndsEarlyAsksForNothingMoreAndLeavesNothingOnOffer) {
    const auto provider = provide(std::string(20000, 'x'));
    sendBy({sends(100, 0)});
    EXPECT_EQ(pumpJournal(), "start, wait, get 16384, perform, message, poll");
    EXPECT_EQ(Uploaded.size(), 100U);
    EXPECT_EQ(read(100), "end");
}

// Rewinds.

TEST_F(SendPump, ContentInMemoryGoesBeforeThatOfTheProviderAlsoAfterARewind) {
    setPayload("memory ");
    const auto provider = provide("provider");
    sendBy({sends(100, 1),
            [&] {
                sends(100, 1)();
                EXPECT_EQ(Uploaded, "memory provider");
                EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                Uploaded.clear();
                return 1;
            },
            sends(100, 1), sends(100, 1)});
    EXPECT_EQ(Uploaded, "memory provider");
}

// Nothing would ask the provider any more: no content must not pass for all of it.
TEST_F(SendPump, RewindOfAProviderAfterThePumpFails) {
    const auto provider = provide(std::string(1000, 'x'));
    sendBy({sends(2000, 1), leaves(1)});
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(provider->Starts, 2) << "a rewind restarts it all the same";
    EXPECT_EQ(Connection.Transfer.Fault, TransferFault::UploadBroken);
    EXPECT_EQ(read(100), "abort");
}

TEST_F(SendPump, RewindAfterThePumpOffersContentInMemoryAgain) {
    setPayload("0123456789");
    sendBy({sends(100, 1)});
    EXPECT_EQ(read(100), "end");
    EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(100), "10 0123456789");
}

// Empty waits. One variable counts them and receives the number of running handles.

TEST_F(SendPump, FirstEmptyWaitAfterAPerformPausesAndNoneBeforeAllPerforms) {
    setPayload("abc");
    willWait({1, 0});
    sendBy({sends(1, 1), sends(100, 0)});
    EXPECT_EQ(pumpJournal(), "wait, perform, poll, wait, pause, perform, message, poll");
    willWait({0, 2, 1, 7});
    sendBy({sends(1, 1), sends(1, 3), sends(0, 1), sends(100, 0)});
    EXPECT_EQ(Curl.pauses(), 0U);
}

TEST_F(SendPump, TimeoutIsSeenOnlyAfterAnEmptyWait) {
    setPayload("abc");
    letDeadlinePass();
    willWait({1, 1, 0});
    EXPECT_THROW(sendBy({leaves(1), leaves(1)}), webservices::HTTPTimeoutException);
    EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 2U);
}

TEST_F(SendPump, TimeoutIsSeenAfterThePause) {
    setPayload("abc");
    letDeadlinePass();
    Connection.updateDeadline();
    Curl.advanceClock(950'000'000); // the pause of 100 ms takes it over the limit
    willWait({1, 0});
    EXPECT_THROW(sendBy({leaves(1)}), webservices::HTTPTimeoutException);
    EXPECT_EQ(pumpJournal(), "wait, perform, poll, wait, pause");
}

// Progress and interrupts.

TEST_F(SendPump, ProgressIsReportedInEveryPassOnceTheHeadIsComplete) {
    setPayload("0123456789");
    const auto reporter = report();
    sendBy({sends(4, 1),
            [&] {
                Connection.ReceivedHead.HeadersComplete = true;
                return 1;
            },
            leaves(1), sends(3, 1), sends(100, 0)});
    EXPECT_THAT(reporter->Counts, ElementsAre(4U, 4U, 7U, 10U));
    EXPECT_THAT(pumpJournal(), testing::EndsWith("poll, update 10"));
}

TEST_F(SendPump, FinishedTransferIsJudgedBeforeAnInterruptIsSeen) {
    setPayload("abc");
    host().interrupt();
    Curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    Curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, 0L);
    Curl.finishWith(CURLE_RECV_ERROR);
    EXPECT_THROW(sendBy({sends(100, 0)}), webservices::HTTPConnectionRefusedException);
    EXPECT_TRUE(host().interruptPending());

    Connection.Transfer.begin(Connection.Handles->Generation);
    EXPECT_EQ(failureText([&] { sendBy({sends(100, 0)}); }), kStopText);
    EXPECT_EQ(pumpJournal(), "wait, perform, message, poll");
    EXPECT_FALSE(host().interruptPending());
}

// What a provider's array offers: its first dimension counts as bytes, whatever the class.

TEST_F(SendPump, ArrayOffersAsManyBytesAsItHasRows) {
    const double value = 0.1;
    const std::string large(200'000, 'm'); // more than was asked for
    const std::pair<vantik::Array, std::string> rows[] = {
        {byteMatrix(5, 1, std::string("ab\0de", 5)), std::string("ab\0de", 5)},
        {byteMatrix(1, 5, "abcde"), "a"},
        {byteMatrix(2, 3, "abcdef"), "ab"},
        {vantik::Array::doubles({value, 1.0}), std::string(reinterpret_cast<const char*>(&value), 1)},
        {zeros(7, 1, vxDOUBLE_CLASS), std::string(7, '\0')},
        {vantik::Array("text"), "t"},
        {vantik::Array(true), "\x01"},
        {vantik::Array::bytes(std::string_view(large)), large},
    };
    for (const auto& [content, offered] : rows) {
        EXPECT_EQ(uploadOf(content, 1), offered);
    }
}

TEST_F(SendPump, NothingInWhateverShapeIsTheEnd) {
    const vantik::Array nothings[] = {
        {},
        "",
        zeros(0, 1, vxUINT8_CLASS),
        zeros(0, 0, vxUINT8_CLASS),
        zeros(1, 0, vxUINT8_CLASS), // a row without bytes has height 1
        zeros(9, 0, vxUINT8_CLASS),
    };
    for (const vantik::Array& nothing : nothings) {
        EXPECT_EQ(uploadOf(nothing, 0), "");
    }
}

TEST_F(SendPump, NoResultAtAllIsTheEnd) {
    vantik::HostClass("test.silent.Provider")
        .derivesFrom("vantik.net.http.io.ContentProvider")
        .method("startInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .method("getDataInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .defineIn(host());
    const vantik::Object provider = host().create("test.silent.Provider");
    Connection.Settings.Provider = sharedOf(provider);
    EXPECT_NO_THROW(sendBy({}));
}

// The bytes on offer are those of the array itself: it stays until the next one takes its place, and no longer.
TEST_F(SendPump, OneArrayLivesAtATime) {
    const auto provider = provide(std::string(10 * 16384, 'x'));
    const std::size_t before = vantik::Host::liveArrays();
    std::vector<std::size_t> living;
    sendBy(std::vector<Perform>(10, [&] {
        living.push_back(vantik::Host::liveArrays() - before);
        return sends(kRoom, 1)();
    }));
    EXPECT_THAT(living, testing::Each(3U)) << "the wanted size, the counter of progress and the last array";
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

// Content of known length: what the provider delivers at once goes to libcurl in one read.

constexpr std::size_t kPiece = 16384;
constexpr std::size_t kWholeRead = std::size_t{1} << 20;

class SendPumpByLength : public SendPump {
public:
    // A provider of so many bytes, all of them announced.
    testsupport::ScriptedProvider announce(std::size_t length) {
        std::string content(length, '\0');
        for (std::size_t i = 0; i < length; ++i) {
            content[i] = static_cast<char>((i * 131) >> 3);
        }
        Connection.Transfer.HasContentLength = Connection.Transfer.IsSentByLength = true;
        Connection.Transfer.ContentLengthToSend = static_cast<std::int64_t>(length);
        return provide(std::move(content));
    }
    using SendPump::sendBy;
};

TEST_F(SendPumpByLength, GathersFullPiecesAfterTheFirst) {
    const auto provider = announce(4 * kPiece + 10);
    sendBy({sends(kWholeRead, 1), sends(kWholeRead, 1)});
    EXPECT_EQ(pumpJournal(), "start, wait, get 16384, perform, poll, wait, get 16384, poll, get 16384, poll, "
                             "get 16384, poll, get 16384, perform, poll, wait, get 16384");
    EXPECT_EQ(Uploaded, provider->Content);
}

TEST_F(SendPumpByLength, GathersNoMoreThanLibcurlReadsAtATime) {
    const auto provider = announce(1'000'000);
    Connection.Settings.ProviderBufferSize = 200'000;
    sendBy({sends(kWholeRead, 1), sends(kWholeRead, 1), sends(kWholeRead, 1)});
    EXPECT_EQ(provider->Wanted.size(), 6U);
    EXPECT_EQ(Uploaded, provider->Content);
}

// libcurl may leave some of it for later, and may begin in the middle of a piece.
TEST_F(SendPumpByLength, GatheredPiecesAreReadInAnyParts) {
    const auto provider = announce(3 * kPiece);
    sendBy({sends(kWholeRead, 1), sends(10'000, 1), sends(20'000, 1), sends(kWholeRead, 1)});
    EXPECT_EQ(Uploaded, provider->Content);
}

// It has reported its end, so nobody asks again.
TEST_F(SendPumpByLength, EndAmongGatheredPiecesIsTheEnd) {
    const auto provider = announce(2 * kPiece);
    Connection.Transfer.ContentLengthToSend *= 2;
    sendBy({sends(kWholeRead, 1), sends(kWholeRead, 1)});
    EXPECT_EQ(pumpJournal(),
              "start, wait, get 16384, perform, poll, wait, get 16384, poll, get 16384, perform, poll, wait");
    EXPECT_EQ(Uploaded, provider->Content);
    EXPECT_EQ(read(100), "end");
}

TEST_F(SendPumpByLength, RewindDropsWhatWasGathered) {
    const auto provider = announce(3 * kPiece);
    provider->OnStart = [state = provider.operator->()](int) { state->Position = 0; };
    sendBy({sends(kWholeRead, 1),
            [&] {
                read(kPiece / 2);
                EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                Uploaded.clear();
                return 1;
            },
            sends(kWholeRead, 1), sends(kWholeRead, 1)});
    EXPECT_EQ(Uploaded, provider->Content);
    EXPECT_EQ(provider->Starts, 2);
}

struct AloneRow {
    const char* Name;
    std::function<void(SendPumpByLength&, testsupport::ProviderState&)> Arrange;
};

class SendPumpAlone : public SendPumpByLength, public testing::WithParamInterface<AloneRow> {};

// Where it would show, each piece has a perform of its own.
// clang-format off
const AloneRow kAloneRows[] = {
    {"InChunks", [](auto& test, auto&) { test.Connection.Transfer.IsSentByLength = false; }},
    {"SmallPieces", [](auto& test, auto&) { test.Connection.Settings.ProviderBufferSize = kPiece - 1; }},
    {"PiecesThatAreNotFull", [](auto& test, auto&) { test.Connection.Settings.ProviderBufferSize = 100'000; }},
    {"ProviderThatTakesItsTime", [](auto& test, auto& provider) {
        provider.OnRead = [&test, read = provider.OnRead](int call, std::uint64_t) {
            test.Curl.advanceClock(1'000'000);
            return read(call, kPiece);
        };
    }},
    {"HeadHasCome", [](auto& test, auto&) { test.Connection.ReceivedHead.HeadersComplete = true; }},
};
// clang-format on

TEST_P(SendPumpAlone, PieceByPiece) {
    const auto provider = announce(4 * kPiece);
    provider->OnRead = [this, read = provider->OnRead](int call, std::uint64_t wanted) {
        return read(call, std::min<std::uint64_t>(wanted, kPiece));
    };
    GetParam().Arrange(*this, *provider.operator->());
    std::vector<std::size_t> askedFor; // each perform
    std::size_t before = 0;
    sendBy(std::vector<Perform>(6, [&] {
        askedFor.push_back(provider->Wanted.size() - std::exchange(before, provider->Wanted.size()));
        return sends(kWholeRead, 1)();
    }));
    EXPECT_THAT(askedFor, testing::Each(1U));
    EXPECT_EQ(Uploaded, provider->Content);
}

INSTANTIATE_TEST_SUITE_P(Rows, SendPumpAlone, testing::ValuesIn(kAloneRows),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(SendPumpByLength, TraceShowsEachPieceByItself) {
    const auto provider = announce(3 * kPiece);
    EXPECT_EQ(traceOf(1,
                      [&] {
                          sendBy({sends(kWholeRead, 1), sends(kWholeRead, 1), sends(kWholeRead, 1)});
                      }),
              "PERFORM IN WRITER 1 times\nSENDING 16384 BYTES\nPERFORM IN WRITER 1 times\nSENDING 16384 BYTES\n"
              "PERFORM IN WRITER 1 times\nSENDING 16384 BYTES\n");
}

// As between two performs: the provider is not asked any more.
TEST_F(SendPumpByLength, InterruptIsSeenBetweenGatheredPieces) {
    const auto provider = announce(9 * kPiece);
    provider->OnRead = [this, read = provider->OnRead](int call, std::uint64_t wanted) {
        if (call == 3) {
            host().interrupt();
        }
        return read(call, wanted);
    };
    EXPECT_EQ(failureText([&] { sendBy({sends(kWholeRead, 1)}); }), kStopText);
    EXPECT_EQ(provider->Wanted.size(), 3U);
    EXPECT_EQ(read(100), "abort");
}

// Trace. Its line is closed by whatever else is traced, by a failure and by the end.
TEST_F(SendPump, TraceCountsThePasses) {
    setPayload("abc");
    EXPECT_EQ(traceOf(1, [&] { sendBy({leaves(1), leaves(1), leaves(0)}); }), "PERFORM IN WRITER 3 times\n");
    EXPECT_EQ(traceOf(1,
                      [&] {
                          sendBy({sends(2, 1), sends(2, 0)});
                      }),
              "PERFORM IN WRITER 1 times\nSENDING 2 BYTES\nPERFORM IN WRITER 1 times\nSENDING 1 BYTES\n");
    Curl.failCall(CurlFunction::MultiPerform, CURLM_OUT_OF_MEMORY, 2);
    EXPECT_EQ(traceOf(1, [&] { EXPECT_NE(failureText([&] { sendBy({leaves(1)}); }), "nothing"); }),
              "PERFORM IN WRITER 2 times\n");
}

// libcurl may read more than once in one perform. While the provider can still give content, that must pause the upload
// and never end it.

class SendPumpPause : public SendPump {
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

TEST_F(SendPumpPause, PassAfterAPauseRefillsWithoutWaitingAndResumes) {
    const auto provider = provide(std::string(16384 + 10, 'a'));
    sendBy({readsUntilNothingComes(1), sends(kRoom, 1)});
    EXPECT_EQ(pumpJournal(),
              "start, wait, get 16384, perform, poll, get 16384, resume, perform, poll, wait, get 16384");
    EXPECT_EQ(provider->Starts, 1);
}

// Resuming may read at once: the provider has said the end by then, so this read is told the end.
TEST_F(SendPumpPause, EndOfContentResumesSoThatLibcurlSeesTheEnd) {
    const auto provider = provide("abc");
    Curl.OnEasyPause = [&](int) {
        note("read while resuming: " + read(kRoom));
        return CURLE_OK;
    };
    sendBy({readsUntilNothingComes(1)});
    EXPECT_EQ(pumpJournal(), "start, wait, get 16384, perform, poll, get 16384, resume, read while resuming: end");
    EXPECT_FALSE(Copier->ReadPaused);
}

TEST_F(SendPumpPause, ReadWhileResumingMayPauseAgain) {
    const auto provider = provide("abcdef");
    Connection.Settings.ProviderBufferSize = 3;
    Curl.OnEasyPause = [&](int) {
        readsUntilNothingComes(1)();
        return CURLE_OK;
    };
    sendBy({readsUntilNothingComes(1), leaves(1)});
    EXPECT_EQ(Answers, "3 pause 3 pause end ");
    EXPECT_EQ(Uploaded, "abcdef");
}

// libcurl must come to ask, or it would never see that the upload is broken.
TEST_F(SendPumpPause, PumpThatFailsWhileItIsPausedEndsThePause) {
    const auto provider = provide("");
    provider->OnRead = [](int call, std::uint64_t) -> vantik::Array {
        return call == 1 ? vantik::Array::bytes(std::string_view("abcdef")) : throw std::runtime_error("no more");
    };
    std::string answer;
    Curl.OnEasyPause = [&](int mask) {
        EXPECT_EQ(mask, CURLPAUSE_CONT);
        answer = read(kRoom);
        return CURLE_OK;
    };
    EXPECT_THROW(sendBy({readsUntilNothingComes(1)}), std::exception);
    EXPECT_EQ(answer, "abort");
    EXPECT_FALSE(Copier->ReadPaused);
}

TEST_F(SendPumpPause, FinishedTransferIsNotResumed) {
    const auto provider = provide(std::string(20000, 'x'));
    sendBy({readsUntilNothingComes(0)});
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 0U);
    EXPECT_EQ(provider->Wanted.size(), 1U);
}

TEST_F(SendPumpPause, ResumeThatFailsIsNamedUnlessACallbackHasRaised) {
    const auto provider = provide(std::string(20000, 'x'));
    Curl.OnEasyPause = [](int) { return CURLE_OUT_OF_MEMORY; };
    EXPECT_EQ(failureText([&] { sendBy({readsUntilNothingComes(1)}); }),
              internalError("\"curl_easy_pause\" failed with CURLcode Out of memory"));

    Connection.Transfer.begin(Connection.Handles->Generation);
    const auto another = provide(std::string(20000, 'x'));
    Curl.OnEasyPause = [&](int) {
        Connection.inCallback(0, []() -> int { throw std::out_of_range("in a callback"); });
        return CURLE_WRITE_ERROR;
    };
    EXPECT_THROW(sendBy({readsUntilNothingComes(1)}), std::out_of_range);
}

TEST_F(SendPumpPause, RewindWhilePausedSendsTheContentFromItsStart) {
    const auto provider = provide("abcdef");
    sendBy({[&] {
                const int running = readsUntilNothingComes(1)();
                EXPECT_EQ(Curl.callSeek(0), CURL_SEEKFUNC_OK);
                return running;
            },
            sends(kRoom, 0)});
    EXPECT_EQ(Uploaded, "abcdefabcdef") << "once before the rewind, once after it";
    EXPECT_EQ(Curl.count(CurlFunction::EasyPause), 1U);
    EXPECT_EQ(provider->Starts, 2);
}

} // namespace
