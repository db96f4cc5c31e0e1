#include "cli/terminal/WireTrace.h"

#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/pool.h>

#include <string>
#include <vector>

namespace {

using namespace netrove;
using cli::WireTrace;
using testing::ElementsAre;
using testing::StartsWith;
using namespace testsupport;

// Several transfers under way at the same time: each has its own lines, all of them, in order.
TEST(WireTrace, LinesOfTransfersAtTheSameTimeAreMarked) {
    constexpr std::size_t count = 4;
    std::vector<Script> scripts;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = std::to_string(i);
        scripts.push_back({step::expectHead(), step::signal("asked" + name), step::await("all have asked"),
                           step::send(response("x")), step::awaitPeerEnd()});
    }
    ScriptedServer server(scripts);
    std::vector<std::string> lines;
    {
        WireTrace trace(
            [&](const std::string& start, std::string_view text) { lines.push_back(start + std::string(text)); }, false,
            false);
        Pool pool({.jobs = count, .perHost = count}, cli::tracedBy(&trace),
                  [] { return networkTransport({.debug = 1}); });
        std::vector<std::future<Response>> responses;
        for (std::size_t i = 1; i <= count; ++i) {
            const std::string url = server.url("/" + std::to_string(i));
            responses.push_back(pool.submit(url, [&trace, url, i](Client& client) {
                const WireTrace::Transfer marked(trace, i, url);
                return client.get(url, {.proxy = Proxy::none()});
            }));
        }
        for (std::size_t i = 0; i < count; ++i) {
            server.waitFor("asked" + std::to_string(i));
        }
        server.raise("all have asked");
        for (auto& response : responses) {
            EXPECT_EQ(response.get().text(), "x");
        }
    }
    std::size_t marked = 0;
    for (std::size_t i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        const std::string mark = "[" + number + "] ";
        std::vector<std::string> own;
        for (const std::string& line : lines) {
            if (line.starts_with(mark)) {
                own.push_back(line.substr(mark.size()));
            }
        }
        EXPECT_THAT(own,
                    ElementsAre("* " + server.url("/" + number), "* direct connection (as asked)",
                                StartsWith("* Trying "), StartsWith("* Connected to "),
                                "> GET /" + number + " HTTP/1.1", StartsWith("> Host: "), StartsWith("> User-Agent: "),
                                ">", "< HTTP/1.1 200 OK", "< Content-Length: 1", "<", "* 1 bytes of content came"));
        marked += own.size();
    }
    EXPECT_EQ(marked, lines.size());
}

} // namespace
