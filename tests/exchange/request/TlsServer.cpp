#include "tests/exchange/request/TlsServer.h"

#include "tests/support/crypto/Certificates.h"
#include "tests/support/crypto/OpenSslOwner.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace testsupport {
namespace {

using Key = OpenSslOwner<EVP_PKEY, EVP_PKEY_free>;
using Session = OpenSslOwner<SSL, SSL_free>;
using Memory = OpenSslOwner<BIO, BIO_free>;

// What a context takes as its certificate and key.
void useCredentials(SSL_CTX& context, const Credentials& credentials) {
    const Memory certificateText(BIO_new_mem_buf(credentials.Certificate.data(), -1));
    const Memory keyText(BIO_new_mem_buf(credentials.Key.data(), -1));
    const OpenSslOwner<X509, X509_free> certificate(
        PEM_read_bio_X509(certificateText.get(), nullptr, nullptr, nullptr));
    const Key key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
    requireOpenSsl(SSL_CTX_use_certificate(&context, certificate.get()) == 1, "use of the certificate");
    requireOpenSsl(SSL_CTX_use_PrivateKey(&context, key.get()) == 1, "use of the key");
}

int chooseProtocol(SSL*, const unsigned char** chosen, unsigned char* length, const unsigned char* offered,
                   unsigned offeredLength, void* own) {
    const auto& protocol = *static_cast<const std::string*>(own);
    unsigned char* found = nullptr;
    const bool agreed =
        SSL_select_next_proto(&found, length, reinterpret_cast<const unsigned char*>(protocol.data()),
                              static_cast<unsigned>(protocol.size()), offered, offeredLength) == OPENSSL_NPN_NEGOTIATED;
    *chosen = found;
    return agreed ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

// Up to and with the empty line; what has come where the peer ends before.
template <class ReadByte>
std::string readHead(ReadByte readByte) {
    std::string head;
    char byte = 0;
    while (!head.ends_with("\r\n\r\n") && readByte(byte)) {
        head += byte;
    }
    return head;
}

} // namespace

struct TlsContext {
    OpenSslOwner<SSL_CTX, SSL_CTX_free> Handle{SSL_CTX_new(TLS_server_method())};
    std::string Protocol; // its length in front
};

TlsServer::TlsServer(const std::string& names, std::string answer, std::string tunnelAnswer, TlsEnd end,
                     const std::string& protocol)
    : Context(std::make_unique<TlsContext>()), Answer(std::move(answer)), TunnelAnswer(std::move(tunnelAnswer)),
      End(end), Listening(bindLoopback(Family::IPv4, true)), Port(boundPort(Listening)) {
    std::signal(SIGPIPE, SIG_IGN); // a client may close while it is written to
    const Credentials credentials = selfSigned({.Names = names});
    Certificate = credentials.Certificate;
    useCredentials(*Context->Handle, credentials);
    if (!protocol.empty()) {
        Context->Protocol = static_cast<char>(protocol.size()) + protocol;
        SSL_CTX_set_alpn_select_cb(Context->Handle.get(), chooseProtocol, &Context->Protocol);
    }
    if (::listen(Listening.get(), 16) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
    Worker = std::thread([this] { serve(); });
}

TlsServer::~TlsServer() {
    ::shutdown(Listening.get(), SHUT_RDWR); // wakes the accept, which then fails
    Worker.join();
}

std::vector<std::string> TlsServer::tunnelHeads() const {
    const std::lock_guard lock(Guard);
    return TunnelHeads;
}

std::vector<std::string> TlsServer::heads() const {
    const std::lock_guard lock(Guard);
    return Heads;
}

void TlsServer::serve() {
    while (true) {
        const SocketHandle client(::accept(Listening.get(), nullptr, nullptr));
        if (client) {
            serveOne(client);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

void TlsServer::serveOne(const SocketHandle& client) {
    if (!TunnelAnswer.empty()) {
        std::string head = readHead([&](char& byte) { return ::read(client.get(), &byte, 1) == 1; });
        {
            const std::lock_guard lock(Guard);
            TunnelHeads.push_back(std::move(head));
        }
        for (const char byte : TunnelAnswer) {
            if (::write(client.get(), &byte, 1) != 1) {
                return;
            }
        }
    }
    const Session session(SSL_new(Context->Handle.get()));
    if (session == nullptr || SSL_set_fd(session.get(), client.get()) != 1 || SSL_accept(session.get()) != 1) {
        return; // refused by the client: its own affair
    }
    std::string head = readHead([&](char& byte) { return SSL_read(session.get(), &byte, 1) == 1; });
    if (head.empty()) {
        return;
    }
    {
        const std::lock_guard lock(Guard);
        Heads.push_back(std::move(head));
    }
    if (SSL_write(session.get(), Answer.data(), static_cast<int>(Answer.size())) > 0 && End == TlsEnd::Told) {
        SSL_shutdown(session.get());
    }
    if (End == TlsEnd::Torn || !Context->Protocol.empty()) {
        // What is closed with bytes to read is reset, and the client may lose what it has not read yet.
        ::shutdown(client.get(), SHUT_WR);
        for (char rest[256]; ::read(client.get(), rest, sizeof rest) > 0;) {
        }
    }
}

} // namespace testsupport
