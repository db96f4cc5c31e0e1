// Base of the tests that make arrays: no handle may be left at the end.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/messages/HostFailure.h"
#include "host/ArrayApi.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

class ArrayFixture : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(vantik::detail::liveArrays(), 0u) << "handles were left behind"; }
};

// "3-by-5 uint8"
inline std::string shapeOf(const vxArray_tag* array) {
    namespace vx = matrix::detail::noninlined::vx_array_api;
    EXPECT_EQ(vx::vxGetNumberOfDimensions(array), 2u);
    const std::size_t* sizes = vx::vxGetDimensions(array);
    return std::to_string(sizes[0]) + "-by-" + std::to_string(sizes[1]) + " " + vx::vxGetClassName(array);
}
inline std::string shapeOf(const vantik::detail::ArrayOwner& array) {
    return shapeOf(array.get());
}

// The read-only form, whatever the constness of the handle.
template <class T>
const T* elements(const vantik::detail::ArrayOwner& array) {
    return static_cast<const T*>(
        matrix::detail::noninlined::vx_array_api::vxGetData(static_cast<const vxArray_tag*>(array.get())));
}

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
