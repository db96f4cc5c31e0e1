#include "tests/support/crypto/Certificates.h"

#include "tests/support/crypto/OpenSslOwner.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>

namespace testsupport {
namespace {

using Key = OpenSslOwner<EVP_PKEY, EVP_PKEY_free>;
using Certificate = OpenSslOwner<X509, X509_free>;
using Extension = OpenSslOwner<X509_EXTENSION, X509_EXTENSION_free>;
using Memory = OpenSslOwner<BIO, BIO_free>;

Key makeKey() {
    Key key(EVP_EC_gen("P-256"));
    requireOpenSsl(key != nullptr, "key");
    return key;
}

void addExtension(X509& certificate, X509& issuer, int kind, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    requireOpenSsl(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1, "extension");
}

// `issuer` null: it signs itself.
Certificate makeCertificate(EVP_PKEY& key, const CertificateRequest& request, bool authority, X509* issuer,
                            EVP_PKEY& issuerKey) {
    Certificate made(X509_new());
    requireOpenSsl(made != nullptr, "certificate");
    X509_set_version(made.get(), X509_VERSION_3);
    // A number of its own: two certificates of one issuer and number are not told apart.
    std::uint32_t number = 0;
    requireOpenSsl(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1, "random number");
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(made.get()), number);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), request.ValidFrom.count());
    X509_gmtime_adj(X509_getm_notAfter(made.get()), request.ValidUntil.count());
    X509_NAME* name = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(request.CommonName.c_str()), -1, -1, 0);
    X509& signedBy = issuer == nullptr ? *made : *issuer;
    X509_set_issuer_name(made.get(), X509_get_subject_name(&signedBy));
    X509_set_pubkey(made.get(), &key);
    addExtension(*made, signedBy, NID_basic_constraints, authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    addExtension(*made, signedBy, NID_subject_key_identifier, "hash");
    if (!request.Names.empty()) {
        addExtension(*made, signedBy, NID_subject_alt_name, request.Names);
    }
    requireOpenSsl(X509_sign(made.get(), &issuerKey, EVP_sha256()) != 0, "signature");
    return made;
}

Memory readable(const std::string& text) {
    Memory memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    requireOpenSsl(memory != nullptr, "memory");
    return memory;
}

Certificate certificateOf(const Credentials& credentials) {
    Certificate read(PEM_read_bio_X509(readable(credentials.Certificate).get(), nullptr, nullptr, nullptr));
    requireOpenSsl(read != nullptr, "certificate");
    return read;
}

Key keyOf(const Credentials& credentials) {
    Key read(PEM_read_bio_PrivateKey(readable(credentials.Key).get(), nullptr, nullptr, nullptr));
    requireOpenSsl(read != nullptr, "key");
    return read;
}

template <class Write>
std::string written(Write write) {
    const Memory memory(BIO_new(BIO_s_mem()));
    requireOpenSsl(memory != nullptr && write(memory.get()) == 1, "text form");
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

Credentials asText(X509& certificate, EVP_PKEY& key) {
    return {written([&](BIO* out) { return PEM_write_bio_X509(out, &certificate); }), written([&](BIO* out) {
                return PEM_write_bio_PrivateKey(out, &key, nullptr, nullptr, 0, nullptr, nullptr);
            })};
}

} // namespace

Credentials selfSigned(const CertificateRequest& request) {
    const Key key = makeKey();
    const Certificate made = makeCertificate(*key, request, true, nullptr, *key);
    return asText(*made, *key);
}

CertificateAuthority::CertificateAuthority(const std::string& name, const CertificateAuthority* issuer) {
    CertificateRequest request;
    request.CommonName = name;
    Own = issuer == nullptr ? selfSigned(request) : issuer->sign(request, true);
}

Credentials CertificateAuthority::sign(const CertificateRequest& request, bool authority) const {
    const Certificate issuer = certificateOf(Own);
    const Key issuerKey = keyOf(Own);
    const Key key = makeKey();
    const Certificate made = makeCertificate(*key, request, authority, issuer.get(), *issuerKey);
    return asText(*made, *key);
}

std::string CertificateAuthority::revoke(const Credentials& issued) const {
    const Certificate issuer = certificateOf(Own);
    const Certificate bad = certificateOf(issued);
    const Key issuerKey = keyOf(Own);
    const OpenSslOwner<X509_CRL, X509_CRL_free> list(X509_CRL_new());
    OpenSslOwner<X509_REVOKED, X509_REVOKED_free> entry(X509_REVOKED_new());
    const OpenSslOwner<ASN1_TIME, ASN1_TIME_free> before(X509_gmtime_adj(nullptr, -60));
    const OpenSslOwner<ASN1_TIME, ASN1_TIME_free> after(X509_gmtime_adj(nullptr, 24 * 3600));
    requireOpenSsl(list && entry && before && after, "list");
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(issuer.get()));
    X509_CRL_set1_lastUpdate(list.get(), before.get());
    X509_CRL_set1_nextUpdate(list.get(), after.get());
    X509_REVOKED_set_serialNumber(entry.get(), X509_get_serialNumber(bad.get()));
    X509_REVOKED_set_revocationDate(entry.get(), before.get());
    requireOpenSsl(X509_CRL_add0_revoked(list.get(), entry.get()) == 1, "entry");
    entry.release(); // it is the list's now
    requireOpenSsl(X509_CRL_sign(list.get(), issuerKey.get(), EVP_sha256()) != 0, "signature");
    return written([&](BIO* out) { return PEM_write_bio_X509_CRL(out, list.get()); });
}

} // namespace testsupport
