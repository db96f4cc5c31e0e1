// Little on the wire that grows to much in memory, where nobody has set a bound.
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/Gzip.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace testsupport;

constexpr std::size_t kMuch = std::size_t{160} << 20;
constexpr long kAllowedKiB = 64 * 1024;

struct Peak {
    Outcome Result;
    long KiB;
    std::size_t Passed = 0; // bytes on standard output
};

class BombMemory : public testing::Test {
protected:
    TemporaryFolder Folder;

    // The program with standard output into a pipe that somebody reads.
    Peak run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {Folder.file("peak"), programFile()});
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        Surroundings around;
        around.Folder = Folder.path();
        around.Executable = testsupport::builtFile("bin/netrove_test_peak");
        around.OutDescriptor = ends[1];
        Program program(std::move(arguments), around);
        close(ends[1]);
        std::size_t passed = 0;
        std::vector<char> buffer(1 << 16);
        for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
            passed += static_cast<std::size_t>(count);
        }
        close(ends[0]);
        Outcome outcome = program.wait();
        return {std::move(outcome), std::stol(readFile(Folder.file("peak"))), passed};
    }
    Peak ask(const std::string& answer, std::vector<std::string> words) const {
        const ScriptedServer server(Script{step::expectHead(), step::send(answer), step::close()});
        words.push_back(server.url());
        return run(std::move(words));
    }
    // A sanitizer takes memory of its own, and the program as such does.
    long allowed() const {
        return testsupport::isSanitized() ? ask(response("x"), {"get"}).KiB + kAllowedKiB : kAllowedKiB;
    }
};

TEST_F(BombMemory, OneLayerIsPassedOnAsItGrows) {
    const std::string answer = response(gzippedZeros(kMuch), {"Content-Encoding: gzip"});
    const Peak saved = ask(answer, {"get", "-o", Folder.file("zeros")});
    EXPECT_EQ(saved.Result.Status, 0) << saved.Result.Err;
    EXPECT_LT(saved.KiB, allowed());
    EXPECT_EQ(std::filesystem::file_size(Folder.file("zeros")), kMuch);
    const Peak got = ask(answer, {"get"});
    EXPECT_EQ(got.Result.Status, 0) << got.Result.Err;
    EXPECT_EQ(got.Passed, kMuch);
    EXPECT_LT(got.KiB, allowed());
}

TEST_F(BombMemory, TwoLayersAreWholeOrAFailure) {
    const std::string answer = response(gzip(gzippedZeros(kMuch)), {"Content-Encoding: gzip, gzip"});
    const Peak got = ask(answer, {"get"});
    EXPECT_EQ(got.Result.Status == 0, got.Passed == kMuch) << got.Result.Err;
    EXPECT_LT(got.KiB, allowed());
}

TEST_F(BombMemory, ContentForAnObjectEndsAtItsLimit) {
    const Peak got = ask(response(gzippedZeros(kMuch), {"Content-Encoding: gzip"}), {"send", "--json"});
    EXPECT_EQ(got.Result.Status, 23) << got.Result.Err;
    EXPECT_NE(got.Result.Err.find("NETROVE:cli:ContentTooLarge"), std::string::npos) << got.Result.Err;
    EXPECT_LT(got.KiB, allowed());
}

TEST_F(BombMemory, TrailersEndAtTheirLimit) {
    std::string trailers;
    while (trailers.size() < std::size_t{96} << 20) {
        trailers += "X-Trailer: " + std::string(10'000, 'x') + "\r\n";
    }
    const Peak got = ask("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\npage\r\n0\r\n" + trailers, {"get"});
    EXPECT_NE(got.Result.Status, 0);
    EXPECT_LT(got.KiB, allowed());
}

} // namespace
