#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "hostcalls/NumericNarrowing.h"
#include "hostcalls/TextEncoding.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

namespace netrove {

void HTTPConnection::openConnection() {
    refuseWithin("Opening the connection");
    traceLine(Settings.Debug, "********************** OPEN CONNECTION **********************");
    Transfer.Opened = false;
    SentHead.Sent = false;
    if (Settings.ParsedURL.isEmpty()) {
        return;
    }
    prepareHandle();
    applyTimeouts();
    CURL* easy = Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_DEFAULT_PROTOCOL), "http");
    setOption(easy, CURL_NAMED(CURLOPT_URL), toNarrow(Settings.URL, "").c_str());
    Transfer.Opened = true;
    Metadata.PreviousResponseCode = 0;
    Handles->ConnectionOpen = true;
}

void HTTPConnection::openProxyConnection(const std::string& host, double port) {
    refuseWithin("Opening the connection");
    Settings.ProxyHost = host;
    Settings.ProxyPort = narrowToUInt16(port);
    openConnection();
}

// From a scope's second open on, the handle is still attached for the last transfer, which detaching it ends.
void HTTPConnection::prepareHandle() {
    if (Handles->ConnectionOpen && Handles->Owner != this) {
        VANTIK::raise<VANTIK::http::OnlyOneTransferAtATime>();
    }
    Transfer.EscapedFailure = nullptr; // from a transfer that nobody waits for any more
    const bool isOwn = mayUseHandle();
    if (Handles->EasyHandleAttached) {
        detachHandle();
        Metadata.PreviousResponseCode =
            ReceivedHead.ResponseCode != 0
                ? ReceivedHead.ResponseCode
                : static_cast<std::int32_t>(getInfo<long>(Handles->EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE)));
        // After a challenge the options and libcurl's authentication state must survive into the answer. Those of
        // another connection never do.
        if (!isOwn || Metadata.PreviousResponseCode != 401) {
            resetHandle();
        }
        Settings.RequestFields.clear();
        ReceivedHead.HeadersComplete = false;
        ReceivedHead.ResponseHeaderLines.clear();
    } else {
        Handles->EasyHandleAttached = true;
        if (!isOwn) {
            resetHandle();
        }
    }
    Handles->Owner = this;
    if (!Handles->CookieEngineRuns) { // on new handles
        startCookieEngine();
    }
    attachHandle();
    applyUrlOptions();
}

// Ends whatever transfer is running on the handle.
void HTTPConnection::detachHandle() {
    const CURLMcode removed = Handles->detach();
    rethrowEscapedFailure();
    if (removed != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_remove_handle", removed, "");
    }
}

void HTTPConnection::resetHandle() {
    Handles->reset();
    rethrowEscapedFailure();
}

void HTTPConnection::attachHandle() {
    const CURLMcode added = Handles->attach();
    rethrowEscapedFailure();
    if (added != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_add_handle", added, "");
    }
}

void HTTPConnection::applyUrlOptions() {
    const std::string host = toNarrow(
        Settings.ParsedURL.hasHost() ? Settings.ParsedURL.getHost(foundation::network::IRI::Encoding::Ascii) : u"", "");
    if (host.empty()) {
        throw webservices::HTTPFileNotFoundException("No host");
    }
    CURL* easy = Handles->EasyHandle;
    if (Settings.ParsedURL.getScheme() == u"https") {
        if (Settings.CertificateFilename == "default") {
            setOption(easy, CURL_NAMED(CURLOPT_CAINFO), nullptr); // libcurl's own store; verification stays on
        } else {
            setOption(easy, CURL_NAMED(CURLOPT_CAINFO), Settings.CertificateFilename.c_str());
            setOption(easy, CURL_NAMED(CURLOPT_SSL_VERIFYPEER), Settings.CertificateFilename.empty() ? 0L : 1L);
        }
    }
    setOption(easy, CURL_NAMED(CURLOPT_SSL_VERIFYHOST), Settings.VerifyServerName ? 2L : 0L);
    // Set even when empty: that turns off a proxy that libcurl would take from the environment.
    setOption(easy, CURL_NAMED(CURLOPT_PROXY), Settings.ProxyHost.c_str(), Settings.ProxyHost);
    if (!Settings.ProxyHost.empty()) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYPORT), static_cast<long>(Settings.ProxyPort),
                  std::to_string(Settings.ProxyPort));
    }
}

} // namespace netrove
