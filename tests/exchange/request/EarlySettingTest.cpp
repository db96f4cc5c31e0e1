// What is set before the open, and a copy without one: the warnings agree with what the server sees.
#include "tests/exchange/ExchangeFixture.h"
#include "vantik/Http.h"

namespace {

using namespace testsupport;

class EarlySetting : public ExchangeFixture {
protected:
    struct Seen {
        std::string Method;
        bool Field;
        Texts Warnings;
        bool operator==(const Seen&) const = default;
    };

    // Method and field set on the closed object, then one exchange.
    Seen exchangeSetEarly(const Object& connection, const ScriptedServer& server) {
        const std::size_t requests = server.connectionCount() == 0 ? 0 : server.record().Heads.size();
        const std::size_t before = warnings().size();
        connection.set("RequestMethod", "DELETE");
        connection.call("setFields", {vantik::httpFields({{"X-Early", "1"}})});
        connection.call("openConnection");
        receiveBytes(connection);
        connection.call("closeConnection");
        const std::string head = server.record().Heads.at(requests);
        Texts warned;
        for (std::size_t index = before; index < warnings().size(); ++index) {
            warned.push_back(describe(warnings()[index]));
        }
        return {head.substr(0, head.find(' ')), head.find("X-Early") != std::string::npos, warned};
    }
};

} // namespace

TEST_F(EarlySetting, IsClearedByEveryOpenButTheFirstAndTheOpenSaysSo) {
    const ScriptedServer& server = serve(answers(response("first")) + answers(response("second")));
    const Object connection = makeFor(server.url("/"));
    EXPECT_EQ(exchangeSetEarly(connection, server), (Seen{"DELETE", true, {}}));
    EXPECT_EQ(exchangeSetEarly(connection, server),
              (Seen{"GET", false, {"VANTIK:host:ClearedByOpen(RequestMethod, setFields)"}}));
}

TEST_F(EarlySetting, MethodIsKeptAfterAChallenge) {
    const ScriptedServer& server = serve(
        answers(response("", {"WWW-Authenticate: Basic realm=\"r\""}, "401 Unauthorized")) + answers(response("in")));
    const Object connection = open(server.url("/"));
    receiveBytes(connection);
    connection.call("closeConnection");
    EXPECT_EQ(exchangeSetEarly(connection, server), (Seen{"DELETE", false, {"VANTIK:host:ClearedByOpen(setFields)"}}));
}

TEST_F(EarlySetting, CopyWithoutOpenWarnsAndOnRequestLeavesTheFileAlone) {
    const std::string file = Folder.file("saved");
    const Object connection = makeFor("http://127.0.0.1/");
    EXPECT_EQ(receiveBytes(connection), "");
    ASSERT_EQ(warnings().size(), 1U);
    EXPECT_EQ(describe(warnings()[0]), "VANTIK:host:CopyWithoutOpen(copyContentToByteArray)");
    host().treatAsFailure(vantik::kCopyWithoutOpen);
    writeFile(file, "kept");
    EXPECT_EQ(keyOf([&] { connection.call("copyContentToFile", {file}); }), "VANTIK:host:CopyWithoutOpen");
    EXPECT_EQ(readFile(file), "kept");
}
