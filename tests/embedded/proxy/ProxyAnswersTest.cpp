#include "embedded/proxy/ProxyAnswers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>

using testing::ElementsAre;
using vantik::detail::ProxyAnswers;

namespace {

using Answer = ProxyAnswers::Answer;

const auto kNeverStop = [] {};

// A source of settings that counts how often it is asked.
struct Source {
    std::atomic<int> Asked{0};
    std::function<Answer()> ask() {
        return [this] { return Answer{std::to_string(++Asked)}; };
    }
};

} // namespace

TEST(ProxyAnswersKept, SpareTheNextQuestion) {
    ProxyAnswers answers;
    Source source;
    EXPECT_THAT(answers.get("http://a/", source.ask(), kNeverStop), ElementsAre("1"));
    EXPECT_THAT(answers.get("http://a/", source.ask(), kNeverStop), ElementsAre("1"));
    EXPECT_THAT(answers.get("http://b/", source.ask(), kNeverStop), ElementsAre("2"));
}

TEST(ProxyAnswersKept, AreForgottenAfterTheirTime) {
    ProxyAnswers::Clock::time_point now;
    ProxyAnswers answers([&] { return now; });
    Source source;
    answers.get("http://a/", source.ask(), kNeverStop);
    now += ProxyAnswers::kLifetime - std::chrono::seconds(1);
    EXPECT_THAT(answers.get("http://a/", source.ask(), kNeverStop), ElementsAre("1"));
    now += std::chrono::seconds(1);
    EXPECT_THAT(answers.get("http://a/", source.ask(), kNeverStop), ElementsAre("2"));
}

TEST(ProxyAnswersKept, AreNotFailures) {
    ProxyAnswers answers;
    Source source;
    const auto fail = []() -> Answer { throw std::runtime_error("no settings"); };
    EXPECT_THROW(answers.get("http://a/", fail, kNeverStop), std::runtime_error);
    EXPECT_THAT(answers.get("http://a/", source.ask(), kNeverStop), ElementsAre("1"));
}

// The first one holds the question until the second one has come to wait for it.
TEST(ProxyAnswersKept, AreSharedByThoseWhoAskAtTheSameTime) {
    ProxyAnswers answers;
    Source source;
    std::promise<void> begun;
    std::promise<void> secondWaits;
    const auto held = [&] {
        begun.set_value();
        secondWaits.get_future().wait();
        return source.ask()();
    };
    auto first = std::async(std::launch::async, [&] { return answers.get("http://a/", held, kNeverStop); });
    begun.get_future().wait();
    bool said = false;
    const Answer second = answers.get("http://a/", source.ask(), [&] {
        if (!std::exchange(said, true)) {
            secondWaits.set_value();
        }
    });
    EXPECT_THAT(second, ElementsAre("1"));
    EXPECT_THAT(first.get(), ElementsAre("1"));
}

// Many servers do not fill the memory, and what is forgotten is asked again.
TEST(ProxyAnswersKept, AreLimitedInNumber) {
    ProxyAnswers answers;
    Source source;
    answers.get("http://first/", source.ask(), kNeverStop);
    for (std::size_t i = 0; i < ProxyAnswers::kMost; ++i) {
        answers.get("http://" + std::to_string(i) + "/", source.ask(), kNeverStop);
    }
    const int before = source.Asked;
    answers.get("http://first/", source.ask(), kNeverStop);
    EXPECT_EQ(source.Asked, before + 1);
}
