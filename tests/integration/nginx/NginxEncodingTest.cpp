// Compressed content from nginx: compressed by nginx on the way, or compressed already when nginx got it.
#include "tests/integration/nginx/NginxFixture.h"

namespace {

using namespace integrationtest;

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

class NginxEncoding : public NginxFixture {
protected:
    // Said to be compressed, whatever the file holds.
    Object openNamed(const std::string& format, const std::string& bytes, bool decode = true) {
        writeFile(nginx().documentFile("content"), bytes);
        Object connection = openPath("/named-" + format + "/content");
        connection.set("Decode", decode);
        return connection;
    }
};

TEST_P(NginxEncoding, IsUndoneUnlessDecodingIsOff) {
    const std::string zstd(kZstdBytes, kZstdBytes + sizeof kZstdBytes);
    for (const bool decode : {true, false}) {
        const Object connection = openNamed("zstd", zstd, decode);
        EXPECT_EQ(receiveBytes(connection), decode ? kPlainText : zstd);
        EXPECT_EQ(connection.get("ContentEncoding").text(), "zstd");
        EXPECT_EQ(status(connection), 200);
        EXPECT_EQ(field(connection, "Content-Length"), std::to_string(zstd.size())) << "the length on the wire";
        expectUsable(connection);
    }
}

TEST_P(NginxEncoding, ThatTheContentDoesNotHaveFails) {
    for (const std::string format : {"gzip", "br", "zstd"}) {
        const Object connection = openNamed(format, kPlainText);
        const std::string failure = describe(failureOf([&] { receiveBytes(connection); }));
        EXPECT_EQ(failure.find("VANTIK:webservices:DecodingError(" + format + ", "), 0U) << failure;
        expectUsable(connection);
    }
}

TEST_P(NginxEncoding, ThatNobodyKnowsFailsUnlessDecodingIsOff) {
    const Object connection = openNamed("unknown", "some content");
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:DecodingError(unknown, Unrecognized content encoding type. libcurl understands "
              "deflate, gzip, br, zstd content encodings.)");
    expectUsable(connection);
    const Object undecoded = openNamed("unknown", "some content", false);
    EXPECT_EQ(receiveBytes(undecoded), "some content");
    expectUsable(undecoded);
}

// Large enough for several blocks of the compressor and several pieces on the way.
TEST_P(NginxEncoding, OfTheServerIsAskedForByAField) {
    ASSERT_TRUE(nginx().knowsBrotli())
        << "nginx's Brotli module is not installed; scripts/deps test installs what the tests need";
    const std::string content = repeated(kPlainText + generated(500), 300);
    for (const auto& [format, path] : {std::pair{"gzip", "/gzip/content"}, {"br", "/brotli/content"}}) {
        SCOPED_TRACE(format);
        writeFile(nginx().documentFile("content"), content);
        const Object unasked = openPath(path);
        EXPECT_EQ(digestOf(receiveBytes(unasked)), digestOf(content));
        EXPECT_EQ(unasked.get("ContentEncoding").text(), "");
        unasked.call("closeConnection");

        const std::string wanted = std::string("Accept-Encoding: ") + format;
        const Object asked = openPath(path, {wanted});
        EXPECT_EQ(digestOf(receiveBytes(asked)), digestOf(content));
        EXPECT_EQ(asked.get("ContentEncoding").text(), format);
        asked.call("closeConnection");

        const Object undecoded = openPath(path, {wanted});
        undecoded.set("Decode", false);
        const std::string compressed = receiveBytes(undecoded);
        EXPECT_LT(compressed.size(), content.size() / 2);
        EXPECT_EQ(undecoded.get("ContentEncoding").text(), format);
        undecoded.call("closeConnection");

        const Object again = openNamed(format, compressed);
        EXPECT_EQ(digestOf(receiveBytes(again)), digestOf(content));
        expectUsable(again);
    }
}

INSTANTIATE_TEST_SUITE_P(Over, NginxEncoding, kBothProtocols, kProtocolName);

} // namespace
