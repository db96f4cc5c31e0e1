// Answers that come slowly: the limits are limits of silence, not of the whole transfer.
#include "tests/integration/faults/FaultFixture.h"

#include <chrono>
#include <thread>

namespace {

using namespace integrationtest;
using testsupport::Script;
using vantik::Object;
namespace step = testsupport::step;

constexpr std::chrono::milliseconds kPause{20};
constexpr int kDrops = 40;

// `text` byte by byte, with a pause before each.
void drip(Script& script, const std::string& text, std::chrono::milliseconds pause = kPause) {
    for (const char byte : text) {
        script.push_back(step::run([pause] { std::this_thread::sleep_for(pause); }));
        script.push_back(step::send(std::string(1, byte)));
    }
}

class FaultPace : public FaultFixture, public testing::WithParamInterface<Front> {
protected:
    FaultOutcome receiveThrough(const Script& answer, const std::vector<double>& limits, Way way,
                                bool optionsMode = true) {
        Script script = {step::expectHead()};
        script.insert(script.end(), answer.begin(), answer.end());
        const FrontPeer road(GetParam(), serve({script, goodScript()}).port(), "");
        const Object connection = openThrough(road, limits, optionsMode);
        FaultOutcome outcome = receive(connection, way);
        expectScopeUsable(connection);
        expectRoadUsable(road);
        return outcome;
    }

    // Says that it closes, so that no front takes the connection for the next request.
    static Script drippedContent(int announced, std::chrono::milliseconds pause = kPause) {
        Script script = {step::send(
            "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n")};
        drip(script, std::string(kDrops, 'd'), pause);
        return script;
    }
};

TEST_P(FaultPace, SteadyDropsAreNoSilence) {
    for (const Way way : kAllWays) {
        SCOPED_TRACE(nameOf(way));
        Script script = drippedContent(kDrops);
        script.push_back(step::close());
        compare(receiveThrough(script, {60000, 10000, 10000}, way), {"200", std::string(kDrops, 'd')}, way);
    }
}

// Longer than the limit in all, but each drop begins it anew; the silence behind the last one does not end.
TEST_P(FaultPace, PauseBeyondTheLimitEndsTheTransfer) {
    Script script = drippedContent(kDrops + 1, 4 * kPause);
    script.push_back(step::awaitPeerEnd());
    compare(receiveThrough(script, {60000, 10000, 3000}, Way::Consumer),
            {"Timeout(URL, 3.000, the server stopped sending, HTTPOptions.DataTimeout)", std::string(kDrops, 'd')},
            Way::Consumer);
}

TEST_P(FaultPace, OlderInterfaceNamesItsOwnLimit) {
    compare(receiveThrough({step::awaitPeerEnd()}, {60000, 300}, Way::File, false),
            {"Timeout(URL, 0.300, the server sent no response, weboptions.Timeout)"}, Way::File);
}

INSTANTIATE_TEST_SUITE_P(Roads, FaultPace, testing::Values(Front::Direct, Front::Nginx, Front::Nghttpx),
                         [](const auto& info) { return nameOf(info.param); });

class FaultPaceDirect : public FaultPace {};

TEST_P(FaultPaceDirect, HeadThatComesInDropsIsNoSilence) {
    Script script;
    drip(script, "HTTP/1.1 200 OK\r\nX: y\r\nContent-Length: 4\r\n\r\n");
    script.push_back(step::send("body"));
    script.push_back(step::close());
    compare(receiveThrough(script, {60000, 10000}, Way::Bytes), {"200", "body"}, Way::Bytes);
}

// In the head a whole line is what counts.
TEST_P(FaultPaceDirect, FieldLineThatTakesLongerThanTheLimitIsSilence) {
    Script script = {step::send("HTTP/1.1 200 OK\r\n")};
    drip(script, "X-Slow: " + std::string(kDrops, 's'));
    script.push_back(step::awaitPeerEnd());
    compare(receiveThrough(script, {60000, 300}, Way::Bytes),
            {"Timeout(URL, 0.300, the server sent no response, HTTPOptions.ResponseTimeout)"}, Way::Bytes);
}

// Its failure comes without the content that has been received.
TEST_P(FaultPaceDirect, OlderInterfaceTakesAFailedStatusForAFailure) {
    compare(receiveThrough({step::send("HTTP/1.1 502 Bad\r\nContent-Length: 9\r\n\r\npart"), step::close()}, {},
                           Way::Consumer, false),
            {"StatusError(502, Bad, URL) warned PartialFileWarning(*, 9, *) | StatusError(502, Bad, URL)"},
            Way::Consumer);
}

INSTANTIATE_TEST_SUITE_P(Roads, FaultPaceDirect, testing::Values(Front::Direct),
                         [](const auto& info) { return nameOf(info.param); });

} // namespace
