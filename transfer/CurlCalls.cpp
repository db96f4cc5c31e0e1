#include "transfer/CurlCalls.h"

#include "errors/InternalError.h"

namespace netrove {

namespace {

// Nothing separates the pieces except what is written here, so a detail that begins with a letter runs into libcurl's
// text: kept on purpose, the message is matched byte for byte.
std::string describe(const std::string& what, std::uint32_t code, const char* codeWord, const char* codeText,
                     const std::string& detail) {
    std::string text = '"' + what + "\" failed ";
    if (code != 0) {
        text += std::string("with ") + codeWord + ' ' + codeText;
    }
    return text + detail;
}

} // namespace

void throwCurlCodeError(const std::string& what, std::uint32_t code, const std::string& detail) {
    throwInternalError(describe(what, code, "CURLcode", curl_easy_strerror(static_cast<CURLcode>(code)), detail));
}

void throwCurlMultiCodeError(const std::string& what, std::uint32_t code, const std::string& detail) {
    throwInternalError(describe(what, code, "CURLMcode", curl_multi_strerror(static_cast<CURLMcode>(code)), detail));
}

} // namespace netrove
