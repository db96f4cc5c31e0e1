// Memory does not grow with the length of streamed content, in either direction, and no array of one piece outlives it.
#include "tests/exchange/ExchangeFixture.h"
#include "vantik/HostClass.h"

#include <algorithm>
#include <malloc.h>
#include <set>

namespace {

using namespace testsupport;

constexpr std::size_t kLength = 48'000'000;
// libcurl is paused once half a megabyte waits, and the buffer for it doubles as it grows. Far less than the content.
constexpr std::size_t kTolerated = 8'000'000;

// What the pumps hold at each call into a host object. Under AddressSanitizer the heap reads as empty; then the arrays
// alone are compared.
class Usage {
public:
    void note() {
        const struct mallinfo2 heap = ::mallinfo2();
        Bytes.push_back(heap.uordblks + heap.hblkhd);
        Arrays.insert(vantik::Host::liveArrays());
    }
    void expectSteady(std::size_t leastCalls, std::size_t mostPieces) const {
        ASSERT_GE(Bytes.size(), leastCalls);
        const std::size_t early = *std::max_element(Bytes.begin(), Bytes.begin() + 10);
        EXPECT_LE(*std::max_element(Bytes.begin(), Bytes.end()), early + kTolerated);
        EXPECT_LE(*Arrays.rbegin() - *Arrays.begin(), mostPieces + 1) << "arrays pile up";
    }

private:
    std::vector<std::size_t> Bytes;
    std::set<std::size_t> Arrays;
};

class Memory : public ExchangeFixture {};

TEST_F(Memory, OfADownloadIsSteady) {
    ScriptedServer& server = serve(answers(response(std::string(kLength, 'x'))));
    Usage usage;
    std::size_t received = 0;
    const Object consumer =
        vantik::makeConsumer(host(), {.write = [&](std::span<const std::byte> piece) -> std::optional<double> {
                                 usage.note();
                                 received += piece.size();
                                 return static_cast<double>(piece.size());
                             }});
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    copyToConsumer(connection);
    EXPECT_EQ(received, kLength);
    usage.expectSteady(kLength / 16384, (512 << 10) / 16384); // that are received into at a time
}

TEST_F(Memory, OfAnUploadIsSteady) {
    ScriptedServer& server =
        serve({step::expectHead(), step::continueIfExpected(), step::discard(kLength), step::send(response("taken"))});
    Usage usage;
    std::size_t given = 0;
    const std::string block(100000, 'x');
    const Object provider =
        vantik::makeProvider(host(), {.rewind = [&] { given = 0; },
                                      .read =
                                          [&](std::uint64_t wanted) {
                                              usage.note();
                                              const std::size_t length = std::min<std::size_t>(wanted, kLength - given);
                                              given += length;
                                              return Array::bytes(std::string_view(block).substr(0, length));
                                          }});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("ProviderBufferSize", std::uint64_t{block.size()});
    connection.call("setRequestProperty", {"Content-Length", std::to_string(kLength)});
    EXPECT_EQ(receiveBytes(connection), "taken");
    usage.expectSteady(kLength / block.size(), 5); // half a megabyte is gathered for one read of libcurl
}

} // namespace
