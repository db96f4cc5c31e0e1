#include "tests/support/server/UnreachablePorts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <poll.h>
#include <system_error>

namespace {

using testsupport::RefusingPort;
using testsupport::SilentPort;

TEST(UnreachablePorts, RefusingPortRefuses) {
    const RefusingPort refusing;
    try {
        testsupport::connectLoopback(refusing.port());
        FAIL() << "connected";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code().value(), ECONNREFUSED);
    }
}

TEST(UnreachablePorts, SilentPortLeavesAConnectionPending) {
    const SilentPort silent;
    const testsupport::SocketHandle client = testsupport::beginConnect(silent.port());
    pollfd entry{client.get(), POLLOUT, 0};
    EXPECT_EQ(::poll(&entry, 1, 200), 0) << "an answer came";
}

} // namespace
