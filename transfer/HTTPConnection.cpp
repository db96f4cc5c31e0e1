#include "transfer/HTTPConnection.h"

#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "transfer/LibCurlInitializer.h"
#include "transfer/Trace.h"

HTTPConnection::HTTPConnection() : CurlInitializer(newLibCurlInitializer()) {
    // libcurl must be up before the first handle is made, so the service comes first and goes last.
    if (CurlInitializer == nullptr) {
        throwInternalError("libcurl initialization failed.");
    }
    Handles = &getCurlSingleton();
    if (Handles->ConnectionOpen) {
        VANTIK::raise<VANTIK::http::OnlyOneTransferAtATime>();
    }
    startCookieEngine();
}

// An empty file name starts the cookie engine without reading a file. A new connection begins without cookies; a reopen
// keeps those it has received.
void HTTPConnection::startCookieEngine() {
    CURL* easy = Handles->EasyHandle;
    try {
        setOption(easy, CURL_NAMED(CURLOPT_COOKIEFILE), "");
        setOption(easy, CURL_NAMED(CURLOPT_COOKIELIST), "ALL");
        // A reset drops the list of cookie files (libcurl 7.88 leaks it), so an engine that has seen no transfer by
        // then would never start: the cookies of a whole scope would be lost after an open that failed, or after new
        // handles. Taking the list back and adding a line without a cookie leaves an empty engine that runs from here
        // on, whatever is reset.
        setOption(easy, CURL_NAMED(CURLOPT_COOKIEFILE), nullptr);
        setOption(easy, CURL_NAMED(CURLOPT_COOKIELIST), "#");
    } catch (...) {
        static_cast<void>(
            curl_easy_setopt(easy, CURLOPT_COOKIEFILE, static_cast<char*>(nullptr))); // before a reset can leak it
        throw;
    }
}

// The lists go first, as libcurl reads none of them any more. Removing and resetting may still run the trace callback,
// so this connection has to be alive for both; after the reset the handle knows nothing of it. ConnectionOpen is
// cleared even if this connection never opened.
HTTPConnection::~HTTPConnection() {
    CookieList.clear();
    RequestHeaders.clear();
    ProxyHeaders.clear();
    curl_multi_remove_handle(Handles->MultiHandle, Handles->EasyHandle);
    if (Handles->EasyHandle != nullptr) { // a reset that could make no new handle has left none
        curl_easy_reset(Handles->EasyHandle);
    }
    Handles->ConnectionOpen = false;
    try {
        traceLine(Debug, "DESTROYING HTTPCONNECTION");
    } catch (...) { // a trace that cannot be written stops no destruction
        EscapedFailure = nullptr;
    }
}

// The handle stays attached and libcurl keeps its connection, which is how a later request reuses it.
void HTTPConnection::closeConnection() noexcept {
    Opened = false;
    ResponseDone = false;
    Sent = false;
    HeadersComplete = false;
    Handles->ConnectionOpen = false;
}

void HTTPConnection::closeAllConnections() {
    resetHandles();
}

void HTTPConnection::rethrowEscapedFailure() {
    if (EscapedFailure) {
        std::rethrow_exception(std::exchange(EscapedFailure, nullptr));
    }
}

// What a callback raised is rethrown here, before anything looks at the result: an exception that passed through
// libcurl's own frames would leave the multi handle in its "inside a callback" state for good.
CURLMcode HTTPConnection::perform(int& running) {
    const CURLMcode code = curl_multi_perform(Handles->MultiHandle, &running);
    rethrowEscapedFailure();
    return code;
}

CURLMcode HTTPConnection::wait(int milliseconds, int& ready) {
    return curl_multi_wait(Handles->MultiHandle, nullptr, 0, milliseconds, &ready);
}
