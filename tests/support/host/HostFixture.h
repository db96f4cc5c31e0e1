// Fixture for tests that do as a real host does: the module is loaded with the dynamic loader, everything goes through
// the class.
#pragma once

#include "tests/support/host/LeakCheck.h"
#include "tests/support/server/ScriptedServer.h"
#include "vantik/Host.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace testsupport {

inline constexpr const char* kAdapterClass = "vantik.internal.webservices.HTTPConnectionAdapter";

// At the end the scope is dropped; then every connection to the servers of the fixture must have gone and no array may
// be left.
class HostFixture : public ::testing::Test {
protected:
    HostFixture();
    ~HostFixture() override;

    vantik::Host& host() { return *Program; }
    const std::vector<vantik::Message>& warnings() const { return *Warnings; }

    // A new object of the adapter class. `optionsMode`: driven by the HTTP interface; false: by the older one.
    vantik::Object makeAdapter(bool optionsMode = true);
    // The same with its URL set and opened.
    vantik::Object open(const std::string& url, bool optionsMode = true);

    // A server that lives until after the scope.
    ScriptedServer& serve(Script script, Pace pace = Pace::Whole);
    ScriptedServer& serve(std::vector<Script> scripts, Pace pace = Pace::Whole);

    // Closes what was used and runs a plain GET on a new object: whatever happened before, the scope has to be good for
    // it.
    void expectScopeUsable(const vantik::Object& used = {});

private:
    LeakCheck Leaks;
    std::shared_ptr<std::vector<vantik::Message>> Warnings = std::make_shared<std::vector<vantik::Message>>();
    std::vector<std::unique_ptr<ScriptedServer>> Servers;
    std::unique_ptr<vantik::Host> Program;
};

// File name of the module under test.
std::string modulePath();

// All bytes of the response, received through `copyContentToByteArray`.
std::string receiveBytes(const vantik::Object& connection);

// "Name: value" of each field of a Name/Value struct vector.
std::vector<std::string> fieldTexts(const vantik::Array& fields);

// Results of a method as texts and numbers in text form.
std::vector<std::string> resultTexts(const vantik::Object& object, const std::string& method, int resultsWanted);

// What an action fails with; a test failure and an empty message where it does not fail.
vantik::Message failureOf(const std::function<void()>& action);

// Identifier and arguments of a message in one line: "VANTIK:http:Key(1, text)".
std::string describe(const vantik::Message& message);

} // namespace testsupport
