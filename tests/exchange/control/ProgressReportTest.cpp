// Progress reporters: what they are told and when. How they stop a transfer is in TransferInterruptTest.cpp.
#include "tests/exchange/ExchangeFixture.h"

#include <algorithm>

namespace {

using namespace testsupport;

class ProgressReport : public ExchangeFixture {
protected:
    ProgressReport() : Reporter(makeScriptedReporter(host())), Counts(Reporter->Counts) {}

    ScriptedReporter Reporter;
    std::vector<std::uint64_t>& Counts;
};

TEST_F(ProgressReport, OfReceivedContentCountsUpToItsLength) {
    const std::string body = patternedBytes(300000);
    for (const bool toFile : {false, true}) {
        Counts.clear();
        const Object connection = open(serve(answers(response(body))).url("/"));
        connection.set("ProgressReporter", Reporter);
        if (toFile) {
            connection.call("copyContentToFile", {Folder.file("saved")});
        } else {
            EXPECT_EQ(difference(receiveBytes(connection), body), "");
        }
        ASSERT_FALSE(Counts.empty());
        EXPECT_EQ(std::adjacent_find(Counts.begin(), Counts.end(), std::greater_equal<>()), Counts.end())
            << "each report has more than the one before";
        EXPECT_EQ(Counts.back(), body.size());
    }
}

// The good answer begins before the content is complete. The provider waits for its head to be on its way before it
// offers its second piece, and goes on until a report shows that it has come.
TEST_F(ProgressReport, OfAnUploadIsMadeOnceTheHeadIsThere) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                                    step::signal("head"), step::expectChunkedBody(), step::send("done")});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [&](int call, std::uint64_t) {
        if (call == 2) {
            server.waitFor("head");
        }
        return Array::bytes(call <= 6 || Counts.empty() ? "0123456789" : "");
    };
    const Object connection = openUpload(server.url("/"), provider);
    connection.set("ProgressReporter", Reporter);
    EXPECT_EQ(receiveBytes(connection), "done");
    const std::size_t sent = server.record().Bodies.at(0).size();
    EXPECT_GE(sent, 60U);
    ASSERT_GE(Counts.size(), 2U);
    EXPECT_EQ(Counts.back(), 4U) << "the count of receiving does not go on from that of sending";
    EXPECT_TRUE(std::is_sorted(Counts.begin(), Counts.end() - 1));
    EXPECT_EQ(*(Counts.end() - 2), sent);
}

} // namespace
