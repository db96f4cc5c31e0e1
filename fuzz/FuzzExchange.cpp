// Whole exchanges through the class: the input is what the server sends and how its connections end. A success must be
// the whole of a response according to an independent reading of the same bytes; nothing is left behind, and the scope
// is fit for a plain exchange.
//
// The first two bytes choose the request and its target ('@' and '@': a GET to memory), the rest is sent as it is,
// except for these pairs of bytes:
//   FF 'P'  what follows is sent once the library waits again
//   FF 'C'  the connection is closed, FF 'R' it is reset, FF 'N' it stays open; what follows is for the next one
// At the end of the input the connection stays open and silent.
#include "fuzz/FuzzInput.h"
#include "tests/support/server/PeerExchange.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace {

using testsupport::PeerOutcome;
using testsupport::PeerRequest;
using testsupport::PeerScript;
using testsupport::PeerStage;
using testsupport::ScriptedPeer;
using testsupport::StreamEnd;
using testsupport::Target;

PeerRequest requestFrom(std::uint8_t first, std::uint8_t second) {
    PeerRequest request;
    request.Method = std::array{"GET", "PUT", "GET", "HEAD"}[first & 3];
    request.To = std::array{Target::Memory, Target::Consumer, Target::File, Target::Memory}[first >> 2 & 3];
    request.OptionsMode = (first & 0x10) == 0;
    request.Decode = (first & 0x20) == 0;
    request.FromProvider = (second & 1) != 0;
    request.AwaitsContinue = (second & 2) != 0;
    request.LogsIn = (second & 4) != 0;
    request.ConsumesSlowly = (second & 8) != 0;
    request.StatusFirst = (second & 0x10) != 0;
    request.Reports = (second & 0x20) != 0;
    request.Traced = (second & 0x80) != 0;
    return request;
}

std::vector<PeerScript> scriptsFrom(std::string_view text, bool singleBytes) {
    std::vector<PeerScript> scripts(1);
    std::string piece;
    const auto endPiece = [&] {
        if (!piece.empty()) {
            scripts.back().Pieces.push_back(std::exchange(piece, {}));
        }
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char mark = text[i] == '\xFF' && i + 1 < text.size() ? text[i + 1] : '\0';
        if (mark == 'P') {
            endPiece();
            ++i;
        } else if (mark == 'C' || mark == 'R' || mark == 'N') {
            endPiece();
            ++i;
            scripts.back().End = mark == 'C' ? StreamEnd::Closed : mark == 'R' ? StreamEnd::Reset : StreamEnd::Open;
            scripts.emplace_back();
        } else {
            piece += text[i];
            if (singleBytes) {
                endPiece();
            }
        }
    }
    endPiece();
    return scripts;
}

void requireNone(const std::string& complaint) {
    require(complaint.empty(), ("an exchange is without complaint; this one has: " + complaint).c_str());
}

void play(const PeerRequest& request, std::vector<PeerScript> scripts) {
    static PeerStage stage;
    {
        ScriptedPeer peer(std::move(scripts));
        const PeerOutcome outcome = stage.exchange(request);
        requireNone(complaint(request, outcome, peer));
        requireNone(plainExchangeComplaint(stage, peer));
    }
    stage.renewHandles();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    static const bool warm = (play({}, {{}}), true); // what is made once lives on
    static_cast<void>(warm);
    const std::size_t arrays = vantik::Host::liveArrays();
    play(requestFrom(data[0], data[1]), scriptsFrom(textOf(data + 2, size - 2), (data[0] & 0x80) != 0));
    require(vantik::Host::liveArrays() == arrays, "no array is left");
    return 0;
}
