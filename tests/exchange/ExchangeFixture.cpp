#include "tests/exchange/ExchangeFixture.h"

#include <exception>
#include <utility>

namespace testsupport {

ExchangeFixture::~ExchangeFixture() {
    if (!HasFailure()) { // otherwise the messages of gtest are in it
        EXPECT_EQ(Output.text(), "") << "something was written to standard output";
    }
}

void ExchangeFixture::TearDown() {
    closeOpened();
}

void ExchangeFixture::closeOpened() {
    for (const Object& object : std::exchange(Opened, {})) {
        object.call("closeConnection");
    }
    expectScopeUsable();
}

std::string ExchangeFixture::outcomeOf(const std::function<void()>& action) {
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

std::string ExchangeFixture::keyOf(const std::function<void()>& action) {
    const std::string outcome = outcomeOf(action);
    return outcome.substr(0, outcome.find('('));
}

Object ExchangeFixture::makeFor(const std::string& url, bool optionsMode) {
    Object connection = makeAdapter(optionsMode);
    connection.set("URL", url);
    return connection;
}

Object ExchangeFixture::open(const std::string& url, bool optionsMode) {
    if (!Opened.empty()) {
        closeOpened();
    }
    Object connection = makeFor(url, optionsMode);
    connection.call("openConnection");
    Opened.push_back(connection);
    return connection;
}

Object ExchangeFixture::openUpload(const std::string& url, const Array& content) {
    Object connection = open(url);
    prepareUpload(connection, content);
    return connection;
}

void ExchangeFixture::prepareUpload(const Object& connection, const Array& content) {
    connection.set("RequestMethod", "PUT");
    connection.call("removeField", {"Expect"});
    connection.set(content.className() == "uint8" ? "Payload" : "Provider", content);
}

void ExchangeFixture::openThroughProxy(const Object& connection, std::uint16_t port) {
    connection.call("openProxyConnection",
                    {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(port)}})});
}

void ExchangeFixture::setLogin(const Object& connection, const char* username, const char* password,
                               std::initializer_list<std::string_view> schemes) {
    connection.set("Username", username);
    connection.set("Password", password);
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", schemes), false});
}

void ExchangeFixture::expectCopyRefused(const Object& connection, const std::string& failure) {
    EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }), failure);
    const std::string file = Folder.file("refused");
    writeFile(file, "older");
    EXPECT_EQ(outcomeOf([&] { connection.call("copyContentToFile", {file}); }), failure);
    EXPECT_EQ(readFile(file), "older");
    const Array before = connection.get("Consumer");
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    connection.set("Consumer", consumer);
    EXPECT_EQ(outcomeOf([&] { copyToConsumer(connection); }), failure);
    EXPECT_EQ(consumer->Calls, Texts());
    connection.set("Consumer", before);
}

void ExchangeFixture::expectObjectUsable(const Object& connection) {
    const ScriptedServer& next = serve(answers(response("good again")));
    connection.call("closeConnection");
    for (const char* property : {"Provider", "Consumer", "ProgressReporter", "Payload"}) {
        connection.set(property, Array());
    }
    connection.set("URL", next.url("/again"));
    connection.call("openConnection");
    connection.set("RequestMethod", "GET");
    EXPECT_EQ(receiveBytes(connection), "good again");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(startLine(next.record().Heads.at(0)), "GET /again HTTP/1.1");
    expectScopeUsable(connection);
}

} // namespace testsupport
