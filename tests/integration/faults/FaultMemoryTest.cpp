// A small compressed content that stands for a very large one: it is passed on in pieces and never held.
#include "tests/integration/faults/FaultFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <array>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace integrationtest;
using testsupport::readFile;
using testsupport::ScriptedServer;
using testsupport::Step;
using vantik::Object;
namespace step = testsupport::step;

constexpr std::size_t kMebi = std::size_t{1} << 20;
constexpr std::size_t kLength = 64 * kMebi;
constexpr std::size_t kSmallLength = 8 * kMebi;
constexpr std::size_t kPieceSize = 4096;        // of what is on the wire
constexpr std::size_t kOnTheWay = 4 * kMebi;    // in the decoder and in the pipe
constexpr long kAllowedKiB = 16 * kMebi / 1024; // a quarter of the content

class FaultMemory : public FaultFixture {
protected:
    // As many zeros, a thousandth of the size on the wire.
    std::string bomb(std::size_t length) {
        const std::string name = "bomb" + std::to_string(length);
        PeerProcess gzip(
            {"sh", "-c",
             "head -c " + std::to_string(length) + " /dev/zero | gzip -9 > " + name + "; touch " + name + ".done"},
            folder().file("log"), {.Folder = folder().path()});
        gzip.awaitCondition([&] { return std::filesystem::exists(folder().file(name + ".done")); }, "compressed");
        return readFile(folder().file(name));
    }

    static std::string answer(const std::string& content) {
        return "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " + std::to_string(content.size()) +
               "\r\n\r\n" + content;
    }

    static std::string expectedDigest(std::size_t length) {
        const std::string piece(kMebi, '\0');
        Digest digest;
        for (std::size_t done = 0; done < length; done += piece.size()) {
            digest.add(piece);
        }
        return digest.hex();
    }

    // The command line's peak while it waits for the last piece. What has arrived at once is decoded at once, so the
    // next piece is sent when most of the last one has been passed on.
    long peakOfGet(std::size_t length) {
        const std::string whole = answer(bomb(length));
        const std::size_t expansion = length / whole.size();
        std::vector<Step> script = {step::expectHead()};
        for (std::size_t start = 0; start < whole.size(); start += kPieceSize) {
            script.push_back(step::await(std::to_string(start)));
            script.push_back(step::send(whole.substr(start, kPieceSize)));
        }
        script.push_back(step::close());
        ScriptedServer server(script);
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        testsupport::Program program({"get", server.url()}, {.OutDescriptor = ends[1]});
        ::close(ends[1]);
        Digest received;
        std::vector<char> buffer(1 << 16);
        std::size_t next = 0; // of the pieces, by its start
        long peak = 0;
        for (ssize_t count = 1; count > 0;) {
            while (next < whole.size() && received.size() + kOnTheWay >= next * expansion) {
                if (next + kPieceSize >= whole.size()) {
                    peak = program.peakKiB();
                }
                server.raise(std::to_string(next));
                next += kPieceSize;
            }
            count = ::read(ends[0], buffer.data(), buffer.size());
            received.add({buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
        }
        ::close(ends[0]);
        EXPECT_EQ(program.wait().Status, 0);
        EXPECT_EQ(received.size(), length);
        EXPECT_EQ(received.hex(), expectedDigest(length));
        EXPECT_GT(peak, 0);
        return peak;
    }
};

TEST_F(FaultMemory, CompressedThousandfoldIsReceivedInPieces) {
    const std::string content = bomb(kLength);
    EXPECT_LT(content.size() * 900, kLength);
    ScriptedServer& server = serve({step::expectHead(), step::send(answer(content)), step::close()});
    const Object connection = open(server.url("/"));
    const Digest received = receiveDigest(connection);
    EXPECT_EQ(received.size(), kLength);
    EXPECT_EQ(received.hex(), expectedDigest(kLength));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    expectScopeUsable(connection);
}

TEST_F(FaultMemory, DecodedContentForAByteArrayHasALimit) {
    const std::string content = bomb(513 * kMebi);
    ScriptedServer& server = serve({step::expectHead(), step::send(answer(content)), step::close()});
    const Object connection = open(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:DecodedContentTooLarge(536870912, gzip)");
    expectScopeUsable(connection);
}

// Compared, since what the program needs by itself is several times as much under a sanitizer.
TEST_F(FaultMemory, CommandLineHoldsOnlyWhatHasArrived) {
    EXPECT_LT(peakOfGet(kLength), peakOfGet(kSmallLength) + kAllowedKiB);
}

} // namespace
