// What a program does wrong is refused with a failure that names it, and nothing is lost by it.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class BadInput : public HostFixture {
protected:
    void expectRefused(const std::function<void()>& action, const std::string& named) {
        const vantik::Message message = failureOf(action);
        EXPECT_NE(message.Text.find(named), std::string::npos) << named << " is not in: " << message.Text;
    }
};

TEST_F(BadInput, IsRefusedAndTheOpenConnectionIsStillGood) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("unharmed"))});
    const Object connection = open(server.url("/"));
    expectRefused([&] { connection.get("NoSuchProperty"); }, "NoSuchProperty");
    expectRefused([&] { connection.set("NoSuchProperty", 1.0); }, "NoSuchProperty");
    expectRefused([&] { connection.call("noSuchMethod"); }, "noSuchMethod");
    expectRefused([&] { connection.set("Sent", true); }, "Sent");
    expectRefused([&] { connection.set("TimeoutInMilliseconds", "soon"); }, "TimeoutInMilliseconds");
    expectRefused([&] { connection.set("Payload", 1.5); }, "Payload");
    expectRefused([&] { connection.set("Debug", "loud"); }, "Debug");
    expectRefused([&] { connection.set("ProviderBufferSize", -1.0); }, "ProviderBufferSize");
    expectRefused([&] { connection.call("openConnection", {1.0}); }, "openConnection");
    expectRefused([&] { connection.call("setRequestProperty", {"X-A"}); }, "setRequestProperty");
    expectRefused([&] { connection.call("setRequestProperty", {"X-A", 1.0}); }, "setRequestProperty");
    expectRefused([&] { connection.call("setFields", {"X-A: 1"}); }, "setFields");
    expectRefused([&] { connection.call("copyContentToByteArray"); }, "copyContentToByteArray");
    expectRefused([&] { connection.call("copyContentToByteArray", {"yes"}); }, "copyContentToByteArray");
    expectRefused([&] { connection.call("setAuthenticationSchemes", {"Basic", false}); }, "setAuthenticationSchemes");
    EXPECT_EQ(receiveBytes(connection), "unharmed");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    expectScopeUsable(connection);
}

TEST_F(BadInput, UnknownClassesAndWrongInputsOfTheConstructor) {
    expectRefused([&] { host().create("vantik.internal.webservices.NoSuchClass"); }, "NoSuchClass");
    expectRefused([&] { host().create(kAdapterClass, {"yes"}); }, "HTTPConnectionAdapter");
    expectRefused([&] { host().create(kAdapterClass, {true, true}); }, "HTTPConnectionAdapter");
    expectScopeUsable();
}

TEST_F(BadInput, MethodsOfProvidersAreHiddenFromPrograms) {
    const ScriptedProvider provider = makeScriptedProvider(host(), "content");
    expectRefused([&] { provider.object().call("startInternal"); }, "startInternal");
    EXPECT_EQ(provider->Starts, 0);
}

TEST_F(BadInput, FieldsWithoutTheirNames) {
    const Object connection = open("http://127.0.0.1:9/");
    const vantik::Message message = failureOf([&] {
        connection.call("setFields", {Array::structures({"Key", "Text"}, {{"a", "b"}})});
    });
    EXPECT_NE(message.Text, "");
    expectScopeUsable(connection);
}

} // namespace
