#include "errors/TranslateTransferException.h"

#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "host/Interrupt.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <locale>
#include <new>
#include <stdexcept>

namespace {

using namespace webservices;
using testsupport::failureText;

const std::u16string statusUrl = u"http://status.example/";

struct TranslationRow {
    const char* Name;
    std::function<void()> Raise;
    const char* Result;
};

std::string translated(const std::function<void()>& raise) {
    return failureText([&] {
        try {
            raise();
        } catch (...) {
            translateTransferException(u"http://url/");
        }
    });
}

class TranslationTest : public testsupport::ScopeFixture, public ::testing::WithParamInterface<TranslationRow> {};

TEST_P(TranslationTest, GivesTheHostsException) {
    EXPECT_EQ(translated(GetParam().Raise), GetParam().Result);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, TranslationTest,
    ::testing::Values(
        TranslationRow{"CopyStream", [] { throw HTTPCopyStreamException("text"); },
                       "VANTIK:webservices:CopyContentToDataStreamError[U:text, U:http://url/]"},
        TranslationRow{"Status", [] { throw HTTPStatusError("Not Found", &statusUrl, 404); },
                       "VANTIK:webservices:StatusError[I:404, U:Not Found, U:http://status.example/]"},
        TranslationRow{"StatusWithoutReason", [] { throw HTTPStatusError("", &statusUrl, 500); },
                       "VANTIK:webservices:StatusError[I:500, U:, U:http://status.example/]"},
        TranslationRow{"TlsWithoutFile", [] { throw SSLException("text", "tls", ""); },
                       "VANTIK:webservices:SSLConnectionNoFile[N:tls, U:text]"},
        TranslationRow{"TlsWithSystemFile", [] { throw SSLException("text", "tls", "default"); },
                       "VANTIK:webservices:SSLConnectionSystemFailure[N:tls, U:text]"},
        TranslationRow{"TlsWithFile", [] { throw SSLException("text", "tls", "/ca.pem"); },
                       "VANTIK:webservices:SSLConnectionFailure[N:tls, U:text, N:/ca.pem]"},
        TranslationRow{"DefaultIsMatchedExactly", [] { throw SSLException("text", "tls", "Default"); },
                       "VANTIK:webservices:SSLConnectionFailure[N:tls, U:text, N:Default]"},
        TranslationRow{"DefaultIsMatchedInFullLength", [] { throw SSLException("text", "tls", "default "); },
                       "VANTIK:webservices:SSLConnectionFailure[N:tls, U:text, N:default ]"},
        TranslationRow{"Certificate", [] { throw HTTPCertificateException("text", "first", "second"); },
                       "VANTIK:webservices:CertificateFailedVerification[N:first, N:second]"},
        TranslationRow{"Timeout", [] { throw HTTPTimeoutException(u"late", 1500.0, u"Option"); },
                       "VANTIK:webservices:Timeout[U:http://url/, N:1.500, U:late, U:Option]"},
        TranslationRow{"Url", [] { throw HTTPURLException("text"); }, "VANTIK:webservices:MalformedURL[U:text]"},
        TranslationRow{"Dns", [] { throw HTTPDNSException("text"); }, "VANTIK:webservices:UnknownHost[U:text]"},
        TranslationRow{"FileNotFound", [] { throw HTTPFileNotFoundException("No host"); },
                       "VANTIK:webservices:FileNotFound[U:http://url/]"},
        TranslationRow{"Consumer", [] { throw HTTPConsumerException("text"); },
                       "VANTIK:webservices:OperationTerminatedByConsumer[U:http://url/]"},
        TranslationRow{"ConnectionFailed", [] { throw HTTPConnectionFailedException("text"); },
                       "VANTIK:webservices:ConnectionFailed[U:text]"},
        TranslationRow{"ConnectionRefused", [] { throw HTTPConnectionRefusedException("text"); },
                       "VANTIK:webservices:ConnectionRefused[U:http://url/, U:text]"},
        TranslationRow{"MessageOfAnEmptyTextIsEmpty", [] { throw HTTPConnectionFailedException(""); },
                       "VANTIK:webservices:ConnectionFailed[U:]"},
        TranslationRow{"HostExceptionPasses", [] { VANTIK::raise<VANTIK::webservices::DecodingError>("gzip", "text"); },
                       "VANTIK:webservices:DecodingError[N:gzip, N:text]"},
        TranslationRow{"BaseOfTheFamily", [] { throw HTTPException(std::string("text")); },
                       "VANTIK:webservices:ConnectionFailed[U:http://url/]"},
        TranslationRow{"Memory", [] { throw std::bad_alloc(); }, "VANTIK:webservices:ConnectionFailed[U:http://url/]"},
        TranslationRow{"Standard", [] { throw std::runtime_error("text"); },
                       "VANTIK:webservices:ConnectionFailed[U:http://url/]"},
        TranslationRow{"Interrupt", [] { throw Zentorak::System::InterruptException(false); },
                       "VANTIK:webservices:ConnectionFailed[U:http://url/]"},
        TranslationRow{"NoStandardException", [] { throw 7; }, "unknown"}),
    [](const auto& info) { return info.param.Name; });

struct SecondsRow {
    double Milliseconds;
    const char* Seconds;
};

class SecondsTest : public testsupport::ScopeFixture, public ::testing::WithParamInterface<SecondsRow> {};

TEST_P(SecondsTest, HaveThreeDecimals) {
    EXPECT_EQ(translated([] { throw HTTPTimeoutException(u"late", GetParam().Milliseconds, u"Option"); }),
              "VANTIK:webservices:Timeout[U:http://url/, N:" + std::string(GetParam().Seconds) + ", U:late, U:Option]");
}

INSTANTIATE_TEST_SUITE_P(Times, SecondsTest,
                         ::testing::Values(SecondsRow{1500.0, "1.500"}, SecondsRow{2.5, "0.003"},
                                           SecondsRow{0.0, "0.000"}, SecondsRow{0.4, "0.000"},
                                           SecondsRow{1234567.0, "1234.567"}, SecondsRow{1e12, "1000000000.000"},
                                           SecondsRow{-1.0, "-0.001"},
                                           SecondsRow{std::numeric_limits<double>::infinity(), "inf"}));

// A comma for the point, and groups of digits.
class CommaNumbers : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class SecondsLocaleTest : public testsupport::ScopeFixture {
protected:
    ~SecondsLocaleTest() override { std::locale::global(Previous); }

private:
    std::locale Previous = std::locale::global(std::locale(std::locale(), new CommaNumbers));
};

TEST_F(SecondsLocaleTest, SecondsAreTheSameInEveryLocale) {
    EXPECT_EQ(translated([] { throw HTTPTimeoutException(u"late", 1234567.0, u"Option"); }),
              "VANTIK:webservices:Timeout[U:http://url/, N:1234.567, U:late, U:Option]");
}

TEST(TranslateTransferException, KeepsTheVeryObjectThatPasses) {
    const VANTIK::Failure<VANTIK::webservices::RandomError> thrown{VANTIK::webservices::RandomError("url")};
    const std::exception_ptr kept = std::make_exception_ptr(thrown);
    try {
        try {
            std::rethrow_exception(kept);
        } catch (...) {
            translateTransferException(u"http://url/");
        }
    } catch (...) {
        EXPECT_EQ(std::current_exception(), kept);
    }
}

} // namespace
