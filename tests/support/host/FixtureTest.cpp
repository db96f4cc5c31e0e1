#include "tests/support/host/LeakCheck.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Array.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>

namespace {

using namespace testsupport;

TEST(LeakCheck, FailsWhereAnArrayIsLeft) {
    static std::optional<vantik::Array> left; // static: the statement below may use nothing local
    EXPECT_NONFATAL_FAILURE(
        {
            const LeakCheck check;
            left.emplace("left behind");
        },
        "host arrays were left behind");
    left.reset();
}

TEST(LeakCheck, IsContentWhereAllAreGone) {
    const LeakCheck check;
    const vantik::Array gone("gone before the check");
}

class ScopeFixtureTest : public ScopeFixture {};

TEST_F(ScopeFixtureTest, RunsInItsOwnScope) {
    EXPECT_EQ(vantik::detail::Scope::currentOrNull(), &scope());
    EXPECT_EQ(host().scope().get(), &scope());
}

} // namespace
