// Content streamed in either direction is never held: the program's peak does not follow its length. The peak is read
// while the program waits for the very end, with everything else behind it.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace testsupport;

constexpr std::size_t kSmall = 100'000;
constexpr std::size_t kLarge = std::size_t{48} << 20;
constexpr long kAllowedKiB = 16 * 1024; // a third of the large content

class StreamMemory : public testing::Test {
protected:
    TemporaryFolder Folder;

    Surroundings around() const {
        Surroundings result;
        result.Folder = Folder.path();
        return result;
    }

    // All but the last byte, and that only when the test says so.
    static Script slowlyEnding(std::size_t length) {
        return {step::expectHead(),
                step::send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n"),
                step::send(std::string(length - 1, 'x')),
                step::signal("sent"),
                step::await("measured"),
                step::send("x"),
                step::awaitPeerEnd()};
    }

    static long finish(Program& program, ScriptedServer& server) {
        const long peak = program.peakKiB();
        server.raise("measured");
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        return peak;
    }

    long peakOfGet(std::size_t length) const {
        ScriptedServer server(slowlyEnding(length));
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        Surroundings piped = around();
        piped.OutDescriptor = ends[1];
        Program program({"get", server.url()}, piped);
        close(ends[1]);
        std::vector<char> buffer(1 << 16);
        for (std::size_t received = 0; received < length - 1;) {
            const ssize_t count = read(ends[0], buffer.data(), buffer.size());
            if (count <= 0) {
                ADD_FAILURE() << "the content ended after " << received << " bytes";
                break;
            }
            received += static_cast<std::size_t>(count);
        }
        const long peak = finish(program, server);
        close(ends[0]);
        return peak;
    }

    long peakOfSave(std::size_t length, const std::string& name) const {
        ScriptedServer server(slowlyEnding(length));
        Program program({"save", server.url(), name}, around());
        server.waitFor("sent"); // all but what the sockets hold
        return finish(program, server);
    }

    long peakOfUpload(std::size_t length) const {
        writeFile(Folder.file("body"), std::string(length, 'x'));
        ScriptedServer server({step::expectHead(), step::expectBody(length), step::signal("sent"),
                               step::await("measured"), step::send(response("ok")), step::awaitPeerEnd()});
        Program program({"send", server.url(), "-T", Folder.file("body")}, around());
        server.waitFor("sent");
        return finish(program, server);
    }
};

TEST_F(StreamMemory, GetDoesNotGrowWithTheContent) {
    EXPECT_LT(peakOfGet(kLarge), peakOfGet(kSmall) + kAllowedKiB);
}

TEST_F(StreamMemory, SaveDoesNotGrowWithTheContent) {
    EXPECT_LT(peakOfSave(kLarge, "large"), peakOfSave(kSmall, "small") + kAllowedKiB);
}

TEST_F(StreamMemory, AStreamedUploadDoesNotGrowWithTheContent) {
    EXPECT_LT(peakOfUpload(kLarge), peakOfUpload(kSmall) + kAllowedKiB);
}

} // namespace
