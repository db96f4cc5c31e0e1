#include "transfer/HTTPConnection.h"

#include "errors/HTTPException.h"
#include "hostcalls/NumericNarrowing.h"
#include "hostcalls/TextEncoding.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "transfer/Trace.h"

void HTTPConnection::openConnection() {
    traceLine(Debug, "********************** OPEN CONNECTION **********************");
    Opened = false;
    Sent = false;
    if (ParsedURL.isEmpty()) {
        return;
    }
    prepareHandle();
    applyTimeouts();
    CURL* easy = Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_DEFAULT_PROTOCOL), "http");
    setOption(easy, CURL_NAMED(CURLOPT_URL), toNarrow(URL, "").c_str());
    Opened = true;
    PreviousResponseCode = 0;
    Handles->ConnectionOpen = true;
}

void HTTPConnection::openProxyConnection(const std::string& host, double port) {
    ProxyHost = host;
    ProxyPort = narrowToUInt16(port);
    openConnection();
}

// From the second open of a scope on, the handle is still attached to the last transfer, which removing it ends.
void HTTPConnection::prepareHandle() {
    EscapedFailure = nullptr; // of a transfer that nobody waits for any more
    if (Handles->EasyHandleAttached) {
        detachHandle();
        PreviousResponseCode =
            ResponseCode != 0
                ? ResponseCode
                : static_cast<std::int32_t>(getInfo<long>(Handles->EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE)));
        // After a challenge the options and libcurl's authentication state must live on into the answer.
        if (PreviousResponseCode != 401) {
            curl_easy_reset(Handles->EasyHandle);
            if (Copier) {
                Copier->Detached = true;
            }
            rethrowEscapedFailure();
        }
        RequestFields.clear();
        HeadersComplete = false;
        ResponseHeaderLines.clear();
    } else {
        Handles->EasyHandleAttached = true;
    }
    attachHandle();
    applyUrlOptions();
}

// Ends whatever transfer runs on the handle.
void HTTPConnection::detachHandle() {
    const CURLMcode removed = curl_multi_remove_handle(Handles->MultiHandle, Handles->EasyHandle);
    rethrowEscapedFailure();
    if (removed != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_remove_handle", removed, "");
    }
    SendBegun = false;
}

void HTTPConnection::attachHandle() {
    const CURLMcode added = curl_multi_add_handle(Handles->MultiHandle, Handles->EasyHandle);
    rethrowEscapedFailure();
    if (added != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_add_handle", added, "");
    }
}

void HTTPConnection::applyUrlOptions() {
    const std::string host =
        toNarrow(ParsedURL.hasHost() ? ParsedURL.getHost(foundation::network::IRI::Encoding::Ascii) : u"", "");
    if (host.empty()) {
        throw webservices::HTTPFileNotFoundException("No host");
    }
    CURL* easy = Handles->EasyHandle;
    if (ParsedURL.getScheme() == u"https") {
        if (CertificateFilename == "default") {
            setOption(easy, CURL_NAMED(CURLOPT_CAINFO), nullptr); // libcurl's own store; verification stays on
        } else {
            setOption(easy, CURL_NAMED(CURLOPT_CAINFO), CertificateFilename.c_str());
            setOption(easy, CURL_NAMED(CURLOPT_SSL_VERIFYPEER), CertificateFilename.empty() ? 0L : 1L);
        }
    }
    setOption(easy, CURL_NAMED(CURLOPT_SSL_VERIFYHOST), VerifyServerName ? 2L : 0L);
    // Set even when empty: that turns off a proxy that libcurl would take from the environment.
    setOption(easy, CURL_NAMED(CURLOPT_PROXY), ProxyHost.c_str(), ProxyHost);
    if (!ProxyHost.empty()) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYPORT), static_cast<long>(ProxyPort), std::to_string(ProxyPort));
    }
}
