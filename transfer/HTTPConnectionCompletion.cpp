#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"

#include <cstring>

namespace netrove {

namespace {

namespace id = VANTIK::webservices;

// A line that ends in a colon told libcurl to leave a field out; it was never sent.
void appendSentLines(std::vector<std::string>& lines, const CurlSlist& list) {
    for (const curl_slist* entry = list.get(); entry != nullptr; entry = entry->next) {
        const std::string line = entry->data;
        if (!line.empty() && line.back() != ':') {
            lines.push_back(line);
        }
    }
}

bool isSuccess(long code) {
    return code >= 200 && code <= 299;
}

} // namespace

void HTTPConnection::collectResponseMetadata() {
    CURL* easy = Handles->EasyHandle;
    Metadata.ContentEncoding = ReceivedHead.getResponseField("Content-Encoding");
    const char* contentType = getInfo<char*>(easy, CURL_NAMED(CURLINFO_CONTENT_TYPE));
    Metadata.ContentType = contentType == nullptr ? "" : contentType;
    Metadata.ResponseContentLength = getInfo<curl_off_t>(easy, CURL_NAMED(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T));
    Metadata.ResponseBytesReceived = getInfo<curl_off_t>(easy, CURL_NAMED(CURLINFO_SIZE_DOWNLOAD_T));
    const std::string location = ReceivedHead.getResponseField("Location");
    if (!location.empty()) {
        setRedirectURL(location);
    }
}

std::string HTTPConnection::httpVersion() const {
    if (!SentHead.RequestHTTPVersion.empty()) {
        return SentHead.RequestHTTPVersion;
    }
    switch (mayUseHandle() ? getInfo<long>(Handles->EasyHandle, CURL_NAMED(CURLINFO_HTTP_VERSION)) : 0L) {
    case CURL_HTTP_VERSION_1_0:
        return "HTTP/1.0";
    case CURL_HTTP_VERSION_2_0:
        return "HTTP/2.0";
    default:
        return "HTTP/1.1";
    }
}

// What the end of a transfer means. A response with a head and a status outside 2xx is a good transfer, whatever
// libcurl's result: the status is for the caller to judge. The message is read once; later calls find none.
void HTTPConnection::checkCompletion(std::int64_t start) {
    int remaining = 0;
    const CURLMsg* message = curl_multi_info_read(Handles->MultiHandle, &remaining);
    if (message == nullptr || message->msg != CURLMSG_DONE) {
        return;
    }
    const CURLcode result = message->data.result; // valid until the next call on the multi handle
    if (SentHead.RequestHeaderLines.empty()) {    // the head was never sent: report what would have been
        appendSentLines(SentHead.RequestHeaderLines, Transfer.RequestHeaders);
        appendSentLines(SentHead.RequestHeaderLines, Transfer.ProxyHeaders);
    }
    try {
        judgeCompletion(result, start);
    } catch (...) {
        Transfer.Fault = TransferFault::Failed; // the message is gone, so a later copy would not learn of it
        throw;
    }
}

void HTTPConnection::judgeCompletion(int result, std::int64_t start) {
    CURL* easy = Handles->EasyHandle;
    long code = getInfo<long>(easy, CURL_NAMED(CURLINFO_RESPONSE_CODE));
    if (code == 0) {
        code = getInfo<long>(easy, CURL_NAMED(CURLINFO_HTTP_CONNECTCODE)); // a proxy answered, the server never did
    }
    if (code != 0 && !isSuccess(code) && !ReceivedHead.ResponseHeaderLines.empty()) {
        warnUnlessWhole(result);
        return;
    }
    if (result != CURLE_OK) {
        judgeFailure(result, start);
        return;
    }
    if (code == 0) {
        throwInternalError("No response code and no error reported for completed message");
    }
    if (!isSuccess(code)) {
        throwInternalError("Nonzero response code but no headers received");
    }
    warnUnlessWhole(result);
}

void HTTPConnection::warnOfPart(const std::string& text) {
    Transfer.IsPartial = true;
    matrix::detail::noninlined::vx_array_api::vxWarningMsgId(id::PartialFileWarning(
        std::to_string(Metadata.ResponseBytesReceived), std::to_string(Metadata.ResponseContentLength), text));
}

// Why the response is incomplete: in libcurl's words or, for what libcurl does not check, in ours. Empty if all of it
// arrived.
std::string HTTPConnection::whatIsMissing(int result) const {
    if (result != CURLE_OK && *Handles->ErrorBuffer != '\0') {
        return Handles->ErrorBuffer;
    }
    if (ReceivedHead.isCut()) {
        return ReceivedHead.HasInterim ? "No response came after an interim one." : "The head of the response was cut.";
    }
    if (result != CURLE_OK) {
        return result == CURLE_WRITE_ERROR ? "The content goes on after the end of its compressed data."
                                           : curl_easy_strerror(static_cast<CURLcode>(result));
    }
    if (ReceivedHead.lengthIsUnclear()) {
        return "The head of the response does not say for certain where its content ends.";
    }
    const bool isRange = ReceivedHead.ResponseCode == 206; // of compressed data, so it may end anywhere
    if (Handles->Decodes && ReceivedHead.isGzip() && !isRange && Transfer.Tail.contradictsGzip()) {
        return "The compressed data of the content is incomplete.";
    }
    return {};
}

// The call goes on as if the response were whole, so nothing else would report that it is not. The numbers are
// collected now: the end may come before the send has collected any.
void HTTPConnection::warnUnlessWhole(int result) {
    const std::string text = whatIsMissing(result);
    if (!text.empty()) {
        collectResponseMetadata();
        warnOfPart(text);
    }
}

void HTTPConnection::judgeFailure(int result, std::int64_t start) {
    const char* errorText = Handles->ErrorBuffer;
    const std::string urlText = toNarrow(Settings.URL, "");
    switch (result) {
    case CURLE_URL_MALFORMAT:
        throw webservices::HTTPURLException(urlText);
    case CURLE_COULDNT_RESOLVE_PROXY:
        throw webservices::HTTPDNSException(Settings.ProxyHost);
    case CURLE_COULDNT_RESOLVE_HOST:
        throw webservices::HTTPDNSException(urlText);
    case CURLE_COULDNT_CONNECT:
        // libcurl's own connect limit: the text has "Timed out" or "timed out".
        if (std::strstr(errorText, "imed out") != nullptr) {
            checkTimeout(start, true);
        }
        [[fallthrough]];
    case CURLE_RECV_ERROR:
        throw webservices::HTTPConnectionRefusedException(errorText);
    case CURLE_PARTIAL_FILE:
        warnOfPart(errorText);
        return;
    case CURLE_WRITE_ERROR:
        judgeWriteError(urlText);
        return;
    case CURLE_OUT_OF_MEMORY:
    case CURLE_AUTH_ERROR:
        VANTIK::raise<id::RandomError>(urlText);
    case CURLE_OPERATION_TIMEDOUT: // always the connect limit: the others are ours and never reach libcurl
        throw webservices::HTTPTimeoutException(fl::i18n::to_ustring(errorText), getTimeouts()[0],
                                                Settings.HTTPOptionsMode ? u"HTTPOptions.ConnectTimeout"
                                                                         : u"weboptions.Timeout");
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
        throw webservices::SSLException(errorText, urlText, Settings.CertificateFilename);
    case CURLE_BAD_CONTENT_ENCODING:
        VANTIK::raise<id::DecodingError>(Metadata.ContentEncoding, errorText);
    default:
        throw webservices::HTTPCopyStreamException(errorText + (" (CURLE code " + std::to_string(result)) + ")");
    }
}

// libcurl reports a failed decoding here too. The write callback refuses nothing, so if there is no text, libcurl
// itself has not taken all of the content.
void HTTPConnection::judgeWriteError(const std::string& urlText) {
    const char* errorText = Handles->ErrorBuffer;
    if (*errorText == '\0') {
        warnUnlessWhole(CURLE_WRITE_ERROR);
        return;
    }
    if (std::strstr(errorText, "encoding") != nullptr) {
        VANTIK::raise<id::DecodingError>(Metadata.ContentEncoding, errorText);
    }
    VANTIK::raise<id::CopyContentToDataStreamError>(errorText, urlText);
}

} // namespace netrove
