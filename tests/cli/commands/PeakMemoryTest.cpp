// Content is never held whole, in either direction: what grows to much in memory, from little on the wire or from a
// file, does not make the program grow.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/server/Gzip.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace clitest;

struct Peak {
    Outcome Result;
    long KiB;
    std::size_t Passed; // bytes on standard output
};

class PeakMemory : public ProgramFixture {
protected:
    static constexpr std::size_t kMuch = std::size_t{160} << 20;
    static constexpr long kAllowedKiB = 64 * 1024;

    // A run with standard output into a pipe that somebody reads.
    Peak measured(const Script& script, const Words& words) const {
        const ScriptedServer server(script);
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        Program program(
            Words{file("peak"), programFile()} + withUrl(words, server),
            {.Folder = Folder.path(), .Executable = builtFile("bin/netrove_test_peak"), .OutDescriptor = ends[1]});
        close(ends[1]);
        std::size_t passed = 0;
        std::vector<char> buffer(1 << 16);
        for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
            passed += static_cast<std::size_t>(count);
        }
        close(ends[0]);
        Outcome outcome = program.wait();
        return {std::move(outcome), std::stol(readFile(file("peak"))), passed};
    }
    Peak peakOf(const Script& script, const Words& words) const {
        const Peak peak = measured(script, words);
        EXPECT_LT(peak.KiB, allowed());
        return peak;
    }
    Peak peakOf(const std::string& answer, const Words& words) const {
        return peakOf(Script{step::expectHead(), step::send(answer), step::close()}, words);
    }
    // A sanitizer takes memory of its own, and the program as such does.
    long allowed() const {
        return isSanitized() ? measured(answering(response("x")), {"get", "URL"}).KiB + kAllowedKiB : kAllowedKiB;
    }
};

TEST_F(PeakMemory, ContentIsPassedOnAsItGrows) {
    const std::string answer = response(gzippedZeros(kMuch), {"Content-Encoding: gzip"});
    EXPECT_EQ(peakOf(answer, {"save", "URL", "zeros"}).Result.Status, 0);
    EXPECT_EQ(std::filesystem::file_size(file("zeros")), kMuch);
    const Peak got = peakOf(answer, {"get", "URL"});
    EXPECT_EQ(got.Result.Status, 0) << got.Result.Err;
    EXPECT_EQ(got.Passed, kMuch);
}

TEST_F(PeakMemory, AFileIsStreamedAsItIsRead) {
    writeFile(file("body"), "");
    std::filesystem::resize_file(file("body"), kMuch);
    const Script reading = {step::expectHead(), step::discard(kMuch), step::send(response("ok")), step::close()};
    EXPECT_THAT(peakOf(reading, {"send", "URL", "-T", "body"}).Result, ended(0));
}

TEST_F(PeakMemory, TwoLayersAreWholeOrAFailure) {
    const Peak got = peakOf(response(gzip(gzippedZeros(kMuch)), {"Content-Encoding: gzip, gzip"}), {"get", "URL"});
    EXPECT_EQ(got.Result.Status == 0, got.Passed == kMuch) << got.Result.Err;
}

TEST_F(PeakMemory, ContentForAnObjectEndsAtItsLimit) {
    EXPECT_THAT(
        peakOf(response(gzippedZeros(kMuch), {"Content-Encoding: gzip"}), {"send", "--format", "json", "URL"}).Result,
        ended(23, _, HasSubstr("NETROVE:cli:ContentTooLarge")));
}

TEST_F(PeakMemory, TrailersWithoutAnEndAreAFailure) {
    std::string trailers;
    while (trailers.size() < std::size_t{96} << 20) {
        trailers += "X-Trailer: " + std::string(10'000, 'x') + "\r\n";
    }
    const Script endless = answering(kOk + "Transfer-Encoding: chunked\r\n\r\n4\r\npage\r\n0\r\n" + trailers);
    EXPECT_NE(peakOf(endless, {"save", "URL", "page"}).Result.Status, 0);
    EXPECT_FALSE(std::filesystem::exists(file("page")));
}

} // namespace
