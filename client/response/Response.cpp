#include "client/failures/ClientFailure.h"
#include "client/response/Charset.h"

#include <netrove/response.h>

#include <algorithm>
#include <array>

namespace netrove {

namespace {

constexpr std::array kRedirects = {301, 302, 303, 307, 308};

bool isRedirect(const Hop& hop) {
    return hop.failure.empty() && std::find(kRedirects.begin(), kRedirects.end(), hop.status) != kRedirects.end();
}

// A server may call its charset anything.
std::string shownCharset(std::string name) {
    constexpr std::size_t enough = 60;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return name.size() > enough ? name.substr(0, enough) + "..." : name;
}

} // namespace

std::vector<Hop> Response::redirects() const {
    if (hops.empty()) {
        return {};
    }
    // Every hop of an attempt but its last is a redirect, so the first other one from the end ends an earlier attempt.
    const auto last = hops.end() - 1;
    const auto before = std::find_if_not(std::make_reverse_iterator(last), hops.rend(), isRedirect);
    return {before.base(), last};
}

std::string Response::text() const {
    return decodeText(content, fields["Content-Type"]).Text;
}

std::string Response::exactText() const {
    Decoded decoded = decodeText(content, fields["Content-Type"]);
    if (!decoded.Unknown.empty()) {
        const std::string charset = shownCharset(decoded.Unknown);
        fail(failure::kContentNotText, {charset}, "the content is text in an unknown charset, \"" + charset + "\"");
    }
    if (decoded.FirstBad) {
        fail(failure::kContentNotText, {static_cast<std::int64_t>(*decoded.FirstBad)},
             "the content is not text in " + decoded.Charset + ": byte " + std::to_string(*decoded.FirstBad));
    }
    return std::move(decoded.Text);
}

} // namespace netrove
