#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "host/Messages.h"
#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "http/HttpSyntax.h"
#include "late/LateLibrary.h"
#include "late/PocoCalls.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace netrove {

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

// Leading white space and a sign are accepted, as by std::stoll; anything after the number is not.
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

} // namespace

// HTTPGET also undoes an earlier NOBODY; any other method is sent by name. If the handle belongs to another connection,
// the method goes no further than the settings: that connection sends its own.
void HTTPConnection::setRequestMethod(const std::string& method) {
    refuseWithin("Setting the request method");
    SentHead.EffectiveMethod = method.empty() ? "GET" : method;
    Settings.RequestMethod = SentHead.EffectiveMethod;
    if (!mayUseHandle()) {
        return;
    }
    Handles->Owner = this;
    Handles->IsReset = false;
    CURL* easy = Handles->EasyHandle;
    if (equalIgnoringCase(SentHead.EffectiveMethod, "HEAD")) {
        setOption(easy, CURL_NAMED(CURLOPT_NOBODY), 1L);
    } else if (equalIgnoringCase(SentHead.EffectiveMethod, "GET")) {
        setOption(easy, CURL_NAMED(CURLOPT_HTTPGET), 1L);
    } else {
        setOption(easy, CURL_NAMED(CURLOPT_NOBODY), 0L);
        setOption(easy, CURL_NAMED(CURLOPT_CUSTOMREQUEST), Settings.RequestMethod.c_str());
    }
}

void HTTPConnection::setAuthenticationSchemes(const std::vector<std::string>& names, bool forProxy) {
    std::uint32_t& schemes = forProxy ? Settings.ProxyAuthSchemes : Settings.HostAuthSchemes;
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
    Settings.RequestFields.emplace_back(name, value);
}

// An empty value makes libcurl leave out its own field of that name.
void HTTPConnection::removeField(const std::string& name) {
    Settings.RequestFields.remove_if([&](const auto& field) { return equalIgnoringCase(field.first, name); });
    addField(name, "");
}

std::string HTTPConnection::getRequestField(std::string_view name) const {
    const auto field = std::find_if(Settings.RequestFields.begin(), Settings.RequestFields.end(),
                                    [&](const auto& candidate) { return equalIgnoringCase(candidate.first, name); });
    return field == Settings.RequestFields.end() ? std::string() : field->second;
}

const std::string& HTTPConnection::getContentEncoding() {
    sendRequest();
    return Metadata.ContentEncoding;
}

const std::string& HTTPConnection::getContentType() {
    sendRequest();
    return Metadata.ContentType;
}

const std::string& HTTPConnection::getRedirectURL() {
    sendRequest();
    return Metadata.RedirectURL;
}

std::int32_t HTTPConnection::getResponseCode() {
    sendRequest();
    return ReceivedHead.ResponseCode != 0 || !mayUseHandle()
               ? ReceivedHead.ResponseCode
               : static_cast<std::int32_t>(getInfo<long>(Handles->EasyHandle, CURL_NAMED(CURLINFO_RESPONSE_CODE)));
}

// Sends once per exchange, at the first operation that asks for the response. A send that was cut short is resumed, so
// that nothing of an earlier response passes for this one's.
void HTTPConnection::sendRequest() {
    const bool goesOn = Transfer.Opened && !Transfer.ResponseDone && SentHead.Sent && Transfer.HeadAwaited &&
                        Transfer.Fault == TransferFault::None && !Transfer.InProgress;
    if (!goesOn && !sendIsDue()) {
        return;
    }
    refuseWithin("Sending the request");
    try {
        if (!SentHead.Sent) {
            prepareRequest();
        }
        sendAndWait();
        if (Transfer.CallbackFailure) {
            Transfer.Fault = TransferFault::Failed;
            std::rethrow_exception(Transfer.CallbackFailure);
        }
        collectResponseMetadata();
        traceLine(Settings.Debug, "");
        traceLine(Settings.Debug, "********************END OF RECEIVE_RESPONSE******************");
        Transfer.ResponseDone = true;
    } catch (const webservices::HTTPException&) {
        throw;
    } catch (const foundation::core::except::IUserException&) {
        throw;
    } catch (const std::exception& failure) { // the host's interrupt too, which is not a user exception
        throw webservices::HTTPConnectionFailedException(failure.what());
    }
}

void HTTPConnection::prepareRequest() {
    if (Settings.Decode) {
        if (getRequestField("Accept-Encoding").empty()) {
            addField("Accept-Encoding", ""); // decode what arrives, but advertise nothing unasked
        }
        setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_ACCEPT_ENCODING), "");
        Handles->Decodes = true;
    }
    if (getRequestField("Accept").empty()) {
        addField("Accept", "");
    }
    if (!Settings.HTTPOptionsMode) {
        if (Settings.RequestMethod == "POST" || Settings.RequestMethod == "PUT" || Settings.RequestMethod == "PATCH") {
            encodePostData();
        }
        SentHead.EffectiveMethod = Settings.RequestMethod;
    }
    buildHeaderLists();
    sendCookieList();
}

void HTTPConnection::encodePostData() {
    const std::string type = getRequestField("Content-Type");
    std::optional<std::string> charset;
    if (type.find(';') != type.npos) { // what has no parameters needs no Poco
        charset = lateCalls<PocoCalls>().parameter(type, "charset");
    }
    const std::string body = charset ? toNarrow(Settings.PostData, *charset) : fl::i18n::to_string(Settings.PostData);
    Settings.setPayload({body.begin(), body.end()});
    Transfer.BodyFromPostData = true;
    Transfer.ContentLengthToSend = static_cast<std::int64_t>(body.size());
}

void HTTPConnection::buildHeaderLists() {
    CURL* easy = Handles->EasyHandle;
    if (Transfer.ProxyHeaders) {
        // After a 401 the handle keeps its options, and this one is set below only if there is a list. Without this,
        // libcurl would read the list that is freed here.
        setOption(easy, CURL_NAMED(CURLOPT_PROXYHEADER), nullptr);
    }
    Transfer.RequestHeaders.clear();
    Transfer.ProxyHeaders.clear();
    Transfer.HasContentLength = false;
    Transfer.IsSentByLength = false;
    bool transferEncodingSeen = false;
    std::string cookies;
    if (Settings.RequestFields.empty()) {
        return;
    }
    for (const auto& [name, value] : Settings.RequestFields) {
        if (!value.empty() && equalIgnoringCase(name, "Cookie")) {
            cookies += value + "; "; // libcurl adds its own cookies, which a header line would prevent
            continue;
        }
        std::string line = name + ':';
        if (!value.empty()) {
            line.append(" ").append(value);
        }
        (equalIgnoringCase(name, "Proxy-Connection") ? Transfer.ProxyHeaders : Transfer.RequestHeaders).append(line);
        if (!Transfer.HasContentLength && equalIgnoringCase(name, "Content-Length")) {
            Transfer.HasContentLength = true;
            Transfer.ContentLengthToSend = parseContentLength(value);
        }
        transferEncodingSeen = transferEncodingSeen || equalIgnoringCase(name, "Transfer-Encoding");
    }
    if (!Transfer.HasContentLength && Transfer.BodyFromPostData) {
        Transfer.HasContentLength = true;
        Transfer.RequestHeaders.append("Content-Length: " + std::to_string(Transfer.ContentLengthToSend));
    }
    Transfer.IsSentByLength = Transfer.HasContentLength && !transferEncodingSeen;
    if (Transfer.IsSentByLength) {
        Transfer.RequestHeaders.append("Transfer-Encoding:"); // otherwise chunks: libcurl is told no size
    }
    if (!cookies.empty()) {
        setOption(easy, CURL_NAMED(CURLOPT_COOKIE), cookies.c_str());
    }
    setOption(easy, CURL_NAMED(CURLOPT_HTTPHEADER), Transfer.RequestHeaders.get());
    if (Transfer.ProxyHeaders) {
        setOption(easy, CURL_NAMED(CURLOPT_PROXYHEADER), Transfer.ProxyHeaders.get());
    }
}

void HTTPConnection::sendCookieList() {
    std::string cookies;
    for (const curl_slist* entry = Settings.CookieList.get(); entry != nullptr; entry = entry->next) {
        if (entry->data != nullptr) {
            cookies += std::string(entry->data) + "; ";
        }
    }
    if (!cookies.empty()) {
        setOption(Handles->EasyHandle, CURL_NAMED(CURLOPT_COOKIE), cookies.c_str());
    }
}

} // namespace netrove
