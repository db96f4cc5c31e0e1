// One request, its response and every setting that shapes them. A connection borrows the libcurl handles of its scope;
// at most one connection may be open on them.
//
// Where the operations are, in the order of one exchange:
//   HTTPConnection.cpp             build, close, destroy
//   HTTPConnectionUrl.cpp          request URL and redirect URL
//   HTTPConnectionOpen.cpp         the open: reset, TLS, proxy and URL options
//   HTTPConnectionTimeouts.cpp     timeouts and the moving deadline
//   HTTPConnectionRequest.cpp      method, schemes, fields, header lists, sendRequest
//   HTTPConnectionSend.cpp         last options and the perform loop
//   HTTPConnectionWire.cpp         trace callback: the record, and the request head as sent
//   HTTPConnectionHead.cpp         header callback: the response head
//   HTTPConnectionCompletion.cpp   what the end of a transfer means, response metadata
//   ../streaming/HTTPConnectionContent.cpp   copyContentToStream
//
// The fields are open to the copier, the callbacks and the host class, which work on one transfer together.
#pragma once

#include "host/ArrayApi.h"
#include "host/Iri.h"
#include "host/Services.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"

#include <cstdint>
#include <exception>
#include <limits>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

class InterruptibleStreamCopier;

class HTTPConnection {
public:
    using LibCurlInitializer = foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
    static constexpr double Unlimited = std::numeric_limits<double>::infinity();
    static constexpr std::int64_t NoDeadline = std::numeric_limits<std::int64_t>::max();

    // Raises VANTIK:http:OnlyOneTransferAtATime while another connection of the scope is open. Clears the cookies.
    HTTPConnection();
    ~HTTPConnection();
    HTTPConnection(const HTTPConnection&) = delete;
    HTTPConnection& operator=(const HTTPConnection&) = delete;

    // URL
    void setURL(const std::u16string& url);
    void setRedirectURL(const std::string& location);

    // Open and close. The timeouts, the proxy and the URL come before the open; method, fields and body after it.
    void openConnection();
    void openProxyConnection(const std::string& host, double port);
    void closeConnection() noexcept;
    static void closeAllConnections();

    // Timeouts in milliseconds: connect, response, data, extra.
    void setTimeouts(std::vector<double> timeouts);
    std::vector<double> getTimeouts() const;
    void applyTimeouts();
    void updateDeadline();
    void checkTimeout(std::int64_t start, bool libcurlTimedOut);

    // Request
    void setRequestMethod(const std::string& method);
    void setAuthenticationSchemes(const std::vector<std::string>& names, bool forProxy);
    void addField(const std::string& name, const std::string& value); // behind setRequestProperty and setFields
    void removeField(const std::string& name);
    std::string getRequestField(const std::string& name) const;
    void sendRequest();

    // Response. The getters send the request first where that is due.
    const std::string& getContentEncoding();
    const std::string& getContentType();
    const std::string& getRedirectURL();
    std::int32_t getResponseCode();
    std::string getResponseField(const std::string& name) const;
    std::string reasonPhrase() const;
    std::string httpVersion() const;
    std::string requestTarget() const; // as sent, or as it would be sent
    void copyContentToStream(std::ostream& stream, bool useStream);

    // What the send routine and the pumps share.
    void collectResponseMetadata();
    void checkCompletion(std::int64_t start);
    CURLMcode perform(int& running);              // curl_multi_perform, then whatever escaped from a callback
    CURLMcode wait(int milliseconds, int& ready); // curl_multi_wait without extra descriptors
    void rethrowEscapedFailure();
    // Runs a callback's body: nothing that it raises crosses libcurl's frames, and nothing runs behind a failure.
    template <class Result, class Body>
    Result inCallback(Result whenFailed, Body&& body) noexcept;

    static std::size_t headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection);
    static int debugCallback(CURL* handle, curl_infotype type, char* data, std::size_t size, void* connection);

    std::shared_ptr<LibCurlInitializer> CurlInitializer; // keeps libcurl initialised; released last
    std::u16string URL;                                  // request URL in ASCII, any fragment still in it
    foundation::network::IRI ParsedURL;                  // the same without fragment
    std::string InitialURL;                  // copy of URL, written while RedirectURL is empty; nothing reads it
    CurlSingleton* Handles = nullptr;        // borrowed from the scope's store; never null
    std::string CertificateFilename;         // CA file; empty: peers are not verified; "default": libcurl's own store
    std::string ContentType;                 // of the response
    std::string ContentEncoding;             // of the response
    std::string RedirectURL;                 // "Location" of the response, absolute and in ASCII
    std::string EffectiveMethod;             // method as sent
    std::string RequestMethod;               // method as set
    std::string RequestURI;                  // from the request line as sent
    std::string RequestHTTPVersion;          // from the request line as sent
    std::u16string PostData;                 // text body where HTTPOptionsMode is false
    bool BodyFromPostData = false;           // Payload is encoded PostData, so its length is announced
    bool TransferFailed = false;             // an exception has left the send routine; nothing reads it
    std::vector<std::uint8_t> Payload;       // request body in memory
    vxArray_tag* ProgressReporter = nullptr; // borrowed from the adapter
    vxArray_tag* Consumer = nullptr;         // borrowed from the adapter
    vxArray_tag* Provider = nullptr;         // borrowed from the adapter
    CurlSlist RequestHeaders;                // given to CURLOPT_HTTPHEADER; lives until the next send
    CurlSlist ProxyHeaders;                  // given to CURLOPT_PROXYHEADER; lives until the next send
    std::int32_t ResponseCode = 0;           // latest status parsed by the header callback
    std::int32_t PreviousResponseCode = 0;   // status at the start of an open; nothing reads it
    std::uint32_t HostAuthSchemes = 0;       // CURLAUTH_ bits for the server
    std::uint32_t ProxyAuthSchemes = 0;      // CURLAUTH_ bits for the proxy
    double ConnectTimeout = 5000.0;          // ms
    double ResponseTimeout = Unlimited;      // ms of silence until the response head is complete
    std::int64_t ResponseTimeoutMs = 0;      // the same as an integer, written at open when finite
    double DataTimeout = Unlimited;          // ms of silence while content moves
    std::int64_t DataTimeoutMs = 0;          // the same as an integer, written at open when finite
    double ExtraTimeout = Unlimited;         // stored and returned only
    double ActiveTimeout = 0.0;              // ms behind the running Deadline
    bool Decode = false;                     // libcurl decodes the response's content
    bool Opened = false;                     // after a successful open
    bool ResponseDone = false;               // sendRequest has finished; an open leaves it alone
    bool Sent = false;                       // the request's head has gone out
    CurlSlist CookieList;                    // nothing fills it; kept for the step that would send it
    std::list<std::pair<std::string, std::string>> RequestFields; // caller's fields in order, duplicates allowed
    std::string Username;
    std::string Password;
    std::string ProxyHost; // empty: no proxy, not even one from the environment
    std::uint16_t ProxyPort = 80;
    std::string ProxyUsername;
    std::string ProxyPassword;
    bool HTTPOptionsMode = false; // driven by the HTTP interface; false: by the older web-options interface
    bool VerifyServerName = true;
    std::uint64_t ProviderBufferSize = 0;         // bytes asked of the provider at a time; 0: 16384
    bool Chunked = false;                         // stored and returned only
    bool HasContentLength = false;                // of the request being built
    std::int64_t ContentLengthToSend = 0;         // goes with HasContentLength
    std::vector<std::string> ResponseHeaderLines; // raw lines of the head, status line first
    std::vector<std::string> RequestHeaderLines;  // raw field lines of the head as sent
    bool InRequestHead = false;                   // the trace callback expects field lines
    bool HeadersComplete = false;                 // a final head has ended and no further one has begun
    std::int64_t ResponseContentLength = 0;       // -1: unknown
    std::int64_t ResponseBytesReceived = 0;
    std::int32_t TimeoutReason = 0;                    // 0: the head was awaited, 1: content
    std::u16string TimeoutOption;                      // name of the option behind Deadline
    std::int32_t Debug = 0;                            // trace level
    std::int64_t Deadline = 0;                         // monotonic ns; NoDeadline: none
    bool PerformDone = false;                          // ends the perform loop
    bool SendBegun = false;                            // on the handle as it is now attached
    std::shared_ptr<InterruptibleStreamCopier> Copier; // of the current request
    std::exception_ptr CallbackFailure;                // a failed check of the header callback; sendRequest rethrows it
    std::exception_ptr EscapedFailure; // what would have left a callback; rethrown behind the libcurl call

private:
    void startCookieEngine();
    void applyUrlOptions();
    void prepareHandle();
    void detachHandle();
    void attachHandle();
    void sendAndWait();
    void setSendOptions();
    void runPerformLoop(std::int64_t start, int waitMilliseconds);
    void encodePostData();
    void buildHeaderLists();
    void sendCookieList();
    std::size_t takeHeadLine(const char* data, std::size_t length);
    void endHead();
    void startHead(const std::string& line);
    void keepHeadLine(const std::string& line);
    void recordTraffic(curl_infotype type, const char* data, std::size_t size) const;
    void parseRequestHead(char* data, std::size_t size);
    void takeRequestLine(const std::string& line);
    void takeRequestField(std::string line, char* start);
    int takeTrace(curl_infotype type, char* data, std::size_t size);
    void judgeResult(CURLcode result, std::int64_t start);
    void judgeWriteError(const std::string& urlText);
};

template <class Result, class Body>
Result HTTPConnection::inCallback(Result whenFailed, Body&& body) noexcept {
    if (EscapedFailure) {
        return whenFailed;
    }
    try {
        return body();
    } catch (...) {
        EscapedFailure = std::current_exception();
        return whenFailed;
    }
}
