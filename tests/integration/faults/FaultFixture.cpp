#include "tests/integration/faults/FaultFixture.h"

#include "tests/support/server/WireText.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>

namespace integrationtest {

using testsupport::Script;
using testsupport::ScriptedConsumer;
using testsupport::ScriptedServer;
using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

namespace {

constexpr const char* kGoodContent = "good again";

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t place = text.find(what); place != std::string::npos; place = text.find(what, place + by.size())) {
        text.replace(place, what.size(), by);
    }
    return text;
}

std::string told(const vantik::Message& message, const std::string& url) {
    return replaced(replaced(testsupport::describe(message), "VANTIK:webservices:", ""), url, "URL");
}

std::string fieldsOf(const Object& connection) {
    std::string lines;
    for (std::string field : testsupport::fieldTexts(connection.call("getResponseFields"))) {
        const auto end = field.begin() + static_cast<std::ptrdiff_t>(std::min(field.find(':'), field.size()));
        std::transform(field.begin(), end, field.begin(), [](unsigned char letter) { return std::tolower(letter); });
        if (field.starts_with("x-")) {
            lines += field + "\n";
        }
    }
    return lines;
}

// The answer by turns with a good one, each on a connection of its own.
std::vector<Script> scriptsOf(const FaultRow& row) {
    Script faulty = {step::expectHead()};
    faulty.insert(faulty.end(), row.Answer.begin(), row.Answer.end());
    return {faulty, goodScript(), faulty, goodScript(), faulty, goodScript()};
}

} // namespace

const char* nameOf(Way way) {
    constexpr const char* names[] = {"bytes", "file", "consumer"};
    return names[static_cast<int>(way)];
}

Script goodScript() {
    return {step::expectHead(), step::send(testsupport::response(kGoodContent, {"Connection: close"})), step::close()};
}

std::string shown(const std::string& content) {
    constexpr std::size_t readable = 60;
    return content.size() <= readable ? content : std::to_string(content.size()) + " bytes, " + digestOf(content);
}

bool matches(const std::string& text, const std::string& alternatives) {
    const std::string separator = " | ";
    for (std::size_t start = 0;;) {
        const std::size_t end = alternatives.find(separator, start);
        const std::string pattern = alternatives.substr(start, end == std::string::npos ? end : end - start);
        if (::fnmatch(pattern.c_str(), text.c_str(), 0) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            return false;
        }
        start = end + separator.size();
    }
}

Object FaultFixture::openThrough(const FrontPeer& front, const std::vector<double>& limits, bool optionsMode) {
    Object connection = makeAdapter(optionsMode);
    connection.set("URL", front.url());
    connection.set("CertificateFilename", front.certificateFile());
    if (!limits.empty()) {
        connection.set("TimeoutInMilliseconds", Array::doubles(limits));
    }
    connection.call("openConnection");
    return connection;
}

FaultOutcome FaultFixture::receive(const Object& connection, Way way) {
    const std::string url = connection.get("URL").text();
    const std::size_t warningsBefore = warnings().size();
    const std::string path = folder().file("received");
    std::filesystem::remove(path);
    FaultOutcome outcome;
    ScriptedConsumer consumer = testsupport::makeScriptedConsumer(host());
    if (way == Way::Consumer) {
        connection.set("Consumer", consumer);
    }
    try {
        if (way == Way::File) {
            connection.call("copyContentToFile", {path});
        } else if (way == Way::Bytes) {
            outcome.Delivered = receiveBytes(connection);
        } else {
            connection.call("copyContentToByteArray", {false});
        }
        outcome.Told = std::to_string(static_cast<int>(connection.get("ResponseCode").number()));
        outcome.Fields = fieldsOf(connection);
    } catch (const vantik::Failure& failure) {
        EXPECT_NE(failure.message().Text, "");
        outcome.Told = told(failure.message(), url);
    }
    for (std::size_t index = warningsBefore; index < warnings().size(); ++index) {
        outcome.Told += " warned " + told(warnings()[index], url);
    }
    if (way == Way::File && std::filesystem::exists(path)) {
        outcome.Delivered = testsupport::readFile(path);
    } else if (way == Way::Consumer) {
        outcome.Delivered = consumer->content();
        // Whoever is started is closed, once. A failure before the content leaves it alone.
        if (!consumer->Calls.empty()) {
            EXPECT_EQ(consumer->Calls.front(), "start");
            EXPECT_EQ(std::count(consumer->Calls.begin(), consumer->Calls.end(), "close"), 1);
        }
        connection.set("Consumer", Array());
    }
    return outcome;
}

void FaultFixture::expectRoadUsable(const FrontPeer& road) {
    const Object next = openThrough(road);
    EXPECT_EQ(receiveBytes(next), kGoodContent);
    EXPECT_EQ(next.get("ResponseCode").number(), 200.0);
    next.call("closeConnection");
}

void FaultFixture::compare(const FaultOutcome& outcome, const FaultOutcome& expected, Way way) {
    EXPECT_TRUE(matches(outcome.Told, expected.Told)) << outcome.Told << "\nin place of\n" << expected.Told;
    const bool failed = std::isdigit(static_cast<unsigned char>(outcome.Told.at(0))) == 0;
    const std::string delivered = way == Way::Bytes && failed ? "" : expected.Delivered;
    EXPECT_TRUE(matches(outcome.Delivered, delivered)) << shown(outcome.Delivered) << "\nin place of\n" << delivered;
    EXPECT_EQ(shown(outcome.Fields), failed ? "" : shown(expected.Fields));
}

void FaultFixture::expectOutcome(const FaultRow& row, Front front) {
    const FaultOutcome& expected = row.on(front);
    ScriptedServer& server = serve(scriptsOf(row));
    const FrontPeer road(front, server.port(), sentBy(row.Answer));
    for (const Way way : kAllWays) {
        SCOPED_TRACE(nameOf(way));
        const Object connection = openThrough(road, row.Limits);
        const FaultOutcome outcome = receive(connection, way);
        compare(outcome, expected, way);
        expectScopeUsable(connection);
        if (front != Front::Tls) {
            expectRoadUsable(road);
        }
    }
}

} // namespace integrationtest
