// Runs the example programs as a person does.
#pragma once

#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

inline Surroundings exampleSurroundings(const std::string& example, Surroundings around = {}) {
    around.Executable = testsupport::builtFile("examples/" + example);
    return around;
}

inline Outcome runExample(const std::string& example, std::vector<std::string> arguments,
                          const Surroundings& around = {}) {
    return run(std::move(arguments), exampleSurroundings(example, around));
}

} // namespace testsupport
