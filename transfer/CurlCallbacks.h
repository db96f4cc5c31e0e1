// The callbacks of a transfer that libcurl calls with the connection as their data.
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace netrove {

// CURLOPT_HEADERFUNCTION: one line of a response head. A failed check does not stop libcurl: the full length is
// returned all the same.
std::size_t headerCallback(char* buffer, std::size_t size, std::size_t count, void* connection);

// CURLOPT_DEBUGFUNCTION: what moves on the wire, and the only place where libcurl shows the request head as it was
// sent.
int debugCallback(CURL* handle, curl_infotype type, char* data, std::size_t size, void* connection);

} // namespace netrove
