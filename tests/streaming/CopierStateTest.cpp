// What each callback does in each state of the copier, as a table.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>

using namespace streamingtest;

namespace {

constexpr std::size_t kPause = CURL_READFUNC_PAUSE;
constexpr std::size_t kAbort = CURL_READFUNC_ABORT;
constexpr std::uint64_t kTotalBefore = 100;

struct State {
    const char* Name;
    // The state.
    bool HasProvider;
    bool PumpWantsData;   // the pump runs, and the provider has not said end of content
    const char* Offer;    // bytes on offer
    std::size_t Position; // of the next of them
    bool Paused;          // an earlier read has paused the upload
    bool BehindFailure;   // a failure waits for libcurl's return
    // A read with room for four bytes.
    std::size_t Read;
    const char* Given;
    bool PausedAfter;
    // A read without room.
    std::size_t ReadNothing;
    // A seek to the second byte: its answer, how often it starts the provider, and whether it moves anything.
    int Seek;
    int Starts;
    bool Moves;
    // A write of "xy".
    const char* Buffered;
};

void PrintTo(const State& state, std::ostream* stream) {
    *stream << state.Name;
}

// clang-format off
const State kStates[] = {
    // name                  provider wants  offer     pos paused failed |  read    given  paused  nothing  seek                starts moves  buffered
    {"ProviderBeforeThePump",  true,  false, "",       0,  false, false,    0,      "",     false,  0,       CURL_SEEKFUNC_FAIL, 1,     true,  "xy"},
    {"PumpBeforeTheFirstBytes",true,  true,  "",       0,  false, false,    kPause, "",     true,   kPause,  CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"PumpWithAnOffer",        true,  true,  "abcdef", 0,  false, false,    4,      "abcd", false,  0,       CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"PumpWithALastByte",      true,  true,  "abcdef", 5,  false, false,    1,      "f",    false,  0,       CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"PumpWithItsOfferGone",   true,  true,  "abcdef", 6,  false, false,    kPause, "",     true,   kPause,  CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"PumpPaused",             true,  true,  "abcdef", 6,  true,  false,    kPause, "",     true,   kPause,  CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"PumpPausedAndRewound",   true,  true,  "abcdef", 0,  true,  false,    4,      "abcd", true,   0,       CURL_SEEKFUNC_OK,   1,     true,  "xy"},
    {"ProviderHasSaidTheEnd",  true,  false, "",       0,  false, false,    0,      "",     false,  0,       CURL_SEEKFUNC_FAIL, 1,     true,  "xy"},
    {"MemoryUntouched",        false, false, "abcdef", 0,  false, false,    4,      "abcd", false,  0,       CURL_SEEKFUNC_OK,   0,     true,  "xy"},
    {"MemoryInTheMiddle",      false, false, "abcdef", 3,  false, false,    3,      "def",  false,  0,       CURL_SEEKFUNC_OK,   0,     true,  "xy"},
    {"MemoryUsedUp",           false, false, "abcdef", 6,  false, false,    0,      "",     false,  0,       CURL_SEEKFUNC_OK,   0,     true,  "xy"},
    {"MemoryBehindItsEnd",     false, false, "abcdef", 9,  false, false,    0,      "",     false,  0,       CURL_SEEKFUNC_OK,   0,     true,  "xy"},
    {"NoContent",              false, false, "",       0,  false, false,    0,      "",     false,  0,       CURL_SEEKFUNC_OK,   0,     true,  "xy"},
    {"MemoryBehindAFailure",   false, false, "abcdef", 3,  false, true,     kAbort, "",     false,  kAbort,  CURL_SEEKFUNC_FAIL, 0,     false, ""},
    {"PumpBehindAFailure",     true,  true,  "abcdef", 3,  false, true,     kAbort, "",     false,  kAbort,  CURL_SEEKFUNC_FAIL, 0,     false, ""},
};
// clang-format on

class CopierState : public CopierFixture, public testing::WithParamInterface<State> {
protected:
    CopierState() : Provider(testsupport::makeScriptedProvider(host())) {
        Connection.Settings.Provider = GetParam().HasProvider ? sharedOf(Provider) : nullptr;
        Copier = std::make_unique<InterruptibleStreamCopier>(Connection);
        const std::string_view offer = GetParam().Offer;
        Copier->SendData = reinterpret_cast<const std::uint8_t*>(offer.data());
        Copier->SendLength = offer.size();
        Copier->SendPosition = GetParam().Position;
        Copier->TotalSent = kTotalBefore;
        Copier->PumpWantsData = GetParam().PumpWantsData;
        Copier->ReadPaused = GetParam().Paused;
        if (GetParam().BehindFailure) {
            Connection.Transfer.EscapedFailure = std::make_exception_ptr(std::runtime_error("earlier"));
        }
        Connection.Transfer.PerformDone = false;
    }

    testsupport::ScriptedProvider Provider;
    std::unique_ptr<InterruptibleStreamCopier> Copier;
};

TEST_P(CopierState, Read) {
    const State& state = GetParam();
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 4), state.Read);
    EXPECT_EQ(given, state.Given);
    EXPECT_EQ(Copier->SendPosition, state.Position + given.size());
    EXPECT_EQ(Copier->TotalSent, kTotalBefore + given.size());
    EXPECT_EQ(Copier->ReadPaused, state.PausedAfter);
    EXPECT_TRUE(Provider->Wanted.empty()) << "a callback never asks the provider for content";
}

TEST_P(CopierState, ReadWithoutRoom) {
    const State& state = GetParam();
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 0), state.ReadNothing);
    EXPECT_EQ(Copier->SendPosition, state.Position);
    EXPECT_EQ(Copier->TotalSent, kTotalBefore);
}

TEST_P(CopierState, Seek) {
    const State& state = GetParam();
    EXPECT_EQ(Curl.callSeek(1), state.Seek);
    EXPECT_EQ(Provider->Starts, state.Starts);
    // A provider that the pump still asks gives all of it again: its last array leaves the offer.
    const bool givesAgain = state.Moves && state.PumpWantsData;
    EXPECT_EQ(Copier->SendPosition, givesAgain ? 0 : state.Moves ? 1 : state.Position);
    EXPECT_EQ(Copier->TotalSent, state.Moves ? kTotalBefore + 1 - state.Position : kTotalBefore);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(Copier->SendData), Copier->SendLength),
              givesAgain ? "" : state.Offer);
    EXPECT_EQ(Copier->PumpWantsData, state.PumpWantsData);
    EXPECT_EQ(Copier->ReadPaused, state.Paused);
}

TEST_P(CopierState, Write) {
    const State& state = GetParam();
    EXPECT_EQ(Curl.callWrite("xy"), state.BehindFailure ? 0U : 2U) << "bytes are refused after a failure only";
    EXPECT_EQ(Copier->ReceiveBuffer, state.Buffered);
    EXPECT_EQ(Connection.Transfer.PerformDone, !state.BehindFailure);
    EXPECT_EQ(Copier->SendPosition, state.Position);
    EXPECT_EQ(Copier->TotalSent, kTotalBefore);
}

INSTANTIATE_TEST_SUITE_P(kStates, CopierState, testing::ValuesIn(kStates),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
