#include "embedded/iri/IriParts.h"
#include "host/Iri.h"
#include "host/Messages.h"
#include "host/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using foundation::network::IRI;

IRI iri(const std::string& utf8) {
    return IRI(fl::i18n::to_ustring(utf8));
}

std::string resolved(const std::string& reference, const std::string& base) {
    return fl::i18n::to_string(iri(reference).resolveAgainst(iri(base)).toAsciiString(false));
}

struct Row {
    const char* Reference;
    const char* Target;
};

// RFC 3986 section 5.4.1.
constexpr Row kNormal[] = {
    {"g:h", "g:h"},
    {"g", "http://a/b/c/g"},
    {"./g", "http://a/b/c/g"},
    {"g/", "http://a/b/c/g/"},
    {"/g", "http://a/g"},
    {"//g", "http://g"},
    {"?y", "http://a/b/c/d;p?y"},
    {"g?y", "http://a/b/c/g?y"},
    {"#s", "http://a/b/c/d;p?q#s"},
    {"g#s", "http://a/b/c/g#s"},
    {"g?y#s", "http://a/b/c/g?y#s"},
    {";x", "http://a/b/c/;x"},
    {"g;x", "http://a/b/c/g;x"},
    {"g;x?y#s", "http://a/b/c/g;x?y#s"},
    {"", "http://a/b/c/d;p?q"},
    {".", "http://a/b/c/"},
    {"./", "http://a/b/c/"},
    {"..", "http://a/b/"},
    {"../", "http://a/b/"},
    {"../g", "http://a/b/g"},
    {"../..", "http://a/"},
    {"../../", "http://a/"},
    {"../../g", "http://a/g"},
};

// RFC 3986 section 5.4.2, the strict reading.
constexpr Row kAbnormal[] = {
    {"../../../g", "http://a/g"},
    {"../../../../g", "http://a/g"},
    {"/./g", "http://a/g"},
    {"/../g", "http://a/g"},
    {"g.", "http://a/b/c/g."},
    {".g", "http://a/b/c/.g"},
    {"g..", "http://a/b/c/g.."},
    {"..g", "http://a/b/c/..g"},
    {"./../g", "http://a/b/g"},
    {"./g/.", "http://a/b/c/g/"},
    {"g/./h", "http://a/b/c/g/h"},
    {"g/../h", "http://a/b/c/h"},
    {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
    {"g;x=1/../y", "http://a/b/c/y"},
    {"g?y/./x", "http://a/b/c/g?y/./x"},
    {"g?y/../x", "http://a/b/c/g?y/../x"},
    {"g#s/./x", "http://a/b/c/g#s/./x"},
    {"g#s/../x", "http://a/b/c/g#s/../x"},
    {"http:g", "http:g"},
};

TEST(IriResolve, NormalExamples) {
    for (const Row& row : kNormal) {
        EXPECT_EQ(resolved(row.Reference, "http://a/b/c/d;p?q"), row.Target) << row.Reference;
    }
}

TEST(IriResolve, AbnormalExamples) {
    for (const Row& row : kAbnormal) {
        EXPECT_EQ(resolved(row.Reference, "http://a/b/c/d;p?q"), row.Target) << row.Reference;
    }
}

TEST(IriResolve, BaseKeepsItsAuthority) {
    EXPECT_EQ(resolved("x", "https://user@host:8443/a/b?q#f"), "https://user@host:8443/a/x");
    EXPECT_EQ(resolved("//other/x", "https://user@host:8443/a/b"), "https://other/x");
    EXPECT_EQ(resolved("/x", "http://[::1]:80/a"), "http://[::1]:80/x");
    EXPECT_EQ(resolved("http://other/x", "https://user@host/"), "http://other/x");
}

TEST(IriResolve, BaseWithoutAPath) {
    EXPECT_EQ(resolved("x", "http://host"), "http://host/x");
    EXPECT_EQ(resolved("?q", "http://host"), "http://host?q");
    EXPECT_EQ(resolved("", "http://host#f"), "http://host");
    EXPECT_EQ(resolved("../x", "http://host"), "http://host/x");
}

TEST(IriResolve, BaseWithoutAnAuthority) {
    EXPECT_EQ(resolved("../c", "foo:a/b"), "foo:/c");
    EXPECT_EQ(resolved("c", "foo:a"), "foo:c");
    EXPECT_EQ(resolved("/c", "foo:a/b"), "foo:/c");
}

// A path that begins with two slashes must not turn into a host.
TEST(IriResolve, PathNeverBecomesAnAuthority) {
    EXPECT_EQ(resolved("/..//evil/x", "foo:/a"), "foo:/.//evil/x");
    EXPECT_EQ(resolved("http:/..//evil/x", "http://host/"), "http:/.//evil/x");
    EXPECT_FALSE(iri("http:/..//evil/x").resolveAgainst(iri("http://host/")).hasHost());
    EXPECT_EQ(resolved("/..//evil/x", "http://host/a"), "http://host//evil/x");
}

TEST(IriResolve, WideReferencesAreMappedFirst) {
    EXPECT_EQ(resolved("caf\u00E9 1?\u00FC", "http://host/a/b"), "http://host/a/caf%C3%A9%201?%C3%BC");
    EXPECT_EQ(resolved("//b\u00FCcher.example/x", "http://host/a"), "http://xn--bcher-kva.example/x");
}

TEST(IriResolve, BaseNeedsAScheme) {
    for (const char* base : {"", "//host/x", "/x", "x"}) {
        try {
            resolved("x", base);
            FAIL() << base;
        } catch (const foundation::core::except::IInternalException& error) {
            EXPECT_STREQ(error.what(), "base without a scheme at position 0");
        }
    }
}

TEST(IriResolve, DotSegments) {
    using vantik::detail::removeDotSegments;
    constexpr Row rows[] = {
        {"", ""},
        {"/", "/"},
        {"/a/b/c/./../../g", "/a/g"},
        {"mid/content=5/../6", "mid/6"},
        {".", ""},
        {"..", ""},
        {"./", ""},
        {"../", ""},
        {"/.", "/"},
        {"/..", "/"},
        {"/./", "/"},
        {"/../", "/"},
        {"../../a", "a"},
        {"a/..", "/"},
        {"a/../b", "/b"},
        {"a/../../b", "/b"},
        {"/a/b/..", "/a/"},
        {"/a/b/.", "/a/b/"},
        {"//", "//"},
        {"/a//../b", "/a/b"},
        {"/..//g", "//g"},
        {"/...", "/..."},
        {"/.../..", "/"},
        {"/%2e%2e/a", "/%2e%2e/a"},
        {"..//../a", "/a"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(removeDotSegments(row.Reference), row.Target) << row.Reference;
    }
}

} // namespace
