#include "hostclass/ContentMethods.h"

#include "hostcalls/HostObjectCall.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

using testsupport::readFile;
using testsupport::writeFile;
using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

namespace {

class Content : public ClassFixture {
protected:
    Object Adapter = makeAdapter(true);
    testsupport::TemporaryFolder Folder;
    Array copyToBytes(bool toBuffer) { return Adapter.call("copyContentToByteArray", {Array(toBuffer)}); }
    void copyToFile(const std::string& name) { Adapter.call("copyContentToFile", {Array(name)}); }
    void openTo(const std::string& url) {
        Adapter.set("URL", url);
        Adapter.call("openConnection");
        Adapter.set("RequestMethod", "GET");
    }
    void prefill(std::string_view bytes) { Adapter.set("ResponsePayload", Array::bytes(bytes)); }
    std::string buffered() { return std::string(Adapter.get("ResponsePayload").byteText()); }
};

std::string response(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

using Write = std::function<std::optional<double>(std::span<const std::byte>)>;
using Saved = std::function<void(std::span<const std::byte>)>;

Object makeConsumer(vantik::Host& host, Write write, Saved saved = {}) {
    vantik::ContentConsumer consumer;
    consumer.write = std::move(write);
    consumer.savedOnFailure = std::move(saved);
    return vantik::makeConsumer(host, std::move(consumer));
}

std::optional<double> takeAll(std::span<const std::byte> piece) {
    return static_cast<double>(piece.size());
}

std::string textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

TEST_F(Content, ClosedConnectionGivesNoBytes) {
    const Array bytes = copyToBytes(true);
    EXPECT_EQ(bytes.className(), "uint8");
    EXPECT_EQ(bytes.dimensions(), (std::vector<std::size_t>{0, 1}));
}

TEST_F(Content, BytesOfResponsePayloadComeFirstAndTheBufferIsEmptyAfterwards) {
    testsupport::ScriptedServer server({step::expectHead(), step::send(response("body"))});
    prefill("before ");
    openTo(server.url());
    EXPECT_EQ(copyToBytes(true).byteText(), "before body");
    EXPECT_EQ(buffered(), "");
}

TEST_F(Content, ErrorStateOfTheBufferIsCleared) {
    native(Adapter).ResponseBuffer.setstate(std::ios::failbit);
    copyToBytes(true);
    EXPECT_TRUE(native(Adapter).ResponseBuffer.good());
}

TEST_F(Content, WithoutTheBufferTheConsumerGetsTheContent) {
    testsupport::ScriptedServer server({step::expectHead(), step::send(response("body"))});
    std::string consumed;
    const Object consumer = makeConsumer(host(), [&](std::span<const std::byte> piece) {
        consumed += textOf(piece);
        return takeAll(piece);
    });
    Adapter.set("Consumer", consumer);
    prefill("kept");
    openTo(server.url());
    EXPECT_EQ(copyToBytes(false).byteText(), "kept");
    EXPECT_EQ(consumed, "body");
}

TEST_F(Content, ResultIsMadeForACallerWhoAsksForNone) {
    prefill("x");
    EXPECT_NO_THROW(Adapter.call("copyContentToByteArray", std::vector<Array>{Array(true)}, 0));
    EXPECT_EQ(buffered(), "");
}

TEST_F(Content, FailureWithoutAConsumerLeavesTheBuffer) {
    const testsupport::RefusingPort port;
    prefill("kept");
    openTo(port.url());
    EXPECT_EQ(failureOf([&] { copyToBytes(true); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_EQ(buffered(), "kept");
}

namespace {

// A consumer that notes what it is given after a failure.
Object savingConsumer(vantik::Host& host, std::vector<std::string>& saved) {
    return makeConsumer(host, takeAll, [&saved](std::span<const std::byte> bytes) { saved.push_back(textOf(bytes)); });
}

} // namespace

TEST_F(Content, FailureHandsTheConsumerWhatWasSaved) {
    const testsupport::RefusingPort port;
    std::vector<std::string> saved;
    Adapter.set("Consumer", savingConsumer(host(), saved));
    prefill("partial");
    openTo(port.url());
    EXPECT_EQ(failureOf([&] { copyToBytes(true); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_THAT(saved, testing::ElementsAre("partial"));
    EXPECT_EQ(buffered(), "");
    EXPECT_TRUE(native(Adapter).ResponseBuffer.good());
}

TEST_F(Content, ResponseThatBreaksOffIsSavedUpToThere) {
    testsupport::ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n"),
         step::reset()});
    std::vector<std::string> saved;
    Adapter.set("Consumer", savingConsumer(host(), saved));
    openTo(server.url());
    EXPECT_THROW(copyToBytes(true), vantik::Failure);
    ASSERT_EQ(saved.size(), 1u);
    // A reset may overtake bytes that the peer has not read yet.
    EXPECT_TRUE(saved[0] == "hello" || saved[0].empty()) << saved[0];
}

TEST_F(Content, FailureWithoutTheBufferTellsTheConsumerNothing) {
    const testsupport::RefusingPort port;
    std::vector<std::string> saved;
    Adapter.set("Consumer", savingConsumer(host(), saved));
    prefill("kept");
    openTo(port.url());
    EXPECT_THROW(copyToBytes(false), vantik::Failure);
    EXPECT_TRUE(saved.empty());
    EXPECT_EQ(buffered(), "kept");
}

TEST_F(Content, ConsumerThatFailsToSaveDoesNotReplaceTheFailure) {
    const testsupport::RefusingPort port;
    int calls = 0;
    const Object consumer = makeConsumer(host(), takeAll, [&](std::span<const std::byte>) {
        ++calls;
        throw std::runtime_error("no room");
    });
    Adapter.set("Consumer", consumer);
    prefill("partial");
    openTo(port.url());
    EXPECT_EQ(failureOf([&] { copyToBytes(true); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(buffered(), "");
}

TEST_F(Content, ConsumerWithoutAPlaceToSaveIsNoFurtherFailure) {
    const testsupport::RefusingPort port;
    // A class of its own, derived from nothing that has the method.
    ASSERT_TRUE(host().scope()->Classes.removeClass(kConsumerClassName));
    vantik::HostClass bare(kConsumerClassName);
    bare.method("closeInternal", [](std::span<const Array>) { return std::vector<Array>(); });
    bare.defineIn(host());
    Adapter.set("Consumer", host().create(kConsumerClassName));
    openTo(port.url());
    EXPECT_EQ(failureOf([&] { copyToBytes(true); }).identifier(), "VANTIK:webservices:ConnectionRefused");
}

TEST_F(Content, ObjectsReplacedByACallbackAreSafe) {
    const std::string body(40000, 'b');
    testsupport::ScriptedServer server({step::expectHead(), step::send(response(body))});
    std::size_t taken = 0;
    const Object consumer = makeConsumer(host(), [&](std::span<const std::byte> piece) {
        Adapter.set("Consumer", Array());
        Adapter.set("ProgressReporter", Array());
        taken += piece.size();
        return takeAll(piece);
    });
    Adapter.set("Consumer", consumer);
    Adapter.set("ProgressReporter", vantik::makeProgressReporter(host(), [](std::uint64_t) { return true; }));
    openTo(server.url());
    EXPECT_EQ(copyToBytes(true).byteText(), body);
    EXPECT_EQ(taken, body.size());
    EXPECT_EQ(native(Adapter).Connection.Settings.Consumer, nullptr);
}

TEST_F(Content, FileHoldsTheContent) {
    testsupport::ScriptedServer server({step::expectHead(), step::send(response("body of a file"))});
    const std::string file = Folder.file("caf\xC3\xA9");
    writeFile(file, "something longer that was there before");
    openTo(server.url());
    copyToFile(file);
    EXPECT_EQ(readFile(file), "body of a file");
}

TEST_F(Content, FileOfAClosedConnectionIsTruncated) {
    const std::string file = Folder.file("out");
    writeFile(file, "before");
    copyToFile(file);
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(readFile(file), "");
}

TEST_F(Content, FileThatCannotBeOpenedIsNamed) {
    for (const std::string& name : {Folder.path(), Folder.file("no/such/folder")}) {
        const vantik::Message failure = failureOf([&] { copyToFile(name); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:InvalidFilename");
        EXPECT_EQ(failure.Arguments, arguments({name}));
    }
    EXPECT_EQ(failureOf([&] { Adapter.call("copyContentToFile", {""}); }).identifier(),
              "VANTIK:webservices:InvalidFilename");
}

TEST_F(Content, NameWithANulTruncatesNoOtherFile) {
    const std::string file = Folder.file("victim");
    writeFile(file, "safe");
    const std::u16string name = std::filesystem::path(file).u16string() + u'\0' + u"behind";
    EXPECT_EQ(failureOf([&] { Adapter.call("copyContentToFile", {Array(name)}); }).identifier(),
              "VANTIK:webservices:InvalidFilename");
    EXPECT_EQ(readFile(file), "safe");
}

// Its name has no narrow form for the message either, so that the conversion's own failure comes out.
TEST_F(Content, NameThatIsNoTextIsRefused) {
    const std::u16string name = std::filesystem::path(Folder.file("half")).u16string() + u'\xD800';
    const vantik::Message failure = failureOf([&] { Adapter.call("copyContentToFile", {Array(name)}); });
    EXPECT_THAT(failure.Text, testing::HasSubstr("unpaired surrogate U+D800"));
    EXPECT_TRUE(std::filesystem::is_empty(Folder.path()));
}

TEST_F(Content, TransferThatFailsIsReportedAndNotTheFile) {
    const testsupport::RefusingPort port;
    openTo(port.url());
    EXPECT_EQ(failureOf([&] { copyToFile(Folder.file("out")); }).identifier(), "VANTIK:webservices:ConnectionRefused");
    EXPECT_EQ(readFile(Folder.file("out")), "");
}

TEST_F(Content, FullDiskIsReported) {
    // More than a stream holds back, so that writing fails before the close.
    testsupport::ScriptedServer server({step::expectHead(), step::send(response(std::string(100000, 'x')))});
    openTo(server.url());
    EXPECT_EQ(failureOf([&] { copyToFile("/dev/full"); }).identifier(),
              "VANTIK:webservices:CopyContentToDataStreamError");
}

TEST_F(Content, FailureOfTheCloseIsLookedAtNoFurther) {
    // So little that it waits in the stream until the close.
    testsupport::ScriptedServer server({step::expectHead(), step::send(response("x"))});
    openTo(server.url());
    EXPECT_NO_THROW(copyToFile("/dev/full"));
}

TEST_F(Content, StatusOutsideSuccessFailsForTheOlderInterfaceOnly) {
    for (const bool httpOptions : {true, false}) {
        Adapter = Object();
        Adapter = makeAdapter(httpOptions);
        testsupport::ScriptedServer server(
            {step::expectHead(), step::send("HTTP/1.1 404 Gone Away\r\nContent-Length: 2\r\n\r\nno")});
        openTo(server.url("/p"));
        if (httpOptions) {
            EXPECT_EQ(copyToBytes(true).byteText(), "no");
        } else {
            const vantik::Message failure = failureOf([&] { copyToBytes(true); });
            EXPECT_EQ(failure.identifier(), "VANTIK:webservices:StatusError");
            EXPECT_EQ(failure.Arguments, arguments({std::int64_t{404}, std::string("Gone Away"), server.url("/p")}));
        }
        Adapter.call("closeConnection");
    }
}
