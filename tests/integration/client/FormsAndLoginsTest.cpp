// Forms as httpbin reads them, logins at httpbin and at Apache httpd.
#include "tests/client/ErrorOf.h"
#include "tests/integration/apache/Apache.h"
#include "tests/integration/httpbin/Httpbin.h"
#include "tests/support/crypto/Digest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>
#include <nlohmann/json.hpp>

namespace {

using namespace integrationtest;
using netrove::Scheme;
using nlohmann::json;

// In pieces, as often as it is asked for.
netrove::Body generated(const std::string& content, std::optional<std::uint64_t> length) {
    return netrove::generators(
        [content] {
            return [content, at = std::size_t{0}]() mutable {
                constexpr std::size_t most = 10'000;
                const auto piece = std::as_bytes(std::span(content).subspan(at));
                const auto next = piece.first(std::min(piece.size(), most));
                at += next.size();
                return next;
            };
        },
        length);
}

class ClientAtHttpbin : public testing::Test {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Httpbin>(); }
    static void TearDownTestSuite() { Server.reset(); }

    static std::string url(const std::string& path) { return Server->url(path); }
    netrove::Client Client{{.proxy = netrove::Proxy::none()}};

private:
    static inline std::unique_ptr<Httpbin> Server;
};

TEST_F(ClientAtHttpbin, ReadsFormsAsTheyWereMeant) {
    const auto seen =
        Client
            .post(url("/post"),
                  netrove::form({{"name", "\u00C9t\u00E9 & more"}, {"x", "1"}, {"x", "a=b+c%"}, {"empty", ""}}))
            .json<json>();
    EXPECT_EQ(seen.at("form"), json({{"name", "\u00C9t\u00E9 & more"}, {"x", {"1", "a=b+c%"}}, {"empty", ""}}));
}

TEST_F(ClientAtHttpbin, ReadsMultipartFormsWithEveryKindOfContent) {
    const testsupport::TemporaryFolder folder;
    const std::string file = folder.file("caf\u00E9 \"1\".txt");
    testsupport::writeFile(file, "of a file\r\n--x--\r\n");
    const std::string large(300'000, 'g');
    for (const std::optional<std::uint64_t> length : {std::optional<std::uint64_t>(large.size()), {}}) {
        const auto seen = Client
                              .post(url("/post"), netrove::multipart({{"title", netrove::text("\u00C9t\u00E9\n2")},
                                                                      {"document", netrove::file(file)},
                                                                      {"stream", generated(large, length), "s.bin"}}))
                              .json<json>();
        EXPECT_EQ(seen.at("form"), json({{"title", "\u00C9t\u00E9\n2"}}));
        EXPECT_EQ(seen.at("files"), json({{"document", "of a file\r\n--x--\r\n"}, {"stream", large}}));
        EXPECT_EQ(seen.at("headers").contains("Content-Length"), length.has_value());
    }
}

TEST_F(ClientAtHttpbin, KnowsWhoLogsIn) {
    struct Row {
        const char* Path;
        netrove::Login Right;
        netrove::Login Wrong;
    };
    for (const Row& row :
         {Row{"/basic-auth/ada/right", {.user = "ada", .password = "right"}, {.user = "ada", .password = "hidden"}},
          Row{"/digest-auth/auth/ada/right/SHA-256",
              {.user = "ada", .password = "right"},
              {.user = "ada", .password = "hidden"}},
          Row{"/digest-auth/auth/ada/right/MD5",
              {.user = "ada", .password = "right", .schemes = {Scheme::Digest}},
              {.user = "ada", .password = "right", .schemes = {Scheme::Basic}}},
          Row{"/bearer", {.bearer = "token"}, {}}}) {
        SCOPED_TRACE(row.Path);
        EXPECT_EQ(Client.get(url(row.Path), {.login = row.Right}).json<json>().at("authenticated"), true);
        const netrove::Error error = clienttest::errorOf([&] { Client.get(url(row.Path), {.login = row.Wrong}); });
        EXPECT_EQ(error.kind(), netrove::ErrorKind::Status);
        EXPECT_EQ(error.response().status, 401);
        EXPECT_THAT(error.what(), testing::Not(testing::HasSubstr("hidden")));
    }
}

// Content that is made while it is sent goes out once more when the server has said how to log in.
TEST(ClientAtApache, StreamedContentArrivesAfterALogin) {
    const Apache server;
    const std::string content = testsupport::generated(300'000);
    netrove::Client client({.proxy = netrove::Proxy::none()});
    for (const char* path : {"/digest/echo", "/basic/echo"}) {
        for (const std::optional<std::uint64_t> length : {std::optional<std::uint64_t>(content.size()), {}}) {
            SCOPED_TRACE(path);
            const netrove::Response response = client.put(server.url(path), generated(content, length),
                                                          {.login = {.user = kKnownUser, .password = kKnownPassword}});
            EXPECT_EQ(testsupport::digestOf(response.content), testsupport::digestOf(content));
            EXPECT_EQ(response.fields["X-User"], kKnownUser);
        }
    }
}

} // namespace
