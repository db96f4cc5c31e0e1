#include "tests/support/host/ScriptedObjects.h"

#include "tests/support/host/LeakCheck.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace testsupport;

// The methods end in Internal and are hidden from programs, so what these objects do is seen through the transfer
// tests; here is what can be seen from outside.
class ScriptedObjects : public ::testing::Test {
    LeakCheck Leaks;

protected:
    vantik::Host Host;
};

TEST_F(ScriptedObjects, AreOfTheClassesThatTheyStandFor) {
    EXPECT_TRUE(makeScriptedProvider(Host).object().array().isA("vantik.net.http.io.ContentProvider"));
    EXPECT_TRUE(makeScriptedConsumer(Host).object().array().isA("vantik.net.http.io.ContentConsumer"));
    EXPECT_TRUE(makeScriptedReporter(Host).object().array().isA("vantik.net.http.internal.ProgressReporter"));
}

TEST_F(ScriptedObjects, HaveClassesOfTheirOwn) {
    EXPECT_NE(makeScriptedReporter(Host).object().className(), makeScriptedReporter(Host).object().className());
}

TEST_F(ScriptedObjects, ReporterRemembersCountsAndDoesAsTold) {
    const ScriptedReporter reporter = makeScriptedReporter(Host);
    EXPECT_TRUE(reporter.object().call("update", {std::uint64_t{7}}).truth());
    reporter->OnUpdate = [](int call, std::uint64_t) { return vantik::Array(call != 2); };
    EXPECT_FALSE(reporter.object().call("update", {std::uint64_t{9}}).truth());
    EXPECT_EQ(reporter->Counts, (std::vector<std::uint64_t>{7, 9}));
    reporter->OnUpdate = [](int, std::uint64_t) -> vantik::Array { throw std::domain_error("as told"); };
    EXPECT_THROW(reporter.object().call("update", {std::uint64_t{9}}), std::domain_error);
}

} // namespace
