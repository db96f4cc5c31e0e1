// Base of the tests that use the host as a program does: one host, and nothing left when it is gone.
#pragma once

#include "vantik/Failure.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

// Identifier and arguments of the failure that an operation raises, as one text; empty where it raises none.
inline std::string failureOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const vantik::Failure& failure) {
        std::string text = failure.identifier() + "(";
        const char* separator = "";
        for (const vantik::MessageArgument& argument : failure.message().Arguments) {
            text += std::exchange(separator, ", ");
            const auto* number = std::get_if<std::int64_t>(&argument);
            text += number ? std::to_string(*number) : std::get<std::string>(argument);
        }
        EXPECT_EQ(failure.message().Text, failure.what());
        EXPECT_FALSE(failure.message().Text.empty());
        return text + ")";
    }
    return {};
}

// A method of no results.
inline vantik::Method doing(std::function<void(std::span<const vantik::Array>)> body) {
    return [body = std::move(body)](std::span<const vantik::Array> inputs) {
        body(inputs);
        return std::vector<vantik::Array>{};
    };
}

class ProgramFixture : public testing::Test {
protected:
    void TearDown() override {
        Home.reset();
        EXPECT_EQ(vantik::Host::liveArrays(), 0u) << "handles were left behind";
    }

    std::optional<vantik::Host> Home{std::in_place};
};

// The class "test.Counter": a number that its constructor sets and its methods change.
inline void defineCounter(vantik::Host& host) {
    using vantik::Array;
    const auto number = std::make_shared<double>(0);
    vantik::HostClass("test.Counter")
        .method("Counter", doing([number](std::span<const Array> inputs) {
                    *number = inputs.size() > 1 ? inputs[1].number() : 0;
                }))
        .method("add", {"double scalar"}, {"double scalar"},
                [number](std::span<const Array> inputs) {
                    *number += inputs[1].number();
                    return std::vector<Array>{*number};
                })
        .method("both", {}, {"double scalar", "char vector"},
                [number](std::span<const Array>) {
                    return std::vector<Array>{*number, "text"};
                })
        .method("hiddenInternal", doing([](auto) {}))
        .defineIn(host);
}
