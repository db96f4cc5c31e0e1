// Downloads from nginx that break off and go on.
#include "tests/integration/nginx/Nginx.h"
#include "tests/support/crypto/Digest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/client.h>

#include <filesystem>

namespace {

using namespace integrationtest;
namespace fs = std::filesystem;

constexpr std::size_t kSize = 3'000'000;

class ClientResume : public testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Nginx>(); }
    static void TearDownTestSuite() { Server.reset(); }

    static void offer(const std::string& content) { testsupport::writeFile(Server->documentFile("big"), content); }

    netrove::Response save(netrove::Request more = {}) {
        more.resume = true;
        const std::string path = "/files/big";
        return Client.save(GetParam() == std::string("Http2") ? Server->http2Url(path) : Server->url(path), target(),
                           std::move(more));
    }
    // A program that ends in the middle of a download.
    void breakOff() {
        struct End {};
        const auto end = [](const netrove::Progress& progress) {
            if (progress.received > kSize / 3) {
                throw End();
            }
        };
        EXPECT_THROW(save({.progress = end}), End);
        EXPECT_FALSE(fs::exists(target()));
    }
    std::uintmax_t partSize() const { return fs::file_size(target() + ".part"); }
    std::string target() const { return Folder.file("big"); }

    testsupport::TemporaryFolder Folder;
    netrove::Client Client{{.proxy = netrove::Proxy::none(), .tls = {.file = Server->certificateFile()}}};

private:
    static inline std::unique_ptr<Nginx> Server;
};

TEST_P(ClientResume, GoesOnWhereItBrokeOff) {
    const std::string content = testsupport::generated(kSize);
    offer(content);
    breakOff();
    const auto there = partSize();
    ASSERT_GT(there, kSize / 3);
    ASSERT_LT(there, kSize);
    std::vector<netrove::Progress> seen;
    const netrove::Response response = save({.progress = [&](const auto& progress) { seen.push_back(progress); }});
    EXPECT_EQ(response.status, 206);
    EXPECT_EQ(response.resumedAt, there);
    EXPECT_EQ(response.received, kSize - there);
    EXPECT_EQ(testsupport::digestOfFile(target()), testsupport::digestOf(content));
    EXPECT_FALSE(fs::exists(target() + ".part")) << "nor its note";
    EXPECT_FALSE(fs::exists(target() + ".part.json"));
    ASSERT_FALSE(seen.empty());
    EXPECT_GT(seen.front().received, there);
    EXPECT_EQ(seen.back().received, kSize);
    EXPECT_EQ(seen.back().toReceive, kSize);
}

TEST_P(ClientResume, BeginsAnewWhereTheFileHasChanged) {
    offer(testsupport::generated(kSize));
    breakOff();
    const std::string other = "another " + testsupport::generated(kSize);
    offer(other);
    const netrove::Response response = save();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.resumedAt, 0u);
    EXPECT_EQ(testsupport::digestOfFile(target()), testsupport::digestOf(other));
}

// The program ended between the last byte and the rename.
TEST_P(ClientResume, KeepsWhatIsWholeAlready) {
    const std::string content = testsupport::generated(kSize);
    offer(content);
    breakOff();
    testsupport::writeFile(target() + ".part", content);
    const netrove::Response response = save();
    EXPECT_EQ(response.status, 416);
    EXPECT_EQ(response.received, 0u);
    EXPECT_EQ(testsupport::digestOfFile(target()), testsupport::digestOf(content));
}

INSTANTIATE_TEST_SUITE_P(Nginx, ClientResume, testing::Values("Http1", "Http2"),
                         [](const auto& info) { return std::string(info.param); });

} // namespace
