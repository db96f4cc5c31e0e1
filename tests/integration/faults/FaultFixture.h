// Receives a faulty answer in one of three ways and tells what came of it.
#pragma once

#include "tests/integration/faults/FaultRows.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>
#include <string>
#include <vector>

namespace integrationtest {

enum class Way { Bytes, File, Consumer };

inline constexpr Way kAllWays[] = {Way::Bytes, Way::File, Way::Consumer};
const char* nameOf(Way way);

class FaultFixture : public IntegrationFixture {
protected:
    // A new object for the front's URL, opened.
    vantik::Object openThrough(const FrontPeer& front, const std::vector<double>& limits = {}, bool optionsMode = true);

    // What came of receiving, as FaultOutcome has it but without patterns.
    FaultOutcome receive(const vantik::Object& connection, Way way);
    static void compare(const FaultOutcome& outcome, const FaultOutcome& expected, Way way);

    // Plays the row in every way. After each, the scope and the road have to be good for another exchange.
    void expectOutcome(const FaultRow& row, Front front);

    // The next connection that the server takes has to play `goodScript`.
    void expectRoadUsable(const FrontPeer& road);
};

testsupport::Script goodScript();

// A text that is short enough to read, or size and digest.
std::string shown(const std::string& content);

// Whether one of the alternatives fits: see FaultOutcome.
bool matches(const std::string& text, const std::string& alternatives);

} // namespace integrationtest
