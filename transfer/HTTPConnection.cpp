#include "transfer/HTTPConnection.h"

#include "errors/InternalError.h"
#include "errors/MessageIdentifiers.h"
#include "host/Interrupt.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/LibCurlInitializer.h"
#include "transfer/Trace.h"

namespace netrove {

HTTPConnection::HTTPConnection() : CurlInitializer(newLibCurlInitializer()) {
    // libcurl must be up before the first handle is made, so the service comes first and goes last.
    if (CurlInitializer == nullptr) {
        throwInternalError("libcurl initialization failed.");
    }
    Handles = &getCurlSingleton();
    if (Handles->ConnectionOpen) {
        VANTIK::raise<VANTIK::http::OnlyOneTransferAtATime>();
    }
    // A new connection begins without cookies; a reopen keeps those it has received.
    if (Handles->CookieEngineRuns) {
        setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_COOKIELIST), "ALL");
    } else {
        startCookieEngine();
    }
}

// An empty file name starts the cookie engine without reading a file.
void HTTPConnection::startCookieEngine() {
    CURL* easy = Handles->EasyHandle;
    try {
        setOption(easy, CURL_NAMED(CURLOPT_COOKIEFILE), "");
        setOption(easy, CURL_NAMED(CURLOPT_COOKIELIST), "ALL");
        // A reset drops the list of cookie files (libcurl 7.88 leaks it), so an engine that has seen no transfer by
        // then would never start: the cookies of a whole scope would be lost after an open that failed. Taking the list
        // back and adding a line without a cookie leaves an empty engine that runs from here on, whatever is reset
        // later.
        setOption(easy, CURL_NAMED(CURLOPT_COOKIEFILE), nullptr);
        setOption(easy, CURL_NAMED(CURLOPT_COOKIELIST), "#");
    } catch (...) {
        static_cast<void>(
            curl_easy_setopt(easy, CURLOPT_COOKIEFILE, static_cast<char*>(nullptr))); // before a reset can leak it
        throw;
    }
    Handles->CookieEngineRuns = true;
}

// The lists go first: libcurl no longer reads them. Only their owner touches the handles, since another connection's
// transfer may be on them. Detaching and resetting may still run the trace callback, so the owner has to be alive for
// both; after the reset the handle no longer refers to it. A handle is never reset while libcurl is running on it.
HTTPConnection::~HTTPConnection() {
    Settings.CookieList.clear();
    Transfer.RequestHeaders.clear();
    Transfer.ProxyHeaders.clear();
    if (Handles->Owner == this && !Transfer.InProgress) {
        static_cast<void>(Handles->detach());
        Handles->reset();
        Handles->ConnectionOpen = false;
        Handles->Owner = nullptr;
    }
    try {
        traceLine(Settings.Debug, "DESTROYING HTTPCONNECTION");
    } catch (...) { // a trace that cannot be written must not stop the destruction
    }
}

// The handle stays attached and libcurl keeps its connection, which is how a later request reuses it.
void HTTPConnection::closeConnection() {
    refuseWithin("Closing the connection");
    Transfer.Opened = false;
    Transfer.ResponseDone = false;
    SentHead.Sent = false;
    ReceivedHead.HeadersComplete = false;
    if (Handles->Owner == this) {
        Handles->ConnectionOpen = false;
    }
}

void HTTPConnection::closeAllConnections() {
    resetHandles();
}

// What is read from the handle, or written to it outside an open, must not belong to another connection.
bool HTTPConnection::mayUseHandle() const {
    return Handles->Owner == nullptr || Handles->Owner == this;
}

// Host objects are called in the middle of a transfer. What they call here must not pull the transfer out from under
// itself.
void HTTPConnection::refuseWithin(const char* what) const {
    if (Transfer.InProgress) {
        throwInternalError(std::string(what) +
                           " is not possible from within the transfer that runs. Wait until it has ended.");
    }
}

// Every call that ends a transfer or starts another one increments the number.
void HTTPConnection::requireOwnTransfer() const {
    if (Transfer.Generation != Handles->Generation) {
        throwInternalError("The connection was opened again before the last response was copied. Close it first.");
    }
}

void HTTPConnection::rethrowEscapedFailure() {
    if (Transfer.EscapedFailure) {
        std::rethrow_exception(std::exchange(Transfer.EscapedFailure, nullptr));
    }
}

// What a callback raised is rethrown here, before anything looks at the result: an exception that passed through
// libcurl's own frames would leave the multi handle in its "inside a callback" state for good.
int HTTPConnection::perform(const char* detail) {
    requireOwnTransfer();
    int running = 0;
    const CURLMcode code = curl_multi_perform(Handles->MultiHandle, &running);
    Transfer.Runs = running != 0;
    rethrowEscapedFailure();
    if (code != CURLM_OK) {
        Transfer.Fault = TransferFault::Failed;
        throwCurlMultiCodeError("curl_multi_perform", code, detail);
    }
    return running;
}

// A request to stop ends the wait where the host has a descriptor for it. It then counts as ready, so the pass goes on
// to the check for such requests. Where nothing runs there must be no descriptor: libcurl returns at once without any.
int HTTPConnection::wait(int milliseconds) {
    curl_waitfd stop = {-1, CURL_WAIT_POLLIN, 0};
    if (Transfer.Runs && utInterruptState::InterruptDescriptor) {
        stop.fd = utInterruptState::InterruptDescriptor();
    }
    int ready = 0;
    const CURLMcode code = curl_multi_wait(Handles->MultiHandle, &stop, stop.fd < 0 ? 0 : 1, milliseconds, &ready);
    if (code != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_wait", code, "");
    }
    return ready;
}

} // namespace netrove
