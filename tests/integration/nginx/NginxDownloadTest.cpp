// Static content from nginx, the same on each road to it.
#include "tests/integration/nginx/RoadFixture.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::makeScriptedConsumer;
using testsupport::resultTexts;
using testsupport::writeFile;
using vantik::Object;

using Texts = std::vector<std::string>;

std::string fieldOf(const Object& connection, const std::string& name) {
    const vantik::Array value = connection.call("getResponseField", {name});
    return value.empty() ? "" : value.text();
}

class NginxDownload : public RoadFixture, public ::testing::WithParamInterface<std::tuple<Road, std::size_t>> {};

TEST_P(NginxDownload, GivesTheBytesOfTheFile) {
    const auto [road, size] = GetParam();
    const std::string content = generated(size);
    writeFile(nginx().documentFile("content"), content);
    const Object connection = openOn(road, "/files/content");
    connection.set("RequestMethod", "GET");
    EXPECT_EQ(receiveBytes(connection), content);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(road, "200", "OK"));
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3),
              (Texts{"GET", "/files/content", speaksHttp2(road) ? "HTTP/2" : "HTTP/1.1"}));
    EXPECT_EQ(connection.get("ContentType").text(), "application/octet-stream");
    EXPECT_EQ(fieldOf(connection, "content-length"), std::to_string(size));
    EXPECT_EQ(fieldOf(connection, "Accept-Ranges"), "bytes");
    expectRoadUsable(road, connection);
}

TEST_P(NginxDownload, GivesAConsumerAndAFileTheSame) {
    const auto [road, size] = GetParam();
    const std::string content = generated(size);
    writeFile(nginx().documentFile("content"), content);
    const auto consumer = makeScriptedConsumer(host());
    const Object connection = openOn(road, "/files/content");
    connection.set("Consumer", consumer);
    connection.call("copyContentToFile", {folder().file("saved")});
    EXPECT_EQ(digestOfFile(folder().file("saved")), digestOf(content));
    EXPECT_EQ(digestOf(consumer->content()), digestOf(content));
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    expectRoadUsable(road, connection);
}

std::string sizeName(const ::testing::TestParamInfo<NginxDownload::ParamType>& info) {
    return std::string(nameOf(std::get<0>(info.param))) + "With" + std::to_string(std::get<1>(info.param)) + "Bytes";
}

INSTANTIATE_TEST_SUITE_P(Rows, NginxDownload,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads),
                                            ::testing::Values(0U, 1U, 200U, 16384U, 3'000'000U)),
                         sizeName);

struct RangeRow {
    const char* Name;
    const char* Range;
    const char* Status;
    const char* Reason;
    const char* ContentRange;
    const char* Content; // of digits; null: what the server says about it
};

void PrintTo(const RangeRow& row, std::ostream* stream) { // for GoogleTest
    *stream << row.Name;
}

const RangeRow kRangeRows[] = {
    {"TheFirst", "bytes=0-4", "206", "Partial Content", "bytes 0-4/20", "01234"},
    {"InTheMiddle", "bytes=8-11", "206", "Partial Content", "bytes 8-11/20", "8901"},
    {"FromAPlaceOn", "bytes=17-", "206", "Partial Content", "bytes 17-19/20", "789"},
    {"TheLast", "bytes=-2", "206", "Partial Content", "bytes 18-19/20", "89"},
    {"ToBeyondTheEnd", "bytes=15-1000", "206", "Partial Content", "bytes 15-19/20", "56789"},
    {"BehindTheEnd", "bytes=20-", "416", "Requested Range Not Satisfiable", "bytes */20", nullptr},
    {"OfAnotherUnit", "lines=0-4", "200", "OK", "", "01234567890123456789"},
};

class NginxRange : public RoadFixture, public ::testing::WithParamInterface<std::tuple<Road, RangeRow>> {};

TEST_P(NginxRange, GivesThePart) {
    const auto& [road, row] = GetParam();
    writeFile(nginx().documentFile("digits"), "01234567890123456789");
    const Object connection = openOn(road, "/files/digits", {std::string("Range: ") + row.Range});
    const std::string received = receiveBytes(connection);
    if (row.Content != nullptr) {
        EXPECT_EQ(received, row.Content);
    } else {
        EXPECT_NE(received.find(row.Reason), std::string::npos) << received;
    }
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(road, row.Status, row.Reason));
    EXPECT_EQ(fieldOf(connection, "Content-Range"), row.ContentRange);
    expectRoadUsable(road, connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, NginxRange,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads), ::testing::ValuesIn(kRangeRows)),
                         [](const auto& info) {
                             return std::string(nameOf(std::get<0>(info.param))) + std::get<1>(info.param).Name;
                         });

class NginxAnswer : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(NginxAnswer, SeveralRangesComeAsOneContentOfParts) {
    writeFile(nginx().documentFile("digits"), "01234567890123456789");
    const Object connection = openOn(GetParam(), "/files/digits", {"Range: bytes=0-1,18-19"});
    const std::string received = receiveBytes(connection);
    EXPECT_EQ(connection.get("ResponseCode").number(), 206.0);
    EXPECT_EQ(connection.get("ContentType").text().find("multipart/byteranges; boundary="), 0U);
    EXPECT_NE(received.find("Content-Range: bytes 0-1/20\r\n\r\n01\r\n"), std::string::npos) << received;
    EXPECT_NE(received.find("Content-Range: bytes 18-19/20\r\n\r\n89\r\n"), std::string::npos) << received;
    expectRoadUsable(GetParam(), connection);
}

TEST_P(NginxAnswer, UnchangedContentIsNotSentAgain) {
    writeFile(nginx().documentFile("content"), "content");
    const Object first = openOn(GetParam(), "/files/content");
    EXPECT_EQ(receiveBytes(first), "content");
    const std::string tag = fieldOf(first, "ETag");
    EXPECT_NE(tag, "");
    first.call("closeConnection");
    const Object second = openOn(GetParam(), "/files/content", {"If-None-Match: " + tag});
    EXPECT_EQ(receiveBytes(second), "");
    EXPECT_EQ(resultTexts(second, "getStatusLine", 3), statusLineOn(GetParam(), "304", "Not Modified"));
    expectRoadUsable(GetParam(), second);
}

TEST_P(NginxAnswer, HeadHasTheLengthAndNoContent) {
    writeFile(nginx().documentFile("content"), generated(100'000));
    const Object connection = openOn(GetParam(), "/files/content");
    connection.set("RequestMethod", "HEAD");
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(GetParam(), "200", "OK"));
    EXPECT_EQ(fieldOf(connection, "Content-Length"), "100000");
    expectRoadUsable(GetParam(), connection);
}

TEST_P(NginxAnswer, WithoutContentIsComplete) {
    const Object connection = openOn(GetParam(), "/nothing");
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(GetParam(), "204", "No Content"));
    expectRoadUsable(GetParam(), connection);
}

TEST_P(NginxAnswer, MissingFileIsAnAnswerToo) {
    const Object connection = openOn(GetParam(), "/files/missing");
    EXPECT_NE(receiveBytes(connection).find("404 Not Found"), std::string::npos);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(GetParam(), "404", "Not Found"));
    EXPECT_EQ(connection.get("ContentType").text(), "text/html");
    expectRoadUsable(GetParam(), connection);
}

TEST_P(NginxAnswer, MissingFileFailsInTheOlderMode) {
    const Object connection = makeAdapter(false);
    const std::string url = urlOn(GetParam(), "/files/missing");
    connection.set("URL", url);
    connection.set("CertificateFilename", certificateFileOn(GetParam()));
    connection.call("openConnection");
    const std::string reason = speaksHttp2(GetParam()) ? "" : "Not Found";
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:StatusError(404, " + reason + ", " + url + ")");
    expectRoadUsable(GetParam(), connection);
}

TEST_P(NginxAnswer, ComesOnOneConnectionUntilAllAreClosed) {
    const auto number = [this] {
        const Object connection = openOn(GetParam(), "/connection");
        std::string received = receiveBytes(connection);
        connection.call("closeConnection");
        return received;
    };
    const std::string first = number();
    EXPECT_NE(first, "");
    EXPECT_EQ(number(), first);
    makeAdapter().call("closeAllConnections");
    if (GetParam() != Road::NghttpxHttp2) { // that one keeps its own connection to nginx
        EXPECT_NE(number(), first);
    }
    expectScopeUsable();
}

TEST_P(NginxAnswer, NamesWithBlanksAndOtherLettersAreFound) {
    writeFile(nginx().documentFile("fr\u00FCh \u4E2D 100%.txt"), "found");
    const Object connection = openOn(GetParam(), "/files/fr\u00FCh%20\u4E2D%20100%25.txt?a=\u00E9");
    EXPECT_EQ(receiveBytes(connection), "found");
    EXPECT_EQ(connection.get("ContentType").text(), "text/plain");
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3)[1], "/files/fr%C3%BCh%20%E4%B8%AD%20100%25.txt?a=%C3%A9");
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxAnswer, ::testing::ValuesIn(kAllRoads),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

class NginxUnderTls : public RoadFixture, public ::testing::WithParamInterface<Road> {};

TEST_P(NginxUnderTls, IsRefusedWithoutItsAuthority) {
    const std::string url = urlOn(GetParam(), "/files/content");
    const Object connection = makeAdapter();
    connection.set("URL", url);
    connection.set("CertificateFilename", "default");
    connection.call("openConnection");
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:SSLConnectionSystemFailure(" + url +
                  ", SSL certificate problem: unable to get local issuer certificate)");
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxUnderTls, ::testing::Values(Road::Tls, Road::NginxHttp2, Road::NghttpxHttp2),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

} // namespace
