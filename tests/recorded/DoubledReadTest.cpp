// Uploads under a libcurl that asks for content twice in one perform, as later versions do. A plain
// "nothing" to the second question would end the upload early, with a good status and no error.
#include "hostclass/ModuleEntry.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"
#include "transfer/CurlSingleton.h"

#include <stdexcept>

extern "C" {
CURLcode __real_curl_easy_setopt(CURL* easy, CURLoption option, ...);
CURLcode __real_curl_easy_pause(CURL* easy, int mask);
CURLMcode __real_curl_multi_perform(CURLM* multi, int* running);
}

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class DoubledRead : public ScopeFixture {
protected:
    DoubledRead() {
        VKInitialize_netrove();
        Curl.OnPerform = [this](int& running) {
            const netrove::CurlSingleton& handles = netrove::getCurlSingleton();
            __real_curl_easy_setopt(handles.EasyHandle, CURLOPT_READFUNCTION, &DoubledRead::readTwice);
            __real_curl_easy_setopt(handles.EasyHandle, CURLOPT_READDATA, this);
            return __real_curl_multi_perform(handles.MultiHandle, &running);
        };
        Curl.OnEasyPause = [this](int mask) {
            Pausing = false;
            return __real_curl_easy_pause(netrove::getCurlSingleton().EasyHandle, mask);
        };
    }
    // In the place of the library's callback. What the second read answers instead of bytes is passed on next time.
    static std::size_t readTwice(char* buffer, std::size_t size, std::size_t count, void* self) {
        auto& test = *static_cast<DoubledRead*>(self);
        if (test.Pausing) {
            return CURL_READFUNC_PAUSE;
        }
        std::string bytes;
        const std::size_t first = test.Curl.callRead(bytes, size * count);
        if (first == 0 || first >= size * count) { // the end, a full buffer, or one of the special answers
            bytes.copy(buffer, bytes.size());
            return first;
        }
        std::string more;
        const std::size_t second = test.Curl.callRead(more, size * count - first);
        test.Pausing = second == CURL_READFUNC_PAUSE;
        test.Pauses += test.Pausing ? 1 : 0;
        test.Ends += second == 0 ? 1 : 0;
        bytes += more;
        bytes.copy(buffer, bytes.size());
        return bytes.size();
    }
    Object openUpload(const ScriptedServer& server, const Array& content, std::uint64_t piece = 0) {
        Object connection = host().create(kAdapterClass, {true});
        connection.set("URL", server.url("/"));
        // An upload that nobody takes up again ends as a timeout and not as a hanging test.
        connection.set("TimeoutInMilliseconds", Array::doubles({5000, 20000, 20000}));
        connection.call("openConnection");
        connection.set("RequestMethod", "PUT");
        connection.call("removeField", {"Expect"});
        connection.set(content.className() == "uint8" ? "Payload" : "Provider", content);
        connection.set("ProviderBufferSize", piece);
        return connection;
    }

    CurlInterposer Curl;
    bool Pausing = false;
    int Pauses = 0;
    int Ends = 0; // second reads that found the end
};

const Script kTakes{step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))};

TEST_F(DoubledRead, PausesUntilThereIsMoreAndTheUploadArrivesWhole) {
    for (const std::size_t size : {1U, 16384U, 163840U}) {
        for (const std::uint64_t piece : {1000U, 16384U, 200000U}) {
            SCOPED_TRACE(std::to_string(size) + " bytes by " + std::to_string(piece));
            const ScriptedServer server(kTakes);
            const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(size));
            Pauses = 0;
            EXPECT_EQ(receiveBytes(openUpload(server, provider, piece)), "taken");
            EXPECT_EQ(difference(server.record().Bodies.at(0), provider->Content), "");
            if (piece <= 16384) { // a larger one fills more than one read
                EXPECT_EQ(Pauses, (size + piece - 1) / piece) << "once for each piece, since the end had not been said";
                EXPECT_EQ(Ends, 0);
            }
        }
    }
}

TEST_F(DoubledRead, TakesGatheredPiecesWhole) {
    const std::string body = patternedBytes(1'000'000);
    const ScriptedServer server({step::expectHead(), step::expectBody(body.size()), step::send(response("taken"))});
    const Object connection = openUpload(server, makeScriptedProvider(host(), body), 65536);
    connection.call("setRequestProperty", {"Content-Length", std::to_string(body.size())});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    EXPECT_EQ(Ends, 0);
}

TEST_F(DoubledRead, OfContentInMemoryFindsTheEndAtOnce) {
    const ScriptedServer server(kTakes);
    const std::string body = patternedBytes(100'000);
    EXPECT_EQ(receiveBytes(openUpload(server, Array::bytes(body))), "taken");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    EXPECT_EQ(Pauses, 0);
    EXPECT_EQ(Ends, 1);
}

// Nobody takes up a pause again once the upload is broken off, so nobody may wait for it either.
TEST_F(DoubledRead, PausedUploadThatFailsIsOverForGood) {
    ScriptedServer server({kTakes, kTakes});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return call == 3 ? throw std::domain_error("torn") : Array::bytes("piece");
    };
    {
        const Object connection = openUpload(server, provider);
        EXPECT_THROW(receiveBytes(connection), std::domain_error);
        EXPECT_EQ(Pauses, 2) << "the last one is not over";
        const std::string broken = describe(failureOf([&] { receiveBytes(connection); }));
        EXPECT_NE(broken.find("The upload was broken off before its end"), std::string::npos) << broken;
    }
    Pausing = false;
    EXPECT_EQ(receiveBytes(openUpload(server, makeScriptedProvider(host(), "whole"))), "taken");
    EXPECT_EQ(server.record(1).Bodies.at(0), "whole");
    EXPECT_TRUE(server.record(0).Bodies.empty()) << "the cut content got no good end";
}

} // namespace
