#include "tests/exchange/TlsServer.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace testsupport {
namespace {

template <auto Function>
struct Free {
    template <class Object>
    void operator()(Object* object) const {
        Function(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Free<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Free<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Free<BIO_free>>;
using Session = std::unique_ptr<SSL, Free<SSL_free>>;

void require(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string("TLS server: ") + what);
    }
}

void addExtension(X509& certificate, int kind, const std::string& value) {
    const Extension extension(X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()));
    require(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1, "extension");
}

Certificate makeCertificate(EVP_PKEY& key, const std::string& names) {
    constexpr long Hour = 3600;
    Certificate made(X509_new());
    require(made != nullptr, "certificate");
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -Hour);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), Hour);
    X509_NAME* name = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("test"), -1, -1, 0);
    X509_set_issuer_name(made.get(), name);
    X509_set_pubkey(made.get(), &key);
    addExtension(*made, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(*made, NID_subject_alt_name, names);
    require(X509_sign(made.get(), &key, EVP_sha256()) != 0, "signature");
    return made;
}

std::string asText(X509& certificate) {
    const Memory memory(BIO_new(BIO_s_mem()));
    require(memory != nullptr && PEM_write_bio_X509(memory.get(), &certificate) == 1, "certificate's text");
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(length)};
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
    std::unique_ptr<SSL_CTX, Free<SSL_CTX_free>> Handle{SSL_CTX_new(TLS_server_method())};
};

TlsServer::TlsServer(const std::string& names, std::string answer, std::string tunnelAnswer)
    : Context(std::make_unique<TlsContext>()), Answer(std::move(answer)), TunnelAnswer(std::move(tunnelAnswer)),
      Listening(bindLoopback(Family::IPv4, true)), Port(boundPort(Listening)) {
    std::signal(SIGPIPE, SIG_IGN); // a client may close while it is written to
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key");
    const testsupport::Certificate made = makeCertificate(*key, names);
    Certificate = asText(*made);
    require(SSL_CTX_use_certificate(Context->Handle.get(), made.get()) == 1, "use of the certificate");
    require(SSL_CTX_use_PrivateKey(Context->Handle.get(), key.get()) == 1, "use of the key");
    require(::listen(Listening.get(), 16) == 0, "listening");
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
    if (SSL_write(session.get(), Answer.data(), static_cast<int>(Answer.size())) > 0) {
        SSL_shutdown(session.get());
    }
}

} // namespace testsupport
