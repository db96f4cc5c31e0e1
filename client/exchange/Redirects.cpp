#include "client/exchange/Redirects.h"

#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/text/Ascii.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>

namespace netrove {

namespace {

// What was meant for the first server only; a name that ends in '-' is a prefix.
constexpr std::string_view kPrivateFields[] = {"Authorization", "Proxy-Authorization", "Cookie", "Host", "If-"};
// What describes content.
constexpr std::string_view kContentFields[] = {"Content-", "Expect", "Transfer-Encoding"};

bool isNamed(std::string_view name, std::string_view pattern) {
    return equalsIgnoringCase(pattern.ends_with('-') ? name.substr(0, pattern.size()) : name, pattern);
}

template <class Patterns>
void dropFields(Fields& fields, const Patterns& patterns) {
    std::vector<std::string> dropped;
    for (const Field& field : fields) {
        if (std::any_of(std::begin(patterns), std::end(patterns),
                        [&](std::string_view pattern) { return isNamed(field.name, pattern); })) {
            dropped.push_back(field.name);
        }
    }
    for (const std::string& name : dropped) {
        fields.erase(name);
    }
}

[[noreturn]] void refuse(const std::string& target, const std::string& reason) {
    fail(failure::kRedirectRefused, {maskUserInfo(target)}, reason + ": " + printable(maskUserInfo(target)));
}

} // namespace

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool becomesGet(const Request& request, int status) {
    if (status == 303) {
        return !equalsIgnoringCase(request.method, "HEAD");
    }
    return (status == 301 || status == 302) && request.method == "POST";
}

RedirectChain::RedirectChain(const Request& first) {
    Seen.emplace(first.method, first.url);
}

Request RedirectChain::next(const Request& current, const Head& redirect) {
    const std::string& target = redirect.redirectUrl;
    if (target.empty()) {
        const std::string shown = printable(maskRefusedUrl(redirect.fields["Location"]));
        fail(failure::kRedirectRefused, {shown},
             shown.empty() ? "the server redirects, but its Location is empty"
                           : "the server redirects to what is not a valid URL: " + shown);
    }
    if (!userInfoIn(target).empty()) {
        refuse(target, "the server redirects to a URL with a user name");
    }
    Request next = current;
    next.url = target;
    const std::string scheme = splitUrl(target).Scheme;
    if (scheme != "http" && scheme != "https") {
        refuse(target, "the server redirects to a URL that is neither http nor https");
    }
    const bool downgrade = splitUrl(current.url).Scheme == "https" && scheme == "http";
    if (downgrade && !current.redirects.downgrade.value_or(false)) {
        refuse(target, "the server redirects from https to http");
    }
    if (downgrade) {
        next.fields.erase("Referer"); // RFC 9110, section 10.1.3
    }
    if (becomesGet(current, redirect.status)) {
        next.method = "GET";
        next.body = Body();
        dropFields(next.fields, kContentFields);
    }
    if (!sameOrigin(current.url, target)) {
        next.login = Login{.user = ""};
        dropFields(next.fields, kPrivateFields);
        dropFields(next.fields, current.redirects.secret);
    }
    const int most = current.redirects.most.value_or(0);
    if (Followed == most) {
        fail(failure::kTooManyRedirects, {std::int64_t{most}, target},
             "more than " + std::to_string(most) + " redirects, the next to " + printable(target));
    }
    // The same request again can have another answer only if a cookie has come on the way.
    if (redirect.fields.contains("Set-Cookie")) {
        Seen.clear();
    }
    if (!Seen.emplace(next.method, next.url).second) {
        fail(failure::kTooManyRedirects, {std::int64_t{most}, target},
             "the server redirects in a circle, to " + printable(target));
    }
    ++Followed;
    return next;
}

} // namespace netrove
