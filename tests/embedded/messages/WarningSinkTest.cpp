// Where warnings go, and those that a program treats as failures of the operation that issued them.
#include "embedded/messages/WarningSink.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/scope/Scope.h"
#include "errors/MessageIdentifiers.h"
#include "tests/embedded/program/ProgramFixture.h"

#include <stdexcept>

using Names = std::vector<std::string>;

static const std::string kWarning = "VANTIK:webservices:PartialFileWarning";

static void warn(const std::string& received) {
    vx::vxWarningMsgId(VANTIK::webservices::PartialFileWarning(received, "10", "why"));
}

namespace {

class Warnings : public ProgramFixture {
protected:
    std::string shownOnStandardError() {
        const ScopeEntry entry(Home->scope());
        testing::internal::CaptureStderr();
        EXPECT_NO_THROW(warn("3"));
        return testing::internal::GetCapturedStderr();
    }
    vantik::detail::WarningSink& sink() { return Home->scope()->Warnings; }
    const std::string Line = "warning: The content is incomplete: 3 of 10 bytes were received. why\n";
};

} // namespace

TEST_F(Warnings, GoToTheHandlerAloneAndWithoutOneToStandardError) {
    EXPECT_EQ(shownOnStandardError(), Line);
    Names seen;
    sink().setHandler([&](const resource_core::BaseMsgID& id) { seen.push_back(id.fullName()); });
    EXPECT_EQ(shownOnStandardError(), "");
    EXPECT_EQ(seen, Names{kWarning});
    sink().setHandler({});
    EXPECT_EQ(shownOnStandardError(), Line);
}

TEST_F(Warnings, HandlerMayReplaceItselfAndOneThatFailsLosesNoWarning) {
    sink().setHandler([](const resource_core::BaseMsgID&) { throw 7; });
    EXPECT_EQ(shownOnStandardError(), Line);
    int calls = 0;
    sink().setHandler([&](const resource_core::BaseMsgID&) {
        sink().setHandler([&calls](const resource_core::BaseMsgID&) { calls += 10; });
        ++calls;
    });
    shownOnStandardError();
    shownOnStandardError();
    EXPECT_EQ(calls, 11);
}

TEST_F(Warnings, ProgramSeesArgumentsAndText) {
    std::vector<vantik::Message> seen;
    Home->onWarning([&](const vantik::Message& message) { seen.push_back(message); });
    const ScopeEntry entry(Home->scope());
    vx::vxWarningMsgId(vantik::detail::HostMessage({std::int64_t{3}, std::string("10"), std::u16string(u"\u00FC")},
                                                   "VANTIK:webservices", "PartialFileWarning"));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].identifier(), kWarning);
    EXPECT_EQ(seen[0].Arguments,
              (std::vector<vantik::MessageArgument>{std::int64_t{3}, std::string("10"), std::string("\xC3\xBC")}));
    EXPECT_THAT(seen[0].Text, testing::HasSubstr("\xC3\xBC"));
}

namespace {

class TreatedWarnings : public ProgramFixture {
protected:
    // "test.Warner": `warn` warns once for each input; `fail` warns and fails; `ask` runs `Inner` and then warns.
    void SetUp() override {
        HostClass("test.Warner")
            .method("warn",
                    [](std::span<const Array> inputs) {
                        for (const Array& input : inputs.subspan(1)) {
                            warn(input.text());
                        }
                        return std::vector<Array>{"result"};
                    })
            .method("fail", doing([](auto) {
                        warn("lost");
                        throw std::domain_error("worse");
                    }))
            .method("ask", doing([this](auto) {
                        warn("outer");
                        Inner();
                    }))
            .defineIn(*Home);
        Warner = Home->create("test.Warner");
        Home->onWarning([this](const vantik::Message& message) { Shown.push_back(message.identifier()); });
    }
    void TearDown() override {
        Warner = Object();
        ProgramFixture::TearDown();
    }

    Object Warner;
    std::function<void()> Inner;
    Names Shown;
};

} // namespace

TEST_F(TreatedWarnings, OperationFailsWithTheFirstOfThemAndOthersAreShown) {
    EXPECT_EQ(Warner.call("warn", {"1"}).text(), "result");
    Home->treatAsFailure("VANTIK:webservices:Timeout");
    EXPECT_EQ(Warner.call("warn", {"1"}).text(), "result");
    EXPECT_EQ(std::exchange(Shown, {}), (Names{kWarning, kWarning}));
    Home->treatAsFailure(kWarning);
    EXPECT_EQ(failureOf([&] { Warner.call("warn", {"1", "2"}); }), kWarning + "(1, 10, why)");
    EXPECT_EQ(failureOf([&] { Warner.call("warn", {"3"}, 1); }), kWarning + "(3, 10, why)");
    EXPECT_TRUE(Shown.empty());
    EXPECT_EQ(Warner.call("warn").text(), "result") << "an operation that does not warn succeeds";
}

TEST_F(TreatedWarnings, FailureOfTheOperationCounts) {
    Home->treatAsFailure(kWarning);
    EXPECT_THROW(Warner.call("fail"), std::domain_error);
    EXPECT_EQ(Warner.call("warn").text(), "result") << "nothing is left for the next one";
}

TEST_F(TreatedWarnings, EachOperationHasItsOwn) {
    Home->treatAsFailure(kWarning);
    std::string innerFailure;
    Inner = [&] {
        EXPECT_EQ(Warner.call("warn").text(), "result") << "what the outer one warned of is not the inner one's";
        innerFailure = failureOf([&] { Warner.call("warn", {"inner"}); });
    };
    EXPECT_EQ(failureOf([&] { Warner.call("ask"); }), kWarning + "(outer, 10, why)");
    EXPECT_EQ(innerFailure, kWarning + "(inner, 10, why)");
}

TEST_F(TreatedWarnings, OtherHostsGoOnShowing) {
    Home->treatAsFailure(kWarning);
    Host other;
    std::size_t shown = 0;
    other.onWarning([&](const vantik::Message&) { ++shown; });
    HostClass("test.Warner").method("warn", doing([](auto) { warn("1"); })).defineIn(other);
    other.create("test.Warner").call("warn");
    EXPECT_EQ(shown, 1u);
}
