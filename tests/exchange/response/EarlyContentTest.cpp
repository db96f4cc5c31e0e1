// A response whose content comes while the request's content is still going out: nothing drains it then.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"
#include "vantik/HostClass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

constexpr std::size_t kMebi = std::size_t{1} << 20;
constexpr std::size_t kUploadLength = 16 * kMebi; // more than the sockets take

class EarlyContent : public HostFixture {
protected:
    // A PUT from a provider to a server that reads nothing of it before its response has been taken.
    Object put(const ScriptedServer& server) {
        const Object provider = vantik::makeProvider(host(), {.rewind = [this] { Given = 0; },
                                                              .read =
                                                                  [this](std::uint64_t wanted) {
                                                                      const std::size_t length = std::min<std::size_t>(
                                                                          wanted, kUploadLength - Given);
                                                                      Given += length;
                                                                      return Array::bytes(std::string(length, 'u'));
                                                                  }});
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        connection.call("setRequestProperty", {"Content-Length", std::to_string(kUploadLength)});
        connection.call("removeField", {"Expect"});
        return connection;
    }

    std::size_t Given = 0;
};

TEST_F(EarlyContent, IsKeptUntilTheUploadIsDone) {
    const std::string content(8 * kMebi, 'r');
    ScriptedServer& server = serve({step::expectHead(), step::send(response(content)), step::discard(kUploadLength)});
    const Object connection = put(server);
    EXPECT_EQ(difference(receiveBytes(connection), content), "");
    EXPECT_EQ(warnings().size(), 0U);
    server.waitUntilDone();
    expectScopeUsable(connection);
}

TEST_F(EarlyContent, BeyondItsLimitEndsTheUpload) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response(std::string(64 * kMebi, 'r')))});
    const Object connection = put(server);
    EXPECT_EQ(
        describe(failureOf([&] { receiveBytes(connection); })),
        "VANTIK:webservices:CopyContentToDataStreamError(More than 16777216 bytes of the response came before the "
        "request had been sent., " +
            server.url("/") + ")");
    expectScopeUsable(connection);
}

} // namespace
