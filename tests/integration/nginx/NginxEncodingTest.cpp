// Compressed content from nginx: compressed by itself on the way, and given to it compressed.
#include "tests/integration/nginx/RoadFixture.h"

#include <gtest/gtest.h>

#include <string>

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

// The same, as the program of that name compresses it.
const unsigned char kZstdBytes[] = {0x28, 0xb5, 0x2f, 0xfd, 0x64, 0x40, 0x0a, 0xb5, 0x01, 0x00, 0xd4, 0x02, 0x74, 0x68,
                                    0x65, 0x20, 0x71, 0x75, 0x69, 0x63, 0x6b, 0x20, 0x62, 0x72, 0x6f, 0x77, 0x6e, 0x20,
                                    0x66, 0x6f, 0x78, 0x20, 0x6a, 0x75, 0x6d, 0x70, 0x73, 0x20, 0x6f, 0x76, 0x65, 0x72,
                                    0x20, 0x74, 0x68, 0x65, 0x20, 0x6c, 0x61, 0x7a, 0x79, 0x20, 0x64, 0x6f, 0x67, 0x3b,
                                    0x20, 0x01, 0x00, 0x85, 0x18, 0xf4, 0x55, 0x19, 0xaf, 0x95, 0x79, 0x87};

class NginxEncoding : public RoadFixture {
protected:
    // Says that it is compressed, whatever the file holds.
    Object openNamed(const std::string& format, const std::string& bytes) {
        writeFile(nginx().documentFile("content"), bytes);
        return openOn(Road::Plain, "/named-" + format + "/content");
    }
};

TEST_F(NginxEncoding, OfAFileIsTakenAwayUnlessDecodingIsOff) {
    const std::string zstd(kZstdBytes, kZstdBytes + sizeof kZstdBytes);
    const Object connection = openNamed("zstd", zstd);
    EXPECT_EQ(receiveBytes(connection), kPlainText);
    EXPECT_EQ(connection.get("ContentEncoding").text(), "zstd");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(fieldOf(connection, "Content-Length"), std::to_string(zstd.size())) << "the length is that of the wire";
    connection.call("closeConnection");
    const Object undecoded = openNamed("zstd", zstd);
    undecoded.set("Decode", false);
    EXPECT_EQ(receiveBytes(undecoded), zstd);
    EXPECT_EQ(undecoded.get("ContentEncoding").text(), "zstd");
    expectRoadUsable(Road::Plain, undecoded);
}

TEST_F(NginxEncoding, WithoutTheFormatInItFails) {
    for (const std::string format : {"gzip", "br", "zstd"}) {
        const Object connection = openNamed(format, kPlainText);
        const std::string failure = describe(failureOf([&] { receiveBytes(connection); }));
        EXPECT_EQ(failure.find("VANTIK:webservices:DecodingError(" + format + ", "), 0U) << failure;
        expectRoadUsable(Road::Plain, connection);
    }
}

TEST_F(NginxEncoding, ThatNobodyKnowsFailsUnlessDecodingIsOff) {
    const Object connection = openNamed("unknown", "some content");
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:DecodingError(unknown, Unrecognized content encoding type. libcurl understands "
              "deflate, gzip, br, zstd content encodings.)");
    expectRoadUsable(Road::Plain, connection);
    const Object second = openNamed("unknown", "some content");
    second.set("Decode", false);
    EXPECT_EQ(receiveBytes(second), "some content");
    expectRoadUsable(Road::Plain, second);
}

// Large enough for several blocks of the compressor and several pieces on the way.
class NginxCompression : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(NginxCompression, IsAskedForByAFieldAndTakenAwayUnlessDecodingIsOff) {
    ASSERT_TRUE(nginx().knowsBrotli())
        << "nginx's Brotli module is not installed; scripts/deps test installs what the tests need";
    const std::string content = repeated(kPlainText + generated(500), 300);
    writeFile(nginx().documentFile("content"), content);
    for (const auto& [format, path] : {std::pair{"gzip", "/gzip/content"}, {"br", "/brotli/content"}}) {
        SCOPED_TRACE(format);
        const Object unasked = openOn(GetParam(), path);
        EXPECT_EQ(digestOf(receiveBytes(unasked)), digestOf(content));
        EXPECT_EQ(unasked.get("ContentEncoding").text(), "");
        unasked.call("closeConnection");

        const std::string field = std::string("Accept-Encoding: ") + format;
        const Object asked = openOn(GetParam(), path, {field});
        EXPECT_EQ(digestOf(receiveBytes(asked)), digestOf(content));
        EXPECT_EQ(asked.get("ContentEncoding").text(), format);
        asked.call("closeConnection");

        const Object undecoded = openOn(GetParam(), path, {field});
        undecoded.set("Decode", false);
        const std::string received = receiveBytes(undecoded);
        EXPECT_LT(received.size(), content.size() / 2);
        EXPECT_EQ(undecoded.get("ContentEncoding").text(), format);
        undecoded.call("closeConnection");

        // What it was is what it becomes again.
        writeFile(nginx().documentFile("compressed"), received);
        const Object again = openOn(GetParam(), std::string("/named-") + format + "/compressed");
        EXPECT_EQ(digestOf(receiveBytes(again)), digestOf(content));
        expectRoadUsable(GetParam(), again);
    }
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxCompression, ::testing::ValuesIn(kAllRoads), kRoadName);

} // namespace
