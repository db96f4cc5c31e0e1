#include "transfer/HTTPConnection.h"

#include "errors/HTTPException.h"
#include "host/Interrupt.h"
#include "host/State.h"
#include "hostcalls/NumericNarrowing.h"
#include "http/MonotonicTime.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "transfer/Trace.h"

#include <algorithm>
#include <sstream>

namespace {

// Longest wait of one pass: bounds how late an interrupt or a deadline is seen, whatever the timeouts are.
constexpr std::int32_t LongestWaitMs = 500;

std::string describeLogin(const char* side, const std::string& username, std::uint32_t schemes) {
    std::ostringstream text;
    text << side << " username = " << username << ", Schemes = " << std::hex << schemes;
    return text.str();
}

} // namespace

// Runs the request up to the complete response head and the first byte of content, or to the end of the transfer.
void HTTPConnection::sendAndWait() {
    const services::state::ImpersonationGuard guard;
    CallbackFailure = nullptr;
    EscapedFailure = nullptr;
    try {
        setSendOptions();
        const std::int32_t waitMilliseconds =
            ResponseTimeout == Unlimited ? LongestWaitMs : std::min(narrowToInt32(ResponseTimeout), LongestWaitMs);
        if (ResponseTimeout == Unlimited && DataTimeout == Unlimited) {
            Deadline = NoDeadline;
        } else {
            Deadline = monotonicNow();
            updateDeadline();
        }
        const bool hasBody = !Payload.empty() || Provider != nullptr;
        if (SendBegun) {
            // A send that failed before its head was out is due again. libcurl would go on with the first transfer, on
            // callback data that it took when that began: the copier that goes here. A transfer that has ended it would
            // not run again at all. So it begins anew.
            detachHandle();
            attachHandle();
        }
        SendBegun = true;
        Copier = std::make_shared<InterruptibleStreamCopier>(*this);
        const std::shared_ptr copier = Copier; // held: a provider may start another send from within
        if (hasBody) {
            setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_UPLOAD), 1L);
            traceLine(Debug, "*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS "
                             "*****************");
            copier->sendRequest();
        } else {
            traceLine(Debug, "*****************SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS "
                             "*****************");
        }
        const std::int64_t start = monotonicNow();
        runPerformLoop(start, waitMilliseconds);
        traceLine(Debug, "ALL HEADERS RECEIVED");
        collectResponseMetadata();
        checkCompletion(start);
        traceLine(Debug, "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK");
    } catch (const webservices::HTTPCopyStreamException&) {
        throw;
    } catch (const std::exception&) {
        TransferFailed = true;
        throw;
    }
}

void HTTPConnection::setSendOptions() {
    CURL* easy = Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_HEADERDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_HEADERFUNCTION), &headerCallback);
    HeadersComplete = false;
    PerformDone = false;
    setOption(easy, CURL_NAMED(CURLOPT_VERBOSE), 1L); // always: the request head is read from the trace
    setOption(easy, CURL_NAMED(CURLOPT_DEBUGDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_DEBUGFUNCTION), &debugCallback);
    setOption(easy, CURL_NAMED(CURLOPT_SSL_OPTIONS), static_cast<long>(CURLSSLOPT_REVOKE_BEST_EFFORT));
    setOption(easy, CURL_NAMED(CURLOPT_SSLVERSION), long{CURL_SSLVERSION_TLSv1_1} | long{CURL_SSLVERSION_MAX_DEFAULT});
    setOption(easy, CURL_NAMED(CURLOPT_NOSIGNAL), 1L);
    if (!HTTPOptionsMode) { // the older interface cannot narrow the schemes
        HostAuthSchemes = static_cast<std::uint32_t>(CURLAUTH_ANY);
        ProxyAuthSchemes = static_cast<std::uint32_t>(CURLAUTH_ANY);
    }
    if (Debug != 0) {
        traceLine(Debug, describeLogin("Host", Username, HostAuthSchemes));
        traceLine(Debug, describeLogin("Proxy", ProxyUsername, ProxyAuthSchemes));
        static_cast<void>(curl_version_info(static_cast<CURLversion>(10)));
    }
    setOption(easy, CURL_NAMED(CURLOPT_HTTPAUTH), static_cast<long>(HostAuthSchemes));
    if (HostAuthSchemes != 0) {
        setOption(easy, CURL_NAMED(CURLOPT_USERNAME), Username.c_str());
        setOption(easy, CURL_NAMED(CURLOPT_PASSWORD), Password.c_str());
    }
    setOption(easy, CURL_NAMED(CURLOPT_PROXYAUTH), static_cast<long>(ProxyAuthSchemes));
    if (ProxyAuthSchemes != 0) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYUSERNAME), ProxyUsername.c_str());
        setOption(easy, CURL_NAMED(CURLOPT_PROXYPASSWORD), ProxyPassword.c_str());
    }
    // The multi interface leaves the buffer as the last transfer left it; its text must not explain this one.
    Handles->ErrorBuffer[0] = '\0';
    setOption(easy, CURL_NAMED(CURLOPT_ERRORBUFFER), static_cast<char*>(Handles->ErrorBuffer));
}

// The order of a pass is fixed: wait, pause, perform, interrupt, timeout. The first empty wait is followed by a perform
// at once; each further one in a row by a pause, so that the loop does not spin while libcurl has no descriptors, as it
// has none before the first connect.
void HTTPConnection::runPerformLoop(std::int64_t start, int waitMilliseconds) {
    int running = 0;
    const CURLMcode first = perform(running);
    if (first != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_perform", first, "Initial multi-perform call for request");
    }
    traceLine(Debug, "Starting perform loop");
    int idle = 0;
    while (true) {
        if (running == 0) {
            PerformDone = true;
            return;
        }
        if (PerformDone) {
            return;
        }
        int ready = 0;
        const CURLMcode waited = wait(waitMilliseconds, ready);
        if (waited != CURLM_OK) {
            throwCurlMultiCodeError("curl_multi_wait", waited, "");
        }
        if (ready != 0) {
            idle = 0;
        } else if (++idle > 1) {
            interruptibleWait(monotonicNow() + EmptyWaitPauseNs);
        }
        const CURLMcode performed = perform(running);
        if (performed != CURLM_OK) {
            throwCurlMultiCodeError("curl_multi_perform", performed, "start reading response");
        }
        utInterruptState::ThrowIfInterruptPending();
        checkTimeout(start, false);
    }
}
