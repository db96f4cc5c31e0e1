// Content that does not fit into memory at once, from and to nginx.
#include "tests/integration/nginx/RoadFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using namespace integrationtest;
using testsupport::Outcome;
using testsupport::run;
using testsupport::writeGenerated;
using vantik::Object;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;
constexpr std::uint64_t kSomeMiB = std::uint64_t{64} << 20;

class LargeContent : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(LargeContent, OfOneGiBIsReceivedPieceByPiece) {
    const std::string wanted = writeGenerated(nginx().documentFile("large"), kGiB);
    const Object connection = openOn(GetParam(), "/files/large");
    const Digest received = receiveDigest(connection);
    EXPECT_EQ(received.size(), kGiB);
    EXPECT_EQ(received.hex(), wanted);
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(connection.call("getResponseField", {"Content-Length"}).text(), std::to_string(kGiB));
    EXPECT_TRUE(warnings().empty());
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, LargeContent, ::testing::Values(Road::Plain, Road::NghttpxHttp2),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

class LargeContentCommand : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_F(LargeContentCommand, OfOneGiBIsSaved) {
    const std::string wanted = writeGenerated(nginx().documentFile("large"), kGiB);
    const Outcome outcome = run(
        {"save", "--ca-file", certificateFileOn(Road::Tls), urlOn(Road::Tls, "/files/large"), folder().file("saved")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err, "");
    EXPECT_EQ(std::filesystem::file_size(folder().file("saved")), kGiB);
    EXPECT_EQ(digestOfFile(folder().file("saved")), wanted);
}

TEST_P(LargeContentCommand, GoesThereAndBack) {
    const std::string wanted = writeGenerated(folder().file("large"), kSomeMiB);
    const std::string trusted = certificateFileOn(GetParam());
    const Outcome sent = run({"send", "-i", "--ca-file", trusted, "-T", folder().file("large"),
                              urlOn(GetParam(), "/put/large"), "--chunked"});
    EXPECT_EQ(sent.Status, 0) << sent.Err;
    EXPECT_EQ(sent.Out.find(speaksHttp2(GetParam()) ? "HTTP/2 201" : "HTTP/1.1 201 Created"), 0U) << sent.Out;
    EXPECT_EQ(sent.Err, "");
    EXPECT_EQ(digestOfFile(nginx().storedFile("large")), wanted);

    std::filesystem::rename(nginx().storedFile("large"), nginx().documentFile("large"));
    const Outcome saved =
        run({"save", "--ca-file", trusted, urlOn(GetParam(), "/files/large"), folder().file("saved")});
    EXPECT_EQ(saved.Status, 0) << saved.Err;
    EXPECT_EQ(saved.Err, "");
    EXPECT_EQ(digestOfFile(folder().file("saved")), wanted);

    const Outcome got =
        run({"get", "-i", "--ca-file", trusted, "-H", "Range: bytes=-1000000", urlOn(GetParam(), "/files/large")});
    EXPECT_EQ(got.Status, 0) << got.Err;
    EXPECT_EQ(got.Out.find(speaksHttp2(GetParam()) ? "HTTP/2 206" : "HTTP/1.1 206 Partial Content"), 0U);
    ASSERT_GT(got.Out.size(), 1'000'000U);
    EXPECT_EQ(digestOf(std::string_view(got.Out).substr(got.Out.size() - 1'000'000)),
              digestOf(testsupport::readFile(folder().file("saved")).substr(kSomeMiB - 1'000'000)));
}

INSTANTIATE_TEST_SUITE_P(Roads, LargeContentCommand, ::testing::ValuesIn(kAllRoads),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

} // namespace
