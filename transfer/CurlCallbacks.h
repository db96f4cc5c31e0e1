// The callbacks of a transfer that libcurl calls with the connection as their data.
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace netrove {

// CURLOPT_HEADERFUNCTION: one line of a response's head. Always gives the full length back: libcurl is never asked to
// stop.
std::size_t headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection);

// CURLOPT_DEBUGFUNCTION: what moves on the wire, and the only place where libcurl tells the request head as it went
// out.
int debugCallback(CURL* handle, curl_infotype type, char* data, std::size_t size, void* connection);

} // namespace netrove
