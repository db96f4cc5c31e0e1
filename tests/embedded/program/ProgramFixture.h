// Base of the tests that use the host as a program does: one host, and nothing left when it is gone.
#pragma once

#include "tests/embedded/arrays/ArrayFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <optional>
#include <span>

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
        EXPECT_EQ(vantik::Host::liveArrays(), 0u) << "handles were left over";
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
