#include "cli/exchange/RequestOf.h"

#include "cli/exchange/ContentOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/terminal/Output.h"

#include <cmath>
#include <utility>

namespace netrove::cli {

namespace {

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

} // namespace

netrove::Request requestOf(const Settings& settings, std::optional<Clock::time_point> deadline) {
    netrove::Request request;
    request.url = settings.Url;
    request.method = settings.effectiveMethod();
    for (const Field& field : settings.Fields) {
        request.fields.add(field.name, field.value);
    }
    request.body = contentOf(settings, deadline);
    for (const std::string& name : settings.RemovedFields) {
        request.fields.set(name, "");
    }
    request.login = {settings.User, settings.Password.value_or(""), schemesOf(settings.Auth), ""};
    request.proxy = proxyOf(settings);
    request.limits.connect = limitOf(settings.ConnectTimeout);
    request.limits.response = limitOf(settings.ResponseTimeout);
    request.limits.data = limitOf(settings.DataTimeout);
    if (settings.MaxTime) {
        request.limits.attempt = limitOf(*settings.MaxTime * 1000);
    }
    request.tls = {settings.VerifyPeer, settings.VerifyPeer && settings.VerifyName, settings.CaFile};
    request.redirects = {settings.redirectLimit(), true, {}};
    request.retry.attempts = 1;
    request.decode = settings.Decode;
    request.compressed = settings.Compressed;
    request.checkStatus = settings.onStatus() == StatusChoice::Fail;
    request.limits.content = settings.MaxFileSize;
    request.rate = settings.Rate;
    return request;
}

void refuseSpentContent(const Settings& settings, const netrove::Response& head, bool repeatable) {
    const bool wantsContent = head.status == 307 || head.status == 308;
    if (!wantsContent || repeatable || settings.redirectLimit() == 0 || !head.fields.contains("Location")) {
        return;
    }
    const std::string name = settings.StreamFile == "-" ? "standard input" : settings.StreamFile;
    fail(failure::kContentNotRewound, {name},
         name + " cannot be read a second time for the redirected request; send it from a file instead");
}

netrove::NetworkSettings networkSettings(const Settings& settings) {
    return {settings.Simple, settings.Debug, settings.BufferSize};
}

std::function<void(const std::string&, const std::string&)> warningsTo(const Console& console) {
    return [&console](const std::string& identifier, const std::string& text) {
        const auto colon = identifier.rfind(':');
        console.warning({identifier.substr(0, colon), identifier.substr(colon + 1), {}, text});
    };
}

} // namespace netrove::cli
