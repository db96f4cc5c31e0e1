#include "tests/support/host/LeakCheck.h"

#include "vantik/Host.h"

#include <gtest/gtest.h>

namespace testsupport {

LeakCheck::LeakCheck() : ArraysAtStart(vantik::Host::liveArrays()) {}

LeakCheck::~LeakCheck() {
    EXPECT_EQ(vantik::Host::liveArrays(), ArraysAtStart) << "host arrays were left over, or released twice";
}

} // namespace testsupport
