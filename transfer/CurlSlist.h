// Owner of a libcurl list of header lines.
#pragma once

#include <memory>
#include <string>

struct curl_slist;

namespace netrove {

// libcurl keeps only the pointer that it was given, so the owner must outlive the transfer.
class CurlSlist {
public:
    void append(const std::string& line); // raises std::bad_alloc
    void clear() noexcept { List.reset(); }
    curl_slist* get() const noexcept { return List.get(); }
    explicit operator bool() const noexcept { return List != nullptr; }

private:
    struct Free {
        void operator()(curl_slist* list) const noexcept;
    };
    std::unique_ptr<curl_slist, Free> List;
};

} // namespace netrove
