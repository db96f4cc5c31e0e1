#include "tests/integration/support/IntegrationFixture.h"

#include "vantik/HostClass.h"

#include <span>
#include <utility>
#include <vector>

namespace integrationtest {

Object IntegrationFixture::open(const std::string& url, const OpenOptions& options) {
    Object connection = makeAdapter(options.OptionsMode);
    connection.set("URL", url);
    connection.set("CertificateFilename", options.CertificateFile);
    if (!options.Limits.empty()) {
        connection.set("TimeoutInMilliseconds", Array::doubles(options.Limits));
    }
    connection.call("openConnection");
    return connection;
}

void IntegrationFixture::setContent(const Object& connection, const std::string& content, bool byProvider) {
    if (byProvider) {
        connection.set("Provider", makeScriptedProvider(host(), content));
    } else {
        connection.set("Payload", Array::bytes(std::string_view(content)));
    }
}

void IntegrationFixture::expectContent(const Object& connection, const std::string& content) {
    EXPECT_EQ(receiveDigest(connection).hex(), digestOf(content));
    EXPECT_EQ(status(connection), 200);
}

std::string IntegrationFixture::field(const Object& connection, const std::string& name) {
    const Array value = connection.call("getResponseField", {name});
    return value.empty() ? "" : value.text();
}

void IntegrationFixture::allow(const Object& connection, const Schemes& schemes, bool ofProxy) {
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", schemes), ofProxy});
}

Digest IntegrationFixture::receiveDigest(const Object& connection) {
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
