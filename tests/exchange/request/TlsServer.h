// A server on loopback that speaks TLS under a certificate of its own, which nobody else has signed. One exchange a
// connection: it reads a head, answers, closes.
#pragma once

#include "tests/support/server/SocketHandle.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

struct TlsContext;

// How a connection ends after its answer: with the word of TLS that no more comes, or without. The latter waits for the
// client's end.
enum class TlsEnd { Told, Torn };

class TlsServer {
public:
    // `names` is what the certificate is for: "IP:127.0.0.1", "DNS:origin.test". `tunnelAnswer`: each client is read a
    // head and given this answer in plain text first, as a proxy would before it opens a tunnel; empty: TLS from the
    // first byte. It is played byte by byte. `protocol`: what the server speaks of all that a client offers ("h2");
    // empty: it is not asked. The answer is frames then, and what is read before it the client's preface.
    TlsServer(const std::string& names, std::string answer, std::string tunnelAnswer = {}, TlsEnd end = TlsEnd::Told,
              const std::string& protocol = {});
    ~TlsServer(); // waits until no connection is served any more
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    std::uint16_t port() const { return Port; }
    std::string authority() const { return "127.0.0.1:" + std::to_string(Port); }
    const std::string& certificate() const { return Certificate; } // as text, for a file of trusted certificates

    std::vector<std::string> tunnelHeads() const; // heads in plain text
    std::vector<std::string> heads() const;       // heads under TLS

private:
    void serve();
    void serveOne(const SocketHandle& client);

    std::unique_ptr<TlsContext> Context;
    std::string Certificate;
    std::string Answer;
    std::string TunnelAnswer;
    TlsEnd End;
    SocketHandle Listening;
    std::uint16_t Port = 0;
    mutable std::mutex Guard;
    std::vector<std::string> TunnelHeads; // under Guard
    std::vector<std::string> Heads;       // under Guard
    std::thread Worker;
};

} // namespace testsupport
