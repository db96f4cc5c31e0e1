#include "IriHelpers.h"
#include "embedded/iri/IriParts.h"

#include <gtest/gtest.h>

namespace {

std::string resolved(const std::string& reference, const std::string& base) {
    return ascii(iri(reference).resolveAgainst(iri(base)));
}

struct Row {
    const char* Reference;
    const char* Target;
};

// clang-format off
constexpr Row kExamples[] = {
    // RFC 3986 section 5.4.1
    {"g:h", "g:h"}, {"g", "http://a/b/c/g"}, {"./g", "http://a/b/c/g"}, {"g/", "http://a/b/c/g/"},
    {"/g", "http://a/g"}, {"//g", "http://g"}, {"?y", "http://a/b/c/d;p?y"}, {"g?y", "http://a/b/c/g?y"},
    {"#s", "http://a/b/c/d;p?q#s"}, {"g#s", "http://a/b/c/g#s"}, {"g?y#s", "http://a/b/c/g?y#s"},
    {";x", "http://a/b/c/;x"}, {"g;x", "http://a/b/c/g;x"}, {"g;x?y#s", "http://a/b/c/g;x?y#s"},
    {"", "http://a/b/c/d;p?q"}, {".", "http://a/b/c/"}, {"./", "http://a/b/c/"}, {"..", "http://a/b/"},
    {"../", "http://a/b/"}, {"../g", "http://a/b/g"}, {"../..", "http://a/"}, {"../../", "http://a/"},
    {"../../g", "http://a/g"},
    // section 5.4.2, the strict reading
    {"../../../g", "http://a/g"}, {"../../../../g", "http://a/g"}, {"/./g", "http://a/g"}, {"/../g", "http://a/g"},
    {"g.", "http://a/b/c/g."}, {".g", "http://a/b/c/.g"}, {"g..", "http://a/b/c/g.."}, {"..g", "http://a/b/c/..g"},
    {"./../g", "http://a/b/g"}, {"./g/.", "http://a/b/c/g/"}, {"g/./h", "http://a/b/c/g/h"},
    {"g/../h", "http://a/b/c/h"}, {"g;x=1/./y", "http://a/b/c/g;x=1/y"}, {"g;x=1/../y", "http://a/b/c/y"},
    {"g?y/./x", "http://a/b/c/g?y/./x"}, {"g?y/../x", "http://a/b/c/g?y/../x"}, {"g#s/./x", "http://a/b/c/g#s/./x"},
    {"g#s/../x", "http://a/b/c/g#s/../x"}, {"http:g", "http:g"},
};
constexpr Row kDotSegments[] = {
    {"", ""}, {"/", "/"}, {"/a/b/c/./../../g", "/a/g"}, {"mid/content=5/../6", "mid/6"}, {".", ""}, {"..", ""},
    {"./", ""}, {"../", ""}, {"/.", "/"}, {"/..", "/"}, {"/./", "/"}, {"/../", "/"}, {"../../a", "a"}, {"a/..", "/"},
    {"a/../b", "/b"}, {"a/../../b", "/b"}, {"/a/b/..", "/a/"}, {"/a/b/.", "/a/b/"}, {"//", "//"},
    {"/a//../b", "/a/b"}, {"/..//g", "//g"}, {"/...", "/..."}, {"/.../..", "/"}, {"/%2e%2e/a", "/%2e%2e/a"},
    {"..//../a", "/a"},
};
// clang-format on

} // namespace

TEST(IriResolve, ExamplesOfTheStandard) {
    for (const Row& row : kExamples) {
        EXPECT_EQ(resolved(row.Reference, "http://a/b/c/d;p?q"), row.Target) << row.Reference;
    }
}

TEST(IriResolve, BasesOfOtherForms) {
    struct Resolved {
        const char *Reference, *Base, *Target;
    };
    for (const Resolved& row : {Resolved{"x", "https://user@host:8443/a/b?q#f", "https://user@host:8443/a/x"},
                                {"//other/x", "https://user@host:8443/a/b", "https://other/x"},
                                {"/x", "http://[::1]:80/a", "http://[::1]:80/x"},
                                {"http://other/x", "https://user@host/", "http://other/x"},
                                // without a path
                                {"x", "http://host", "http://host/x"},
                                {"?q", "http://host", "http://host?q"},
                                {"", "http://host#f", "http://host"},
                                {"../x", "http://host", "http://host/x"},
                                // without an authority
                                {"../c", "foo:a/b", "foo:/c"},
                                {"c", "foo:a", "foo:c"},
                                {"/c", "foo:a/b", "foo:/c"},
                                // outside ASCII: mapped first
                                {"caf\u00E9 1?\u00FC", "http://host/a/b", "http://host/a/caf%C3%A9%201?%C3%BC"},
                                {"//b\u00FCcher.example/x", "http://host/a", "http://xn--bcher-kva.example/x"}}) {
        EXPECT_EQ(resolved(row.Reference, row.Base), row.Target) << row.Base;
    }
}

// A path that begins with two slashes must not turn into a host.
TEST(IriResolve, PathNeverBecomesAnAuthority) {
    EXPECT_EQ(resolved("/..//evil/x", "foo:/a"), "foo:/.//evil/x");
    EXPECT_EQ(resolved("http:/..//evil/x", "http://host/"), "http:/.//evil/x");
    EXPECT_FALSE(iri("http:/..//evil/x").resolveAgainst(iri("http://host/")).hasHost());
    EXPECT_EQ(resolved("/..//evil/x", "http://host/a"), "http://host//evil/x");
}

TEST(IriResolve, BaseNeedsAScheme) {
    for (const char* base : {"", "//host/x", "/x", "x"}) {
        EXPECT_EQ(refusalOf([base] { resolved("x", base); }), "base without a scheme at position 0") << base;
    }
}

TEST(IriResolve, DotSegments) {
    for (const Row& row : kDotSegments) {
        EXPECT_EQ(vantik::detail::removeDotSegments(row.Reference), row.Target) << row.Reference;
    }
}
