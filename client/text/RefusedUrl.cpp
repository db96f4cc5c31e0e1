#include "client/text/Ascii.h"

#include <netrove/refusedurl.h>

#include <algorithm>
#include <utility>

namespace netrove {

namespace {

constexpr std::string_view kMask = "***";
constexpr std::string_view kMarks = ":/";

// Length of the scheme, with its colon and slashes. Slashes and a colon alone count too, as does a scheme of ours with
// anything of the two after it. "alice:secret@host" has no scheme.
std::size_t schemeLength(std::string_view url) {
    const auto word = std::min(url.find_first_of(kMarks), url.size());
    const bool ours =
        equalsIgnoringCase(url.substr(0, word), "http") || equalsIgnoringCase(url.substr(0, word), "https");
    const auto rest = std::min(url.find_first_not_of(kMarks, word), url.size());
    if (ours || word == 0) {
        return rest;
    }
    return url.substr(word).starts_with("://") ? word + 3 : 0;
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// For a text that has the URL in another form: every word with an '@'.
std::string maskWords(const std::string& text) {
    std::string result;
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find(' ', start), text.size() - 1) + 1;
        result += maskRefusedUrl(std::string_view(text).substr(start, end - start));
        start = end;
    }
    return result;
}

} // namespace

std::string maskRefusedUrl(std::string_view url) {
    const auto at = url.rfind('@');
    if (at == url.npos) {
        return std::string(url);
    }
    const std::size_t first = std::min(schemeLength(url), at);
    return std::string(url.substr(0, first)) + std::string(kMask) + std::string(url.substr(at));
}

vantik::Message withRefusedUrlMasked(vantik::Message message, std::string_view url) {
    if (url.find('@') == url.npos) {
        return message;
    }
    const std::string shown = maskRefusedUrl(url);
    const auto masked = [&](std::string text) {
        replaceAll(text, url, shown);
        // A second look would take the '@' of the masked URL for one that is not masked.
        return text.find(shown) == text.npos ? maskWords(text) : text;
    };
    message.Text = masked(std::move(message.Text));
    if (shown.starts_with(kMask) && message.identifier() == "VANTIK:webservices:ExpectedProtocol" &&
        !message.Arguments.empty()) {
        auto& scheme = message.Arguments.front();
        if (const auto* name = std::get_if<std::string>(&scheme)) {
            replaceAll(message.Text, '"' + *name + '"', "\"***\"");
            scheme = std::string(kMask);
        }
    }
    for (vantik::MessageArgument& argument : message.Arguments) {
        if (const auto* text = std::get_if<std::string>(&argument)) {
            argument = masked(*text);
        }
    }
    return message;
}

} // namespace netrove
