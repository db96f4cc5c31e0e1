#include "errors/HTTPException.h"
#include "errors/MessageIdentifiers.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "transfer/HTTPConnection.h"

namespace netrove {

using foundation::network::IRI;
using foundation::network::IRIArgs;

// The message that refuses a URL shows it as the caller wrote it, so messages take UTF-8; what goes to libcurl is
// ASCII.
void HTTPConnection::setURL(const std::u16string& url) {
    if (!url.empty() && url == Settings.GivenURL) { // parsing it again would make the same of it
        return;
    }
    Settings.GivenURL.clear();
    try {
        Settings.ParsedURL = IRI(url);
    } catch (const foundation::core::except::IInternalException&) {
        throw webservices::HTTPURLException(toNarrow(url, "UTF-8"));
    }
    if (Settings.ParsedURL.isEmpty()) {
        Settings.URL.clear();
    } else {
        const std::u16string scheme = Settings.ParsedURL.getScheme();
        if (!Settings.ParsedURL.hasScheme() || scheme.empty()) {
            throw webservices::HTTPURLException('"' + toNarrow(url, "UTF-8") + "\" (no protocol)");
        }
        if (scheme != u"https" && scheme != u"http") {
            VANTIK::raise<VANTIK::webservices::ExpectedProtocol>(toNarrow(scheme, "UTF-8"), toNarrow(url, "UTF-8"),
                                                                 "http", "https");
        }
        Settings.URL = Settings.ParsedURL.toAsciiString(false);
    }
    if (Settings.ParsedURL.hasFragment()) {
        Settings.ParsedURL = IRI(IRIArgs(Settings.ParsedURL).clearFragment());
    }
    if (Metadata.RedirectURL.empty()) {
        Settings.InitialURL = toNarrow(Settings.URL, "");
    }
    Settings.GivenURL = url;
}

// A malformed "Location" is the server's mistake and not a failure: there is just no redirect URL.
void HTTPConnection::setRedirectURL(const std::string& location) {
    Metadata.RedirectURL.clear();
    if (location.empty()) {
        return;
    }
    try {
        const IRI target = IRI(fl::i18n::to_ustring(location)).resolveAgainst(Settings.ParsedURL);
        Metadata.RedirectURL = toNarrow(target.toAsciiString(false), "");
    } catch (...) {
        Metadata.RedirectURL.clear();
    }
}

std::string HTTPConnection::requestTarget() const {
    if (!SentHead.RequestURI.empty()) {
        return SentHead.RequestURI;
    }
    if (!Settings.ProxyHost.empty()) {
        return toNarrow(Settings.URL, "");
    }
    std::u16string target = Settings.ParsedURL.getPath();
    if (Settings.ParsedURL.hasQuery()) {
        target += u'?' + Settings.ParsedURL.getQuery();
    }
    return toNarrow(target, "");
}

} // namespace netrove
