#include "embedded/proxy/EnvironmentProxy.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using vantik::detail::isException;

namespace {

struct Row {
    const char* Exceptions;
    const char* Host;
    std::uint16_t Port;
    bool Is;
};

// What docs/errors.md promises of no_proxy.
constexpr Row kRows[] = {
    {"*", "a.corp", 80, true},
    {"*", "", 80, true},
    {"b.corp, *", "a.corp", 80, true},
    {"", "a.corp", 80, false},
    {" , ,", "a.corp", 80, false},
    {"a.corp", "", 80, false},
    {"a.corp", "a.corp", 80, true},
    {"A.Corp", "a.corp", 80, true},
    {"a.corp", "A.CORP", 80, true},
    {"a.corp", "www.a.corp", 80, true},
    {"A.Corp", "b.www.a.corp", 80, true},
    {"www.a.corp", "a.corp", 80, false},
    {"a.corp:8080", "www.a.corp", 8080, true},
    {"a.corp:8080", "www.a.corp", 80, false},
    {"2.3.4", "1.2.3.4", 80, false},
    {"a.corp", "xa.corp", 80, false},
    {"b.corp a.corp", "a.corp", 80, true},
    {"b.corp,\ta.corp", "a.corp", 80, true},
    {".a.corp", "www.a.corp", 80, true},
    {".a.corp", "a.corp", 80, false},
    {"*.a.corp", "www.a.corp", 80, true},
    {"*a.corp", "a.corp", 80, true},
    {"*a.corp", "www.a.corp", 80, true},
    {"a.corp:8080", "a.corp", 8080, true},
    {"a.corp:8080", "a.corp", 80, false},
    {".corp:8080", "a.corp", 8080, true},
    {":8080", "a.corp", 8080, false},
    {"<local>", "intranet", 80, true},
    {"<local>", "a.corp", 80, false},
    {"<local>", "::1", 80, false},
    {"10.0.0.1", "10.0.0.1", 80, true},
    {"10.0.0.0/8", "10.1.2.3", 80, true},
    {"10.0.0.0/8", "11.1.2.3", 80, false},
    {"10.16.0.0/12", "10.31.255.255", 80, true},
    {"10.16.0.0/12", "10.32.0.0", 80, false},
    {"0.0.0.0/0", "10.1.2.3", 80, true},
    {"10.1.2.3/32", "10.1.2.3", 80, true},
    {"10.0.0.0/33", "10.0.0.0", 80, false},
    {"10.0.0.0/x", "10.0.0.0", 80, false},
    {"10.0.0.0/8", "a.corp", 80, false},
    {"::1", "::1", 80, true},
    {"[::1]", "::1", 80, true},
    {"[::1]:8080", "::1", 8080, true},
    {"[::1]:8080", "::1", 80, false},
    {"0:0::1", "::1", 80, true},
    {"fd00::/8", "fd12::1", 80, true},
    {"fd00::/8", "fe80::1", 80, false},
    {"fd00::/8", "10.0.0.1", 80, false},
};

TEST(ProxyExceptions, AreThoseOfTheList) {
    for (const Row& row : kRows) {
        EXPECT_EQ(isException(row.Exceptions, row.Host, row.Port), row.Is) << row.Exceptions << " for " << row.Host;
    }
}

} // namespace
