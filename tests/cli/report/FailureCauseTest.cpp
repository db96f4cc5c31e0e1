#include "cli/report/FailureCause.h"

#include "cli/failures/CliFailure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace netrove::cli;
using testing::HasSubstr;

struct Row {
    const char* Catalogue;
    const char* Key;
    std::vector<vantik::MessageArgument> Arguments;
    const char* Text;
    const char* Cause;
};

TEST(FailureCause, IsTheSameForAllFailuresOfAKind) {
    const Row rows[] = {
        {"NETROVE:cli",
         "StatusError",
         {std::int64_t{404}, "Nope", "http://h/1"},
         "",
         "the server answered 404 Not Found"},
        {"NETROVE:cli", "StatusError", {std::int64_t{599}, "Odd", "http://h/1"}, "", "the server answered 599"},
        {"VANTIK:webservices", "ConnectionRefused", {"http://h/1", "x"}, "refused", "connection refused by h:8080"},
        {"VANTIK:webservices", "ConnectionRefused", {}, "Connection reset by peer", "connection reset by h:8080"},
        {"VANTIK:webservices", "UnknownHost", {"http://h/1"}, "", "unknown host h:8080"},
        {"NETROVE:cli",
         "FileNotWritten",
         {"a/1", "No space left on device"},
         "",
         "file not written: No space left on device"},
        {"NETROVE:cli", "FileExists", {"a/1"}, "", "the file exists"},
        {"VANTIK:other", "SomethingNew", {"detail"}, "", "something new"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(causeOf({row.Catalogue, row.Key, row.Arguments, row.Text}, "http://h:8080/path").text(), row.Cause);
    }
}

TEST(FailureCause, TheCommonestComeFirst) {
    CauseCounts counts;
    counts.add({"rare", "", ""}, 1);
    EXPECT_EQ(counts.add({"refused", " by ", "a:80"}, 2), 1U);
    EXPECT_EQ(counts.add({"refused", " by ", "a:80"}, 3), 2U);
    counts.add({"refused", " by ", "b:80"}, 4);
    counts.add({"refused", " by ", "b:80"}, 5);
    counts.add({"refused", " by ", "b:80"}, 6);
    const auto sorted = counts.sorted();
    EXPECT_EQ(sorted[0].FirstLine, 4U);
    EXPECT_EQ(causesText(sorted, 5), "3 x refused by b:80, 2 x refused by a:80, 1 x rare");
    EXPECT_EQ(causesText(sorted, 2), "3 x refused by b:80, 2 x refused by a:80 and 1 more cause");
    EXPECT_EQ(causesText(sorted, 1), "3 x refused by b:80 and 2 more causes");
    EXPECT_EQ(causesText({}, 5), "");
    EXPECT_EQ(counts.byKind().at("refused"), 5U);
}

TEST(FailureCause, AnyNumberOfHostsTakesABoundedNumberOfEntries) {
    CauseCounts counts;
    for (std::size_t i = 0; i < 100'000; ++i) {
        counts.add({"refused", " by ", "host" + std::to_string(i) + ":80"}, i);
        counts.add({"cause " + std::to_string(i), "", ""}, i);
    }
    const auto sorted = counts.sorted();
    EXPECT_LE(sorted.size(), 1001U);
    std::size_t all = 0;
    for (const CauseCounts::Counted& cause : sorted) {
        all += cause.Count;
    }
    EXPECT_EQ(all, 200'000U);
}

} // namespace
