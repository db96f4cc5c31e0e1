// What this host is made of.
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"
#include "vantik/ContentCodings.h"
#include "vantik/Host.h"

#include <boost/version.hpp>
#include <curl/curl.h>

#include <algorithm>
#include <string>

namespace vantik {

namespace {

std::string boostVersion() {
    std::string text = BOOST_LIB_VERSION; // "1_81"
    std::replace(text.begin(), text.end(), '_', '.');
    return text;
}

std::string servicesVersion() {
#ifdef VANTIK_CPPMICROSERVICES
    return "CppMicroServices " VANTIK_CPPMICROSERVICES;
#else
    return "CppMicroServices interface subset (built in)";
#endif
}

// What the linked libcurl can do beyond HTTP/1.1: a table of its bits, and the libraries whose versions it reports.
struct Feature {
    int Bit;
    const char* Name;
};
constexpr Feature kFeatures[] = {
    {CURL_VERSION_HTTP2, "HTTP/2"},   {CURL_VERSION_HTTP3, "HTTP/3"},
    {CURL_VERSION_LIBZ, "gzip"},      {CURL_VERSION_BROTLI, "br"},
    {CURL_VERSION_ZSTD, "zstd"},      {CURL_VERSION_NTLM, "NTLM"},
    {CURL_VERSION_GSSAPI, "GSS-API"}, {CURL_VERSION_IPV6, "IPv6"},
    {CURL_VERSION_IDN, "IDN"},        {CURL_VERSION_ASYNCHDNS, "look-ups in the background"},
};

std::string curlComponent() {
    const curl_version_info_data* facts = curl_version_info(CURLVERSION_NOW);
    std::string text = std::string("libcurl ") + facts->version + " with ";
    text += facts->ssl_version == nullptr ? "no TLS" : facts->ssl_version;
    for (const Feature& feature : kFeatures) {
        if ((facts->features & feature.Bit) != 0) {
            text += std::string(", ") + feature.Name;
        }
    }
    return text;
}

// In the order in which libcurl names them itself.
struct Coding {
    int Bit;
    const char* Names;
};
constexpr Coding kCodings[] = {
    {CURL_VERSION_LIBZ, "deflate, gzip"}, {CURL_VERSION_BROTLI, "br"}, {CURL_VERSION_ZSTD, "zstd"}};

} // namespace

std::string contentCodings() {
    const curl_version_info_data* facts = curl_version_info(CURLVERSION_NOW);
    std::string names;
    for (const Coding& coding : kCodings) {
        if ((facts->features & coding.Bit) != 0) {
            names += (names.empty() ? "" : ", ") + std::string(coding.Names);
        }
    }
    return names.empty() ? "identity" : names;
}

std::vector<std::string> hostComponents() {
    return {
        curlComponent(),           "ICU " + netrove::lateCalls<netrove::IcuCalls>().version(),
        "Boost " + boostVersion(), std::string("libproxy ") + VANTIK_LIBPROXY_VERSION,
        servicesVersion(),
    };
}

} // namespace vantik
