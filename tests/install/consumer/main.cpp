// Writes the content of a URL to standard output.
#include <vantik/Host.h>
#include <vantik/Http.h>

#include <cstdio>
#include <span>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: fetch URL\n", stderr);
        return 2;
    }
    try {
        vantik::Host host;
        host.load("netrove"); // the module is beside the host's library, wherever that is
        const vantik::Object connection =
            host.create("vantik.internal.webservices.HTTPConnectionAdapter", {vantik::Array(true)});
        connection.set("URL", argv[1]);
        connection.set("CertificateFilename", "default"); // verify the server
        connection.call("openConnection");
        const vantik::Array content = connection.call("copyContentToByteArray", {vantik::Array(true)});
        connection.call("closeConnection");
        const std::span<const std::byte> bytes = content.bytes();
        std::fwrite(bytes.data(), 1, bytes.size(), stdout);
        return 0;
    } catch (const vantik::Failure& failure) {
        std::fprintf(stderr, "%s: %s\n", failure.identifier().c_str(), vantik::withoutSecrets(failure.what()).c_str());
        return 1;
    }
}
