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

const std::u16string kStatusUrl = u"http://status.example/";

struct Row {
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

// Raises a failure of the transfer layer that is made from these.
template <class Failure, class... Values>
std::function<void()> raising(Values... values) {
    return [=] { throw Failure(values...); };
}

// The identifiers without the namespaces of all of them.
const Row kRows[] = {
    {"CopyStream", raising<HTTPCopyStreamException>("text"), "CopyContentToDataStreamError[U:text, U:http://url/]"},
    {"Status", raising<HTTPStatusError>("Not Found", &kStatusUrl, 404),
     "StatusError[I:404, U:Not Found, U:http://status.example/]"},
    {"StatusWithoutReason", raising<HTTPStatusError>("", &kStatusUrl, 500),
     "StatusError[I:500, U:, U:http://status.example/]"},
    {"TlsWithoutFile", raising<SSLException>("text", "tls", ""), "SSLConnectionNoFile[N:tls, U:text]"},
    {"TlsWithSystemFile", raising<SSLException>("text", "tls", "default"), "SSLConnectionSystemFailure[N:tls, U:text]"},
    {"TlsWithFile", raising<SSLException>("text", "tls", "/ca.pem"), "SSLConnectionFailure[N:tls, U:text, N:/ca.pem]"},
    {"DefaultIsMatchedExactly", raising<SSLException>("text", "tls", "Default"),
     "SSLConnectionFailure[N:tls, U:text, N:Default]"},
    {"DefaultIsMatchedInFullLength", raising<SSLException>("text", "tls", "default "),
     "SSLConnectionFailure[N:tls, U:text, N:default ]"},
    {"Certificate", raising<HTTPCertificateException>("text", "first", "second"),
     "CertificateFailedVerification[N:first, N:second]"},
    {"Timeout", raising<HTTPTimeoutException>(u"late", 1500.0, u"Option"),
     "Timeout[U:http://url/, N:1.500, U:late, U:Option]"},
    {"Url", raising<HTTPURLException>("text"), "MalformedURL[U:text]"},
    {"Dns", raising<HTTPDNSException>("text"), "UnknownHost[U:text]"},
    {"FileNotFound", raising<HTTPFileNotFoundException>("No host"), "FileNotFound[U:http://url/]"},
    {"Consumer", raising<HTTPConsumerException>("text"), "OperationTerminatedByConsumer[U:http://url/]"},
    {"ConnectionFailed", raising<HTTPConnectionFailedException>("text"), "ConnectionFailed[U:text]"},
    {"ConnectionRefused", raising<HTTPConnectionRefusedException>("text"), "ConnectionRefused[U:http://url/, U:text]"},
    {"MessageOfAnEmptyTextIsEmpty", raising<HTTPConnectionFailedException>(""), "ConnectionFailed[U:]"},
    {"HostExceptionPasses", [] { VANTIK::raise<VANTIK::webservices::DecodingError>("gzip", "text"); },
     "DecodingError[N:gzip, N:text]"},
    {"BaseOfTheFamily", raising<HTTPException>("text"), "ConnectionFailed[U:http://url/]"},
    {"Memory", raising<std::bad_alloc>(), "ConnectionFailed[U:http://url/]"},
    {"Standard", raising<std::runtime_error>("text"), "ConnectionFailed[U:http://url/]"},
    {"Interrupt", raising<Zentorak::System::InterruptException>(false), "ConnectionFailed[U:http://url/]"},
    {"OutsideTheStandardFamily", [] { throw 7; }, "unknown"},
};

class TranslationTest : public testsupport::ScopeFixture, public ::testing::WithParamInterface<Row> {};

TEST_P(TranslationTest, RaisesTheHostsException) {
    const std::string prefix = GetParam().Result == std::string("unknown") ? "" : "VANTIK:webservices:";
    EXPECT_EQ(translated(GetParam().Raise), prefix + GetParam().Result);
}

INSTANTIATE_TEST_SUITE_P(Rows, TranslationTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.Name; });

// A comma for the point, and groups of digits.
class CommaNumbers : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class SecondsTest : public testsupport::ScopeFixture {
protected:
    ~SecondsTest() override { std::locale::global(Previous); }

private:
    std::locale Previous = std::locale::global(std::locale(std::locale(), new CommaNumbers));
};

TEST_F(SecondsTest, HaveThreeDecimalsInEveryLocale) {
    struct SecondsRow {
        double Milliseconds;
        std::string Seconds;
    };
    for (const auto& [milliseconds, seconds] :
         {SecondsRow{1500.0, "1.500"}, SecondsRow{2.5, "0.003"}, SecondsRow{0.0, "0.000"}, SecondsRow{0.4, "0.000"},
          SecondsRow{1234567.0, "1234.567"}, SecondsRow{1e12, "1000000000.000"}, SecondsRow{-1.0, "-0.001"},
          SecondsRow{std::numeric_limits<double>::infinity(), "inf"}}) {
        EXPECT_EQ(translated(raising<HTTPTimeoutException>(u"late", milliseconds, u"Option")),
                  "VANTIK:webservices:Timeout[U:http://url/, N:" + seconds + ", U:late, U:Option]");
    }
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
        FAIL();
    } catch (...) {
        EXPECT_EQ(std::current_exception(), kept);
    }
}

} // namespace
