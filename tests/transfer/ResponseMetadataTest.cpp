// collectResponseMetadata and what else is read from a response's head.
#include "tests/transfer/ConnectionFixture.h"

namespace {

class ResponseMetadataTest : public ConnectionFixture {
protected:
    ResponseMetadataTest() { connection.setURL(u"http://host.example/a/b"); }

    std::string field(const std::string& name) const { return connection.ReceivedHead.getResponseField(name); }

    HTTPConnection connection;
};

TEST_F(ResponseMetadataTest, IsCopiedFromLibcurlAndTheHead) {
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 302 Found", "content-encoding: br",
                                                   "Content-Encoding: gzip", "Location: ../x"};
    curl.giveInfo(CURLINFO_CONTENT_TYPE, "text/html; charset=utf-8");
    curl.giveInfo(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, -1L);
    curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, 1L << 40);
    curl.clear();
    connection.collectResponseMetadata();
    EXPECT_EQ(connection.Metadata.ContentEncoding, "br"); // the first one counts
    EXPECT_EQ(connection.Metadata.ContentType, "text/html; charset=utf-8");
    EXPECT_EQ(connection.Metadata.ResponseContentLength, -1);
    EXPECT_EQ(connection.Metadata.ResponseBytesReceived, std::int64_t{1} << 40);
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://host.example/x");
    EXPECT_THAT(curl.texts({CurlFunction::EasyGetinfo}),
                ElementsAre("CURLINFO_CONTENT_TYPE", "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T", "CURLINFO_SIZE_DOWNLOAD_T"));
}

TEST_F(ResponseMetadataTest, MissingFieldsLeaveEmptyTexts) {
    connection.Metadata.ContentType = connection.Metadata.ContentEncoding = "old";
    connection.Metadata.RedirectURL = "http://old.example/";
    curl.giveInfo(CURLINFO_CONTENT_TYPE, static_cast<const char*>(nullptr));
    connection.collectResponseMetadata();
    EXPECT_EQ(connection.Metadata.ContentType, "");
    EXPECT_EQ(connection.Metadata.ContentEncoding, "");
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://old.example/"); // only a new value replaces it
}

TEST_F(ResponseMetadataTest, EmptyLocationLeavesTheRedirectAsItWas) {
    connection.Metadata.RedirectURL = "http://old.example/";
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 302 Found", "Location:  "};
    connection.collectResponseMetadata();
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://old.example/");
}

struct InfoRow {
    CURLINFO Info;
    const char* Name;
};

class RefusedInfoTest : public ResponseMetadataTest, public ::testing::WithParamInterface<InfoRow> {};

TEST_P(RefusedInfoTest, IsNamedAndStopsTheRest) {
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 302 Found", "Location: /x"};
    curl.failInfo(GetParam().Info, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { connection.collectResponseMetadata(); }),
              internalError('"' + std::string(GetParam().Name) + "\" failed with CURLcode " +
                            curl_easy_strerror(CURLE_UNKNOWN_OPTION)));
    EXPECT_EQ(connection.Metadata.RedirectURL, "");
}

INSTANTIATE_TEST_SUITE_P(Infos, RefusedInfoTest,
                         ::testing::Values(InfoRow{CURLINFO_CONTENT_TYPE, "CURLINFO_CONTENT_TYPE"},
                                           InfoRow{CURLINFO_CONTENT_LENGTH_DOWNLOAD_T,
                                                   "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T"},
                                           InfoRow{CURLINFO_SIZE_DOWNLOAD_T, "CURLINFO_SIZE_DOWNLOAD_T"}));

TEST_F(ResponseMetadataTest, FieldsAreFoundBehindTheStatusLine) {
    connection.ReceivedHead.ResponseHeaderLines = {
        "X-A: status line", "x-a:   b : c ", "X-A: second", "X-B:\tt", "X-C", "X-D:", "X-E:   ", "X-F : g"};
    EXPECT_EQ(field("X-A"), "b : c "); // blanks are only dropped in front
    EXPECT_EQ(field("X-B"), "\tt");    // and only blanks
    EXPECT_EQ(field("X-C"), "");
    EXPECT_EQ(field("X-D"), "");
    EXPECT_EQ(field("X-E"), "");
    EXPECT_EQ(field("X-F"), ""); // the blank belongs to the name
    EXPECT_EQ(field("X-F "), "g");
    EXPECT_EQ(field("X-Missing"), "");
}

TEST_F(ResponseMetadataTest, HeadOfOneLineHasNoFields) {
    connection.ReceivedHead.ResponseHeaderLines = {"X-A: b"};
    EXPECT_EQ(field("X-A"), "");
    connection.ReceivedHead.ResponseHeaderLines.clear();
    EXPECT_EQ(field("X-A"), "");
}

TEST_F(ResponseMetadataTest, HttpVersionIsTheRequests) {
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.0 200 OK"}; // not consulted
    connection.SentHead.RequestHTTPVersion = "HTTP/9";
    curl.clear();
    EXPECT_EQ(connection.httpVersion(), "HTTP/9");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
    connection.SentHead.RequestHTTPVersion.clear();
    const std::vector<std::pair<long, std::string>> rows{{0, "HTTP/1.1"}, {1, "HTTP/1.0"}, {2, "HTTP/1.1"},
                                                         {3, "HTTP/2.0"}, {4, "HTTP/1.1"}, {30, "HTTP/1.1"}};
    for (const auto& [reported, version] : rows) {
        curl.giveInfo(CURLINFO_HTTP_VERSION, reported);
        EXPECT_EQ(connection.httpVersion(), version) << reported;
    }
    curl.failInfo(CURLINFO_HTTP_VERSION, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { connection.httpVersion(); }),
              internalError(std::string("\"CURLINFO_HTTP_VERSION\" failed with CURLcode ") +
                            curl_easy_strerror(CURLE_UNKNOWN_OPTION)));
}

TEST_F(ResponseMetadataTest, ReasonPhraseIsReadFromTheFirstLine) {
    EXPECT_EQ(connection.ReceivedHead.reasonPhrase(), "");
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 404 Not Found", "X-A: b c d"};
    EXPECT_EQ(connection.ReceivedHead.reasonPhrase(), "Not Found");
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/2 404 "};
    EXPECT_EQ(connection.ReceivedHead.reasonPhrase(), "");
}

} // namespace
