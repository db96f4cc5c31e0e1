// Base of the tests that use the host as a program does: one host, and nothing left when it is gone.
#pragma once

#include "vantik/Failure.h"
#include "vantik/Host.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

class ProgramFixture : public testing::Test {
protected:
    void TearDown() override {
        Home.reset();
        EXPECT_EQ(vantik::Host::liveArrays(), 0u) << "handles were left behind";
    }

    // Identifier and arguments of the failure that an operation raises, as one text; empty where it raises none.
    template <class Operation>
    static std::string failureOf(Operation operation) {
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

    std::optional<vantik::Host> Home{std::in_place};
};
