// What a program does wrong is refused with a failure that names it, and nothing is lost by it: what was set before is
// what goes on the wire.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

class RefusedInput : public ExchangeFixture {
protected:
    static void expectNamed(const std::string& name, const std::function<void()>& action) {
        const std::string text = failureOf(action).Text;
        EXPECT_NE(text.find(name), std::string::npos) << name << " is not in: " << text;
    }
};

TEST_F(RefusedInput, NamesWhatIsWrongAndTheOpenConnectionIsStillGood) {
    struct Property {
        const char* Name;
        Array Value;
    };
    struct Call {
        const char* Method;
        std::vector<Array> Inputs;
    };
    ScriptedServer& server = serve(answers(response("unharmed")));
    const Object connection = open(server.url("/"));
    expectNamed("NoSuchProperty", [&] { connection.get("NoSuchProperty"); });
    for (const Property& row : {Property{"NoSuchProperty", 1.0},
                                {"Sent", true},
                                {"TimeoutInMilliseconds", "soon"},
                                {"Payload", 1.5},
                                {"Debug", "loud"},
                                {"Debug", 1LL << 31},
                                {"ProviderBufferSize", -1.0}}) {
        expectNamed(row.Name, [&] { connection.set(row.Name, row.Value); });
    }
    for (const Call& row : {Call{"noSuchMethod", {}},
                            {"openConnection", {1.0}},
                            {"setRequestProperty", {"X-A"}},
                            {"setRequestProperty", {"X-A", 1.0}},
                            {"setFields", {"X-A: 1"}},
                            {"copyContentToByteArray", {}},
                            {"copyContentToByteArray", {"yes"}},
                            {"setAuthenticationSchemes", {"Basic", false}}}) {
        expectNamed(row.Method, [&] { connection.call(row.Method, row.Inputs, 0); });
    }
    failureOf([&] { connection.call("setFields", {Array::structures({"Key", "Text"}, {{"a", "b"}})}); });
    EXPECT_EQ(receiveBytes(connection), "unharmed");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
}

// The refused text takes nothing from the exchange that is under way, and the next open goes to the old URL. A text
// without a scheme, or with one that is not served, has replaced the parsed URL by then, so without a host in it the
// open fails.
TEST_F(RefusedInput, OfAUrlLeavesTheOldOneAndIsMendedByAGoodOne) {
    struct Row {
        Array Url;
        std::string Failure; // its beginning, without the prefix
        bool KeepsTheHost = true;
    };
    for (const Row& row : {Row{"www.example.test/p", "MalformedURL(\"www.example.test/p\" (no protocol))", false},
                           {"ftp://127.0.0.1/p", "ExpectedProtocol(ftp, ftp://127.0.0.1/p, http, https)"},
                           {"file:///p", "ExpectedProtocol(file, file:///p, http, https)", false},
                           {"http://a b/", "MalformedURL(http://a b/)"},
                           {"http://h:99999/", "MalformedURL(http://h:99999/)"},
                           {"http://[::1/", "MalformedURL(http://[::1/)"},
                           {std::u16string(u"http://h/\xD800"), "EncodingFailure("}}) {
        SCOPED_TRACE(row.Failure);
        // libcurl may close any connection that was idle within the same millisecond, once it has four.
        makeAdapter().call("closeAllConnections");
        ScriptedServer& server = serve(answers(response("first")) + answers(response("second")));
        const Object connection = open(server.url("/p"));
        const std::string failure = "VANTIK:webservices:" + row.Failure;
        EXPECT_EQ(outcomeOf([&] { connection.set("URL", row.Url); }).substr(0, failure.size()), failure);
        EXPECT_EQ(receiveBytes(connection), "first");
        connection.call("closeConnection");
        EXPECT_EQ(connection.get("URL").text(), server.url("/p"));
        if (!row.KeepsTheHost) {
            EXPECT_EQ(keyOf([&] { connection.call("openConnection"); }), "VANTIK:webservices:FileNotFound");
            EXPECT_EQ(receiveBytes(connection), "") << "it is closed";
            makeAdapter(); // nothing counts as open
            connection.set("URL", server.url("/p#part"));
        }
        connection.call("openConnection");
        EXPECT_EQ(receiveBytes(connection), "second");
        EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /p HTTP/1.1");
        EXPECT_EQ(connection.get("URL").text(), server.url(row.KeepsTheHost ? "/p" : "/p#part"));
        connection.call("closeConnection");
    }
}

} // namespace
