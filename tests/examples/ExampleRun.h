// Runs the example programs as a person does.
#pragma once

#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/server/ScriptedServer.h"

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

using Words = std::vector<std::string>;

inline Surroundings exampleSurroundings(const std::string& example, Surroundings around = {}) {
    around.Executable = testsupport::builtFile("examples/" + example);
    return around;
}

inline Outcome runExample(const std::string& example, Words arguments, const Surroundings& around = {}) {
    return run(std::move(arguments), exampleSurroundings(example, around));
}

// With a server that plays the script: its URL is the first argument.
struct ExampleExchange : Outcome {
    Record Seen{};
};
inline ExampleExchange runExample(const std::string& example, const Script& script, const Words& more = {},
                                  const std::string& path = "/", Pace pace = Pace::Whole) {
    const ScriptedServer server(script, pace);
    Words arguments = {server.url(path)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ExampleExchange result{runExample(example, arguments)};
    result.Seen = server.waitUntilDone();
    return result;
}

inline Script answering(const std::string& bytes) {
    return {step::expectHead(), step::send(bytes), step::awaitPeerEnd()};
}

} // namespace testsupport
