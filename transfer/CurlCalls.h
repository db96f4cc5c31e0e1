// Checked libcurl calls, and the wording of libcurl failures.
#pragma once

#include <curl/curl.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

namespace netrove {

// Raise VANTIK:webservices:InternalError with `what`, the code's name and text, and `detail`. A code of 0 means that
// the call returned a null pointer and no code.
[[noreturn]] void throwCurlCodeError(const std::string& what, std::uint32_t code, const std::string& detail);
[[noreturn]] void throwCurlMultiCodeError(const std::string& what, std::uint32_t code, const std::string& detail);

// A libcurl constant together with its name, for the failure's text.
template <class Constant>
struct CurlNamed {
    Constant Value;
    const char* Name;
};
template <class Constant>
CurlNamed(Constant, const char*) -> CurlNamed<Constant>;
#define CURL_NAMED(constant)                                                                                           \
    netrove::CurlNamed {                                                                                               \
        constant, #constant                                                                                            \
    }

// What libcurl reads through its variadic arguments by exact size: long, curl_off_t, pointers and callbacks. A plain
// int would be read as garbage, so it does not compile here.
template <class Value>
concept CurlArgument = std::same_as<Value, long> || std::same_as<Value, curl_off_t> || std::is_pointer_v<Value> ||
                       std::is_null_pointer_v<Value>;

template <CurlArgument Value>
void setOption(CURL* easy, CurlNamed<CURLoption> option, Value value, const std::string& detail = {}) {
    CURLcode code;
    if constexpr (std::is_null_pointer_v<Value>) {
        code = curl_easy_setopt(easy, option.Value, static_cast<void*>(nullptr));
    } else {
        code = curl_easy_setopt(easy, option.Value, value);
    }
    if (code != CURLE_OK) {
        throwCurlCodeError(option.Name, code, detail);
    }
}

// Reads one information value; the caller names a type of the size that libcurl writes.
template <class Value>
    requires std::same_as<Value, long> || std::same_as<Value, curl_off_t> || std::same_as<Value, double> ||
             std::same_as<Value, char*>
Value getInfo(CURL* easy, CurlNamed<CURLINFO> info, const std::string& detail = {}) {
    Value value{};
    const CURLcode code = curl_easy_getinfo(easy, info.Value, &value);
    if (code != CURLE_OK) {
        throwCurlCodeError(info.Name, code, detail);
    }
    return value;
}

} // namespace netrove
