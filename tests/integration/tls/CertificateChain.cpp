#include "tests/integration/tls/CertificateChain.h"

#include "tests/support/crypto/OpenSslOwner.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace integrationtest {
namespace {

using testsupport::CertificateRequest;
using testsupport::Credentials;
using testsupport::OpenSslOwner;
using testsupport::requireOpenSsl;
using Certificate = OpenSslOwner<X509, X509_free>;
using Key = OpenSslOwner<EVP_PKEY, EVP_PKEY_free>;
using Memory = OpenSslOwner<BIO, BIO_free>;

Memory readable(const std::string& text) {
    return Memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

Certificate certificateOf(const Credentials& credentials) {
    return Certificate(PEM_read_bio_X509(readable(credentials.Certificate).get(), nullptr, nullptr, nullptr));
}

Key keyOf(const Credentials& credentials) {
    return Key(PEM_read_bio_PrivateKey(readable(credentials.Key).get(), nullptr, nullptr, nullptr));
}

// The same certificate under another issuer. The number stays: it is random, so it is the issuer's own all the same.
Credentials signedBy(const Credentials& issuer, const CertificateRequest& request) {
    Credentials result = testsupport::selfSigned(request);
    const Certificate certificate = certificateOf(result);
    const Certificate issuerCertificate = certificateOf(issuer);
    const Key issuerKey = keyOf(issuer);
    requireOpenSsl(certificate && issuerCertificate && issuerKey, "issuer");
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuerCertificate.get()));
    requireOpenSsl(X509_sign(certificate.get(), issuerKey.get(), EVP_sha256()) != 0, "signature");
    const Memory memory(BIO_new(BIO_s_mem()));
    requireOpenSsl(memory && PEM_write_bio_X509(memory.get(), certificate.get()) == 1, "text form");
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    result.Certificate.assign(data, static_cast<std::size_t>(length));
    return result;
}

} // namespace

CertificateChain makeCertificateChain(const std::string& names) {
    const Credentials root = testsupport::selfSigned({.CommonName = "root authority"});
    const Credentials intermediate = signedBy(root, {.CommonName = "intermediate authority"});
    return {root.Certificate, intermediate.Certificate, signedBy(intermediate, {.Names = names})};
}

} // namespace integrationtest
