// A small compressed content that stands for a very large one: it is passed on in pieces and never held.
#include "tests/integration/support/FaultFixture.h"
#include "tests/support/ProgramRun.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace {

using namespace integrationtest;
using testsupport::readFile;
using testsupport::ScriptedServer;
using testsupport::Step;
using vantik::Object;
namespace step = testsupport::step;

constexpr std::size_t Length = std::size_t{64} << 20;
constexpr long AllowedKiB = 48 * 1024; // far less than the content, and than what sanitizers add to it

class FaultMemory : public FaultFixture {
protected:
    // As many zeros, a thousandth of the size on the wire.
    std::string bomb() {
        PeerProcess gzip({"sh", "-c", "head -c " + std::to_string(Length) + " /dev/zero | gzip -9 > bomb; touch done"},
                         folder().file("log"), {.Folder = folder().path()});
        gzip.awaitCondition([&] { return std::filesystem::exists(folder().file("done")); }, "compressed");
        return readFile(folder().file("bomb"));
    }

    static std::string answer(const std::string& content) {
        return "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " + std::to_string(content.size()) +
               "\r\n\r\n" + content;
    }

    // Of Length zeros.
    static std::string expectedDigest() {
        const std::string piece(1 << 20, '\0');
        Digest digest;
        for (std::size_t done = 0; done < Length; done += piece.size()) {
            digest.add(piece);
        }
        return digest.hex();
    }
};

TEST_F(FaultMemory, CompressedThousandfoldIsReceivedInPieces) {
    const std::string content = bomb();
    EXPECT_LT(content.size() * 900, Length);
    ScriptedServer& server = serve({step::expectHead(), step::send(answer(content)), step::close()});
    const Object connection = open(server.url("/"));
    const Digest received = receiveDigest(connection);
    EXPECT_EQ(received.size(), Length);
    EXPECT_EQ(received.hex(), expectedDigest());
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    expectScopeUsable(connection);
}

// What has arrived at once is decoded at once; the whole is never held. So the next piece comes when most of the last
// one has been passed on.
TEST_F(FaultMemory, CommandLineHoldsOnlyWhatHasArrived) {
    constexpr std::size_t pieceSize = 4096;
    constexpr std::size_t onTheWay = std::size_t{4} << 20; // in the decoder and in the pipe
    const std::string whole = answer(bomb());
    std::vector<Step> script = {step::expectHead()};
    for (std::size_t start = 0; start < whole.size(); start += pieceSize) {
        script.push_back(step::await(std::to_string(start)));
        script.push_back(step::send(whole.substr(start, pieceSize)));
    }
    script.push_back(step::close());
    ScriptedServer server(script);
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    testsupport::Program program({"get", server.url()}, {.OutDescriptor = ends[1]});
    ::close(ends[1]);
    Digest received;
    std::vector<char> buffer(1 << 16);
    std::size_t next = 0; // of the pieces, by its start
    long peak = 0;
    for (ssize_t count = 1; count > 0;) {
        while (next < whole.size() && received.size() + onTheWay >= next * (Length / whole.size())) {
            if (next + pieceSize >= whole.size()) {
                peak = program.peakKiB(); // while it waits for the last piece
            }
            server.raise(std::to_string(next));
            next += pieceSize;
        }
        count = ::read(ends[0], buffer.data(), buffer.size());
        received.add({buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
    }
    ::close(ends[0]);
    EXPECT_EQ(program.wait().Status, 0);
    EXPECT_EQ(received.size(), Length);
    EXPECT_EQ(received.hex(), expectedDigest());
    EXPECT_GT(peak, 0);
    EXPECT_LT(peak, AllowedKiB);
}

} // namespace
