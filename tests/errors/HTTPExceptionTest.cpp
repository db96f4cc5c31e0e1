#include "errors/HTTPException.h"

#include "tests/support/host/ScopeFixture.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace webservices;
using HTTPExceptionTest = testsupport::ScopeFixture;

template <class... Classes>
constexpr bool areDirectAndCopyable =
    ((std::is_base_of_v<HTTPException, Classes> && std::is_copy_constructible_v<Classes>)&&...);

static_assert(std::is_base_of_v<std::runtime_error, HTTPException>);
static_assert(
    areDirectAndCopyable<HTTPConnectionFailedException, HTTPConnectionRefusedException, HTTPCopyStreamException,
                         HTTPDNSException, HTTPFileNotFoundException, HTTPURLException, HTTPConsumerException,
                         HTTPTimeoutException, SSLException, HTTPCertificateException, HTTPStatusError>);
static_assert(!std::is_base_of_v<HTTPConnectionFailedException, HTTPConnectionRefusedException>);
static_assert(std::has_virtual_destructor_v<HTTPException>);

TEST_F(HTTPExceptionTest, HoldsItsTextInBothForms) {
    for (const HTTPException& failure : {HTTPException("h\xC3\xA4"), HTTPException(std::u16string(u"h\u00E4"))}) {
        EXPECT_STREQ(failure.what(), "h\xC3\xA4");
        EXPECT_EQ(failure.Message, u"h\u00E4");
    }
}

// libcurl's texts are bytes from anywhere; none of them may replace the failure by another one.
TEST_F(HTTPExceptionTest, TextMayBeEmptyOrNoText) {
    const HTTPConnectionFailedException empty("");
    EXPECT_STREQ(empty.what(), "Unknown exception");
    EXPECT_EQ(empty.Message, u"");
    const HTTPConnectionRefusedException bytes(std::string("a\xFF") + 'b');
    EXPECT_EQ(bytes.what(), std::string("a\xFF") + 'b');
    EXPECT_EQ(bytes.Message, std::u16string(u"a\uFFFD") + u'b');
}

TEST_F(HTTPExceptionTest, CopiesKeepEveryField) {
    const auto copyOf = [](const auto& failure) { return failure; };
    const auto timeout = copyOf(HTTPTimeoutException(u"late", 1500.0, u"Option"));
    EXPECT_STREQ(timeout.what(), "late");
    EXPECT_EQ(timeout.Message, u"late");
    EXPECT_EQ(timeout.TimeoutMilliseconds, 1500.0);
    EXPECT_EQ(timeout.OptionName, u"Option");
    const auto tls = copyOf(SSLException("text", "url", "file"));
    EXPECT_EQ(tls.URL + tls.CertificateFilename, "urlfile");
    const auto certificate = copyOf(HTTPCertificateException("text", "url", "file"));
    EXPECT_EQ(certificate.URL + certificate.CertificateFilename, "urlfile");
    const std::u16string url = u"http://h/";
    const auto status = copyOf(HTTPStatusError("Not Found", &url, 404));
    EXPECT_EQ(status.StatusCode, 404);
    EXPECT_EQ(status.StatusURL, &url); // a reference, not a copy
}

} // namespace
