#include "tests/integration/httpbin/Httpbin.h"

#include "tests/support/server/SocketHandle.h"

namespace integrationtest {
namespace {

// The program listens long before its service is loaded.
bool answers(std::uint16_t port) {
    try {
        const testsupport::SocketHandle client = testsupport::connectLoopback(port);
        testsupport::writeAll(client, "HEAD /status/204 HTTP/1.0\r\n\r\n");
        return testsupport::readToEnd(client).find(" 204 ") != std::string::npos;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

Httpbin::Httpbin() {
    Process = startOnFreePorts(1, [this](const std::vector<std::uint16_t>& ports) {
        Port = ports.at(0);
        // Threads, so that a request that was given up does not keep the next one waiting.
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{"gunicorn", "--bind", authority(), "--worker-class", "gthread", "--threads", "8",
                                     "--keep-alive", "60", "--graceful-timeout", "0", "--worker-tmp-dir", Folder.path(),
                                     "httpbin:app"},
            Folder.file("log"),
            PeerOptions{.Environment = {{"PYTHONDONTWRITEBYTECODE", "1"}}, .Folder = Folder.path()});
        process->awaitListening(Port);
        process->awaitCondition([this] { return answers(Port); }, "answering");
        return process;
    });
}

} // namespace integrationtest
