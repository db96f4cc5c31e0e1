// Uploads that nginx stores: from memory and from a provider, in every framing.
#include "tests/integration/nginx/RoadFixture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::makeScriptedProvider;
using testsupport::resultTexts;
using testsupport::writeFile;
using vantik::Array;
using vantik::Object;

enum class Length { Told, Untold };
enum class Expectation { AsItComes, Off };

void PrintTo(Length length, std::ostream* stream) { // for GoogleTest
    *stream << (length == Length::Told ? "with its length" : "without its length");
}
void PrintTo(Expectation expectation, std::ostream* stream) { // for GoogleTest
    *stream << (expectation == Expectation::Off ? "Expect off" : "Expect as it comes");
}

std::string nameOfKind(Length length, Expectation expectation) {
    return std::string(length == Length::Told ? "WithLength" : "WithoutLength") +
           (expectation == Expectation::Off ? "WithoutExpect" : "");
}

class NginxUpload : public RoadFixture {
protected:
    Object openUpload(Road road, const std::string& path = "/put/stored") {
        Object connection = openOn(road, path);
        connection.set("RequestMethod", "PUT");
        return connection;
    }
    // libcurl 7.88 may lose an answer that ends its stream before the content has been ended, which under HTTP/2 is one
    // step behind the last byte. A server that knows the length can come first. nghttpx then resets the stream too; the
    // others wait for the end. False where that has happened.
    static bool receivesAnswer(const Object& connection, Road road, const std::string& answer) {
        try {
            EXPECT_NE(receiveBytes(connection).find(answer), std::string::npos);
            return true;
        } catch (const vantik::Failure& failure) {
            const std::string start = "VANTIK:webservices:CopyContentToDataStreamError(";
            const std::string text = describe(failure.message());
            EXPECT_TRUE(road == Road::NghttpxHttp2 &&
                        (text.starts_with(start + " (CURLE code 92), ") ||
                         text.starts_with(start + "Empty reply from server (CURLE code 52), ")))
                << text;
            return false;
        }
    }
    // Sends; the file has to hold the content then, and a further upload of one byte replaces it.
    void expectStored(Road road, const Object& connection, const std::string& content) {
        if (receivesAnswer(connection, road, "")) {
            EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(road, "201", "Created"));
            EXPECT_EQ(connection.call("getResponseField", {"Location"}).text().find("/put/stored"), 0U);
        }
        EXPECT_EQ(digestOfFile(nginx().storedFile("stored")), digestOf(content));
        connection.call("closeConnection");
        const Object next = openUpload(road);
        next.set("Payload", Array::bytes(std::string_view("1")));
        next.set("Chunked", true); // the server has to wait for the end
        EXPECT_EQ(receiveBytes(next), "");
        EXPECT_EQ(resultTexts(next, "getStatusLine", 3), statusLineOn(road, "204", "No Content"));
        EXPECT_EQ(testsupport::readFile(nginx().storedFile("stored")), "1");
        expectRoadUsable(road, next);
    }
};

class NginxProviderUpload : public NginxUpload,
                            public ::testing::WithParamInterface<std::tuple<Road, std::uint64_t, Length, Expectation>> {
};

TEST_P(NginxProviderUpload, IsStored) {
    const auto [road, piece, length, expectation] = GetParam();
    const std::string content = generated(piece == 1 ? 5'000 : 2'500'000);
    const auto provider = makeScriptedProvider(host(), content);
    std::filesystem::remove(nginx().storedFile("stored"));
    const Object connection = openUpload(road);
    connection.set("Provider", provider);
    connection.set("ProviderBufferSize", piece);
    if (length == Length::Told) {
        connection.call("setRequestProperty", {"Content-Length", std::to_string(content.size())});
    }
    if (expectation == Expectation::Off) {
        connection.call("setRequestProperty", {"Expect", ""});
    }
    expectStored(road, connection, content);
    EXPECT_EQ(provider->Starts, 1);
}

std::string providerName(const ::testing::TestParamInfo<NginxProviderUpload::ParamType>& info) {
    const auto [road, piece, length, expectation] = info.param;
    return std::string(nameOf(road)) + "By" + std::to_string(piece) + nameOfKind(length, expectation);
}

INSTANTIATE_TEST_SUITE_P(Rows, NginxProviderUpload,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads),
                                            ::testing::Values(1U, 1000U, 16384U, 100000U),
                                            ::testing::Values(Length::Told, Length::Untold),
                                            ::testing::Values(Expectation::AsItComes, Expectation::Off)),
                         providerName);

class NginxPayloadUpload : public NginxUpload,
                           public ::testing::WithParamInterface<std::tuple<Road, std::size_t, Length, Expectation>> {};

// Without "Chunked" the library tells the length of what it holds.
TEST_P(NginxPayloadUpload, IsStored) {
    const auto [road, size, length, expectation] = GetParam();
    const std::string content = generated(size);
    std::filesystem::remove(nginx().storedFile("stored"));
    const Object connection = openUpload(road);
    connection.set("Payload", Array::bytes(std::string_view(content)));
    connection.set("Chunked", length == Length::Untold);
    if (expectation == Expectation::Off) {
        connection.call("setRequestProperty", {"Expect", ""});
    }
    expectStored(road, connection, content);
}

std::string payloadName(const ::testing::TestParamInfo<NginxPayloadUpload::ParamType>& info) {
    const auto [road, size, length, expectation] = info.param;
    return std::string(nameOf(road)) + "Of" + std::to_string(size) + nameOfKind(length, expectation);
}

INSTANTIATE_TEST_SUITE_P(Rows, NginxPayloadUpload,
                         ::testing::Combine(::testing::ValuesIn(kAllRoads), ::testing::Values(1U, 16384U, 2'500'000U),
                                            ::testing::Values(Length::Told, Length::Untold),
                                            ::testing::Values(Expectation::AsItComes, Expectation::Off)),
                         payloadName);

class NginxRefusal : public NginxUpload, public ::testing::WithParamInterface<Road> {
protected:
    // More than anybody takes, for a place that takes little.
    void expectRefused(const std::string& field, const std::string& value) {
        constexpr int enough = 100'000;
        const auto provider = makeScriptedProvider(host());
        provider->OnRead = [](int call, std::uint64_t wanted) {
            return Array::bytes(std::string_view(std::string(call > enough ? 0 : wanted, 'x')));
        };
        const Object connection = openUpload(GetParam(), "/small/stored");
        connection.set("Provider", provider);
        connection.call("setRequestProperty", {field, value});
        if (receivesAnswer(connection, GetParam(), "413 Request Entity Too Large")) {
            EXPECT_EQ(resultTexts(connection, "getStatusLine", 3),
                      statusLineOn(GetParam(), "413", "Request Entity Too Large"));
        }
        EXPECT_LT(provider->Wanted.size(), static_cast<std::size_t>(enough)) << "it was sent on and on";
        EXPECT_FALSE(std::filesystem::exists(nginx().storedFile("stored")));
        expectRoadUsable(GetParam(), connection);
    }
};

// nginx answers as soon as it knows, and reads no further.
TEST_P(NginxRefusal, OfALengthEndsTheUpload) {
    expectRefused("Content-Length", "1638400000");
}

TEST_P(NginxRefusal, OfContentInItsMiddleEndsTheUpload) {
    expectRefused("Expect", "");
}

TEST_P(NginxRefusal, OfTheMethodIsAnAnswer) {
    writeFile(nginx().documentFile("content"), "content");
    const Object connection = openUpload(GetParam(), "/files/content");
    connection.set("Payload", Array::bytes(std::string_view("new")));
    if (receivesAnswer(connection, GetParam(), "405 Not Allowed")) {
        EXPECT_EQ(connection.get("ResponseCode").number(), 405.0);
    }
    EXPECT_EQ(testsupport::readFile(nginx().documentFile("content")), "content");
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxRefusal, ::testing::ValuesIn(kAllRoads),
                         [](const auto& info) { return std::string(nameOf(info.param)); });

} // namespace
