// A name server that never answers: libcurl asks on a thread of its own, which cannot be stopped. Nothing waits for it.
#include "tests/integration/interrupt/HeldLookup.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/WireText.h"

namespace {

using namespace integrationtest;

class NameLookup : public IntegrationFixture {
protected:
    // Runs into the limit on connecting while the look-up is held.
    static void runIntoTheLimit(const Object& connection) {
        connection.set("URL", "http://held.test/");
        connection.set("TimeoutInMilliseconds", Array::doubles({100, 60000}));
        connection.call("openConnection");
        const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:Timeout");
        EXPECT_NE(failure.Text.find("Resolving timed out"), std::string::npos) << failure.Text;
    }

    const HeldLookup Lookup;
};

TEST_F(NameLookup, ThatReachesItsLimitHoldsUpNeitherTheNextOpenNorANewObject) {
    const std::string good =
        serve({step::expectHead(), step::send(response("good")), step::expectHead(), step::send(response("good"))})
            .url("/good");
    const Object connection = makeAdapter();
    runIntoTheLimit(connection);
    connection.call("closeConnection");
    connection.set("URL", good);
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "good");
    connection.call("closeConnection");
    EXPECT_EQ(receiveBytes(open(good)), "good");
}

TEST_F(NameLookup, DoesNotHoldUpTheEndOfItsScope) {
    {
        vantik::Host scope;
        scope.load(modulePath());
        runIntoTheLimit(scope.create(kAdapterClass, {true}));
    }
    expectScopeUsable();
}

TEST(NameLookupOfTheCommand, EndsWithTheLimitOnConnecting) {
    const Outcome outcome =
        run({"get", "--connect-timeout", "2000", "http://held.test/"}, {.Environment = heldLookupEnvironment()});
    EXPECT_EQ(outcome.Status, 28) << outcome.Err;
    EXPECT_EQ(outcome.Out, "looking up\n"); // said by the look-up
}

} // namespace
