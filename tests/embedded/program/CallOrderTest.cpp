// Warnings of calls that come to nothing, with a stand-in for the class. What the class itself does with such calls:
// exchange/request/EarlySettingTest.cpp.
#include "tests/embedded/classes/ClassFixture.h"
#include "tests/embedded/program/ProgramFixture.h"
#include "vantik/Http.h"

namespace {

using Texts = std::vector<std::string>;

class CallOrder : public ProgramFixture {
protected:
    CallOrder() {
        const ScopeEntry entry(Home->scope());
        const std::string_view fullName = vantik::kHttpConnectionClass;
        const std::string_view package = fullName.substr(0, fullName.rfind('.'));
        Home->scope()->Classes.ensurePackage(package);
        Home->scope()->Classes.define(
            package, std::make_unique<ScriptedClass>(std::string(fullName.substr(package.size() + 1)), nullptr,
                                                     [this](COSClass& definition) { define(definition); }));
        Home->onWarning([this](const vantik::Message& message) {
            Warnings.push_back(message.identifier() + " " + std::get<std::string>(message.Arguments.at(0)));
        });
    }

    void define(COSClass& definition) {
        for (const char* property : {"URL", "RequestMethod"}) {
            ScriptedProperty::addTo(definition, property, "unicodeString",
                                    {.Get = {}, .Set = [](vcos::COSInterface&, const COSValue&) {}, .Release = {}});
        }
        ScriptedProperty::addTo(
            definition, "ResponseCode", "double scalar",
            {.Get = [this] { return COSValue{std::bit_cast<std::uint64_t>(Status)}; }, .Set = {}, .Release = {}});
        for (const char* method : {"openConnection", "openProxyConnection", "closeConnection", "copyContentToByteArray",
                                   "copyContentToFile", "setFields", "setRequestProperty", "removeField"}) {
            ScriptedMethod::addTo(definition, method, std::nullopt, [this, method](ScriptedMethod::Call call) {
                Called.emplace_back(method);
                call.Wanted = 0;
                if (Fails) {
                    throw std::domain_error("refused");
                }
            });
        }
    }

    Object make() { return Home->create(vantik::kHttpConnectionClass); }
    Object makeWithUrl() {
        Object connection = make();
        connection.set("URL", "http://h/");
        return connection;
    }
    // From then on an open clears.
    void openOnce() {
        makeWithUrl().call("openConnection");
        Warnings.clear();
        Called.clear();
    }
    Texts warned() { return std::exchange(Warnings, {}); }

    double Status = 0;
    bool Fails = false;
    Texts Called;
    Texts Warnings;
};

} // namespace

TEST_F(CallOrder, CopyIsWarnedAboutUnlessAConnectionIsOpen) {
    const Texts toBytes{"VANTIK:host:CopyWithoutOpen copyContentToByteArray"};
    const Object connection = make();
    connection.call("copyContentToFile");
    EXPECT_EQ(warned(), Texts{"VANTIK:host:CopyWithoutOpen copyContentToFile"});
    connection.call("openConnection");
    connection.call("copyContentToByteArray");
    EXPECT_EQ(warned(), toBytes) << "without a URL an open does nothing";
    connection.set("URL", "http://h/");
    Fails = true;
    EXPECT_THROW(connection.call("openConnection"), std::exception);
    Fails = false;
    connection.call("copyContentToByteArray");
    EXPECT_EQ(warned(), toBytes) << "the open failed";
    for (const char* open : {"openConnection", "openProxyConnection"}) {
        connection.call(open);
        connection.call("copyContentToByteArray");
        connection.call("copyContentToFile");
        EXPECT_EQ(warned(), Texts{}) << open;
        connection.call("closeConnection");
        connection.call("copyContentToByteArray");
        EXPECT_EQ(warned(), toBytes) << open;
    }
    connection.set("URL", Array());
    connection.call("openConnection");
    connection.call("copyContentToByteArray");
    EXPECT_EQ(warned(), toBytes);
}

TEST_F(CallOrder, WarningTreatedAsFailureKeepsTheCopyFromBeingCalled) {
    Home->treatAsFailure(vantik::kCopyWithoutOpen);
    const Object connection = makeWithUrl();
    EXPECT_EQ(failureOf([&] { connection.call("copyContentToFile"); }),
              "VANTIK:host:CopyWithoutOpen(copyContentToFile)");
    EXPECT_EQ(Called, Texts{});
    connection.call("openConnection");
    connection.call("copyContentToFile");
    EXPECT_EQ(Called, (Texts{"openConnection", "copyContentToFile"}));
}

TEST_F(CallOrder, OpenNamesWhatItHasCleared) {
    openOnce();
    const Object connection = makeWithUrl();
    connection.set("RequestMethod", "DELETE");
    for (const char* method : {"setFields", "setRequestProperty", "removeField", "setFields"}) {
        connection.call(method);
    }
    EXPECT_EQ(warned(), Texts{}) << "so far nothing is lost";
    connection.call("openConnection");
    EXPECT_EQ(warned(), Texts{"VANTIK:host:ClearedByOpen RequestMethod, setRequestProperty, removeField, setFields"});
    connection.set("RequestMethod", "PUT");
    connection.call("setFields");
    connection.call("closeConnection");
    connection.call("openConnection");
    EXPECT_EQ(warned(), Texts{}) << "what was set for one request is not for the next";
}

TEST_F(CallOrder, WarningOfAnOpenThatIsTreatedAsFailureLeavesItOpen) {
    openOnce();
    Home->treatAsFailure(vantik::kClearedByOpen);
    const Object connection = makeWithUrl();
    connection.set("RequestMethod", "DELETE");
    EXPECT_EQ(failureOf([&] { connection.call("openConnection"); }), "VANTIK:host:ClearedByOpen(RequestMethod)");
    connection.call("copyContentToByteArray");
    EXPECT_EQ(warned(), Texts{});
}

TEST_F(CallOrder, WhatAnOpenKeepsIsNotWarnedAbout) {
    const Object first = makeWithUrl();
    first.set("RequestMethod", "DELETE");
    first.call("setFields");
    first.call("openConnection");
    EXPECT_EQ(warned(), Texts{}) << "the first open of a host clears nothing";
    first.call("closeConnection");
    first.set("RequestMethod", "DELETE");
    for (const Array& get : {Array("get"), Array("GET"), Array()}) {
        first.set("RequestMethod", get);
        first.call("openConnection");
        EXPECT_EQ(warned(), Texts{}) << "GET is what an open leaves";
        first.call("closeConnection");
    }
    Status = 401;
    first.set("RequestMethod", "DELETE");
    first.call("setFields");
    first.call("openConnection");
    EXPECT_EQ(warned(), Texts{"VANTIK:host:ClearedByOpen setFields"}) << "after a challenge the method stays";
}

TEST_F(CallOrder, OtherClassesMayHaveSuchMethods) {
    HostClass("test.Copier").method("copyContentToFile", doing([](auto) {})).defineIn(*Home);
    Home->create("test.Copier").call("copyContentToFile");
    EXPECT_EQ(warned(), Texts{});
}
