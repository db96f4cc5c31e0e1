#include "tests/exchange/TransferFixture.h"

#include "tests/support/host/ScriptedObjects.h"

#include <exception>

namespace testsupport {

TransferFixture::~TransferFixture() {
    if (!HasFailure()) { // its messages stand there
        EXPECT_EQ(Output.text(), "") << "something was written to standard output";
    }
}

std::string TransferFixture::outcomeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const vantik::Interrupted& stop) {
        return stop.byProgram() ? "interrupt by the program" : "interrupt by the host";
    } catch (const vantik::Failure& failure) {
        return describe(failure.message());
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "nothing";
}

vantik::Object TransferFixture::makeFor(const std::string& url, bool optionsMode) {
    vantik::Object connection = makeAdapter(optionsMode);
    connection.set("URL", url);
    return connection;
}

void TransferFixture::setLogin(const vantik::Object& connection, const char* username, const char* password,
                               std::initializer_list<std::string_view> schemes) {
    connection.set("Username", username);
    connection.set("Password", password);
    connection.call("setAuthenticationSchemes",
                    {vantik::Array::enumeration("vantik.net.http.AuthenticationScheme", schemes), false});
}

void TransferFixture::expectCopyRefused(const vantik::Object& connection, const std::string& failure) {
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), failure);
    const std::string file = Folder.file("refused");
    writeFile(file, "older");
    EXPECT_EQ(outcomeOf([&] { connection.call("copyContentToFile", {file}); }), failure);
    EXPECT_EQ(readFile(file), "older");
    const vantik::Array before = connection.get("Consumer");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    connection.set("Consumer", consumer);
    EXPECT_EQ(outcomeOf([&] { connection.call("copyContentToByteArray", {false}); }), failure);
    EXPECT_EQ(consumer->Calls, std::vector<std::string>());
    connection.set("Consumer", before);
}

} // namespace testsupport
