// Keys and certificates for servers of tests: some that nobody else has signed, and a small authority.
#pragma once

#include <chrono>
#include <string>

namespace testsupport {

struct CertificateRequest {
    std::string Names{}; // "IP:127.0.0.1,DNS:localhost"; none where empty
    std::string CommonName = "test";
    std::chrono::seconds ValidFrom{-3600};      // from now
    std::chrono::seconds ValidUntil{24 * 3600}; // from now
};

// PEM texts, as servers and trust files take them.
struct Credentials {
    std::string Certificate;
    std::string Key;
};

// Signed by its own key. It may sign others too, which is what makes it acceptable as a trusted certificate.
Credentials selfSigned(const CertificateRequest& request);

class CertificateAuthority {
public:
    // Its own certificate is signed by `issuer`, or by itself.
    explicit CertificateAuthority(const std::string& name = "test authority",
                                  const CertificateAuthority* issuer = nullptr);

    const std::string& certificate() const { return Own.Certificate; }
    Credentials issue(const CertificateRequest& request) const { return sign(request, false); }
    // PEM of a list with that certificate alone.
    std::string revoke(const Credentials& issued) const;

private:
    Credentials Own;

    Credentials sign(const CertificateRequest& request, bool authority) const;
};

} // namespace testsupport
