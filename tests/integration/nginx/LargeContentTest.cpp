// A large content to nginx and back, by the command line.
#include "tests/integration/nginx/RoadFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using namespace integrationtest;
using testsupport::Outcome;
using testsupport::run;

constexpr std::uint64_t kSomeMiB = std::uint64_t{64} << 20;

class LargeContentCommand : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(LargeContentCommand, GoesThereAndBack) {
    const bool http2 = GetParam() == Road::Http2;
    const std::string wanted = testsupport::writeGenerated(folder().file("large"), kSomeMiB);
    const std::string trusted = nginx().certificateFile();
    std::filesystem::remove(nginx().storedFile("large"));
    const Outcome sent = run({"send", "-i", "--ca-file", trusted, "-T", folder().file("large"),
                              urlOn(GetParam(), "/put/large"), "--chunked"});
    EXPECT_EQ(sent.Status, 0) << sent.Err;
    EXPECT_EQ(sent.Out.find(http2 ? "HTTP/2 201" : "HTTP/1.1 201 Created"), 0U) << sent.Out;
    EXPECT_EQ(sent.Err, "");
    EXPECT_EQ(digestOfFile(nginx().storedFile("large")), wanted);

    std::filesystem::rename(nginx().storedFile("large"), nginx().documentFile("large"));
    const Outcome saved =
        run({"save", "--ca-file", trusted, urlOn(GetParam(), "/files/large"), folder().file("saved")});
    EXPECT_EQ(saved.Status, 0) << saved.Err;
    EXPECT_EQ(saved.Err, "");
    EXPECT_EQ(digestOfFile(folder().file("saved")), wanted);
}

INSTANTIATE_TEST_SUITE_P(Roads, LargeContentCommand, ::testing::ValuesIn(kAllRoads), kRoadName);

} // namespace
