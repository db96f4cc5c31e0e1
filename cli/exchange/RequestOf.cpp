#include "cli/exchange/RequestOf.h"

#include "cli/exchange/Conditions.h"
#include "cli/exchange/ContentOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/logins/CookieJar.h"
#include "cli/logins/Netrc.h"
#include "cli/options/FieldText.h"
#include "cli/terminal/Output.h"

#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

// What is worth another attempt, a fault within the server too.
const std::vector<int> kTransientStatuses = {408, 425, 429, 500, 502, 503, 504, 520, 521, 522, 523, 524};

netrove::Limit limitOf(double milliseconds) {
    return std::isinf(milliseconds) ? netrove::kUnlimited
                                    : netrove::Limit(static_cast<std::int64_t>(std::ceil(milliseconds)));
}

std::vector<netrove::Scheme> schemesOf(const std::optional<std::vector<std::string>>& names) {
    static const std::pair<std::string_view, netrove::Scheme> known[] = {{"Basic", netrove::Scheme::Basic},
                                                                         {"Digest", netrove::Scheme::Digest},
                                                                         {"NTLM", netrove::Scheme::Ntlm},
                                                                         {"Negotiate", netrove::Scheme::Negotiate}};
    if (!names) {
        return netrove::Login().schemes;
    }
    std::vector<netrove::Scheme> schemes;
    for (const std::string& name : *names) {
        for (const auto& [text, scheme] : known) {
            if (equalsIgnoringCase(text, name)) {
                schemes.push_back(scheme);
            }
        }
    }
    return schemes;
}

netrove::Proxy proxyOf(const Settings& settings) {
    netrove::Proxy proxy;
    if (settings.Proxy == "none") {
        proxy = netrove::Proxy::none();
    } else if (settings.Proxy != "auto") {
        proxy.url = settings.Proxy;
    }
    proxy.login.user = settings.ProxyUser;
    proxy.login.password = settings.ProxyPassword.value_or("");
    proxy.login.schemes = schemesOf(settings.ProxyAuth);
    return proxy;
}

// Those of a file for each request of an attempt. What a server has set on the way is sent by libcurl, in the place of
// one that the file has.
std::function<std::string(const std::string&, const netrove::Response*)>
cookiesOf(const std::shared_ptr<const CookieJar>& file) {
    return [file, left = CookieJar()](const std::string& url, const netrove::Response* redirect) mutable {
        if (redirect == nullptr) {
            left = *file;
        } else {
            for (const std::string& value : redirect->fields.all("Set-Cookie")) {
                left.forgetReplaced(value, redirect->url);
            }
        }
        return left.headerFor(url, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    };
}

// A field of -H counts more than the option that stands for it.
void addNamedFields(netrove::Request& request, const Settings& settings) {
    netrove::Fields& fields = request.fields;
    const auto add = [&](const char* name, const std::optional<std::string>& value) {
        if (value && !fields.contains(name)) {
            fields.add(name, *value);
        }
    };
    add("User-Agent", settings.UserAgent);
    add("Referer", settings.Referer);
    add("Accept", settings.JsonText ? std::optional<std::string>("application/json") : std::nullopt);
    std::string cookies;
    for (const std::string& cookie : settings.Cookies) {
        cookies += (cookies.empty() ? "" : "; ") + cookie;
    }
    if (settings.CookiesOfFile && !fields.contains("Cookie")) {
        request.cookies = cookiesOf(settings.CookiesOfFile);
    }
    add("Cookie", cookies.empty() ? std::nullopt : std::optional(cookies));
}

// That of a netrc file is for the host of the URL; the client sends no login to another origin.
netrove::Login loginOf(const Settings& settings) {
    netrove::Login login{settings.User, settings.Password.value_or(""), schemesOf(settings.Auth), ""};
    if (settings.User) {
        return login;
    }
    login.bearer = settings.Bearer;
    const auto isAuthorization = [](const Field& field) { return equalsIgnoringCase(field.name, "Authorization"); };
    if (login.bearer.empty() && settings.NetrcLogins &&
        std::none_of(settings.Fields.begin(), settings.Fields.end(), isAuthorization)) {
        if (const auto found = settings.NetrcLogins->find(splitUrl(settings.Url).Host)) {
            login.user = found->User;
            login.password = found->Password;
        }
    }
    return login;
}

netrove::Retry retryOf(const RetrySettings& settings) {
    const auto limit = [](double seconds) { return limitOf(std::max(seconds * 1000, 1.0)); };
    return {.attempts = settings.Count + 1,
            .wait = limit(settings.Wait),
            .longestWait = limit(settings.LongestWait),
            .unsafe = settings.Unsafe,
            .statuses = kTransientStatuses,
            .most = settings.MaxTime > 0 ? limit(settings.MaxTime) : netrove::kUnlimited,
            .any = settings.AllErrors};
}

} // namespace

netrove::Request requestOf(const Settings& settings, std::optional<Clock::time_point> deadline) {
    netrove::Request request;
    request.url = requestUrl(settings);
    request.method = settings.effectiveMethod();
    for (const Field& field : settings.Fields) {
        request.fields.add(field.name, field.value);
    }
    addNamedFields(request, settings);
    request.body = contentOf(settings, deadline);
    for (const std::string& name : settings.RemovedFields) {
        request.fields.set(name, "");
        if (equalsIgnoringCase(name, "Cookie")) {
            request.cookies = nullptr;
        }
    }
    request.login = loginOf(settings);
    request.proxy = proxyOf(settings);
    request.limits.connect = limitOf(settings.ConnectTimeout);
    request.limits.response = limitOf(settings.ResponseTimeout);
    request.limits.data = limitOf(settings.DataTimeout);
    if (settings.MaxTime) {
        (settings.Command == Command::Batch ? request.limits.attempt : request.limits.total) =
            limitOf(*settings.MaxTime * 1000);
    }
    request.tls = {settings.VerifyPeer, settings.VerifyPeer && settings.VerifyName, settings.CaFile};
    request.redirects = {settings.redirectLimit(), true, {}};
    request.retry = retryOf(settings.Retry);
    request.decode = settings.Decode;
    request.compressed = settings.Compressed;
    request.checkStatus = settings.onStatus() == StatusChoice::Fail;
    request.limits.content = settings.MaxFileSize;
    request.rate = settings.Rate;
    addConditions(request, settings);
    return request;
}

void refuseSpentContent(const Settings& settings, const netrove::Response& head, bool repeatable) {
    const bool wantsContent = head.status == 307 || head.status == 308;
    if (!wantsContent || repeatable || settings.redirectLimit() == 0 || !head.fields.contains("Location")) {
        return;
    }
    const bool file = !settings.StreamFile.empty() && settings.StreamFile != "-";
    const std::string name = file ? settings.StreamFile : "standard input";
    fail(failure::kContentNotRewound, {name},
         name + " cannot be read a second time for the redirected request; send it from a file instead");
}

Circumstances circumstancesOf(const Settings& settings) {
    const auto schemes = [](const auto& user, const auto& named) {
        return user ? named.value_or(std::vector<std::string>{"basic", "digest"}) : std::vector<std::string>();
    };
    return {.MaxTimeSeconds = settings.MaxTime.value_or(0),
            .Schemes = schemes(settings.User, settings.Auth),
            .ProxySchemes = schemes(settings.ProxyUser, settings.ProxyAuth)};
}

netrove::NetworkSettings networkSettings(const Settings& settings) {
    const bool traced = settings.Verbose != 0 && settings.Debug == 0; // WireTrace takes what the class says
    return {.simple = settings.Simple,
            .debug = traced ? 1 : settings.Debug,
            .proxyOnce = true,
            .uploadBuffer = settings.BufferSize};
}

std::function<void(const std::string&, const std::string&)> warningsTo(const Console& console) {
    return [&console](const std::string& identifier, const std::string& text) {
        const auto colon = identifier.rfind(':');
        console.warning({identifier.substr(0, colon), identifier.substr(colon + 1), {}, text});
    };
}

} // namespace netrove::cli
