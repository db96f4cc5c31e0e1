// Warnings that a program treats as failures of the operation that issued them.
#include "embedded/messages/HostFailure.h"
#include "host/Messages.h"
#include "tests/embedded/program/ProgramFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <stdexcept>
#include <string>
#include <vector>

using vantik::Array;
using vantik::HostClass;
using vantik::Object;

namespace {

constexpr const char* kWarning = "VANTIK:webservices:PartialFileWarning";

void warn(const char* key, const std::string& argument) {
    matrix::detail::noninlined::vx_array_api::vxWarningMsgId(
        vantik::detail::HostMessage({argument, std::string("10"), std::string("why")}, "VANTIK:webservices", key));
}

class TreatedWarnings : public ProgramFixture {
protected:
    // "test.Warner": `warn` warns once for each input; `fail` warns and fails; `ask` runs `Inner` and then warns.
    void SetUp() override {
        HostClass("test.Warner")
            .method("warn",
                    [](std::span<const Array> inputs) {
                        for (const Array& input : inputs.subspan(1)) {
                            warn("PartialFileWarning", input.text());
                        }
                        return std::vector<Array>{"result"};
                    })
            .method("fail",
                    [](std::span<const Array>) -> std::vector<Array> {
                        warn("PartialFileWarning", "lost");
                        throw std::domain_error("worse");
                    })
            .method("ask",
                    [this](std::span<const Array>) {
                        warn("PartialFileWarning", "outer");
                        Inner();
                        return std::vector<Array>{};
                    })
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
    std::vector<std::string> Shown;
};

TEST_F(TreatedWarnings, WithoutAWishAWarningIsShownAndTheResultCounts) {
    EXPECT_EQ(Warner.call("warn", {"1"}).text(), "result");
    EXPECT_EQ(Shown, std::vector<std::string>{kWarning});
}

TEST_F(TreatedWarnings, TheOperationFailsWithTheFirstOfThem) {
    Home->treatAsFailure(kWarning);
    EXPECT_EQ(failureOf([&] { Warner.call("warn", {"1", "2"}); }), std::string(kWarning) + "(1, 10, why)");
    EXPECT_TRUE(Shown.empty());
    EXPECT_EQ(failureOf([&] { Warner.call("warn", {"3"}, 1); }), std::string(kWarning) + "(3, 10, why)");
    EXPECT_EQ(Warner.call("warn").text(), "result") << "an operation that does not warn succeeds";
}

TEST_F(TreatedWarnings, OthersAreShownAsEver) {
    Home->treatAsFailure("VANTIK:webservices:Timeout");
    EXPECT_EQ(Warner.call("warn", {"1"}).text(), "result");
    EXPECT_EQ(Shown, std::vector<std::string>{kWarning});
}

TEST_F(TreatedWarnings, AFailureOfTheOperationCounts) {
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
    EXPECT_EQ(failureOf([&] { Warner.call("ask"); }), std::string(kWarning) + "(outer, 10, why)");
    EXPECT_EQ(innerFailure, std::string(kWarning) + "(inner, 10, why)");
}

TEST_F(TreatedWarnings, OtherHostsGoOnShowing) {
    Home->treatAsFailure(kWarning);
    vantik::Host other;
    std::size_t shown = 0;
    other.onWarning([&](const vantik::Message&) { ++shown; });
    HostClass("test.Warner")
        .method("warn",
                [](std::span<const Array>) {
                    warn("PartialFileWarning", "1");
                    return std::vector<Array>{};
                })
        .defineIn(other);
    other.create("test.Warner").call("warn");
    EXPECT_EQ(shown, 1u);
}

} // namespace
