#include "cli/options/DataText.h"

#include <algorithm>

namespace netrove::cli {

namespace {

bool isUnreserved(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

} // namespace

std::string formEncoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isUnreserved(c)) {
            result += c;
        } else if (c == ' ') {
            result += '+';
        } else {
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return result;
}

std::string encodedData(const std::string& text, const std::function<std::string(const std::string& atFile)>& read) {
    // '=' first, so that a value may hold '@'.
    const auto sign = text.find('=') != text.npos ? text.find('=') : text.find('@');
    if (sign == text.npos) {
        return formEncoded(text);
    }
    const std::string content = text[sign] == '@' ? read(text.substr(sign)) : text.substr(sign + 1);
    return text.substr(0, sign) + (sign == 0 ? "" : "=") + formEncoded(content);
}

std::string joinedData(std::string_view left, std::string_view right) {
    return std::string(left) + (left.empty() || right.empty() ? "" : "&") + std::string(right);
}

std::string withQuery(const std::string& url, std::string_view query) {
    if (query.empty()) {
        return url;
    }
    const auto end = std::min(url.find('#'), url.size());
    const std::string before = url.substr(0, end);
    const auto mark = before.find('?');
    const bool joined = mark == before.npos || before.ends_with('?') || before.ends_with('&');
    return before + (mark == before.npos ? "?" : joined ? "" : "&") + std::string(query) + url.substr(end);
}

} // namespace netrove::cli
