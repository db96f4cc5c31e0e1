#include "tests/support/host/LeakCheck.h"

#include "vantik/Array.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>

TEST(LeakCheck, FailsWhereAnArrayIsLeft) {
    static std::optional<vantik::Array> left; // static: the statement below may use nothing local
    EXPECT_NONFATAL_FAILURE(
        {
            const testsupport::LeakCheck check;
            left.emplace("left over");
        },
        "host arrays were left over");
    left.reset();
}
