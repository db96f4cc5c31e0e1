// Compressed content from nginx: compressed by itself on the way, and given to it compressed.
#include "tests/integration/nginx/RoadFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::writeFile;
using vantik::Object;

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int count = 0; count < times; ++count) {
        all += text;
    }
    return all;
}

const std::string kPlainText = repeated("the quick brown fox jumps over the lazy dog; ", 64);

// PlainText as the compressors of the formats give it.
const unsigned char kGzipBytes[] = {
    0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0xed, 0xca, 0xdb, 0x15, 0x40, 0x30, 0x14,
    0x05, 0xd1, 0x56, 0x4e, 0x1f, 0xaa, 0x21, 0x82, 0x78, 0x5d, 0x22, 0xf1, 0xaa, 0x9e, 0xa5, 0x0d, 0xf3,
    0x39, 0x6b, 0x76, 0xea, 0xbc, 0xd6, 0x1c, 0xdc, 0xa0, 0x2a, 0xda, 0x31, 0xab, 0xb1, 0x53, 0x7d, 0x9e,
    0x96, 0x4d, 0xb6, 0xfb, 0xa8, 0xf4, 0xee, 0xb1, 0xbc, 0x2f, 0xd5, 0xd6, 0x16, 0x5f, 0x81, 0xc1, 0x60,
    0x30, 0x18, 0x0c, 0x06, 0x83, 0xc1, 0x3f, 0xc6, 0x0f, 0xb4, 0x78, 0x0e, 0x2d, 0x40, 0x0b, 0x00, 0x00};
const unsigned char kBrotliBytes[] = {0x1b, 0x3f, 0x0b, 0x88, 0x8c, 0x94, 0x6e, 0xe6, 0x22, 0xd0, 0x83, 0xa5, 0xba,
                                      0xd2, 0xdf, 0x2a, 0x14, 0x8d, 0x80, 0x7c, 0x43, 0x0b, 0x83, 0x0d, 0x38, 0x70,
                                      0x48, 0x20, 0x6f, 0x34, 0xb8, 0x41, 0xa7, 0x15, 0xce, 0x66, 0xc7, 0xe3, 0x44,
                                      0x85, 0xa5, 0x60, 0x23, 0x9c, 0x66, 0x01, 0x80, 0xea, 0x0f, 0x93, 0x02, 0x03};
const unsigned char kZstdBytes[] = {0x28, 0xb5, 0x2f, 0xfd, 0x64, 0x40, 0x0a, 0xb5, 0x01, 0x00, 0xd4, 0x02, 0x74, 0x68,
                                    0x65, 0x20, 0x71, 0x75, 0x69, 0x63, 0x6b, 0x20, 0x62, 0x72, 0x6f, 0x77, 0x6e, 0x20,
                                    0x66, 0x6f, 0x78, 0x20, 0x6a, 0x75, 0x6d, 0x70, 0x73, 0x20, 0x6f, 0x76, 0x65, 0x72,
                                    0x20, 0x74, 0x68, 0x65, 0x20, 0x6c, 0x61, 0x7a, 0x79, 0x20, 0x64, 0x6f, 0x67, 0x3b,
                                    0x20, 0x01, 0x00, 0x85, 0x18, 0xf4, 0x55, 0x19, 0xaf, 0x95, 0x79, 0x87};

template <std::size_t Size>
std::string textOf(const unsigned char (&bytes)[Size]) {
    return {bytes, bytes + Size};
}

struct Format {
    const char* Name; // in Content-Encoding
    std::string Bytes;
    const char* Folder = ""; // where nginx compresses with it; empty where it does not know the format
};

const Format kFormats[] = {
    {"gzip", textOf(kGzipBytes), "/gzip/"}, {"br", textOf(kBrotliBytes), "/brotli/"}, {"zstd", textOf(kZstdBytes)}};

void PrintTo(const Format& format, std::ostream* stream) { // for GoogleTest
    *stream << format.Name;
}

using Row = std::tuple<Road, Format>;

std::string rowName(const ::testing::TestParamInfo<Row>& info) {
    return std::string(nameOf(std::get<0>(info.param))) + "_" + std::get<1>(info.param).Name;
}

class NginxEncoding : public RoadFixture, public ::testing::WithParamInterface<Row> {
protected:
    std::string describedFailureOf(const std::string& name, const std::string& bytes) {
        const Road road = std::get<0>(GetParam());
        writeFile(nginx().documentFile("content"), bytes);
        const Object connection = openOn(road, "/named-" + name + "/content");
        const vantik::Message message = failureOf([&] { receiveBytes(connection); });
        expectRoadUsable(road, connection);
        return describe(message);
    }
};

TEST_P(NginxEncoding, IsTakenAwayWhereDecodingIsOn) {
    const auto& [road, format] = GetParam();
    writeFile(nginx().documentFile("content"), format.Bytes);
    const Object connection = openOn(road, std::string("/named-") + format.Name + "/content");
    EXPECT_EQ(receiveBytes(connection), kPlainText);
    EXPECT_EQ(connection.get("ContentEncoding").text(), format.Name);
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(connection.call("getResponseField", {"Content-Length"}).text(), std::to_string(format.Bytes.size()))
        << "the length is that of the wire";
    expectRoadUsable(road, connection);
}

TEST_P(NginxEncoding, StaysWhereDecodingIsOff) {
    const auto& [road, format] = GetParam();
    writeFile(nginx().documentFile("content"), format.Bytes);
    const Object connection = openOn(road, std::string("/named-") + format.Name + "/content");
    connection.set("Decode", false);
    EXPECT_EQ(receiveBytes(connection), format.Bytes);
    EXPECT_EQ(connection.get("ContentEncoding").text(), format.Name);
    expectRoadUsable(road, connection);
}

TEST_P(NginxEncoding, WithoutTheFormatInItFails) {
    const Format& format = std::get<1>(GetParam());
    const std::string failure = describedFailureOf(format.Name, kPlainText);
    EXPECT_EQ(failure.find(std::string("VANTIK:webservices:DecodingError(") + format.Name + ", "), 0U) << failure;
}

INSTANTIATE_TEST_SUITE_P(kFormats, NginxEncoding,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads), ::testing::ValuesIn(kFormats)), rowName);

// Large enough for several blocks of the compressor and several pieces on the way.
class NginxCompression : public RoadFixture, public ::testing::WithParamInterface<Row> {
protected:
    void SetUp() override {
        RoadFixture::SetUp();
        const bool brotli = std::get<1>(GetParam()).Name == std::string("br");
        ASSERT_TRUE(!brotli || nginx().knowsBrotli())
            << "nginx's Brotli module is not installed; scripts/deps test installs what the tests need";
    }

    const std::string Content = repeated(kPlainText + generated(500), 300);
};

TEST_P(NginxCompression, IsAskedForAndTakenAway) {
    const auto& [road, format] = GetParam();
    writeFile(nginx().documentFile("content"), Content);
    const Object connection =
        openOn(road, format.Folder + std::string("content"), {std::string("Accept-Encoding: ") + format.Name});
    EXPECT_EQ(digestOf(receiveBytes(connection)), digestOf(Content));
    EXPECT_EQ(connection.get("ContentEncoding").text(), format.Name);
    expectRoadUsable(road, connection);
}

TEST_P(NginxCompression, IsAskedForAndStaysWhereDecodingIsOff) {
    const auto& [road, format] = GetParam();
    writeFile(nginx().documentFile("content"), Content);
    const Object connection =
        openOn(road, format.Folder + std::string("content"), {std::string("Accept-Encoding: ") + format.Name});
    connection.set("Decode", false);
    const std::string received = receiveBytes(connection);
    EXPECT_LT(received.size(), Content.size() / 2);
    EXPECT_EQ(connection.get("ContentEncoding").text(), format.Name);
    connection.call("closeConnection");

    // What it was is what it becomes again.
    writeFile(nginx().documentFile("compressed"), received);
    const Object again = openOn(road, std::string("/named-") + format.Name + "/compressed");
    EXPECT_EQ(digestOf(receiveBytes(again)), digestOf(Content));
    expectRoadUsable(road, again);
}

TEST_P(NginxCompression, IsNotAskedForByItself) {
    const auto& [road, format] = GetParam();
    writeFile(nginx().documentFile("content"), Content);
    const Object connection = openOn(road, format.Folder + std::string("content"));
    EXPECT_EQ(digestOf(receiveBytes(connection)), digestOf(Content));
    EXPECT_EQ(connection.get("ContentEncoding").text(), "");
    expectRoadUsable(road, connection);
}

INSTANTIATE_TEST_SUITE_P(kFormats, NginxCompression,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads),
                                            ::testing::Values(kFormats[0], kFormats[1])),
                         rowName);

class NginxUnknownEncoding : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(NginxUnknownEncoding, FailsUnlessDecodingIsOff) {
    writeFile(nginx().documentFile("content"), "some content");
    const Object connection = openOn(GetParam(), "/named-unknown/content");
    const std::string failure = describe(failureOf([&] { receiveBytes(connection); }));
    EXPECT_EQ(failure, "VANTIK:webservices:DecodingError(unknown, Unrecognized content encoding type. libcurl "
                       "understands deflate, gzip, br, zstd content encodings.)");
    expectRoadUsable(GetParam(), connection);
    const Object second = openOn(GetParam(), "/named-unknown/content");
    second.set("Decode", false);
    EXPECT_EQ(receiveBytes(second), "some content");
    expectRoadUsable(GetParam(), second);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxUnknownEncoding, ::testing::ValuesIn(kAllRoads),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

TEST(NginxWithoutBrotli, ServesEverythingElse) {
    const integrationtest::Nginx nginx("/nonexistent");
    EXPECT_FALSE(nginx.knowsBrotli());
    writeFile(nginx.documentFile("content"), kPlainText);
    const testsupport::Outcome outcome =
        testsupport::run({"get", "-H", "Accept-Encoding: br", nginx.url("/brotli/content")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, kPlainText);
}

} // namespace
