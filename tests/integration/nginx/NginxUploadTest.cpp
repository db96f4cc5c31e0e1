// Uploads that nginx stores or refuses: from memory and from a provider, in every framing.
#include "tests/integration/nginx/RoadFixture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::makeScriptedProvider;
using testsupport::resultTexts;
using vantik::Array;
using vantik::Object;

class NginxUpload : public RoadFixture, public ::testing::WithParamInterface<Road> {
protected:
    Object openUpload(const std::string& path = "/put/stored") {
        Object connection = openOn(GetParam(), path);
        connection.set("RequestMethod", "PUT");
        return connection;
    }
};

TEST_P(NginxUpload, IsStoredHoweverItIsFramed) {
    struct Row {
        std::size_t Size;
        std::uint64_t Piece; // of a provider; 0: from memory
        bool Chunked;
        bool ExpectOff;
    };
    for (const Row& row :
         {Row{1, 0, true, false}, Row{1, 0, false, false}, Row{2'500'000, 0, true, false},
          Row{2'500'000, 0, false, true}, Row{5'000, 1, true, false}, Row{2'500'000, 1000, false, false},
          Row{2'500'000, 16384, true, true}, Row{2'500'000, 100'000, false, true}}) {
        SCOPED_TRACE(std::to_string(row.Size) + " bytes by " + std::to_string(row.Piece) +
                     (row.Chunked ? " in chunks" : " of a known length") + (row.ExpectOff ? " without Expect" : ""));
        const std::string content = generated(row.Size);
        std::filesystem::remove(nginx().storedFile("stored"));
        const Object connection = openUpload();
        const auto provider = makeScriptedProvider(host(), content);
        if (row.Piece == 0) { // the library announces the length of what it holds, unless told not to
            connection.set("Payload", Array::bytes(std::string_view(content)));
            connection.set("Chunked", row.Chunked);
        } else {
            connection.set("Provider", provider);
            connection.set("ProviderBufferSize", row.Piece);
            if (!row.Chunked) {
                connection.call("setRequestProperty", {"Content-Length", std::to_string(row.Size)});
            }
        }
        if (row.ExpectOff) {
            connection.call("setRequestProperty", {"Expect", ""});
        }
        EXPECT_EQ(receiveBytes(connection), "");
        EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), statusLineOn(GetParam(), "201", "Created"));
        EXPECT_EQ(fieldOf(connection, "Location").find("/put/stored"), 0U);
        EXPECT_EQ(provider->Starts, row.Piece == 0 ? 0 : 1);
        EXPECT_EQ(digestOfFile(nginx().storedFile("stored")), digestOf(content));
        connection.call("closeConnection");

        const Object next = openUpload(); // of one byte, which takes its place
        next.set("Payload", Array::bytes(std::string_view("1")));
        EXPECT_EQ(receiveBytes(next), "");
        EXPECT_EQ(resultTexts(next, "getStatusLine", 3), statusLineOn(GetParam(), "204", "No Content"));
        EXPECT_EQ(testsupport::readFile(nginx().storedFile("stored")), "1");
        expectRoadUsable(GetParam(), next);
    }
}

// nginx answers as soon as it knows that it is more than it takes, by the length or on the way, and reads no further.
TEST_P(NginxUpload, ThatIsTooLargeEndsWithTheRefusal) {
    constexpr int enough = 100'000;
    for (const auto& [field, value] : {std::pair{"Content-Length", "1638400000"}, {"Expect", ""}}) {
        SCOPED_TRACE(field);
        const auto provider = makeScriptedProvider(host());
        provider->OnRead = [](int call, std::uint64_t wanted) {
            return Array::bytes(std::string_view(std::string(call > enough ? 0 : wanted, 'x')));
        };
        const Object connection = openUpload("/small/stored");
        std::filesystem::remove(nginx().storedFile("stored"));
        connection.set("Provider", provider);
        connection.call("setRequestProperty", {field, value});
        EXPECT_NE(receiveBytes(connection).find("413 Request Entity Too Large"), std::string::npos);
        EXPECT_EQ(resultTexts(connection, "getStatusLine", 3),
                  statusLineOn(GetParam(), "413", "Request Entity Too Large"));
        EXPECT_LT(provider->Wanted.size(), static_cast<std::size_t>(enough)) << "it was sent on and on";
        EXPECT_FALSE(std::filesystem::exists(nginx().storedFile("stored")));
        expectRoadUsable(GetParam(), connection);
    }
}

TEST_P(NginxUpload, ToWhereThereIsNoneIsAnAnswer) {
    testsupport::writeFile(nginx().documentFile("content"), "content");
    const Object connection = openUpload("/files/content");
    connection.set("Payload", Array::bytes(std::string_view("new")));
    EXPECT_NE(receiveBytes(connection).find("405 Not Allowed"), std::string::npos);
    EXPECT_EQ(connection.get("ResponseCode").number(), 405.0);
    EXPECT_EQ(testsupport::readFile(nginx().documentFile("content")), "content");
    expectRoadUsable(GetParam(), connection);
}

INSTANTIATE_TEST_SUITE_P(Roads, NginxUpload, ::testing::ValuesIn(kAllRoads), kRoadName);

} // namespace
