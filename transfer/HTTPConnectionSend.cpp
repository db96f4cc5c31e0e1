#include "errors/HTTPException.h"
#include "errors/ScopeExit.h"
#include "host/Interrupt.h"
#include "host/State.h"
#include "hostcalls/NumericNarrowing.h"
#include "http/MonotonicTime.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string>

namespace netrove {

namespace {

// Longest wait of one pass: bounds how late an interrupt or a deadline is seen, whatever the timeouts are.
constexpr std::int32_t kLongestWaitMs = 500;

// Of the network. Still larger ones cost more again: the kernel seldom has so much at hand.
constexpr long kLargeRead = 64L << 10;

std::string describeLogin(const char* side, const std::string& username, std::uint32_t schemes) {
    char digits[8]; // for 32 bits; to_chars ignores the locale
    char* const end = std::to_chars(std::begin(digits), std::end(digits), schemes, 16).ptr;
    return std::string(side) + " username = " + username + ", Schemes = " + std::string(digits, end);
}

} // namespace

// Runs the request up to the complete response head and the first byte of content, or to the end of the transfer. A
// send that an interrupt or a limit ended after its head had been sent is resumed where it was.
void HTTPConnection::sendAndWait() {
    const services::state::ImpersonationGuard guard;
    Transfer.InProgress = true;
    const ScopeExit ended([this] { Transfer.InProgress = false; });
    try {
        const bool begins = !SentHead.Sent;
        if (begins) {
            Transfer.CallbackFailure = nullptr;
            Transfer.EscapedFailure = nullptr;
            setSendOptions();
        }
        const std::int32_t waitMilliseconds = SilenceLimits::isUnlimited(Limits.ResponseTimeout)
                                                  ? kLongestWaitMs
                                                  : std::min(narrowToInt32(Limits.ResponseTimeout), kLongestWaitMs);
        if (begins || !ReceivedHead.HeadersComplete) {
            Limits.begin(ReceivedHead.HeadersComplete, Settings.HTTPOptionsMode); // silence counts from here
        }
        if (begins) {
            beginTransfer();
        }
        const std::int64_t start = monotonicNow();
        runPerformLoop(start, waitMilliseconds);
        traceLine(Settings.Debug, "ALL HEADERS RECEIVED");
        collectResponseMetadata();
        checkCompletion(start);
        Transfer.HeadAwaited = false;
        traceLine(Settings.Debug, "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK");
    } catch (const webservices::HTTPCopyStreamException&) {
        throw;
    } catch (const std::exception&) {
        Transfer.TransferFailed = true;
        throw;
    }
}

void HTTPConnection::beginTransfer() {
    const bool hasBody = !Settings.payload().empty() || Settings.Provider != nullptr;
    if (Transfer.Generation == Handles->Generation) {
        // A send that failed before its head was sent is due again. libcurl would go on with the first transfer and the
        // callback data that it took then: the copier that is replaced here. A transfer that has ended would not run
        // again at all. So it starts over.
        detachHandle();
        attachHandle();
    }
    Transfer.begin(Handles->Generation);
    setReadSize();                  // before the first perform: libcurl refuses it while it has a buffer
    SentHead.InRequestHead = false; // no head of an earlier transfer continues, no status is reported again
    ReceivedHead.ResponseCode = 0;
    startContent();
    Transfer.UploadPending = hasBody || Handles->Uploads;
    if (hasBody) {
        setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_UPLOAD), 1L);
        Handles->Uploads = true;
        if (Settings.Debug == 0 && mayBeLarge()) {
            setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_UPLOAD_BUFFERSIZE), kUploadBuffer);
        }
        traceLine(Settings.Debug, "*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS "
                                  "*****************");
        sendContent();
    } else {
        traceLine(Settings.Debug, "*****************SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS "
                                  "*****************");
    }
}

// Large reads cost less. But what a read is decoded to is held as a whole, and a server may encode its content unasked:
// only where nothing is decoded are they safe. A trace shows each read, so it goes by libcurl's own size.
void HTTPConnection::setReadSize() {
    const long size = Handles->Decodes || Settings.Debug != 0 ? CURL_MAX_WRITE_SIZE : kLargeRead;
    const CURLcode code = curl_easy_setopt(Handles->EasyHandle, CURLOPT_BUFFERSIZE, size);
    // Refused like this, libcurl still has the buffer of a transfer that never connected, and goes on with that.
    if (code != CURLE_OK && code != CURLE_BAD_FUNCTION_ARGUMENT) {
        throwCurlCodeError("CURLOPT_BUFFERSIZE", code, "");
    }
}

// The request's content may be more than libcurl reads at a time of its own accord.
bool HTTPConnection::mayBeLarge() const {
    constexpr std::int64_t usualUploadBuffer = 65536;
    if (Transfer.HasContentLength) {
        return Transfer.ContentLengthToSend > usualUploadBuffer;
    }
    return Settings.Provider != nullptr || std::ssize(Settings.payload()) > usualUploadBuffer;
}

void HTTPConnection::setSendOptions() {
    CURL* easy = Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_HEADERDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_HEADERFUNCTION), &headerCallback);
    ReceivedHead.begin();
    Transfer.PerformDone = false;
    setOption(easy, CURL_NAMED(CURLOPT_VERBOSE), 1L); // always: the request head is read from the trace
    setOption(easy, CURL_NAMED(CURLOPT_DEBUGDATA), this);
    setOption(easy, CURL_NAMED(CURLOPT_DEBUGFUNCTION), &debugCallback);
    setOption(easy, CURL_NAMED(CURLOPT_SSL_OPTIONS), static_cast<long>(CURLSSLOPT_REVOKE_BEST_EFFORT));
    setOption(easy, CURL_NAMED(CURLOPT_SSLVERSION), long{CURL_SSLVERSION_TLSv1_1} | long{CURL_SSLVERSION_MAX_DEFAULT});
    setOption(easy, CURL_NAMED(CURLOPT_NOSIGNAL), 1L);
    if (!Settings.HTTPOptionsMode) { // the older interface cannot narrow the schemes
        Settings.HostAuthSchemes = static_cast<std::uint32_t>(CURLAUTH_ANY);
        Settings.ProxyAuthSchemes = static_cast<std::uint32_t>(CURLAUTH_ANY);
    }
    if (Settings.Debug != 0) {
        traceLine(Settings.Debug, describeLogin("Host", Settings.Username, Settings.HostAuthSchemes));
        traceLine(Settings.Debug, describeLogin("Proxy", Settings.ProxyUsername, Settings.ProxyAuthSchemes));
        // Kept on purpose: nothing uses the answer, but the call is part of the sequence that a traced request makes.
        // 10 is CURLVERSION_ELEVENTH, which the headers of older versions do not name.
        static_cast<void>(curl_version_info(static_cast<CURLversion>(10)));
    }
    setOption(easy, CURL_NAMED(CURLOPT_HTTPAUTH), static_cast<long>(Settings.HostAuthSchemes));
    if (Settings.HostAuthSchemes != 0) {
        setOption(easy, CURL_NAMED(CURLOPT_USERNAME), Settings.Username.c_str());
        setOption(easy, CURL_NAMED(CURLOPT_PASSWORD), Settings.Password.c_str());
    }
    setOption(easy, CURL_NAMED(CURLOPT_PROXYAUTH), static_cast<long>(Settings.ProxyAuthSchemes));
    if (Settings.ProxyAuthSchemes != 0) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYUSERNAME), Settings.ProxyUsername.c_str());
        setOption(easy, CURL_NAMED(CURLOPT_PROXYPASSWORD), Settings.ProxyPassword.c_str());
    }
    // The multi interface leaves the buffer as the last transfer left it; its text must not explain this one.
    Handles->ErrorBuffer[0] = '\0';
    setOption(easy, CURL_NAMED(CURLOPT_ERRORBUFFER), static_cast<char*>(Handles->ErrorBuffer));
}

// The order of a pass is fixed: wait, pause, perform, interrupt, timeout. The first empty wait is followed by a perform
// at once; each further one in a row by a pause, so that the loop does not spin while libcurl has no descriptors, as it
// has none before the first connect.
void HTTPConnection::runPerformLoop(std::int64_t start, int waitMilliseconds) {
    int running = perform("Initial multi-perform call for request");
    traceLine(Settings.Debug, "Starting perform loop");
    int idle = 0;
    while (true) {
        if (running == 0) {
            Transfer.PerformDone = true;
            return;
        }
        if (Transfer.PerformDone) {
            return;
        }
        if (wait(waitMilliseconds) != 0) {
            idle = 0;
        } else if (++idle > 1) {
            interruptibleWait(monotonicNow() + kEmptyWaitPauseNs);
        }
        running = perform("start reading response");
        utInterruptState::ThrowIfInterruptPending();
        checkTimeout(start, false);
    }
}

} // namespace netrove
