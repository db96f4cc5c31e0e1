#include "transfer/HTTPConnection.h"

#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "host/Messages.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "http/HttpSyntax.h"
#include "transfer/Trace.h"

#include <Poco/Exception.h>
#include <Poco/Net/MessageHeader.h>
#include <Poco/Net/NameValueCollection.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace {

struct SchemeRow {
    const char* Name;
    std::uint32_t Bit;
};

constexpr SchemeRow kSchemes[] = {
    {"basic", CURLAUTH_BASIC},
    {"digest", CURLAUTH_DIGEST},
    {"ntlm", CURLAUTH_NTLM},
    {"negotiate", CURLAUTH_NEGOTIATE},
};

// Leading white space and a sign are accepted, as by std::stoll; anything behind the number is not.
std::int64_t parseContentLength(const std::string& value) {
    try {
        std::size_t used = 0;
        const long long length = std::stoll(value, &used, 10);
        if (used == value.size()) {
            return length;
        }
    } catch (const std::logic_error&) { // no digits, or out of range: reported below like any other bad value
    }
    throwInternalError("Bad Content-Length value " + value);
}

std::optional<std::string> charsetOf(const std::string& contentType) {
    std::string mediaType;
    Poco::Net::NameValueCollection parameters;
    Poco::Net::MessageHeader::splitParameters(contentType, mediaType, parameters);
    try {
        return parameters.get("charset");
    } catch (const Poco::NotFoundException&) {
        return std::nullopt;
    }
}

} // namespace

// HTTPGET also takes back an earlier NOBODY; any other method is sent under its own name.
void HTTPConnection::setRequestMethod(const std::string& method) {
    EffectiveMethod = method.empty() ? "GET" : method;
    RequestMethod = EffectiveMethod;
    CURL* easy = Handles->EasyHandle;
    if (equalIgnoringCase(EffectiveMethod, "HEAD")) {
        setOption(easy, CURL_NAMED(CURLOPT_NOBODY), 1L);
    } else if (equalIgnoringCase(EffectiveMethod, "GET")) {
        setOption(easy, CURL_NAMED(CURLOPT_HTTPGET), 1L);
    } else {
        setOption(easy, CURL_NAMED(CURLOPT_NOBODY), 0L);
        setOption(easy, CURL_NAMED(CURLOPT_CUSTOMREQUEST), RequestMethod.c_str());
    }
}

void HTTPConnection::setAuthenticationSchemes(const std::vector<std::string>& names, bool forProxy) {
    std::uint32_t& schemes = forProxy ? ProxyAuthSchemes : HostAuthSchemes;
    schemes = 0;
    for (const std::string& name : names) {
        for (const SchemeRow& row : kSchemes) {
            if (equalIgnoringCase(name, row.Name)) {
                schemes |= row.Bit;
            }
        }
    }
}

void HTTPConnection::addField(const std::string& name, const std::string& value) {
    RequestFields.emplace_back(name, value);
}

// An empty value makes libcurl leave out its own field of that name.
void HTTPConnection::removeField(const std::string& name) {
    RequestFields.remove_if([&](const auto& field) { return equalIgnoringCase(field.first, name); });
    addField(name, "");
}

std::string HTTPConnection::getRequestField(const std::string& name) const {
    const auto field = std::find_if(RequestFields.begin(), RequestFields.end(),
                                    [&](const auto& candidate) { return equalIgnoringCase(candidate.first, name); });
    return field == RequestFields.end() ? std::string() : field->second;
}

const std::string& HTTPConnection::getContentEncoding() {
    sendRequest();
    return ContentEncoding;
}

const std::string& HTTPConnection::getContentType() {
    sendRequest();
    return ContentType;
}

const std::string& HTTPConnection::getRedirectURL() {
    sendRequest();
    return RedirectURL;
}

std::int32_t HTTPConnection::getResponseCode() {
    sendRequest();
    return ResponseCode != 0
               ? ResponseCode
               : static_cast<std::int32_t>(getInfo<long>(Handles->EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE)));
}

// Once for each exchange, at the first operation that asks for the response.
void HTTPConnection::sendRequest() {
    if (!Opened || ResponseDone || Sent) {
        return;
    }
    try {
        ResponseDone = false;
        if (Decode) {
            if (getRequestField("Accept-Encoding").empty()) {
                addField("Accept-Encoding", ""); // decode what comes, but advertise nothing unasked
            }
            setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_ACCEPT_ENCODING), "");
        }
        if (getRequestField("Accept").empty()) {
            addField("Accept", "");
        }
        if (!HTTPOptionsMode) {
            if (RequestMethod == "POST" || RequestMethod == "PUT" || RequestMethod == "PATCH") {
                encodePostData();
            }
            EffectiveMethod = RequestMethod;
        }
        buildHeaderLists();
        sendCookieList();
        sendAndWait();
        if (CallbackFailure) {
            std::rethrow_exception(CallbackFailure);
        }
        collectResponseMetadata();
        traceLine(Debug, "");
        traceLine(Debug, "********************END OF RECEIVE_RESPONSE******************");
        ResponseDone = true;
    } catch (const webservices::HTTPException&) {
        throw;
    } catch (const foundation::core::except::IUserException&) {
        throw;
    } catch (const std::exception& failure) { // the host's interrupt as well: it is no user exception
        throw webservices::HTTPConnectionFailedException(failure.what());
    }
}

void HTTPConnection::encodePostData() {
    const std::optional<std::string> charset = charsetOf(getRequestField("Content-Type"));
    const std::string body = charset ? toNarrow(PostData, *charset) : fl::i18n::to_string(PostData);
    Payload.assign(body.begin(), body.end());
    BodyFromPostData = true;
    ContentLengthToSend = static_cast<std::int64_t>(Payload.size());
}

void HTTPConnection::buildHeaderLists() {
    CURL* easy = Handles->EasyHandle;
    if (ProxyHeaders) {
        // Behind a 401 the handle keeps its options, and below this one is set only where there is a list: without
        // this, libcurl would read the list that is freed here.
        setOption(easy, CURL_NAMED(CURLOPT_PROXYHEADER), nullptr);
    }
    RequestHeaders.clear();
    ProxyHeaders.clear();
    HasContentLength = false;
    bool transferEncodingSeen = false;
    std::string cookies;
    if (RequestFields.empty()) {
        return;
    }
    for (const auto& [name, value] : RequestFields) {
        if (!value.empty() && equalIgnoringCase(name, "Cookie")) {
            cookies += value + "; "; // libcurl's own cookies go beside these, which a header line would prevent
            continue;
        }
        const std::string line = value.empty() ? name + ":" : name + ": " + value;
        (equalIgnoringCase(name, "Proxy-Connection") ? ProxyHeaders : RequestHeaders).append(line);
        if (!HasContentLength && equalIgnoringCase(name, "Content-Length")) {
            HasContentLength = true;
            ContentLengthToSend = parseContentLength(value);
        }
        transferEncodingSeen = transferEncodingSeen || equalIgnoringCase(name, "Transfer-Encoding");
    }
    if (!HasContentLength && BodyFromPostData) {
        HasContentLength = true;
        RequestHeaders.append("Content-Length: " + std::to_string(ContentLengthToSend));
    }
    if (HasContentLength && !transferEncodingSeen) {
        RequestHeaders.append("Transfer-Encoding:"); // libcurl would upload in chunks: it is told no size
    }
    if (!cookies.empty()) {
        setOption(easy, CURL_NAMED(CURLOPT_COOKIE), cookies.c_str());
    }
    setOption(easy, CURL_NAMED(CURLOPT_HTTPHEADER), RequestHeaders.get());
    if (ProxyHeaders) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYHEADER), ProxyHeaders.get());
    }
}

void HTTPConnection::sendCookieList() {
    std::string cookies;
    for (const curl_slist* entry = CookieList.get(); entry != nullptr; entry = entry->next) {
        if (entry->data != nullptr) {
            cookies += std::string(entry->data) + "; ";
        }
    }
    if (!cookies.empty()) {
        setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_COOKIE), cookies.c_str());
    }
}
