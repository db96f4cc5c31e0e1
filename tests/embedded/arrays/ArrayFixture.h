// Base of the tests that make arrays: no handle may be left at the end.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/messages/HostFailure.h"

#include <gtest/gtest.h>

#include <string>

class ArrayFixture : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(vantik::detail::liveArrays(), 0u) << "handles were left behind"; }
};

// The identifier of the host failure that an operation raises; empty where it raises none.
template <class Operation>
std::string raisedIdentifier(Operation operation) {
    try {
        operation();
    } catch (const foundation::core::except::IUserException& error) {
        EXPECT_STRNE(error.what(), "");
        return error.msg_id().fullName();
    }
    return {};
}
