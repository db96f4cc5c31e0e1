// One request, its response and every setting that shapes them. A connection borrows the libcurl handles of its scope;
// at most one connection may be open on them.
//
// Where the operations are, in the order of one exchange:
//   HTTPConnection.cpp             build, close, destroy; what protects a transfer from other calls
//   HTTPConnectionUrl.cpp          request URL and redirect URL
//   HTTPConnectionOpen.cpp         the open: reset, TLS, proxy and URL options
//   HTTPConnectionTimeouts.cpp     timeouts and the moving deadline
//   HTTPConnectionRequest.cpp      method, schemes, fields, header lists, sendRequest
//   HTTPConnectionSend.cpp         last options and the perform loop
//   HTTPConnectionWire.cpp         trace callback: the record, and the request head as sent
//   HTTPConnectionHead.cpp         header callback: the response head
//   HTTPConnectionCompletion.cpp   what the end of a transfer means, response metadata
//   ../streaming/HTTPConnectionContent.cpp   the copier, copyContentToStream
//
// The state is grouped by how long it lives, and public to the copier, the callbacks and the host class, which work on
// one transfer together.
#pragma once

#include "host/Services.h"
#include "http/RequestHead.h"
#include "http/ResponseHead.h"
#include "http/SilenceLimits.h"
#include "transfer/RequestSettings.h"
#include "transfer/RunningTransfer.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct CurlSingleton;

// What is known about the last response besides its head. An open leaves it as it is.
struct ResponseMetadata {
    std::string ContentType;
    std::string ContentEncoding;
    std::string RedirectURL;                // "Location", absolute and in ASCII
    std::int64_t ResponseContentLength = 0; // -1: unknown
    std::int64_t ResponseBytesReceived = 0;
    std::int32_t PreviousResponseCode = 0; // status at the start of an open; nothing reads it
};

class HTTPConnection {
public:
    using LibCurlInitializer = foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;

    // Raises VANTIK:http:OnlyOneTransferAtATime while another connection of the scope is open. Clears the cookies.
    HTTPConnection();
    ~HTTPConnection();
    HTTPConnection(const HTTPConnection&) = delete;
    HTTPConnection& operator=(const HTTPConnection&) = delete;

    // URL
    void setURL(const std::u16string& url);
    void setRedirectURL(const std::string& location);

    // Open and close. The timeouts, the proxy and the URL come before the open; method, fields and body after it. An
    // open raises VANTIK:http:OnlyOneTransferAtATime while another connection of the scope is open.
    void openConnection();
    void openProxyConnection(const std::string& host, double port);
    void closeConnection();
    static void closeAllConnections();

    // Timeouts in milliseconds: connect, response, data, extra.
    void setTimeouts(std::vector<double> timeouts);
    std::vector<double> getTimeouts() const { return Limits.getTimeouts(); }
    void applyTimeouts();
    void updateDeadline();
    void checkTimeout(std::int64_t start, bool libcurlTimedOut);

    // Request
    void setRequestMethod(const std::string& method);
    void setAuthenticationSchemes(const std::vector<std::string>& names, bool forProxy);
    void addField(const std::string& name, const std::string& value); // serves setRequestProperty and setFields
    void removeField(const std::string& name);
    std::string getRequestField(std::string_view name) const;
    void sendRequest();

    // Response. The getters send the request first if that is due.
    const std::string& getContentEncoding();
    const std::string& getContentType();
    const std::string& getRedirectURL();
    std::int32_t getResponseCode();
    std::string httpVersion() const;
    std::string requestTarget() const; // as sent, or as it would be sent
    void copyContentToStream(std::ostream& stream, bool useStream);
    // Raises InternalError if a copy into `target` could not deliver the whole content of the response; null means a
    // target that holds nothing yet. Raises nothing while the request is still to be sent.
    void requireCopyable(std::ostream* target) const;

    // What the send routine and the pumps share. perform and wait report libcurl's failures themselves.
    void collectResponseMetadata();
    void checkCompletion(std::int64_t start);
    int perform(const char* detail); // returns the number of running handles; rethrows what escaped from a callback
    int wait(int milliseconds);      // returns the number of descriptors that are ready
    void rethrowEscapedFailure();
    // Runs a callback's body: nothing that it raises crosses libcurl's frames, and after a failure it is not run.
    template <class Result, class Body>
    Result inCallback(Result whenFailed, Body&& body) noexcept;
    // libcurl's header and trace callbacks pass their arguments on to these; `type` is a curl_infotype.
    std::size_t takeHeadLine(const char* data, std::size_t length);
    int takeTrace(int type, char* data, std::size_t size);

    std::shared_ptr<LibCurlInitializer> CurlInitializer; // keeps libcurl initialised; released last
    CurlSingleton* Handles = nullptr;                    // borrowed from the scope's store; never null
    RequestSettings Settings;                            // what the caller has set
    RequestHead SentHead;                                // as it was sent
    ResponseHead ReceivedHead;
    ResponseMetadata Metadata;
    SilenceLimits Limits;
    RunningTransfer Transfer;

private:
    bool sendIsDue() const { return Transfer.Opened && !Transfer.ResponseDone && !SentHead.Sent; }
    bool mayUseHandle() const;
    void refuseWithin(const char* what) const;
    void requireOwnTransfer() const;
    void requireNoFault() const;
    void startCookieEngine();
    void applyUrlOptions();
    void prepareHandle();
    void detachHandle();
    void resetHandle();
    void attachHandle();
    void prepareRequest();
    void sendAndWait();
    void beginTransfer();
    void setReadSize();
    bool mayBeLarge() const;
    void setSendOptions();
    void startContent();
    void sendContent();
    void boundContent();
    void receiveContent(std::ostream* target);
    void runPerformLoop(std::int64_t start, int waitMilliseconds);
    void encodePostData();
    void buildHeaderLists();
    void sendCookieList();
    void endHead();
    void startHead(std::string_view line);
    void keepHeadLine(std::string_view line);
    void traceHeadLine(std::string_view line) const;
    template <class Check>
    void keepFailure(Check check); // runs it; what it raises goes to CallbackFailure
    void judgeCompletion(int result, std::int64_t start);
    void judgeFailure(int result, std::int64_t start);
    void judgeWriteError(const std::string& urlText);
    std::string whatIsMissing(int result) const;
    void warnOfPart(const std::string& text);
    void warnUnlessWhole(int result);
};

template <class Result, class Body>
Result HTTPConnection::inCallback(Result whenFailed, Body&& body) noexcept {
    if (Transfer.EscapedFailure) {
        return whenFailed;
    }
    try {
        return body();
    } catch (...) {
        Transfer.EscapedFailure = std::current_exception();
        Transfer.Fault = TransferFault::Failed;
        return whenFailed;
    }
}

} // namespace netrove
