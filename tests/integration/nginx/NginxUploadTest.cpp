// Uploads that nginx stores or refuses: from memory and from a provider, in every framing.
#include "tests/integration/nginx/NginxFixture.h"

#include <filesystem>

namespace {

using namespace integrationtest;

class NginxUpload : public NginxFixture {
protected:
    Object openUpload(const std::string& path = "/put/stored") {
        Object connection = openPath(path);
        connection.set("RequestMethod", "PUT");
        return connection;
    }

    const std::string Stored = nginx().storedFile("stored");
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
        std::filesystem::remove(Stored);
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
        expectStatusLine(connection, "201", "Created");
        EXPECT_EQ(field(connection, "Location").find("/put/stored"), 0U);
        EXPECT_EQ(provider->Starts, row.Piece == 0 ? 0 : 1);
        EXPECT_EQ(digestOfFile(Stored), digestOf(content));
        connection.call("closeConnection");

        const Object next = openUpload(); // of one byte, which takes its place
        next.set("Payload", Array::bytes(std::string_view("1")));
        EXPECT_EQ(receiveBytes(next), "");
        expectStatusLine(next, "204", "No Content");
        EXPECT_EQ(readFile(Stored), "1");
        expectUsable(next);
    }
}

// nginx answers as soon as it knows that there is more than it takes, from the length or on the way, and stops reading.
TEST_P(NginxUpload, ThatIsTooLargeEndsWithTheRefusal) {
    constexpr int enough = 100'000;
    for (const auto& [name, value] : {std::pair{"Content-Length", "1638400000"}, {"Expect", ""}}) {
        SCOPED_TRACE(name);
        const auto provider = makeScriptedProvider(host());
        provider->OnRead = [](int call, std::uint64_t wanted) {
            return Array::bytes(std::string_view(std::string(call > enough ? 0 : wanted, 'x')));
        };
        const Object connection = openUpload("/small/stored");
        std::filesystem::remove(Stored);
        connection.set("Provider", provider);
        connection.call("setRequestProperty", {name, value});
        EXPECT_NE(receiveBytes(connection).find("413 Request Entity Too Large"), std::string::npos);
        expectStatusLine(connection, "413", "Request Entity Too Large");
        EXPECT_LT(provider->Wanted.size(), static_cast<std::size_t>(enough)) << "it was sent on and on";
        EXPECT_FALSE(std::filesystem::exists(Stored));
        expectUsable(connection);
    }
}

TEST_P(NginxUpload, ToWhereNoneIsTakenIsAnswered) {
    writeFile(nginx().documentFile("content"), "content");
    const Object connection = openUpload("/files/content");
    connection.set("Payload", Array::bytes(std::string_view("new")));
    EXPECT_NE(receiveBytes(connection).find("405 Not Allowed"), std::string::npos);
    EXPECT_EQ(status(connection), 405);
    EXPECT_EQ(readFile(nginx().documentFile("content")), "content");
    expectUsable(connection);
}

TEST_P(NginxUpload, LargeFileOfTheCommandLineComesBackWhole) {
    const std::string wanted = writeGenerated(folder().file("large"), std::uint64_t{64} << 20);
    const std::string trusted = nginx().certificateFile();
    std::filesystem::remove(Stored);
    const Outcome sent =
        run({"send", "-i", "--ca-file", trusted, "-T", folder().file("large"), urlOf("/put/stored"), "--chunked"});
    EXPECT_EQ(sent.Status, 0);
    EXPECT_EQ(sent.Out.find(isHttp2() ? "HTTP/2 201" : "HTTP/1.1 201 Created"), 0U) << sent.Out;
    EXPECT_EQ(sent.Err, "");
    EXPECT_EQ(digestOfFile(Stored), wanted);

    std::filesystem::rename(Stored, nginx().documentFile("large"));
    expectGot(run({"save", "--ca-file", trusted, urlOf("/files/large"), folder().file("saved")}), "");
    EXPECT_EQ(digestOfFile(folder().file("saved")), wanted);
}

INSTANTIATE_TEST_SUITE_P(Over, NginxUpload, kBothProtocols, kProtocolName);

} // namespace
