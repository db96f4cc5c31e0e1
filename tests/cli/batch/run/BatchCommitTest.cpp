#include "cli/batch/run/BatchCommit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>

namespace {

using netrove::cli::nextGroup;
using namespace std::chrono_literals;

struct GroupRow {
    const char* Name;
    std::size_t Files;
    std::chrono::nanoseconds Disk;
    std::size_t Most;
    std::size_t Next;
};

constexpr GroupRow kGroups[] = {
    {"OfAFastDiskStaysSmall", 64, 50us, 1000, 64},     {"OfASlowerDiskIsLarger", 64, 2ms, 1000, 100},
    {"GrowsByNoMoreThanTwice", 64, 1s, 1000, 128},     {"OfASlowDiskIsAsLargeAsItMayBe", 900, 1s, 1000, 1000},
    {"StaysWhereTheDiskKeepsUp", 500, 10ms, 1000, 500}, {"ShrinksByNoMoreThanHalf", 800, 0ns, 1000, 400},
    {"OfFewFilesSaysLittle", 2, 1s, 1000, 64},         {"IsNeverLargerThanTheProgramMayOpen", 16, 1s, 16, 16},
};

class NextGroup : public testing::TestWithParam<GroupRow> {};

INSTANTIATE_TEST_SUITE_P(BatchCommit, NextGroup, testing::ValuesIn(kGroups),
                         [](const auto& info) { return info.param.Name; });

TEST_P(NextGroup, IsAsLargeAsTheDiskNeeds) {
    const GroupRow& row = GetParam();
    EXPECT_EQ(nextGroup(row.Files, row.Disk, row.Most), row.Next);
}

} // namespace
