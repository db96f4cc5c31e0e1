// Failures of the transfer layer. They know nothing of message identifiers: they carry raw text and the few values that
// only the transfer knows, and `translateTransferException` turns them into what the host sees.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace webservices {

class HTTPException : public std::runtime_error {
public:
    explicit HTTPException(const std::string& text);    // `Message` from the default narrow encoding
    explicit HTTPException(const std::u16string& text); // `what` in the default narrow encoding
    HTTPException(const HTTPException&) = default;
    HTTPException& operator=(const HTTPException&) = default;
    ~HTTPException() override;
    const char* what() const noexcept override; // "Unknown exception" if the text is empty

    std::u16string Message; // the failure's text in UTF-16
};

class HTTPConnectionFailedException : public HTTPException {
public:
    explicit HTTPConnectionFailedException(const std::string& text) : HTTPException(text) {}
};

class HTTPConnectionRefusedException : public HTTPException {
public:
    explicit HTTPConnectionRefusedException(const std::string& text) : HTTPException(text) {}
};

class HTTPCopyStreamException : public HTTPException {
public:
    explicit HTTPCopyStreamException(const std::string& text) : HTTPException(text) {}
};

class HTTPDNSException : public HTTPException {
public:
    explicit HTTPDNSException(const std::string& text) : HTTPException(text) {}
};

class HTTPFileNotFoundException : public HTTPException {
public:
    explicit HTTPFileNotFoundException(const std::string& text) : HTTPException(text) {}
};

class HTTPURLException : public HTTPException {
public:
    explicit HTTPURLException(const std::string& text) : HTTPException(text) {}
};

class HTTPConsumerException : public HTTPException {
public:
    explicit HTTPConsumerException(const std::string& text) : HTTPException(text) {}
};

class HTTPTimeoutException : public HTTPException {
public:
    HTTPTimeoutException(const std::u16string& text, double timeoutMilliseconds, std::u16string optionName)
        : HTTPException(text), OptionName(std::move(optionName)), TimeoutMilliseconds(timeoutMilliseconds) {}

    std::u16string OptionName; // the option whose limit was reached
    double TimeoutMilliseconds;
};

class SSLException : public HTTPException {
public:
    SSLException(const std::string& text, std::string url, std::string certificateFilename)
        : HTTPException(text), URL(std::move(url)), CertificateFilename(std::move(certificateFilename)) {}

    std::string URL;
    std::string CertificateFilename; // empty, "default" or a file name; decides the identifier
};

// Nothing here throws it; the translation handles it for code that may.
class HTTPCertificateException : public HTTPException {
public:
    HTTPCertificateException(const std::string& text, std::string url, std::string certificateFilename)
        : HTTPException(text), URL(std::move(url)), CertificateFilename(std::move(certificateFilename)) {}

    std::string URL;
    std::string CertificateFilename;
};

class HTTPStatusError : public HTTPException {
public:
    HTTPStatusError(const std::string& reasonPhrase, const std::u16string* statusUrl, std::int32_t statusCode)
        : HTTPException(reasonPhrase), StatusCode(statusCode), StatusURL(statusUrl) {}

    std::int32_t StatusCode;
    const std::u16string* StatusURL; // borrowed from the connection, which must outlive the exception
};

} // namespace webservices
