// Static content from nginx.
#include "tests/integration/nginx/NginxFixture.h"

namespace {

using namespace integrationtest;

class NginxDownload : public NginxFixture {};

TEST_P(NginxDownload, BytesConsumerAndFileGetWhatTheFileHolds) {
    for (const std::size_t size : {0U, 1U, 16384U, 3'000'000U}) {
        SCOPED_TRACE(size);
        const std::string content = generated(size);
        writeFile(nginx().documentFile("content"), content);
        const Object connection = openPath("/files/content");
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(digestOf(receiveBytes(connection)), digestOf(content));
        expectStatusLine(connection, "200", "OK");
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 3),
                  (Texts{"GET", "/files/content", isHttp2() ? "HTTP/2" : "HTTP/1.1"}));
        EXPECT_EQ(connection.get("ContentType").text(), "application/octet-stream");
        EXPECT_EQ(field(connection, "content-length"), std::to_string(size));
        EXPECT_EQ(field(connection, "Accept-Ranges"), "bytes");
        connection.call("closeConnection");

        const auto consumer = makeScriptedConsumer(host());
        const Object again = openPath("/files/content");
        again.set("Consumer", consumer);
        again.call("copyContentToFile", {folder().file("saved")});
        EXPECT_EQ(digestOfFile(folder().file("saved")), digestOf(content));
        EXPECT_EQ(digestOf(consumer->content()), digestOf(content));
        EXPECT_EQ(status(again), 200);
        expectUsable(again);
    }
}

TEST_P(NginxDownload, StatusAndContentAreThoseOfTheServer) {
    struct Row {
        const char* Path;
        const char* Method;
        Texts Fields;
        const char* Status;
        const char* Reason;
        const char* Length;  // as the server says it, where no page of its own follows
        const char* Content; // or the heading of that page
    };
    writeFile(nginx().documentFile("digits"), "01234567890123456789");
    for (const Row& row :
         {Row{"/files/digits", "HEAD", {}, "200", "OK", "20", ""},
          Row{"/files/digits", "GET", {"Range: bytes=8-11"}, "206", "Partial Content", "4", "8901"},
          Row{"/files/digits", "GET", {"Range: bytes=15-1000"}, "206", "Partial Content", "5", "56789"},
          Row{"/files/digits", "GET", {"Range: bytes=20-"}, "416", "Requested Range Not Satisfiable", "", "<h1>416"},
          Row{"/files/digits", "GET", {"If-None-Match: *"}, "304", "Not Modified", "", ""},
          Row{"/nothing", "GET", {}, "204", "No Content", "", ""},
          Row{"/files/missing", "GET", {}, "404", "Not Found", "", "<h1>404"}}) {
        SCOPED_TRACE(std::string(row.Path) + " " + row.Status);
        const Object connection = openPath(row.Path, row.Fields);
        connection.set("RequestMethod", row.Method);
        const std::string received = receiveBytes(connection);
        if (row.Content[0] == '<') {
            EXPECT_NE(received.find(row.Content), std::string::npos) << received;
            EXPECT_EQ(field(connection, "Content-Length"), std::to_string(received.size()));
        } else {
            EXPECT_EQ(received, row.Content);
            EXPECT_EQ(field(connection, "Content-Length"), row.Length);
        }
        expectStatusLine(connection, row.Status, row.Reason);
        expectUsable(connection);
    }
}

TEST_P(NginxDownload, MissingFileFailsInTheOlderMode) {
    const std::string url = urlOf("/files/missing");
    const Object connection = open(url, {.CertificateFile = nginx().certificateFile(), .OptionsMode = false});
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              std::string("VANTIK:webservices:StatusError(404, ") + (isHttp2() ? "" : "Not Found") + ", " + url + ")");
    expectUsable(connection);
}

TEST_P(NginxDownload, ComesOnOneConnectionUntilAllAreClosed) {
    const auto number = [this] {
        const Object connection = openPath("/connection");
        std::string received = receiveBytes(connection);
        connection.call("closeConnection");
        return received;
    };
    const std::string first = number();
    EXPECT_NE(first, "");
    EXPECT_EQ(number(), first);
    makeAdapter().call("closeAllConnections");
    EXPECT_NE(number(), first);
    expectScopeUsable();
}

TEST_P(NginxDownload, NamesWithBlanksAndOtherLettersAreFound) {
    writeFile(nginx().documentFile("fr\u00FCh \u4E2D 100%.txt"), "found");
    const Object connection = openPath("/files/fr\u00FCh%20\u4E2D%20100%25.txt?a=\u00E9");
    EXPECT_EQ(receiveBytes(connection), "found");
    EXPECT_EQ(connection.get("ContentType").text(), "text/plain");
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3)[1], "/files/fr%C3%BCh%20%E4%B8%AD%20100%25.txt?a=%C3%A9");
    expectUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Over, NginxDownload, kBothProtocols, kProtocolName);

} // namespace
