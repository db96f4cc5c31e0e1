#include "client/request/RequestChecks.h"

#include "client/failures/ClientFailure.h"
#include "client/text/Ascii.h"
#include "vantik/Failure.h"
#include "vantik/Http.h"

#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>
#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <variant>

namespace netrove {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kSha256Digits = 64;

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (lowered(c) >= 'a' && lowered(c) <= 'f');
}

// The text is put together only where it is needed: each request is checked.
template <class... Parts>
void refuse(bool condition, const Parts&... parts) {
    if (condition) {
        std::string text;
        ((text += parts), ...);
        failUsage(text);
    }
}

void checkFields(const Fields& fields) {
    for (const Field& field : fields) {
        if (!isToken(field.name)) {
            failUsage("'" + printable(field.name) + "' is not the name of a header field");
        }
        refuse(!isFieldValue(field.value), "the value of the header field '", field.name, "' is not printable ASCII");
    }
}

void checkLogin(const Login& login, const char* whose) {
    const std::string_view user = login.user ? std::string_view(*login.user) : std::string_view();
    refuse(hasControls(user), "the user name ", whose, " has control characters");
    refuse(user.find(':') != user.npos, "the user name ", whose, " has a colon");
    refuse(hasControls(login.password), "the password ", whose, " has control characters");
    refuse(!login.password.empty() && user.empty(), "a password ", whose, " needs a user name");
    refuse(!user.empty() && login.schemes.empty(), "a login ", whose, " needs a scheme");
    refuse(!login.bearer.empty() && !user.empty(), "a login ", whose, " has a user name or a token, not both");
    refuse(login.bearer.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=") !=
               login.bearer.npos,
           "the token ", whose, " has characters that a token cannot have");
}

void checkLimit(const std::optional<Limit>& limit, const char* name) {
    refuse(limit && *limit <= 0ms, "the limit ", name, " is not above zero");
}

void checkSaving(const Request& request, Use use) {
    refuse(use == Use::Save && equalsIgnoringCase(request.method, "HEAD"),
           "the response to a HEAD has no content to save");
    refuse(request.resume && ((!request.method.empty() && request.method != "GET") || request.body),
           "resume is for GET only");
    refuse(request.resume && (request.fields.contains("Range") || request.fields.contains("If-Range")),
           "resume sets the fields Range and If-Range itself");
    refuse(request.resume && request.compressed == true, "resume takes content as it is, so leave out compressed");
    refuse(!request.resume && (request.resumeUnproven || request.resumeAt),
           "resumeUnproven and resumeAt are for resume");
    const bool hex = std::all_of(request.sha256.begin(), request.sha256.end(), isHexDigit);
    refuse(!request.sha256.empty() && (!hex || request.sha256.size() != kSha256Digits),
           "sha256 takes 64 hexadecimal digits");
}

template <class Value>
void inherit(std::optional<Value>& own, const std::optional<Value>& other) {
    if (!own) {
        own = other;
    }
}

template <class Value>
    requires requires(const Value& value) { value.empty(); }
void inherit(Value& own, const Value& other) {
    if (own.empty()) {
        own = other;
    }
}

// A login is one thing: a password never goes with another one's user name.
void inherit(Login& own, const Login& other) {
    const bool says = other.user || !other.bearer.empty();
    if (says && !own.user && own.bearer.empty()) {
        own = other;
    }
}

void inherit(Proxy& own, const Proxy& other) {
    if (own.url.empty() && !own.automatic) {
        own.url = other.url;
        own.automatic = other.automatic;
        inherit(own.login, other.login);
    }
}

void inherit(Tls& own, const Tls& other) {
    // Otherwise a client that verifies nothing would not ask whom the call trusts.
    if (!own.file.empty() && !own.verify) {
        refuse(other.verify == false, "tls.file says whom to trust, and tls.verify of the client not to ask");
    }
    inherit(own.verify, other.verify);
    inherit(own.verifyName, other.verifyName);
    inherit(own.file, other.file);
}

void inherit(Fields& own, const Fields& other) {
    if (other.empty()) {
        return;
    }
    Fields fields;
    for (const Field& field : other) {
        if (!own.contains(field.name)) {
            fields.add(field.name, field.value);
        }
    }
    for (const Field& field : own) {
        fields.add(field.name, field.value);
    }
    own = std::move(fields);
}

void inherit(Request& own, const Request& other) {
    inherit(own.fields, other.fields);
    inherit(own.login, other.login);
    inherit(own.proxy, other.proxy);
    inherit(own.limits.connect, other.limits.connect);
    inherit(own.limits.response, other.limits.response);
    inherit(own.limits.data, other.limits.data);
    inherit(own.limits.attempt, other.limits.attempt);
    inherit(own.limits.total, other.limits.total);
    inherit(own.limits.memory, other.limits.memory);
    inherit(own.limits.content, other.limits.content);
    inherit(own.tls, other.tls);
    inherit(own.redirects.most, other.redirects.most);
    inherit(own.redirects.downgrade, other.redirects.downgrade);
    inherit(own.redirects.secret, other.redirects.secret);
    inherit(own.retry.attempts, other.retry.attempts);
    inherit(own.retry.wait, other.retry.wait);
    inherit(own.retry.longestWait, other.retry.longestWait);
    inherit(own.retry.unsafe, other.retry.unsafe);
    inherit(own.retry.statuses, other.retry.statuses);
    inherit(own.retry.most, other.retry.most);
    inherit(own.retry.any, other.retry.any);
    inherit(own.decode, other.decode);
    inherit(own.compressed, other.compressed);
    inherit(own.checkStatus, other.checkStatus);
    if (!own.progress) {
        own.progress = other.progress;
    }
    if (!own.trace) {
        own.trace = other.trace;
    }
    if (!own.cookies) {
        own.cookies = other.cookies;
    }
    if (!own.rate) {
        own.rate = other.rate;
    }
    if (!own.onHead) {
        own.onHead = other.onHead;
    }
    if (!own.onWait) {
        own.onWait = other.onWait;
    }
    if (!own.poll) {
        own.poll = other.poll;
    }
    if (!own.stop.stop_possible()) {
        own.stop = other.stop;
    }
}

const Request& documentedDefaults() {
    static const Request defaults = {
        .limits = {.connect = 10s,
                   .response = 30s,
                   .data = 30s,
                   .attempt = kUnlimited,
                   .total = kUnlimited,
                   .memory = 64 << 20,
                   .content = std::numeric_limits<std::uint64_t>::max()},
        .tls = {.verify = true, .verifyName = true},
        .redirects = {.most = 10, .downgrade = false},
        .retry = {.attempts = 3,
                  .wait = 250ms,
                  .longestWait = 30s,
                  .unsafe = false,
                  .statuses = std::vector<int>{408, 429, 502, 503, 504},
                  .most = kUnlimited,
                  .any = false},
        .decode = true,
        .compressed = false,
        .checkStatus = true,
    };
    return defaults;
}

// Boost reads URLs in ASCII only.
std::string asciiOf(std::string_view url) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : url) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7F && std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos) {
            result += c;
        } else {
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return result;
}

// Moves user name and password from the URL to the login, unless the call has one of its own.
void takeLogin(Request& own) {
    const UserInfo info = takeUserInfo(own.url);
    if (!info.Present || own.login.user || !own.login.bearer.empty()) {
        return;
    }
    own.login.user = info.User;
    own.login.password = info.Password.value_or("");
    checkLogin(own.login, "in the URL");
}

void completeUrl(Request& own, const std::string& base) {
    if (own.url.empty()) {
        throw Error(ErrorKind::Url, "NETROVE:client:Usage", {}, "the URL is empty");
    }
    if (!base.empty() && !isAbsolute(own.url)) {
        const std::string url = resolvedUrl(base, own.url);
        if (url.empty()) {
            failUsage("'" + printable(maskRefusedUrl(own.url)) + "' is not a valid URL");
        }
        own.url = url;
    }
    takeLogin(own);
}

} // namespace

bool isAbsolute(std::string_view url) {
    const auto colon = url.find("://");
    return colon != url.npos && url.find_first_of("/?#") > colon;
}

bool isFieldValue(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return (c >= 0x20 && c < 0x7F) || c == '\t'; });
}

void checkRequest(const Request& request, Use use) {
    refuse(hasControls(request.url), "the URL has control characters");
    if (!request.method.empty() && !isToken(request.method)) {
        failUsage("'" + printable(request.method) + "' is not a request method");
    }
    const bool noBody = equalsIgnoringCase(request.method, "GET") || equalsIgnoringCase(request.method, "HEAD");
    refuse(noBody && request.body, "a request with the method ", request.method, " has no body");
    checkFields(request.fields);
    checkLogin(request.login, "for the server");
    checkLogin(request.proxy.login, "for the proxy");
    refuse(!request.proxy.login.bearer.empty(), "a proxy takes a user name and a password, no token");
    checkLimit(request.limits.connect, "connect");
    checkLimit(request.limits.response, "response");
    checkLimit(request.limits.data, "data");
    checkLimit(request.limits.attempt, "attempt");
    checkLimit(request.limits.total, "total");
    checkLimit(request.retry.wait, "retry.wait");
    checkLimit(request.retry.longestWait, "retry.longestWait");
    checkLimit(request.retry.most, "retry.most");
    refuse(request.retry.attempts && *request.retry.attempts < 1, "retry.attempts is not above zero");
    refuse(request.retry.made < 0, "retry.made is below zero");
    refuse(request.redirects.most && *request.redirects.most < 0, "redirects.most is below zero");
    refuse(!request.tls.file.empty() && request.tls.verify == false,
           "tls.file says whom to trust, and tls.verify not to ask");
    if (!request.proxy.url.empty()) {
        try {
            const vantik::HttpProxy proxy = vantik::readHttpProxy(request.proxy.url);
            refuse(hasControls(proxy.Username) || hasControls(proxy.Password),
                   "the login in the URL of the proxy has control characters");
        } catch (const vantik::Failure& refusal) {
            failUsage("the proxy cannot be used: " + std::get<std::string>(refusal.message().Arguments.front()));
        }
    }
    const auto isFailure = [](int status) { return status >= 400 && status <= 599; };
    refuse(request.retry.statuses &&
               !std::all_of(request.retry.statuses->begin(), request.retry.statuses->end(), isFailure),
           "retry.statuses takes what is a failure: 400 to 599");
    refuse(request.tls.file.find('\0') != std::string::npos, "tls.file has a NUL");
    refuse(use == Use::Defaults && !request.url.empty() && !isAbsolute(request.url),
           "the URL of a client's defaults is absolute: others are relative to it");
    if (use == Use::Save || use == Use::Receive) {
        return checkSaving(request, use);
    }
    refuse((request.resume && use != Use::Stream) || request.resumeUnproven || request.resumeAt || !request.replace ||
               request.keepTime || !request.sha256.empty(),
           "resume, replace, keepTime and sha256 are for save");
    refuse(use == Use::Defaults && (!request.method.empty() || request.body),
           "the defaults of a client have no method and no body");
}

void complete(Request& own, const Request& defaults) {
    if (isAbsolute(own.url)) {
        takeLogin(own); // it is the call's, and so goes before that of the client
    }
    inherit(own, defaults);
    inherit(own, documentedDefaults());
    completeUrl(own, defaults.url);
    if (own.method.empty()) {
        own.method = own.body ? "POST" : "GET";
    }
}

std::string resolvedUrl(std::string_view base, std::string_view reference) {
    const std::string fromText = asciiOf(base); // what is parsed refers to it
    const std::string toText = asciiOf(reference);
    const auto from = boost::urls::parse_uri(fromText);
    const auto to = boost::urls::parse_uri_reference(toText);
    boost::urls::url result;
    if (!from || !to || !boost::urls::resolve(*from, *to, result)) {
        return {};
    }
    if (!result.has_fragment() && from->has_fragment()) {
        result.set_encoded_fragment(from->encoded_fragment());
    }
    return std::string(result.buffer());
}

} // namespace netrove
