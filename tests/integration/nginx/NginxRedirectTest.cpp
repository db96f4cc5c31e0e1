// Redirects of nginx: the class reports the target and stays where it is, the command line follows.
#include "tests/integration/nginx/NginxFixture.h"

namespace {

using namespace integrationtest;

struct Row {
    const char* Path; // below /redirect/
    double Status;
    std::string Target; // "/…": on the same server; "TLS/…": on its port with TLS; otherwise as it is; empty: none
    const char* Found;  // what is there; null where the command line does not go there
};

const Row kRows[] = {
    {"relative", 302, "/files/200", "two hundred"},
    {"path", 301, "/files/200?x=1&y=2", "two hundred"},
    {"fragment", 303, "/files/200#part", "two hundred"},
    {"space", 302, "/files/with%20space.txt", "with a blank"},
    {"escaped", 302, "/files/with%20space.txt", "with a blank"},
    {"letters", 302, "/files/fr%C3%BCh%20%E4%B8%AD.txt", "other letters"},
    {"to-tls", 308, "TLS/files/200", "two hundred"},
    {"malformed", 302, "", nullptr},
    {"elsewhere", 302, "ftp://127.0.0.1/files/200", nullptr},
};

class NginxRedirect : public NginxFixture {
protected:
    static Outcome get(const std::string& path) {
        return run({"get", "--ca-file", nginx().certificateFile(), urlOf(path)});
    }
};

TEST_P(NginxRedirect, IsReportedByTheClassAndFollowedByTheCommandLine) {
    writeFile(nginx().documentFile("200"), "two hundred");
    writeFile(nginx().documentFile("with space.txt"), "with a blank");
    writeFile(nginx().documentFile("fr\u00FCh \u4E2D.txt"), "other letters");
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.Path);
        const std::string path = std::string("/redirect/") + row.Path;
        const std::string target = row.Target.starts_with('/')     ? urlOf(row.Target)
                                   : row.Target.starts_with("TLS") ? nginx().http2Url(row.Target.substr(3))
                                                                   : row.Target;
        const Object connection = openPath(path);
        EXPECT_NE(receiveBytes(connection).find("<html>"), std::string::npos) << "the page of the redirect itself";
        EXPECT_EQ(status(connection), row.Status);
        EXPECT_EQ(connection.get("RedirectURL").text(), target);
        connection.call("closeConnection");
        if (row.Found != nullptr) {
            connection.set("URL", target);
            connection.call("openConnection");
            EXPECT_EQ(receiveBytes(connection), row.Found);
            EXPECT_EQ(status(connection), 200);
            expectGot(get(path), row.Found);
        } else {
            expectFailed(get(path), 3,
                         "netrove: NETROVE:cli:RedirectRefused: the server redirects to " +
                             (target.empty() ? "what is not a valid URL: http://[files"
                                             : "a URL that is neither http nor https: " + target) +
                             "\n");
        }
        expectUsable(connection);
    }
}

TEST_P(NginxRedirect, ChainOfTwentyIsFollowedAndOneMoreIsNot) {
    expectGot(get("/redirect/chain/" + std::string(20, 'x')), "end of the chain");
    expectFailed(get("/redirect/chain/" + std::string(21, 'x')), 47,
                 "netrove: NETROVE:cli:TooManyRedirects: more than 20 redirects, the next to " +
                     urlOf("/redirect/chain/") + "\n");
}

INSTANTIATE_TEST_SUITE_P(Over, NginxRedirect, kBothProtocols, kProtocolName);

} // namespace
