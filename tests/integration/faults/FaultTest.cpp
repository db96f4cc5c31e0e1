// Answers that go wrong: what the caller is told and what has been delivered by then, in each way of receiving.
#include "tests/integration/faults/FaultFixture.h"

#include <tuple>

namespace {

using namespace integrationtest;
using Parameter = std::tuple<FaultRow, Front>;

class Faults : public FaultFixture, public testing::WithParamInterface<Parameter> {};

TEST_P(Faults, AreTold) {
    const auto& [row, front] = GetParam();
    expectOutcome(row, front);
}

std::vector<Parameter> rowsOf(const std::vector<FaultRow>& rows) {
    std::vector<Parameter> parameters;
    for (const FaultRow& row : rows) {
        for (const Front front : {Front::Direct, Front::Tls, Front::Nginx, Front::Nghttpx}) {
            if (!row.on(front).Told.empty()) {
                parameters.emplace_back(row, front);
            }
        }
    }
    return parameters;
}

std::string nameOfTest(const testing::TestParamInfo<Parameter>& info) {
    return std::string(std::get<FaultRow>(info.param).Name) + nameOf(std::get<Front>(info.param));
}

INSTANTIATE_TEST_SUITE_P(BrokenOff, Faults, testing::ValuesIn(rowsOf(brokenOffRows())), nameOfTest);
INSTANTIATE_TEST_SUITE_P(StrangeHead, Faults, testing::ValuesIn(rowsOf(strangeHeadRows())), nameOfTest);
INSTANTIATE_TEST_SUITE_P(WrongContent, Faults, testing::ValuesIn(rowsOf(wrongContentRows())), nameOfTest);

} // namespace
