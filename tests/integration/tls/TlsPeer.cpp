#include "tests/integration/tls/TlsPeer.h"

#include "tests/integration/nginx/NginxProcess.h"
#include "tests/support/server/SocketHandle.h"

#include <fstream>

namespace integrationtest {

using testsupport::writeFile;

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
        "writing down its requests");
    std::erase_if(lines, [](const std::string& line) { return line.find("/up-to-now/") != std::string::npos; });
    return lines;
}

} // namespace integrationtest
