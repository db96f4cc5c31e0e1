// Exchanges under TLS: which certificates are accepted under which settings, and tunnels through a proxy.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/exchange/request/TlsServer.h"

namespace {

using namespace testsupport;

const std::string kOwnName = "IP:127.0.0.1";
const std::string kOtherName = "DNS:other.test";

enum class File { None, Default, OfTheServer, OfAnother };

struct Row {
    const char* Name;
    File CertificateFile;
    bool VerifyServerName;
    bool OwnNameInCertificate;
    const char* Failure; // empty: the exchange succeeds
};

class Tls : public ExchangeFixture {
protected:
    std::string fileWith(const std::string& certificate) {
        const std::string path = Folder.file("ca.pem");
        writeFile(path, certificate);
        return path;
    }
};

class TlsVerification : public Tls, public ::testing::WithParamInterface<Row> {};

TEST_P(TlsVerification, FollowsTheSettings) {
    const Row& row = GetParam();
    const std::string names = row.OwnNameInCertificate ? kOwnName : kOtherName;
    const TlsServer server(names, response("secret"));
    const TlsServer another(names, "");
    const Object connection = makeFor("https://" + server.authority() + "/p");
    if (row.CertificateFile == File::Default) {
        connection.set("CertificateFilename", "default");
    } else if (row.CertificateFile != File::None) {
        const bool own = row.CertificateFile == File::OfTheServer;
        connection.set("CertificateFilename", fileWith(own ? server.certificate() : another.certificate()));
    }
    connection.set("VerifyServerName", row.VerifyServerName);
    connection.call("openConnection");
    if (std::string(row.Failure).empty()) {
        EXPECT_EQ(receiveBytes(connection), "secret");
        ASSERT_EQ(server.heads().size(), 1U);
        EXPECT_EQ(startLine(server.heads()[0]), "GET /p HTTP/1.1");
    } else {
        EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), std::string("VANTIK:webservices:") + row.Failure);
        EXPECT_TRUE(server.heads().empty()) << "nothing was sent to a server that was not accepted";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Settings, TlsVerification,
    ::testing::Values(Row{"NoFileAcceptsAnyPeer", File::None, true, true, ""},
                      Row{"NoFileStillLooksAtTheName", File::None, true, false, "SSLConnectionNoFile"},
                      Row{"NoFileAndNoName", File::None, false, false, ""},
                      Row{"DefaultRefusesAnUnknownPeer", File::Default, true, true, "SSLConnectionSystemFailure"},
                      Row{"DefaultRefusesItWithoutTheNameToo", File::Default, false, false,
                          "SSLConnectionSystemFailure"},
                      Row{"FileOfTheServer", File::OfTheServer, true, true, ""},
                      Row{"FileOfTheServerUnderAnotherName", File::OfTheServer, true, false, "SSLConnectionFailure"},
                      Row{"FileOfTheServerWithoutTheName", File::OfTheServer, false, false, ""},
                      Row{"FileOfAnother", File::OfAnother, true, true, "SSLConnectionFailure"}),
    kRowName);

// The settings of one open do not outlive the next: a reset comes between them.
TEST_F(Tls, VerificationIsSetAnewByEachOpen) {
    const TlsServer server(kOwnName, response("secret"));
    const Object connection = open("https://" + server.authority() + "/");
    EXPECT_EQ(receiveBytes(connection), "secret");
    connection.set("CertificateFilename", "default");
    connection.call("openConnection");
    EXPECT_EQ(keyOf([&] { receiveBytes(connection); }), "VANTIK:webservices:SSLConnectionSystemFailure");
    connection.set("CertificateFilename", fileWith(server.certificate()));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "secret");
}

class TlsTunnel : public Tls {
protected:
    Object openThrough(const TlsServer& proxy) {
        Object connection = makeFor("https://origin.test/p");
        connection.set("CertificateFilename", fileWith(proxy.certificate()));
        openThroughProxy(connection, proxy.port());
        return connection;
    }
};

// The proxy's 200 is interim; any other success of it is a final head. The server's takes the place of either.
TEST_F(TlsTunnel, HeadOfTheServerTakesThePlaceOfTheProxys) {
    for (const std::string status : {"200 Connection established", "201 Created"}) {
        const TlsServer proxy("DNS:origin.test", response("through", {"X-Origin: 1"}, "404 Not Found"),
                              "HTTP/1.1 " + status + "\r\nX-Proxy: 1\r\n\r\n");
        const Object connection = openThrough(proxy);
        EXPECT_EQ(receiveBytes(connection), "through");
        EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
        EXPECT_EQ(resultTexts(connection, "getStatusLine", 3)[2], "Not Found");
        EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), (Texts{"X-Origin: 1", "Content-Length: 7"}));
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 3)[1], "/p") << "the last request, not the proxy's";
        EXPECT_EQ(startLine(proxy.tunnelHeads().at(0)), "CONNECT origin.test:443 HTTP/1.1");
        EXPECT_EQ(startLine(proxy.heads().at(0)), "GET /p HTTP/1.1");
        connection.call("closeConnection");
        connection.call("closeAllConnections");
    }
}

} // namespace
