#include "tests/integration/nginx/NginxProcess.h"

#include "tests/support/server/SocketHandle.h"

#include <filesystem>

namespace integrationtest {

using testsupport::TemporaryFolder;

// One process and no worker: it starts fast and needs no user of its own, whoever runs the test.
std::string nginxFrame(const TemporaryFolder& folder, const std::string& more) {
    std::string text = "daemon off;\nmaster_process off;\npid " + folder.file("pid") + ";\nerror_log " +
                       folder.file("log") + " info;\n" + more + "\nevents {}\nhttp {\n" +
                       "  log_format plain '$server_port $request';\n  access_log " + folder.file("requests") +
                       " plain;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += "  " + std::string(kind) + "_temp_path " + folder.file(kind) + ";\n";
    }
    return text;
}

std::unique_ptr<PeerProcess> startNginx(const TemporaryFolder& folder, const std::string& configuration,
                                        std::uint16_t port) {
    testsupport::writeFile(folder.file("nginx.conf"), configuration);
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

} // namespace integrationtest
