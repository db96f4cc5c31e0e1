// How long the bytes written through ResponsePayload stay: until they are taken as a byte array, and no shorter.
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"

#include <functional>
#include <string>
#include <vector>

using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

namespace {

class ResponseBuffer : public ClassFixture {
protected:
    Object Adapter = makeAdapter(true);
    testsupport::TemporaryFolder Folder;
    std::string buffered() { return std::string(Adapter.get("ResponsePayload").byteText()); }
};

} // namespace

TEST_F(ResponseBuffer, IsEmptiedByTakingItsBytesAndByNothingElse) {
    testsupport::ScriptedServer server(
        {{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Type: a/b\r\nContent-Length: 4\r\n\r\nbody")},
         {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nnext")}});
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("kept")));
    const Array field = Array::structures({"Name", "Value"}, {{"X-A", "1"}});
    const Array schemes = Array::enumeration("vantik.net.http.AuthenticationScheme", std::vector<std::string>{"Basic"});
    const std::vector<std::pair<const char*, std::function<void()>>> events = {
        {"URL", [&] { Adapter.set("URL", server.url("/")); }},
        {"Payload", [&] { Adapter.set("Payload", Array::bytes(std::string_view("request"))); }},
        {"null payload", [&] { Adapter.set("ResponsePayload", Array()); }},
        {"open", [&] { Adapter.call("openConnection"); }},
        {"setFields", [&] { Adapter.call("setFields", {field}); }},
        {"setRequestProperty",
         [&] {
             Adapter.call("setRequestProperty", {"X-B", "2"});
         }},
        {"removeField", [&] { Adapter.call("removeField", {"X-B"}); }},
        {"schemes",
         [&] {
             Adapter.call("setAuthenticationSchemes", {schemes, true});
         }},
        {"request line", [&] { Adapter.call("getRequestLine"); }},
        {"ContentType", [&] { Adapter.get("ContentType"); }}, // sends
        {"fields", [&] { Adapter.call("getResponseFields"); }},
        {"file", [&] { Adapter.call("copyContentToFile", {Folder.file("f")}); }},
        {"close", [&] { Adapter.call("closeConnection"); }},
        {"close all", [&] { Adapter.call("closeAllConnections"); }},
        {"refused URL", [&] { failureOf([&] { Adapter.set("URL", "no scheme"); }); }},
        {"failed open", [&] { failureOf([&] { Adapter.call("openConnection"); }); }},
        {"URL again", [&] { Adapter.set("URL", server.url("/")); }},
        {"open again", [&] { Adapter.call("openConnection"); }},
    };
    for (const auto& [name, event] : events) {
        event();
        EXPECT_EQ(buffered(), "kept") << "after " << name;
    }
    EXPECT_EQ(testsupport::readFile(Folder.file("f")), "body") << "a file gets the content alone";
    Adapter.call("openConnection");
    EXPECT_EQ(Adapter.call("copyContentToByteArray", {true}).byteText(), "keptnext");
    EXPECT_EQ(buffered(), "");
}

TEST_F(ResponseBuffer, ByteArrayOfAClosedConnectionIsWhateverStoodInIt) {
    for (const bool toBuffer : {true, false}) {
        Adapter.set("ResponsePayload", Array::bytes(std::string_view("left")));
        EXPECT_EQ(Adapter.call("copyContentToByteArray", {toBuffer}).byteText(), "left");
        EXPECT_EQ(buffered(), "");
        const Array nothing = Adapter.call("copyContentToByteArray", {toBuffer});
        EXPECT_EQ(nothing.className(), "uint8");
        EXPECT_EQ(nothing.dimensions(), (std::vector<std::size_t>{0, 1}));
    }
}

TEST_F(ResponseBuffer, NullsClearTheRequestsContentOnly) {
    Adapter.set("Payload", Array::bytes(std::string_view("request")));
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("response")));
    Adapter.set("ResponsePayload", Array()); // reaches the setter as null
    EXPECT_EQ(Adapter.get("Payload").byteText(), "");
    EXPECT_EQ(buffered(), "response");
    Adapter.set("Payload", Array::bytes(std::string_view("request")));
    Adapter.set("ResponsePayload", Array::bytes(std::string_view())); // empty, but not null: nothing to append
    EXPECT_EQ(Adapter.get("Payload").byteText(), "request");
    EXPECT_EQ(buffered(), "response");
}

TEST_F(ResponseBuffer, BytesAreLostOnlyWhileTheStreamHasFailed) {
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("one")));
    native(Adapter).ResponseBuffer.setstate(std::ios::badbit);
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("two")));
    EXPECT_EQ(Adapter.call("copyContentToByteArray", {true}).byteText(), "one");
    Adapter.set("ResponsePayload", Array::bytes(std::string_view("three")));
    EXPECT_EQ(buffered(), "three") << "taking the bytes has cleared the stream's state";
}
