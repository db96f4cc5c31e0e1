// What this host is made of.
#include "vantik/Host.h"

#include <algorithm>
#include <string>

#include <boost/version.hpp>
#include <curl/curl.h>
#include <unicode/uversion.h>

namespace vantik {

namespace {

std::string icuVersion() {
    UVersionInfo version;
    u_getVersion(version);
    char text[U_MAX_VERSION_STRING_LENGTH];
    u_versionToString(version, text);
    return text;
}

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

} // namespace

std::vector<std::string> hostComponents() {
    return {
        std::string("libcurl ") + curl_version_info(CURLVERSION_NOW)->version,
        "ICU " + icuVersion(),
        "Boost " + boostVersion(),
        "libproxy " VANTIK_LIBPROXY_VERSION,
        servicesVersion(),
    };
}

} // namespace vantik
