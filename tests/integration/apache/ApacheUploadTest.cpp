// Content of requests to a program of Apache httpd, which sends it back: from memory and from a provider, with a
// known length and in chunks, open to everybody and after a challenge.
#include "tests/integration/apache/ApacheFixture.h"

namespace {

using namespace integrationtest;

enum class Source { Memory, Provider, PostData };
enum class Framing { Chunks, Length };
enum class Expect { AsItComes, Off }; // the field that asks the server for its word before content is sent

struct UploadRow {
    const char* Name;
    std::string Method;
    Source From;
    Framing Frame;
    std::string Folder;
    Schemes Allowed{};
    Expect Word = Expect::AsItComes;
};

// clang-format off
// Where the scheme has to be found out first, the content may have to go out twice. A client that waits for the
// server's word before it sends content finds out in time.
const UploadRow kUploadRows[] = {
    {"PostFromMemoryInChunks", "POST", Source::Memory, Framing::Chunks, "open"},
    {"PutFromMemoryWithItsLength", "PUT", Source::Memory, Framing::Length, "open"},
    {"PatchFromAProviderInChunks", "PATCH", Source::Provider, Framing::Chunks, "open"},
    {"DeleteFromAProviderWithItsLength", "DELETE", Source::Provider, Framing::Length, "open"},
    {"PostOfText", "POST", Source::PostData, Framing::Length, "open"},
    {"PutOfTextToBasic", "PUT", Source::PostData, Framing::Length, "basic"},
    {"PatchOfTextToDigest", "PATCH", Source::PostData, Framing::Length, "digest"},
    {"PutFromMemoryToBasic", "PUT", Source::Memory, Framing::Chunks, "basic", {"Basic"}},
    {"PatchFromAProviderToBasic", "PATCH", Source::Provider, Framing::Chunks, "basic", {"Basic"}},
    {"DeleteFromMemoryToDigest", "DELETE", Source::Memory, Framing::Length, "digest", {"Digest"}},
    {"PostFromAProviderToDigest", "POST", Source::Provider, Framing::Chunks, "digest", {"Digest"}},
    {"PutFromAProviderWithItsLengthToDigest", "PUT", Source::Provider, Framing::Length, "digest", {"Digest"}},
    {"MemoryInChunksAfterAChallenge", "PUT", Source::Memory, Framing::Chunks, "digest", {"Basic", "Digest"}},
    {"MemoryWithItsLengthAfterAChallenge", "PUT", Source::Memory, Framing::Length, "basic", {"Basic", "Digest"}},
    {"MemoryInChunksSentAtOnce", "PUT", Source::Memory, Framing::Chunks, "basic", {"Basic", "Digest"}, Expect::Off},
    {"MemoryWithItsLengthSentAtOnce", "PUT", Source::Memory, Framing::Length, "digest", {"Basic", "Digest"}, Expect::Off},
    {"ProviderInChunksAfterAChallenge", "PUT", Source::Provider, Framing::Chunks, "digest", {"Basic", "Digest"}},
    {"ProviderWithItsLengthAfterAChallenge", "PUT", Source::Provider, Framing::Length, "basic", {"Basic", "Digest"}},
};
// clang-format on

class ApacheUpload : public ApacheFixture, public testing::WithParamInterface<UploadRow> {};

TEST_P(ApacheUpload, ComesBackAsItWasSent) {
    const UploadRow& row = GetParam();
    const bool text = row.From == Source::PostData;
    for (const std::size_t size : {1U, 16'384U, 300'000U}) {
        SCOPED_TRACE(size);
        const std::string content = text ? std::string(size, 'x') : generated(size);
        const ScriptedProvider provider = makeScriptedProvider(host(), content);
        const Object connection = openAt("/" + row.Folder + "/echo", !text);
        connection.set("RequestMethod", row.Method);
        connection.call("setRequestProperty", {"Content-Type", "application/x-test"});
        if (row.Frame == Framing::Length && !text) {
            connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
        }
        if (row.Word == Expect::Off) {
            connection.call("removeField", {"Expect"});
        }
        if (text) {
            connection.set("PostData", content);
        } else if (row.From == Source::Memory) {
            connection.set("Payload", Array::bytes(std::string_view(content)));
        } else {
            connection.set("Provider", provider);
        }
        if (row.Folder != "open") { // the older interface allows every scheme by itself
            logIn(connection, {.Allowed = text ? std::nullopt : std::optional(row.Allowed)});
        }
        expectContent(connection, content);
        EXPECT_EQ(field(connection, "X-Method"), row.Method);
        EXPECT_EQ(field(connection, "X-Type"), "application/x-test");
        EXPECT_EQ(provider->Starts, row.From == Source::Provider ? 1 : 0);
        if (row.Folder != "open") {
            EXPECT_EQ(field(connection, "X-User"), kKnownUser);
            EXPECT_EQ(field(connection, "X-Scheme"), row.Folder == "basic" ? "Basic" : "Digest");
        }
        expectScopeUsable(connection);
    }
}

INSTANTIATE_TEST_SUITE_P(, ApacheUpload, testing::ValuesIn(kUploadRows),
                         [](const auto& info) { return info.param.Name; });

using ApacheUploadCommand = ApacheFixture;

TEST_F(ApacheUploadCommand, StreamedContentIsSentAgainWhereTheServerAsksForALogin) {
    const std::string file = folder().file("content");
    writeFile(file, generated(300'000));
    const std::string user = std::string(kKnownUser) + ":" + kKnownPassword;
    const auto send = [&](Texts words) {
        words.insert(words.begin(), "send");
        words.insert(words.end(), {"-u", user, "-o", "-", server().url("/digest/echo")});
        return run(words);
    };
    expectGot(send({"-T", file}), generated(300'000));
    expectGot(send({"-T", file, "--auth", "digest"}), generated(300'000));
    expectGot(send({"-X", "PUT", "--body-file", file}), generated(300'000));
}

} // namespace
