#include "tests/integration/faults/FrontPeer.h"

#include "tests/integration/tls/TlsPeer.h"
#include "tests/support/crypto/Certificates.h"

namespace integrationtest {

using testsupport::writeFile;

const char* nameOf(Front front) {
    constexpr const char* names[] = {"Direct", "Tls", "Nginx", "Nghttpx"};
    return names[static_cast<int>(front)];
}

FrontPeer::FrontPeer(Front front, std::uint16_t backendPort, const std::string& answer) {
    switch (front) {
    case Front::Direct:
        Url = "http://127.0.0.1:" + std::to_string(backendPort) + "/p";
        return;
    case Front::Tls:
        startTls(answer);
        return;
    case Front::Nginx:
        startNginx(backendPort);
        return;
    case Front::Nghttpx:
        Http2 = std::make_unique<Nghttpx>(backendPort);
        Url = Http2->url("/p");
        CertificateFile = Http2->certificateFile();
    }
}

// It sends the file that is asked for as it stands, as a whole response.
void FrontPeer::startTls(const std::string& answer) {
    const testsupport::CertificateAuthority authority;
    const testsupport::Credentials credentials = authority.issue({.Names = "IP:127.0.0.1"});
    CertificateFile = Folder.file("authority.pem");
    writeFile(CertificateFile, authority.certificate());
    writeFile(Folder.file("server.pem"), credentials.Certificate);
    writeFile(Folder.file("server.key"), credentials.Key);
    writeFile(Folder.file("p"), answer);
    Process = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Url = "https://127.0.0.1:" + std::to_string(ports[0]) + "/p";
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{"openssl", "s_server", "-accept", "127.0.0.1:" + std::to_string(ports[0]), "-cert",
                                     "server.pem", "-key", "server.key", "-HTTP", "-quiet"},
            Folder.file("log"), PeerOptions{.Folder = Folder.path()});
        process->awaitListening(ports[0]);
        return process;
    });
}

void FrontPeer::startNginx(std::uint16_t backendPort) {
    Process = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Url = "http://127.0.0.1:" + std::to_string(ports[0]) + "/p";
        return integrationtest::startNginx(
            Folder,
            nginxFrame(Folder) + "  server {\n    listen 127.0.0.1:" + std::to_string(ports[0]) +
                ";\n    client_max_body_size 0;\n    location / {\n      proxy_pass http://127.0.0.1:" +
                std::to_string(backendPort) +
                ";\n      proxy_http_version 1.1;\n      proxy_set_header Connection close;\n"
                "      proxy_set_header Host $http_host;\n      proxy_buffering off;\n"
                "      keepalive_timeout 0;\n      proxy_buffer_size 64k;\n      proxy_buffers 8 64k;\n      "
                "proxy_busy_buffers_size 64k;\n      proxy_request_buffering off;\n"
                "      proxy_next_upstream off;\n    }\n  }\n}\n",
            ports[0]);
    });
}

} // namespace integrationtest
