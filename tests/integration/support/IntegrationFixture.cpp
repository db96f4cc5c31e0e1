#include "tests/integration/support/IntegrationFixture.h"

#include "vantik/HostClass.h"

#include <span>
#include <utility>
#include <vector>

namespace integrationtest {

using vantik::Array;

Digest IntegrationFixture::receiveDigest(const vantik::Object& connection) {
    const auto digest = std::make_shared<Digest>();
    const std::string name = "test.integration.DigestConsumer" + std::to_string(++ConsumerClasses);
    vantik::HostClass consumer(name);
    consumer.derivesFrom("vantik.net.http.io.ContentConsumer")
        .method("startInternal", [](std::span<const Array>) { return std::vector<Array>{Array()}; })
        .method("putDataInternal", [digest](std::span<const Array> inputs) {
            digest->add(inputs[1].byteText());
            return std::vector<Array>{Array(static_cast<double>(inputs[1].size()))};
        });
    consumer.defineIn(host());
    connection.set("Consumer", host().create(name).array());
    connection.call("copyContentToByteArray", {false});
    connection.set("Consumer", Array());
    return std::move(*digest);
}

} // namespace integrationtest
