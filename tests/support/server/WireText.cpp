#include "tests/support/server/WireText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <strings.h>

namespace testsupport {
bool sameName(std::string_view one, std::string_view other) {
    return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

std::string startLine(std::string_view head) {
    return std::string(head.substr(0, head.find("\r\n")));
}

FieldLines fieldLines(std::string_view head) {
    FieldLines lines;
    std::size_t begin = head.find("\r\n");
    while (begin != std::string_view::npos) {
        begin += 2;
        const std::size_t end = head.find("\r\n", begin);
        const std::string_view line = head.substr(begin, end == std::string_view::npos ? end : end - begin);
        if (!line.empty()) {
            const std::size_t colon = line.find(':');
            std::string_view value = colon == std::string_view::npos ? "" : line.substr(colon + 1);
            value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
            lines.emplace_back(line.substr(0, colon), value);
        }
        begin = end;
    }
    return lines;
}

std::optional<std::string> fieldValue(std::string_view head, std::string_view name) {
    for (const auto& [lineName, value] : fieldLines(head)) {
        if (sameName(lineName, name)) {
            return value;
        }
    }
    return std::nullopt;
}

std::string response(std::string_view body, const std::vector<std::string>& fields, std::string_view status) {
    std::string text = "HTTP/1.1 " + std::string(status) + "\r\n";
    for (const std::string& field : fields) {
        text += field + "\r\n";
    }
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    text += body;
    return text;
}

std::string chunked(std::string_view body, std::size_t chunkSize) {
    std::string text;
    char size[24];
    while (!body.empty()) {
        const std::string_view chunk = body.substr(0, chunkSize);
        std::snprintf(size, sizeof size, "%zx\r\n", chunk.size());
        text.append(size).append(chunk).append("\r\n");
        body.remove_prefix(chunk.size());
    }
    return text + "0\r\n\r\n";
}

std::string patternedBytes(std::size_t length) {
    std::string bytes(length, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string difference(std::string_view actual, std::string_view expected) {
    const auto [a, e] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    if (a == actual.end() && e == expected.end()) {
        return {};
    }
    return std::to_string(actual.size()) + " bytes where " + std::to_string(expected.size()) +
           " were expected; first difference at " + std::to_string(a - actual.begin());
}

} // namespace testsupport
