// The one easy handle and multi handle of a host scope. They outlive every connection, which is how connections, TLS
// sessions and cookies pass from one request to the next.
//
// All connections of a scope share them, so they know whose options, callbacks and data are on them, and count: a
// transfer runs only as long as the number under which it began is still theirs.
#pragma once

#include <curl/curl.h>

#include <cstdint>

namespace netrove {

class HTTPConnection;

struct CurlSingleton {
    // The libcurl calls that end whatever transfer runs on the handle, or let one begin. Callbacks of the owner may run
    // in each.
    CURLMcode detach() noexcept; // from the multi handle
    CURLMcode attach() noexcept;
    void reset() noexcept; // all options; the owner's callbacks go with them

    CURL* EasyHandle = nullptr;          // never null once built
    CURLM* MultiHandle = nullptr;        // never null once built
    char ErrorBuffer[CURL_ERROR_SIZE]{}; // given to CURLOPT_ERRORBUFFER before every transfer
    bool ConnectionOpen = false;         // the owner is open: no other may be built or opened, no handle replaced
    bool EasyHandleAttached = false;     // set by the first open and never cleared: from then on an open first removes
    bool Uploads = false;                // CURLOPT_UPLOAD is set, as it stays after a challenge
    bool Decodes = false;                // CURLOPT_ACCEPT_ENCODING is set, as it stays after a challenge
    bool CookieEngineRuns = false;       // on the easy handle as it is now; no reset stops it
    const HTTPConnection* Owner = nullptr; // whose options and callbacks are on the easy handle; null: nobody's
    std::uint64_t Generation = 0;          // raised by open, removal, reset, attachment and replacement
};

// The current scope's handles, made on first use. Raises InternalError where libcurl gives none.
CurlSingleton& getCurlSingleton();

// Replaces both handles, and so drops every pooled connection and every cookie. Raises InternalError while a connection
// is open.
void resetHandles();

} // namespace netrove
