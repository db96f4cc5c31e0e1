// Credentials and schemes, and content that has to be sent again after a challenge.
#include "tests/exchange/ExchangeFixture.h"

namespace {

using namespace testsupport;

class Authentication : public ExchangeFixture {
protected:
    void setAladdin(const Object& connection, std::initializer_list<std::string_view> schemes) {
        setLogin(connection, "Aladdin", "open sesame", schemes);
    }
};

// The older interface answers any challenge.
TEST_F(Authentication, BasicIsSentAtOnceOrAfterAChallengeOrNotAtAll) {
    const std::string challenge = response("denied", {"WWW-Authenticate: Basic realm=\"r\""}, "401 Unauthorized");
    const std::string login = "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==";
    struct Row {
        bool OptionsMode;
        bool AllowsBasic;
        Texts Logins; // of each request
    };
    for (const Row& row : {Row{true, true, {login}}, {true, false, {"none"}}, {false, false, {"none", login}}}) {
        const bool challenged = row.Logins.front() == "none";
        ScriptedServer& server = serve((challenged ? answers(challenge) : Script{}) + answers(response("welcome")));
        const Object connection = open(server.url("/"), row.OptionsMode);
        row.AllowsBasic ? setAladdin(connection, {"Basic"}) : setAladdin(connection, {});
        const bool welcome = row.Logins.back() == login;
        EXPECT_EQ(receiveBytes(connection), welcome ? "welcome" : "denied");
        EXPECT_EQ(connection.get("ResponseCode").number(), welcome ? 200.0 : 401.0);
        Texts logins;
        for (const std::string& head : server.record().Heads) {
            logins.push_back(fieldValue(head, "Authorization").value_or("none"));
        }
        EXPECT_EQ(logins, row.Logins);
    }
}

TEST_F(Authentication, ChallengeIsAnsweredWithinOneTransfer) {
    ScriptedServer& server = serve(answers(kChallenge) + answers(response("welcome")));
    const Object connection = open(server.url("/"));
    setAladdin(connection, {"Digest"});
    EXPECT_EQ(receiveBytes(connection), "welcome");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), Texts{"Content-Length: 7"});
    const Texts heads = server.record().Heads;
    EXPECT_EQ(fieldValue(heads.at(0), "Authorization"), std::nullopt);
    EXPECT_TRUE(fieldValue(heads.at(1), "Authorization").value_or("").starts_with("Digest username=\"Aladdin\", "))
        << heads.at(1);
}

TEST_F(Authentication, TextOfTheOlderModeIsSentAgainAfterAChallenge) {
    ScriptedServer& server = serve(challengedUpload(step::expectBody(9)));
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "POST");
    connection.set("PostData", "some text");
    connection.set("Username", "Aladdin");
    connection.set("Password", "open sesame");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(allBodies(server), (Texts{"some text", "some text"}));
}

// With the one scheme libcurl knows that the first request will be challenged, and sends the content only once.
TEST_F(Authentication, ProviderWithDigestAloneSendsItsContentOnce) {
    const std::string body = patternedBytes(50000);
    ScriptedServer& server = serve(answers(kChallenge) + takes(response("taken")));
    const Object connection = openUpload(server.url("/"), makeScriptedProvider(host(), body));
    setAladdin(connection, {"Digest"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
}

} // namespace
