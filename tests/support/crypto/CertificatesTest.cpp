#include "tests/support/crypto/Certificates.h"

#include "tests/support/crypto/OpenSslOwner.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace {

using namespace testsupport;
using Certificate = OpenSslOwner<X509, X509_free>;

Certificate parsed(const std::string& text) {
    const OpenSslOwner<BIO, BIO_free> memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    return Certificate(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
}

// What OpenSSL says of a certificate to somebody who trusts one other.
int judgement(const std::string& certificate, const std::string& trusted) {
    const OpenSslOwner<X509_STORE, X509_STORE_free> store(X509_STORE_new());
    const OpenSslOwner<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
    const Certificate leaf = parsed(certificate);
    X509_STORE_add_cert(store.get(), parsed(trusted).get());
    X509_STORE_CTX_init(context.get(), store.get(), leaf.get(), nullptr);
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

TEST(Certificates, OfAnAuthorityAreTrustedThroughIt) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger;
    const Credentials made = authority.issue({.Names = "IP:127.0.0.1,DNS:localhost"});
    EXPECT_EQ(judgement(made.Certificate, authority.certificate()), X509_V_OK);
    EXPECT_NE(judgement(made.Certificate, stranger.certificate()), X509_V_OK);
    EXPECT_EQ(X509_check_host(parsed(made.Certificate).get(), "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_ip_asc(parsed(made.Certificate).get(), "127.0.0.1", 0), 1);
    EXPECT_EQ(X509_check_host(parsed(made.Certificate).get(), "other.test", 0, 0, nullptr), 0);
}

TEST(Certificates, AreValidFromAndUntilTheMomentsAskedFor) {
    using std::chrono::hours;
    const CertificateAuthority authority;
    EXPECT_EQ(judgement(authority.issue({.ValidUntil = hours(-1)}).Certificate, authority.certificate()),
              X509_V_ERR_CERT_HAS_EXPIRED);
    EXPECT_EQ(judgement(authority.issue({.ValidFrom = hours(1)}).Certificate, authority.certificate()),
              X509_V_ERR_CERT_NOT_YET_VALID);
}

TEST(Certificates, OfTheirOwnAreTrustedByThemselvesOnly) {
    const Credentials made = selfSigned({.Names = "IP:127.0.0.1"});
    EXPECT_EQ(judgement(made.Certificate, made.Certificate), X509_V_OK);
    EXPECT_NE(judgement(made.Certificate, selfSigned({}).Certificate), X509_V_OK);
}

} // namespace
