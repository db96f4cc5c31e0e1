#include "tests/integration/nginx/Nghttpx.h"

#include "tests/support/crypto/Certificates.h"

namespace integrationtest {

Nghttpx::Nghttpx(std::uint16_t backendPort) {
    const testsupport::CertificateAuthority authority("nghttpx authority"); // distinct from others in one file
    const testsupport::Credentials credentials = authority.issue({.Names = "IP:127.0.0.1"});
    testsupport::writeFile(certificateFile(), authority.certificate());
    testsupport::writeFile(Folder.file("server.pem"), credentials.Certificate);
    testsupport::writeFile(Folder.file("server.key"), credentials.Key);
    Process = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Port = ports[0];
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{
                "nghttpx", "--conf=/dev/null", "--frontend=127.0.0.1," + std::to_string(Port),
                "--backend=127.0.0.1," + std::to_string(backendPort), "--workers=1", "--single-thread",
                "--backend-keep-alive-timeout=60", "--no-ocsp", "--no-server-push", "--no-location-rewrite",
                "--errorlog-file=" + Folder.file("error.log"), Folder.file("server.key"), Folder.file("server.pem")},
            Folder.file("output.log"));
        process->awaitListening(Port);
        return process;
    });
}

std::string Nghttpx::url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(Port) + path;
}

} // namespace integrationtest
