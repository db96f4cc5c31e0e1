// What stays in ResponsePayload and for how long, and names of files. Whole downloads, with consumers and into files,
// are played in tests/exchange/response/.
#include "hostclass/ContentMethods.h"

#include "tests/hostclass/ClassFixture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using testsupport::readFile;
using testsupport::writeFile;
using vantik::Array;
namespace step = testsupport::step;

namespace {

class Content : public AdapterFixture {
protected:
    testsupport::TemporaryFolder Folder;

    Array copyToBytes(bool toBuffer) { return Adapter.call("copyContentToByteArray", {Array(toBuffer)}); }
    void copyToFile(const Array& name) { Adapter.call("copyContentToFile", {name}); }
    void prefill(std::string_view bytes) { Adapter.set("ResponsePayload", Array::bytes(bytes)); }
    std::string buffered() { return std::string(Adapter.get("ResponsePayload").byteText()); }
};

} // namespace

TEST_F(Content, BufferIsEmptiedByTakingItsBytesAndByNothingElse) {
    testsupport::ScriptedServer server(
        {{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Type: a/b\r\nContent-Length: 4\r\n\r\nbody")},
         {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nnext")}});
    prefill("kept");
    const auto call = [&](const char* method, std::vector<Array> inputs = {}) {
        return [=, this] { Adapter.call(method, inputs, 0); };
    };
    const auto set = [&](const char* property, Array value) { return [=, this] { Adapter.set(property, value); }; };
    const Array field = Array::structures({"Name", "Value"}, {{"X-A", "1"}});
    const Array schemes = Array::enumeration("vantik.net.http.AuthenticationScheme", {"Basic"});
    const std::pair<const char*, std::function<void()>> events[] = {
        {"URL", set("URL", server.url("/"))},
        {"Payload", set("Payload", Array::bytes("request"))},
        {"null payload", set("ResponsePayload", Array())},
        {"open", call("openConnection")},
        {"setFields", call("setFields", {field})},
        {"setRequestProperty", call("setRequestProperty", {"X-B", "2"})},
        {"removeField", call("removeField", {"X-B"})},
        {"schemes", call("setAuthenticationSchemes", {schemes, true})},
        {"request line", call("getRequestLine")},
        {"ContentType", [&] { Adapter.get("ContentType"); }}, // sends
        {"fields", call("getResponseFields")},
        {"file", call("copyContentToFile", {Folder.file("f")})},
        {"close", call("closeConnection")},
        {"close all", call("closeAllConnections")},
        {"refused URL", [&] { failureOf(set("URL", "no scheme")); }},
        {"failed open", [&] { failureOf(call("openConnection")); }},
        {"URL again", set("URL", server.url("/"))},
        {"open again", call("openConnection")},
    };
    for (const auto& [name, event] : events) {
        event();
        EXPECT_EQ(buffered(), "kept") << "after " << name;
    }
    EXPECT_EQ(readFile(Folder.file("f")), "body") << "a file gets the content alone";
    Adapter.call("openConnection");
    EXPECT_EQ(copyToBytes(true).byteText(), "keptnext");
    EXPECT_EQ(buffered(), "");
}

TEST_F(Content, ByteArrayOfAClosedConnectionIsWhateverWasInTheBuffer) {
    for (const bool toBuffer : {true, false}) {
        prefill("left");
        EXPECT_EQ(copyToBytes(toBuffer).byteText(), "left");
        EXPECT_EQ(buffered(), "");
        const Array nothing = copyToBytes(toBuffer);
        EXPECT_EQ(nothing.className(), "uint8");
        EXPECT_EQ(nothing.dimensions(), (std::vector<std::size_t>{0, 1}));
    }
    prefill("taken by a caller who asks for no result");
    EXPECT_NO_THROW(Adapter.call("copyContentToByteArray", std::vector<Array>{Array(true)}, 0));
    EXPECT_EQ(buffered(), "");
}

TEST_F(Content, BytesAreLostOnlyWhileTheStreamHasFailed) {
    prefill("one");
    native().ResponseBuffer.setstate(std::ios::badbit);
    prefill("two");
    EXPECT_EQ(copyToBytes(true).byteText(), "one");
    prefill("three");
    EXPECT_EQ(buffered(), "three") << "taking the bytes has cleared the stream's state";
}

TEST_F(Content, FailureHandsTheConsumerWhatTheBufferHasAndOtherwiseLeavesItThere) {
    struct Row {
        bool HasConsumer = false, FailsToSave = false, ToBuffer = false, Saved = false;
    };
    const testsupport::RefusingPort port;
    for (const Row& row : {Row{.ToBuffer = true},
                           {.HasConsumer = true, .ToBuffer = true, .Saved = true},
                           {.HasConsumer = true, .FailsToSave = true, .ToBuffer = true, .Saved = true},
                           {.HasConsumer = true}}) {
        std::string saved;
        vantik::ContentConsumer consumer;
        consumer.write = [](std::span<const std::byte> piece) { return static_cast<double>(piece.size()); };
        consumer.savedOnFailure = [&](std::span<const std::byte> bytes) {
            saved += vantik::asText(bytes);
            if (row.FailsToSave) {
                throw std::runtime_error("no room"); // does not replace the transfer's failure
            }
        };
        Adapter.set("Consumer", row.HasConsumer ? vantik::makeConsumer(host(), consumer).array() : Array());
        native().emptyResponseBuffer();
        prefill("partial");
        openTo(port.url());
        EXPECT_EQ(failureOf([&] { copyToBytes(row.ToBuffer); }).identifier(), "VANTIK:webservices:ConnectionRefused");
        EXPECT_EQ(saved, row.Saved ? "partial" : "");
        EXPECT_EQ(buffered(), row.Saved ? "" : "partial");
        EXPECT_TRUE(native().ResponseBuffer.good());
        Adapter.call("closeConnection");
    }
    Adapter.set("Consumer", Array());
}

TEST_F(Content, FileThatCannotBeOpenedIsNamed) {
    for (const std::string& name : {std::string(), Folder.path(), Folder.file("no/such/folder")}) {
        EXPECT_EQ(failureTextOf([&] { copyToFile(name); }), "VANTIK:webservices:InvalidFilename(" + name + ")");
    }
}

TEST_F(Content, NameWithANulTruncatesNoOtherFile) {
    const std::string file = Folder.file("victim");
    writeFile(file, "safe");
    const std::u16string name = std::filesystem::path(file).u16string() + u'\0' + u"beyond";
    EXPECT_EQ(failureOf([&] { copyToFile(name); }).identifier(), "VANTIK:webservices:InvalidFilename");
    EXPECT_EQ(readFile(file), "safe");
}

// It has no narrow form for the message either, so the conversion's own failure comes out.
TEST_F(Content, NameThatIsNotTextIsRefused) {
    const std::u16string name = std::filesystem::path(Folder.file("half")).u16string() + u'\xD800';
    EXPECT_THAT(failureOf([&] { copyToFile(name); }).Text, testing::HasSubstr("unpaired surrogate U+D800"));
    EXPECT_TRUE(std::filesystem::is_empty(Folder.path()));
}

TEST_F(Content, FailureOfTheCloseIsNotLookedAt) {
    // So little that it waits in the stream until the close.
    testsupport::ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx")});
    openTo(server.url());
    EXPECT_NO_THROW(copyToFile("/dev/full"));
}
