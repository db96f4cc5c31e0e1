#include "errors/TranslateTransferException.h"

#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace webservices {

namespace {

namespace id = VANTIK::webservices;

std::string secondsText(double milliseconds) {
    std::ostringstream text;
    text.imbue(std::locale::classic()); // the argument reads 1.500 whatever the program's locale
    text << std::fixed << std::setprecision(3) << milliseconds / 1000.0;
    return text.str();
}

[[noreturn]] void raiseSsl(const SSLException& failure) {
    if (failure.CertificateFilename.empty()) {
        VANTIK::raise<id::SSLConnectionNoFile>(failure.URL, failure.Message);
    }
    if (failure.CertificateFilename == "default") {
        VANTIK::raise<id::SSLConnectionSystemFailure>(failure.URL, failure.Message);
    }
    VANTIK::raise<id::SSLConnectionFailure>(failure.URL, failure.Message, failure.CertificateFilename);
}

} // namespace

void translateTransferException(const std::u16string& url) {
    try {
        throw;
    } catch (const HTTPCopyStreamException& failure) {
        VANTIK::raise<id::CopyContentToDataStreamError>(failure.Message, url);
    } catch (const HTTPStatusError& failure) {
        VANTIK::raise<id::StatusError>(failure.StatusCode, failure.Message, *failure.StatusURL);
    } catch (const SSLException& failure) {
        raiseSsl(failure);
    } catch (const HTTPCertificateException& failure) {
        VANTIK::raise<id::CertificateFailedVerification>(failure.URL, failure.CertificateFilename);
    } catch (const HTTPTimeoutException& failure) {
        VANTIK::raise<id::Timeout>(url, secondsText(failure.TimeoutMilliseconds), failure.Message, failure.OptionName);
    } catch (const HTTPURLException& failure) {
        VANTIK::raise<id::MalformedURL>(failure.Message);
    } catch (const HTTPDNSException& failure) {
        VANTIK::raise<id::UnknownHost>(failure.Message);
    } catch (const HTTPFileNotFoundException&) {
        VANTIK::raise<id::FileNotFound>(url);
    } catch (const HTTPConsumerException&) {
        VANTIK::raise<id::OperationTerminatedByConsumer>(url);
    } catch (const HTTPConnectionFailedException& failure) {
        VANTIK::raise<id::ConnectionFailed>(failure.Message);
    } catch (const HTTPConnectionRefusedException& failure) {
        VANTIK::raise<id::ConnectionRefused>(url, failure.Message);
    } catch (const foundation::core::except::IUserException&) {
        throw;
    } catch (const std::exception&) {
        VANTIK::raise<id::ConnectionFailed>(url);
    }
}

} // namespace webservices
