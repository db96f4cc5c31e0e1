#include "cli/exchange/Redirects.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/text/UrlText.h"

#include <algorithm>
#include <span>

namespace netrove::cli {

namespace {

// What was meant for the first server only.
constexpr std::string_view kPrivateFields[] = {"Authorization", "Proxy-Authorization", "Cookie", "Host"};
// What describes a body.
constexpr std::string_view kBodyFields[] = {"Content-Length", "Content-Type",      "Content-Encoding",
                                            "Expect",         "Transfer-Encoding", "Content-Language"};

void dropFields(std::vector<Field>& fields, std::span<const std::string_view> names) {
    std::erase_if(fields, [&](const Field& field) {
        return std::any_of(names.begin(), names.end(),
                           [&](std::string_view name) { return equalsIgnoringCase(field.Name, name); });
    });
}

bool becomesGet(const Request& request, int status) {
    if (status == 303) {
        return !equalsIgnoringCase(request.Method, "HEAD");
    }
    return (status == 301 || status == 302) && request.Method == "POST";
}

} // namespace

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

Request followRedirect(const Request& current, int status, std::string_view target) {
    Request next = current;
    next.Url = target;
    takeUserInfo(next.Url); // a server does not choose our user name
    const std::string scheme = splitUrl(next.Url).Scheme;
    if (scheme != "http" && scheme != "https") {
        fail(failure::kRedirectRefused, {next.Url},
             "the server redirects to a URL that is neither http nor https: " + next.Url);
    }
    if (becomesGet(current, status)) {
        next.Method = "GET";
        next.Body = false;
        dropFields(next.Fields, kBodyFields);
    }
    if (!sameOrigin(current.Url, next.Url)) {
        next.Credentials = false;
        dropFields(next.Fields, kPrivateFields);
    }
    return next;
}

} // namespace netrove::cli
