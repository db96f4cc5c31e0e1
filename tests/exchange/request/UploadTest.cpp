// Request content that arrives whole: from memory, from a provider, and as the text of the older interface.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

const std::u16string kText = u"na\u00efve \u20ac";
const std::string kUtf8 = "na\xc3\xafve \xe2\x82\xac";

// With a Content-Length the content follows as it is, without one it goes in chunks; libcurl asks for an interim head
// unless an empty field of the caller switches that off.
struct Framing {
    const char* Name;
    bool WithLength;
    bool Expects;
};
const Framing kFramings[] = {{"WithLength", true, true}, {"InChunks", false, true}, {"InChunksAtOnce", false, false}};

struct Size {
    const char* Name;
    std::size_t Bytes;
};
const Size kSizes[] = {{"OneByte", 1}, {"OneRead", 16384}, {"SeveralReads", 100000}, {"ManyReads", 1000000}};

class Upload : public ExchangeFixture {
protected:
    // The server's record of one upload of this content.
    Record expectWhole(const std::string& method, const std::string& body, const Framing& framing,
                       const std::function<void(const Object& connection)>& setContent) {
        ScriptedServer& server = serve({step::expectHead(), step::continueIfExpected(),
                                        framing.WithLength ? step::expectBody(body.size()) : step::expectChunkedBody(),
                                        step::send(response("taken", {}, "201 Created"))});
        const Object connection = open(server.url("/up"));
        connection.set("RequestMethod", method);
        setContent(connection);
        if (framing.WithLength) {
            connection.call("setRequestProperty", {"Content-Length", std::to_string(body.size())});
        }
        if (!framing.Expects) {
            connection.call("removeField", {"Expect"});
        }
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(connection.get("ResponseCode").number(), 201.0);
        EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), Texts{"Content-Length: 5"});
        const Record record = server.record();
        EXPECT_EQ(difference(record.Bodies.at(0), body), "");
        return record;
    }
};

class UploadOf : public Upload, public ::testing::WithParamInterface<std::tuple<Size, Framing>> {};

TEST_P(UploadOf, MemoryArrivesWhole) {
    const auto& [size, framing] = GetParam();
    const std::string body = patternedBytes(size.Bytes);
    for (const std::string method : {"POST", "PUT", "PATCH", "PURGE"}) {
        const Record record = expectWhole(
            method, body, framing, [&](const Object& connection) { connection.set("Payload", Array::bytes(body)); });
        const std::string& head = record.Heads.at(0);
        EXPECT_EQ(startLine(head), method + " /up HTTP/1.1");
        EXPECT_EQ(fieldValue(head, "Content-Length").value_or("none"),
                  framing.WithLength ? std::to_string(body.size()) : "none");
        EXPECT_EQ(fieldValue(head, "Transfer-Encoding").value_or("none"), framing.WithLength ? "none" : "chunked");
        EXPECT_EQ(fieldValue(head, "Expect").value_or("none"), framing.Expects ? "100-continue" : "none");
    }
}

// libcurl may ask twice in one perform; an empty answer then would end the content early, with a good status.
TEST_P(UploadOf, ProviderArrivesWhole) {
    const auto& [size, framing] = GetParam();
    const std::string body = patternedBytes(size.Bytes);
    for (const std::uint64_t piece : {0U, 1000U, 16384U, 200000U}) {
        const ScriptedProvider provider = makeScriptedProvider(host(), body);
        expectWhole("PUT", body, framing, [&](const Object& connection) {
            connection.set("Provider", provider);
            connection.set("ProviderBufferSize", piece);
        });
        EXPECT_EQ(provider->Starts, 1);
        const std::uint64_t wanted = piece == 0 ? 16384 : piece;
        EXPECT_EQ(provider->Wanted, std::vector<std::uint64_t>((body.size() + wanted - 1) / wanted + 1, wanted))
            << "as many reads as there are pieces, and one that finds the end";
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, UploadOf,
                         ::testing::Combine(::testing::ValuesIn(kSizes), ::testing::ValuesIn(kFramings)), kRowName);

TEST_F(Upload, OfNothingFromAProviderIsAnEmptyBody) {
    for (const Framing& framing : kFramings) {
        expectWhole("PUT", "", framing,
                    [this](const Object& connection) { connection.set("Provider", makeScriptedProvider(host())); });
    }
}

TEST_F(Upload, ComesAgainWithEveryReopen) {
    const std::string body = patternedBytes(20000);
    const ScriptedProvider provider = makeScriptedProvider(host(), body);
    for (const Array& content : {Array::bytes(body), Array(provider)}) {
        ScriptedServer& server = serve(takes(response("taken")) + takes(response("taken")));
        const Object connection = openUpload(server.url("/"), content);
        EXPECT_EQ(receiveBytes(connection), "taken");
        connection.call("openConnection");
        connection.set("RequestMethod", "PUT");
        EXPECT_EQ(receiveBytes(connection), "taken");
        EXPECT_EQ(server.record().Bodies, (Texts{body, body}));
    }
    EXPECT_EQ(provider->Starts, 2);
}

TEST_F(Upload, WithoutContentIsAHeadAlone) {
    struct Row {
        bool OptionsMode;
        const char* Method;
        const char* Text;   // of the older interface
        const char* Fields; // beside Host
    };
    for (const Row& row : {Row{true, "POST", "", ""},
                           {true, "PUT", "for the older interface", ""},
                           {false, "GET", "for POST, PUT and PATCH", ""},
                           {false, "POST", "", "Content-Length: 0\r\n"}}) {
        ScriptedServer& server = serve(answers(response("none")));
        const Object connection = open(server.url("/"), row.OptionsMode);
        connection.set("RequestMethod", row.Method);
        connection.set("PostData", row.Text);
        EXPECT_EQ(receiveBytes(connection), "none");
        EXPECT_EQ(server.record().Received, std::string(row.Method) + " / HTTP/1.1\r\nHost: " + server.authority() +
                                                "\r\n" + row.Fields + "\r\n");
    }
}

TEST_F(Upload, OfTheOlderInterfaceIsEncodedByItsContentType) {
    struct Row {
        const char* Method;
        const char* ContentType;
        std::string Bytes;
    };
    for (const Row& row : {Row{"POST", "application/json", kUtf8},
                           {"PUT", "text/plain; charset=windows-1252", "na\xefve \x80"},
                           {"PATCH", "text/plain; charset=\"UTF-8\"; x=y", kUtf8}}) {
        ScriptedServer& server = serve({step::expectHead(), step::continueIfExpected(),
                                        step::expectBody(row.Bytes.size()), step::send(response("taken"))});
        const Object connection = open(server.url("/"), false);
        connection.set("RequestMethod", row.Method);
        connection.call("setRequestProperty", {"Content-Type", row.ContentType});
        connection.set("PostData", kText);
        EXPECT_EQ(receiveBytes(connection), "taken");
        const Record record = server.record();
        EXPECT_EQ(record.Bodies.at(0), row.Bytes);
        EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"), std::to_string(row.Bytes.size()));
        EXPECT_EQ(fieldValue(record.Heads.at(0), "Transfer-Encoding"), std::nullopt);
        EXPECT_EQ(startLine(record.Heads.at(0)), std::string(row.Method) + " / HTTP/1.1");
    }
}

TEST_F(Upload, OfTextThatTheCharsetLacksIsRefusedUntilTheTextIsReplaced) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::expectBody(4), step::send(response("taken"))});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "POST");
    connection.call("setRequestProperty", {"Content-Type", "text/plain; charset=ISO-8859-1"});
    connection.set("PostData", kText);
    const std::string failure = "VANTIK:webservices:EncodingFailure(" + kUtf8 + ", ISO-8859-1, ";
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }).substr(0, failure.size()), failure);
    EXPECT_FALSE(connection.get("Sent").truth());
    EXPECT_EQ(connection.get("Payload").size(), 0U);
    EXPECT_EQ(server.connectionCount(), 0U);
    connection.set("PostData", "text");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies, Texts{"text"});
}

} // namespace
