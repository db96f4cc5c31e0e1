// The one easy handle and multi handle of a host scope. They outlive every connection, which is how connections, TLS
// sessions and cookies pass from one request to the next.
#pragma once

#include <curl/curl.h>

struct CurlSingleton {
    CURL* EasyHandle = nullptr;          // never null once built
    CURLM* MultiHandle = nullptr;        // never null once built
    char ErrorBuffer[CURL_ERROR_SIZE]{}; // given to CURLOPT_ERRORBUFFER before every transfer
    bool ConnectionOpen = false;         // a connection is open: no second one may be built, no handle replaced
    bool EasyHandleAttached = false;     // set by the first open and never cleared: from then on an open first removes
};

// The current scope's handles, made on first use. Raises InternalError where libcurl gives none.
CurlSingleton& getCurlSingleton();

// Replaces both handles, and so drops every pooled connection and every cookie. Raises InternalError while a connection
// is open.
void resetHandles();
