// Request content streamed from a provider object.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

enum class Framing { Length, Chunks, ChunksAtOnce };

class ProviderUpload : public HostFixture,
                       public ::testing::WithParamInterface<std::tuple<std::size_t, std::uint64_t, Framing>> {};

// libcurl may ask twice in one perform; an empty answer then would end the content early, with a good status.
TEST_P(ProviderUpload, ArrivesWhole) {
    const auto [size, piece, framing] = GetParam();
    const std::string body = patternedBytes(size);
    ScriptedServer& server = serve({step::expectHead(), step::continueIfExpected(),
                                    framing == Framing::Length ? step::expectBody(size) : step::expectChunkedBody(),
                                    step::send(response("taken"))});
    const ScriptedProvider provider = makeScriptedProvider(host(), body);
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("ProviderBufferSize", piece);
    if (framing == Framing::Length) {
        connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
    }
    if (framing == Framing::ChunksAtOnce) {
        connection.call("removeField", {"Expect"});
    }
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    EXPECT_EQ(provider->Starts, 1);
    const std::uint64_t wanted = piece == 0 ? 16384 : piece;
    EXPECT_EQ(provider->Wanted, std::vector<std::uint64_t>((size + wanted - 1) / wanted + 1, wanted))
        << "as many reads as there are pieces, and one that finds the end";
    expectScopeUsable(connection);
}

std::string uploadName(const ::testing::TestParamInfo<ProviderUpload::ParamType>& info) {
    static const char* const framings[] = {"WithLength", "InChunks", "InChunksAtOnce"};
    const auto [size, piece, framing] = info.param;
    return std::to_string(size) + "BytesBy" + std::to_string(piece) + framings[static_cast<int>(framing)];
}

INSTANTIATE_TEST_SUITE_P(Rows, ProviderUpload,
                         ::testing::Combine(::testing::Values(0U, 1U, 16384U, 100000U, 1000000U),
                                            ::testing::Values(0U, 1000U, 16384U, 200000U),
                                            ::testing::Values(Framing::Length, Framing::Chunks, Framing::ChunksAtOnce)),
                         uploadName);

class Provider : public HostFixture {
protected:
    ScriptedServer& serveUpload() {
        return serve(
            {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("taken"))});
    }
    Object openUpload(const std::string& url, const ScriptedProvider& provider) {
        Object connection = open(url);
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        return connection;
    }
};

TEST_F(Provider, MayGiveMoreThanWasAskedFor) {
    ScriptedServer& server = serveUpload();
    const std::string body = patternedBytes(50000);
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [&](int call, std::uint64_t) {
        return Array::bytes(call == 1 ? std::string_view(body) : std::string_view());
    };
    const Object connection = openUpload(server.url("/"), provider);
    connection.set("ProviderBufferSize", std::uint64_t{100});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    expectScopeUsable(connection);
}

TEST_F(Provider, MayGiveTooLittleEachTime) {
    ScriptedServer& server = serveUpload();
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return Array::bytes(std::string_view("0123456789").substr(static_cast<std::size_t>(call - 1), 1));
    };
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies.at(0), "0123456789");
    expectScopeUsable(connection);
}

// The class of the result is not checked, and its first dimension counts: a row of many elements offers one byte.
TEST_F(Provider, RowOffersOneByte) {
    ScriptedServer& server = serveUpload();
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return call == 1 ? Array::logicals({true, false, true}) : Array::bytes(std::string_view());
    };
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies.at(0), std::string(1, '\1'));
    expectScopeUsable(connection);
}

TEST_F(Provider, EmptyArrayOfNoClassEndsTheContent) {
    ScriptedServer& server = serveUpload();
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t) {
        return call == 1 ? Array::bytes(std::string_view("all")) : Array();
    };
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies.at(0), "all");
    expectScopeUsable(connection);
}

TEST_F(Provider, ServesSeveralExchanges) {
    const Script exchange{step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(),
                          step::send(response("taken"))};
    Script twice = exchange;
    twice.insert(twice.end(), exchange.begin(), exchange.end());
    ScriptedServer& server = serve(twice);
    const std::string body = patternedBytes(20000);
    const ScriptedProvider provider = makeScriptedProvider(host(), body);
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(receiveBytes(connection), "taken");
    connection.call("openConnection");
    connection.set("RequestMethod", "PUT");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(provider->Starts, 2);
    EXPECT_EQ(difference(server.record().Bodies.at(1), body), "");
    expectScopeUsable(connection);
}

TEST_F(Provider, IsKeptAliveByTheAdapter) {
    ScriptedServer& server = serveUpload();
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", makeScriptedProvider(host(), "outlives its maker"));
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies.at(0), "outlives its maker");
    EXPECT_TRUE(connection.get("Provider").isA("vantik.net.http.io.ContentProvider"));
    connection.set("Provider", Array());
    EXPECT_TRUE(connection.get("Provider").empty());
    expectScopeUsable(connection);
}

TEST_F(Provider, OfAWrongClassIsRefusedAndTheOldOneStays) {
    ScriptedServer& server = serveUpload();
    const ScriptedProvider provider = makeScriptedProvider(host(), "old");
    const ScriptedReporter reporter = makeScriptedReporter(host());
    const Object connection = openUpload(server.url("/"), provider);
    const vantik::Message message = failureOf([&] { connection.set("Provider", reporter); });
    EXPECT_EQ(message.identifier(), "VANTIK:legacy_two_part:UnableToConvert");
    ASSERT_EQ(message.Arguments.size(), 3U);
    EXPECT_EQ(std::get<std::string>(message.Arguments[0]), reporter.object().className());
    EXPECT_EQ(std::get<std::string>(message.Arguments[1]), "vantik.net.http.io.ContentProvider");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(server.record().Bodies.at(0), "old");
    expectScopeUsable(connection);
}

TEST_F(Provider, FailuresReachTheCallerUnchanged) {
    ScriptedServer& server = serve(std::vector<Script>(4, Script{step::awaitPeerEnd()}));
    for (const bool atStart : {true, false}) {
        const ScriptedProvider provider = makeScriptedProvider(host(), "content");
        if (atStart) {
            provider->OnStart = [](int) { throw std::domain_error("no content today"); };
        } else {
            provider->OnRead = [](int, std::uint64_t) -> Array { throw std::domain_error("no content today"); };
        }
        const Object connection = openUpload(server.url("/"), provider);
        try {
            receiveBytes(connection);
            ADD_FAILURE() << "the provider's failure was lost";
        } catch (const std::domain_error& failure) {
            EXPECT_STREQ(failure.what(), "no content today");
        }
        expectScopeUsable(connection);
    }
}

TEST_F(Provider, FailureWithAnIdentifierKeepsIt) {
    ScriptedServer& server = serve({step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int, std::uint64_t) -> Array {
        throw vantik::Failure({"VANTIK:host", "FileUnreadable", {std::string("x.bin")}, "cannot read x.bin"});
    };
    const Object connection = openUpload(server.url("/"), provider);
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })), "VANTIK:host:FileUnreadable(x.bin)");
    expectScopeUsable(connection);
}

TEST_F(Provider, FailureInTheMiddleOfTheContent) {
    ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
    const ScriptedProvider provider = makeScriptedProvider(host());
    provider->OnRead = [](int call, std::uint64_t wanted) -> Array {
        if (call == 3) {
            throw std::domain_error("torn");
        }
        return Array::bytes(std::string_view(patternedBytes(wanted)));
    };
    const Object connection = openUpload(server.url("/"), provider);
    connection.call("removeField", {"Expect"});
    EXPECT_THROW(receiveBytes(connection), std::domain_error);
    EXPECT_EQ(provider->Wanted.size(), 3U);
    expectScopeUsable(connection);
}

TEST_F(Provider, WithoutItsMethodsIsReported) {
    ScriptedServer& server = serve(std::vector<Script>(2, Script{step::awaitPeerEnd()}));
    for (const std::string method : {"startInternal", "getDataInternal"}) {
        const ScriptedProvider provider = makeScriptedProvider(host(), "content", {method});
        const Object connection = openUpload(server.url("/"), provider);
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(vantik.net.http.io.ContentProvider." + method + " not found)");
        expectScopeUsable(connection);
    }
}

} // namespace
