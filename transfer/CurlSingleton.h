// The one easy handle and multi handle of a host scope. They outlive every connection, which is how connections, TLS
// sessions and cookies pass from one request to the next.
//
// All connections of a scope share them, so they record whose options, callbacks and data are set on them. They also
// keep a number: a transfer runs only as long as it is the number under which the transfer began.
#pragma once

#include <curl/curl.h>

#include <cstdint>

namespace netrove {

class HTTPConnection;

struct CurlSingleton {
    // The libcurl calls that end whatever transfer runs on the handle, or start one. Callbacks of the owner may run in
    // each.
    CURLMcode detach() noexcept; // from the multi handle
    CURLMcode attach() noexcept;
    void reset() noexcept; // clears all options, the owner's callbacks included; nothing to do if none has been set

    CURL* EasyHandle = nullptr;          // never null once built
    CURLM* MultiHandle = nullptr;        // never null once built
    char ErrorBuffer[CURL_ERROR_SIZE]{}; // set as CURLOPT_ERRORBUFFER before every transfer
    bool ConnectionOpen = false;         // the owner is open: no other may be built or opened, and no handle replaced
    bool EasyHandleAttached = false;     // set by the first open and never cleared: from then on an open first detaches
    bool IsReset = false;                // no option that a reset clears has been set since the last one
    bool Uploads = false;                // CURLOPT_UPLOAD is set; it stays so after a challenge
    bool Decodes = false;                // CURLOPT_ACCEPT_ENCODING is set; it stays so after a challenge
    bool CookieEngineRuns = false;       // on the easy handle as it is now; no reset stops it
    const HTTPConnection* Owner = nullptr; // whose options and callbacks are on the easy handle; null: nobody's
    std::uint64_t Generation = 0;          // incremented by open, removal, reset, attachment and replacement
};

// The current scope's handles, made on first use. Raises InternalError if libcurl returns none.
CurlSingleton& getCurlSingleton();

// Replaces both handles, and so drops every pooled connection and every cookie. Raises InternalError while a connection
// is open.
void resetHandles();

} // namespace netrove
