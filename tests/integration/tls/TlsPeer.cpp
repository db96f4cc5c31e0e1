#include "tests/integration/tls/TlsPeer.h"

#include "tests/support/server/SocketHandle.h"

#include <filesystem>
#include <fstream>

namespace integrationtest {
namespace {

using testsupport::TemporaryFolder;
using testsupport::writeFile;

} // namespace

// One process and no worker: it starts fast and needs no user of its own, whoever runs the test.
std::string nginxFrame(const TemporaryFolder& folder) {
    std::string text = "daemon off;\nmaster_process off;\npid " + folder.file("pid") + ";\nerror_log " +
                       folder.file("log") + " info;\nevents {}\nhttp {\n  log_format plain '$server_port $request';\n" +
                       "  access_log " + folder.file("requests") + " plain;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += "  " + std::string(kind) + "_temp_path " + folder.file(kind) + ";\n";
    }
    return text;
}

std::unique_ptr<PeerProcess> startNginx(const TemporaryFolder& folder, const std::string& configuration,
                                        std::uint16_t port) {
    writeFile(folder.file("nginx.conf"), configuration);
    auto process =
        std::make_unique<PeerProcess>(std::vector<std::string>{"nginx", "-p", folder.path(), "-c",
                                                               folder.file("nginx.conf"), "-e", folder.file("log")},
                                      folder.file("log"));
    process->awaitListening(port);
    // While it tries again and again for a port that somebody has taken, it listens on the others already.
    process->awaitCondition([&] { return std::filesystem::exists(folder.file("pid")); }, "listening on all ports");
    return process;
}

std::string listenDirectives(std::uint16_t port, const std::string& more) {
    const std::string end = ":" + std::to_string(port) + " " + more + ";\n";
    static const bool second = testsupport::hasLoopback(testsupport::Family::IPv6);
    return "    listen 127.0.0.1" + end + (second ? "    listen [::1]" + end : "");
}

TlsPeer::TlsPeer(const std::vector<TlsSite>& sites) {
    for (std::size_t index = 0; index < sites.size(); ++index) {
        writeFile(Folder.file("certificate" + std::to_string(index)), sites[index].Identity.Certificate);
        writeFile(Folder.file("key" + std::to_string(index)), sites[index].Identity.Key);
    }
    Process = startOnFreePorts(sites.size() + 1, [&](const std::vector<std::uint16_t>& ports) {
        Ports = ports;
        return startNginx(Folder, configuration(sites), Ports.back());
    });
}

std::string TlsPeer::configuration(const std::vector<TlsSite>& sites) const {
    std::string text = nginxFrame(Folder);
    for (std::size_t index = 0; index < sites.size(); ++index) {
        const TlsSite& site = sites[index];
        const std::string number = std::to_string(index);
        text += "  server {\n" + listenDirectives(Ports[index], "ssl");
        text += "    ssl_certificate " + Folder.file("certificate" + number) + ";\n    ssl_certificate_key " +
                Folder.file("key" + number) + ";\n    ssl_protocols " + site.Protocols + ";\n";
        text += site.Ciphers.empty() ? "" : "    ssl_ciphers " + site.Ciphers + ";\n";
        text += "    location / { return 200 \"" + site.Content + "\"; }\n  }\n";
    }
    return text + "  server {\n" + listenDirectives(Ports.back()) + "    location / { return 200 plain; }\n  }\n}\n";
}

std::string TlsPeer::url(std::size_t site, const std::string& path, const std::string& host) const {
    return "https://" + host + ":" + std::to_string(port(site)) + path;
}

std::vector<std::string> TlsPeer::requests() const {
    std::ifstream log(Folder.file("requests"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> TlsPeer::requestsUpToNow() const {
    static int calls = 0;
    const std::string request = "GET /up-to-now/" + std::to_string(++calls) + " HTTP/1.0";
    const testsupport::SocketHandle client = testsupport::connectLoopback(plainPort());
    testsupport::writeAll(client, request + "\r\n\r\n");
    testsupport::readToEnd(client);
    const std::string mark = std::to_string(plainPort()) + " " + request;
    std::vector<std::string> lines;
    Process->awaitCondition(
        [&] {
            lines = requests();
            return !lines.empty() && lines.back() == mark;
        },
        "telling its requests");
    std::erase_if(lines, [](const std::string& line) { return line.find("/up-to-now/") != std::string::npos; });
    return lines;
}

} // namespace integrationtest
