#include "embedded/text/NearestName.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

TEST(NearestNames, AreCloseOrNone) {
    const std::vector<std::string> known{"URL", "Username", "ProxyUsername", "ResponseCode", "Payload"};
    const auto nearest = [&](std::string_view text) { return vantik::detail::nearestName(text, known); };
    EXPECT_EQ(nearest("Usrname"), "Username");
    EXPECT_EQ(nearest("username"), "Username");
    EXPECT_EQ(nearest("url"), "") << "three changes of case in three letters may be anything";
    EXPECT_EQ(nearest("Url"), "URL");
    EXPECT_EQ(nearest("Responsecode"), "ResponseCode");
    EXPECT_EQ(nearest("Colour"), "");
    EXPECT_EQ(nearest(""), "");
    EXPECT_EQ(nearest(std::string(100000, 'x')), "");
}

TEST(NearestNames, CountWordsThatAreMissingOrTooMany) {
    const std::vector<std::string> known{
        "openConnection",      "openProxyConnection",      "closeConnection", "copyContentToByteArray",
        "copyContentToFile",   "setRequestProperty",       "setFields",       "getRequestURI",
        "getStatusLine",       "closeAllConnections",      "RequestMethod",   "TimeoutInMilliseconds",
        "CertificateFilename", "a.b.HTTPConnectionAdapter"};
    const std::pair<const char*, const char*> rows[] = {
        {"copyContentToBytes", "copyContentToByteArray"},
        {"copyContentToByte", "copyContentToByteArray"},
        {"copyToByteArray", "copyContentToByteArray"},
        {"copyToFile", "copyContentToFile"},
        {"copyContentToFiles", "copyContentToFile"},
        {"copycontenttofile", "copyContentToFile"},
        {"open", "openConnection"},
        {"openProxy", "openProxyConnection"},
        {"closeAll", "closeAllConnections"},
        {"openHttpConnection", "openConnection"},
        {"setHttpFields", "setFields"},
        {"getStatus", "getStatusLine"},
        {"Method", "RequestMethod"},
        {"Timeout", "TimeoutInMilliseconds"},
        {"CertificateFileName", "CertificateFilename"},
        {"HTTPConnectionAdapter", "a.b.HTTPConnectionAdapter"},
        {"a.b.HttpConnection", "a.b.HTTPConnectionAdapter"},
        // Most of it may fit: a word that is nowhere means something else.
        {"copyContentToMoon", ""},
        {"copyContentToString", ""},
        {"getBody", ""},
        {"setSomething", ""},
        {"get", ""},
        {"....", ""},
    };
    for (const auto& [name, nearest] : rows) {
        EXPECT_EQ(vantik::detail::nearestName(name, known), nearest) << name;
    }
}
