// Base of the tests that make arrays: no handle may be left at the end.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/messages/HostFailure.h"
#include "host/ArrayApi.h"
#include "vantik/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::detail::ArrayOwner;
using vantik::detail::liveArrays;

class ArrayFixture : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(liveArrays(), 0u) << "handles were left over"; }
};

// "3-by-5 uint8"
inline std::string shapeOf(const vxArray_tag* array) {
    EXPECT_EQ(vx::vxGetNumberOfDimensions(array), 2u);
    const std::size_t* sizes = vx::vxGetDimensions(array);
    return std::to_string(sizes[0]) + "-by-" + std::to_string(sizes[1]) + " " + vx::vxGetClassName(array);
}
inline std::string shapeOf(const ArrayOwner& array) {
    return shapeOf(array.get());
}

// The read-only form, whatever the constness of the handle.
template <class T>
const T* elements(const ArrayOwner& array) {
    return static_cast<const T*>(vx::vxGetData(static_cast<const vxArray_tag*>(array.get())));
}

// "VANTIK:vcos:UnknownClass(test.A, none)"
template <class Arguments>
std::string identifierWith(std::string identifier, const Arguments& arguments) {
    const char* separator = "(";
    for (const auto& argument : arguments) {
        const auto* number = std::get_if<std::int64_t>(&argument);
        identifier += std::exchange(separator, ", ");
        identifier += number ? std::to_string(*number) : std::get<std::string>(argument);
    }
    return identifier + (arguments.empty() ? "()" : ")");
}

// Identifier and arguments of the failure that an operation of the host raises; empty where it raises none.
inline std::string failureOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const vantik::Failure& failure) { // as a program sees it
        EXPECT_EQ(failure.message().Text, failure.what());
        EXPECT_STRNE(failure.what(), "");
        return identifierWith(failure.identifier(), failure.message().Arguments);
    } catch (const foundation::core::except::IUserException& failure) { // as a module sees it
        const std::string text = failure.what();
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find('{'), std::string::npos) << text;
        EXPECT_EQ(text.find("VANTIK:"), std::string::npos) << "no text: " << text;
        return identifierWith(failure.msg_id().fullName(), failure.msg_id().arguments());
    }
    return {};
}
