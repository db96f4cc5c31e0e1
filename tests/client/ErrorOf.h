// What a call of the client fails with.
#pragma once

#include <gtest/gtest.h>
#include <netrove/error.h>

namespace clienttest {

// The Error that `call` throws. Without one the test fails.
template <class Call>
netrove::Error errorOf(Call call) {
    try {
        call();
    } catch (const netrove::Error& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return {netrove::ErrorKind::Other, "none", {}, "none"};
}

} // namespace clienttest
