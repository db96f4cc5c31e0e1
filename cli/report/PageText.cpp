#include "cli/report/PageText.h"

#include "cli/terminal/Progress.h"

#include <netrove/text.h>

#include <array>
#include <cstdio>

namespace netrove::cli {

namespace {

constexpr std::string_view kHex = "0123456789ABCDEF";
constexpr std::string_view kPlainInUrl = "-._~,/:";

std::string csvCell(const std::string& text) {
    if (text.find_first_of("=+-@\t") == 0) { // a formula for a spreadsheet, out of a URL; numbers here are not negative
        return csvCell("'" + text);
    }
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

std::string percentEncoded(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           kPlainInUrl.find(c) != std::string_view::npos;
        if (plain) {
            result += c;
        } else {
            result += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
        }
    }
    return result;
}

} // namespace

std::string html(std::string_view text) {
    std::string result;
    for (const char c : printable(text)) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3;) {
        i -= 3;
        text.insert(i, ",");
    }
    return text;
}

std::string numberData(std::uint64_t number) {
    return "<data value=\"" + std::to_string(number) + "\">" + grouped(number) + "</data>";
}

std::string fixed(double value, int digits) {
    std::array<char, 64> buffer{};
    const int length = std::snprintf(buffer.data(), buffer.size(), "%.*f", digits, value);
    return {buffer.data(), static_cast<std::size_t>(length)};
}

std::string decimal(double value, int digits) {
    std::string text = fixed(value, digits);
    if (text.find('.') != text.npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.') {
            text.pop_back();
        }
    }
    return text;
}

std::string secondsText(double seconds) {
    if (!(seconds > 0)) {
        return "0 s";
    }
    if (seconds < 0.0995) {
        return fixed(seconds * 1000, seconds < 0.00995 ? 1 : 0) + " ms";
    }
    if (seconds < 59.95) {
        return fixed(seconds, seconds < 9.995 ? 2 : 1) + " s";
    }
    return durationText(std::chrono::duration<double>(seconds));
}

std::string csvLink(const std::string& name, const Cells& rows) {
    std::string csv;
    for (const std::vector<std::string>& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            csv += (i == 0 ? "" : ",") + csvCell(row[i]);
        }
        csv += "\r\n";
    }
    return "<a class=\"csv\" download=\"" + name + ".csv\" href=\"data:text/csv;charset=utf-8," + percentEncoded(csv) +
           "\">CSV</a>";
}

} // namespace netrove::cli
