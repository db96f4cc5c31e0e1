// Content of requests to a program behind Apache httpd, which gives it back: from memory and from a provider, with a
// known length and in chunks, open to everybody and behind a challenge.
#include "tests/integration/apache/ApacheFixture.h"

#include <gmock/gmock.h>

#include <ostream>

namespace {

using namespace integrationtest;
using testsupport::makeScriptedProvider;
using testsupport::ScriptedProvider;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

enum class Source { Memory, Provider, PostData };
enum class Framing { Chunks, Length };

struct UploadRow {
    std::string Method;
    Source From;
    Framing Frame;
    std::string Folder;
    std::string Scheme; // as the server tells it; empty: open
    bool OptionsMode = true;

    std::string name() const {
        return std::string(OptionsMode ? "" : "Older") + Method + "From" +
               (From == Source::Memory     ? "Memory"
                : From == Source::Provider ? "Provider"
                                           : "PostData") +
               (Frame == Framing::Chunks ? "InChunks" : "WithItsLength") + (Scheme.empty() ? "" : "Behind" + Scheme);
    }
};

void PrintTo(const UploadRow& row, std::ostream* out) {
    *out << row.name();
}

std::vector<UploadRow> uploadRows() {
    std::vector<UploadRow> rows;
    for (const auto& [folder, scheme] :
         {std::pair("open", ""), std::pair("basic", "Basic"), std::pair("digest", "Digest")}) {
        for (const char* method : {"POST", "PUT", "PATCH", "DELETE"}) {
            for (const Source source : {Source::Memory, Source::Provider}) {
                for (const Framing framing : {Framing::Chunks, Framing::Length}) {
                    rows.push_back({method, source, framing, folder, scheme});
                }
            }
        }
        for (const char* method : {"POST", "PUT", "PATCH"}) {
            rows.push_back({method, Source::PostData, Framing::Length, folder, scheme, false});
        }
    }
    return rows;
}

class ApacheUpload : public ApacheFixture, public testing::WithParamInterface<UploadRow> {};

TEST_P(ApacheUpload, ComesBackAsItWasSent) {
    const UploadRow& row = GetParam();
    for (const std::size_t size : {1U, 16'384U, 300'000U}) {
        SCOPED_TRACE(size);
        std::string content = generated(size);
        if (row.From == Source::PostData) {
            content = std::string(size, 'x'); // text
        }
        const Object connection = openAt("/" + row.Folder + "/echo", row.OptionsMode);
        connection.set("RequestMethod", row.Method);
        connection.call("setRequestProperty", {"Content-Type", "application/x-test"});
        if (row.Frame == Framing::Length && row.From != Source::PostData) {
            connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
        }
        if (row.From == Source::PostData) {
            connection.set("PostData", content);
        } else if (row.From == Source::Memory) {
            connection.set("Payload", Array::bytes(std::string_view(content)));
        } else {
            connection.set("Provider", makeScriptedProvider(host(), content));
        }
        if (!row.Scheme.empty()) {
            logIn(connection, {.Allowed = row.OptionsMode ? std::optional(Schemes{row.Scheme}) : std::nullopt});
        }
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(content));
        EXPECT_EQ(status(connection), 200);
        EXPECT_EQ(field(connection, "X-Method"), row.Method);
        EXPECT_EQ(field(connection, "X-Type"), "application/x-test");
        if (!row.Scheme.empty()) {
            EXPECT_EQ(field(connection, "X-User"), kKnownUser);
            EXPECT_EQ(field(connection, "X-Scheme"), row.Scheme);
        }
        expectScopeUsable(connection);
    }
}

INSTANTIATE_TEST_SUITE_P(, ApacheUpload, testing::ValuesIn(uploadRows()),
                         [](const testing::TestParamInfo<UploadRow>& info) { return info.param.name(); });

// Where the scheme has to be found out first, the content may have to go out twice. A client that waits for the
// server's word before it sends content finds out in time.
struct AgainRow {
    std::string Name;
    Source From;
    bool Expect; // the field that asks the server for its word
    bool Length;
};

void PrintTo(const AgainRow& row, std::ostream* out) {
    *out << row.Name;
}

const AgainRow kAgainRows[] = {
    {"MemoryInChunks", Source::Memory, true, false},
    {"MemoryWithItsLength", Source::Memory, true, true},
    {"MemoryInChunksSentAtOnce", Source::Memory, false, false},
    {"MemoryWithItsLengthSentAtOnce", Source::Memory, false, true},
    {"ProviderInChunks", Source::Provider, true, false},
    {"ProviderWithItsLength", Source::Provider, true, true},
};

class ApacheUploadAgain : public ApacheFixture, public testing::WithParamInterface<AgainRow> {
protected:
    Object openUpload(const std::string& folder, bool expect) {
        Object connection = openAt("/" + folder + "/echo");
        prepareUpload(connection, expect);
        return connection;
    }
    static void prepareUpload(const Object& connection, bool expect) {
        connection.set("RequestMethod", "PUT");
        logIn(connection, {.Allowed = Schemes{"Basic", "Digest"}});
        if (!expect) {
            connection.call("removeField", {"Expect"});
        }
    }
};

TEST_P(ApacheUploadAgain, ContentArrivesWholeBehindAChallenge) {
    const AgainRow& row = GetParam();
    for (const std::string folder : {"basic", "digest"}) {
        for (const std::size_t size : {1U, 300'000U}) {
            SCOPED_TRACE(folder + " " + std::to_string(size));
            const std::string content = generated(size);
            const Object connection = openUpload(folder, row.Expect);
            const ScriptedProvider provider = makeScriptedProvider(host(), content);
            if (row.Length) {
                connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
            }
            if (row.From == Source::Memory) {
                connection.set("Payload", Array::bytes(std::string_view(content)));
            } else {
                connection.set("Provider", provider);
            }
            EXPECT_EQ(receiveDigest(connection).hex(), digestOf(content));
            EXPECT_EQ(status(connection), 200);
            EXPECT_EQ(field(connection, "X-User"), kKnownUser);
            EXPECT_EQ(provider->Starts, row.From == Source::Provider ? 1 : 0);
            expectScopeUsable(connection);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, ApacheUploadAgain, testing::ValuesIn(kAgainRows),
                         [](const testing::TestParamInfo<AgainRow>& info) { return info.param.Name; });

class ApacheProviderAgain : public ApacheUploadAgain {
protected:
    // The last answer that libcurl knows of is the challenge, behind which the handle keeps its options.
    static void forgetRefusal(const Object& connection) {
        connection.call("closeConnection");
        connection.call("closeAllConnections");
    }
};

// Nothing asks the provider any more, so its upload ends here: the server must not take nothing for the whole, nor wait
// for a length that was promised. Whoever sends from a provider names one scheme, or leaves the field "Expect" alone.
TEST_F(ApacheProviderAgain, ContentSentAtOnceIsBrokenOffAtAChallenge) {
    for (const bool promised : {false, true}) {
        const Object connection = openUpload("digest", false);
        if (promised) {
            connection.call("setRequestProperty", {"Content-Length", "300000"});
        }
        const ScriptedProvider provider = makeScriptedProvider(host(), generated(300'000));
        connection.set("Provider", provider);
        const vantik::Message message = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:InternalError") << message.Text;
        EXPECT_THAT(message.Text, testing::HasSubstr("The upload was broken off"));
        EXPECT_EQ(status(connection), 401);
        EXPECT_EQ(provider->Starts, 2);
        forgetRefusal(connection);
        expectScopeUsable();
    }
}

TEST_F(ApacheProviderAgain, RefusalToStartAgainIsPassedOn) {
    const Object connection = openUpload("digest", false);
    const ScriptedProvider provider = makeScriptedProvider(host(), generated(300'000));
    provider->OnStart = [](int call) {
        if (call > 1) {
            throw std::runtime_error("the content cannot be given again");
        }
    };
    connection.set("Provider", provider);
    try {
        receiveBytes(connection);
        ADD_FAILURE() << "nothing failed";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "the content cannot be given again");
    }
    forgetRefusal(connection);
    expectScopeUsable();
}

class ApacheKeptHandle : public ApacheFixture {
protected:
    // A request that is refused with 401, whoever asks.
    Object meetRefusal(const std::string& method) {
        const Object refused = openAt("/closed/echo");
        refused.set("RequestMethod", method);
        refused.set("Payload", Array::bytes(std::string_view("content")));
        receiveBytes(refused);
        EXPECT_EQ(status(refused), 401);
        refused.call("closeConnection");
        return refused;
    }
};

TEST_F(ApacheKeptHandle, ContentOfARefusedRequestDoesNotComeBack) {
    for (const char* method : {"PUT", "POST", "DELETE"}) {
        const Object refused = meetRefusal(method);
        const Object next = openAt("/open/echo");
        next.set("RequestMethod", "PATCH");
        next.set("Payload", Array::bytes(std::string_view("other")));
        EXPECT_EQ(receiveBytes(next), "other");
        EXPECT_EQ(field(next, "X-Method"), "PATCH");
        expectScopeUsable(next);
    }
}

// Kept on purpose: after a 401 the handle keeps its options for the same object, and the method is one of them. GET
// does not take it back; closing all connections does. Another object's request is its own.
TEST_F(ApacheKeptHandle, MethodOfARefusedRequestStandsForTheSameObject) {
    for (const bool same : {true, false}) {
        for (const bool closeAll : {false, true}) {
            const Object refused = meetRefusal("DELETE");
            if (closeAll) {
                refused.call("closeAllConnections");
            }
            if (same) {
                refused.set("URL", server().url("/open/echo"));
                refused.set("Payload", Array());
                refused.call("openConnection");
            }
            const Object next = same ? refused : openAt("/open/echo");
            next.set("RequestMethod", "GET");
            EXPECT_EQ(receiveBytes(next), "");
            EXPECT_EQ(status(next), 200);
            EXPECT_EQ(field(next, "X-Method"), same && !closeAll ? "DELETE" : "GET");
            expectScopeUsable(next);
        }
    }
}

} // namespace
