#include "transfer/HTTPConnection.h"

#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"

using foundation::network::IRI;
using foundation::network::IRIArgs;

// A URL is refused in words that show it as the caller wrote it, so the messages take UTF-8; what goes to libcurl is
// ASCII.
void HTTPConnection::setURL(const std::u16string& url) {
    try {
        ParsedURL = IRI(url);
    } catch (const foundation::core::except::IInternalException&) {
        throw webservices::HTTPURLException(toNarrow(url, "UTF-8"));
    }
    if (ParsedURL.isEmpty()) {
        URL.clear();
    } else {
        const std::u16string scheme = ParsedURL.getScheme();
        if (!ParsedURL.hasScheme() || scheme.empty()) {
            throw webservices::HTTPURLException('"' + toNarrow(url, "UTF-8") + "\" (no protocol)");
        }
        if (scheme != u"https" && scheme != u"http") {
            VANTIK::raise<VANTIK::webservices::ExpectedProtocol>(toNarrow(scheme, "UTF-8"), toNarrow(url, "UTF-8"),
                                                                 "http", "https");
        }
        URL = ParsedURL.toAsciiString(false);
    }
    if (ParsedURL.hasFragment()) {
        ParsedURL = IRI(IRIArgs(ParsedURL).clearFragment());
    }
    if (RedirectURL.empty()) {
        InitialURL = toNarrow(URL, "");
    }
}

// A malformed "Location" is the server's mistake and fails nothing: there is then no redirect URL.
void HTTPConnection::setRedirectURL(const std::string& location) {
    RedirectURL.clear();
    if (location.empty()) {
        return;
    }
    try {
        const IRI target = IRI(fl::i18n::to_ustring(location)).resolveAgainst(ParsedURL);
        RedirectURL = toNarrow(target.toAsciiString(false), "");
    } catch (...) {
        RedirectURL.clear();
    }
}

std::string HTTPConnection::requestTarget() const {
    if (!RequestURI.empty()) {
        return RequestURI;
    }
    if (!ProxyHost.empty()) {
        return toNarrow(URL, "");
    }
    std::u16string target = ParsedURL.getPath();
    if (ParsedURL.hasQuery()) {
        target += u'?' + ParsedURL.getQuery();
    }
    return toNarrow(target, "");
}
