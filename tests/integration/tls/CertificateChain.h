// A leaf certificate whose issuer is not the trusted one, but was signed by it.
#pragma once

#include "tests/support/crypto/Certificates.h"

#include <string>

namespace integrationtest {

struct CertificateChain {
    std::string Root;              // what a client trusts
    std::string Intermediate;      // signed by the root
    testsupport::Credentials Leaf; // signed by the intermediate
};

// `names` as in testsupport::CertificateRequest.
CertificateChain makeCertificateChain(const std::string& names);

} // namespace integrationtest
