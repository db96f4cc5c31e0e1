#include "transfer/CurlSlist.h"

#include <curl/curl.h>

#include <new>

namespace netrove {

void CurlSlist::append(const std::string& line) {
    curl_slist* list = curl_slist_append(List.get(), line.c_str());
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(List.release()); // libcurl returns the same head or, for an empty list, the first one
    List.reset(list);
}

void CurlSlist::Free::operator()(curl_slist* list) const noexcept {
    curl_slist_free_all(list);
}

} // namespace netrove
