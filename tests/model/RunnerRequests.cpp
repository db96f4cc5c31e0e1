// What the server saw of a sequence: each request whole as it was set, and nothing of one object with another's.
#include "tests/model/Runner.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <sstream>

namespace model {
namespace {

std::vector<std::string> cookiesOf(const std::string& head) {
    std::vector<std::string> cookies;
    for (const auto& [name, value] : testsupport::fieldLines(head)) {
        std::istringstream pairs(name == "Cookie" ? value : std::string());
        for (std::string pair; std::getline(pairs >> std::ws, pair, ';');) {
            cookies.push_back(pair);
        }
    }
    return cookies;
}

std::string shortened(const std::string& text) {
    return text.size() < 40 ? '"' + text + '"' : '"' + text.substr(0, 40) + "\"... of " + std::to_string(text.size());
}

} // namespace

void Runner::checkRequests() {
    for (std::size_t number = 0; const Request& request : Server.requests()) {
        const std::string problem = ModelServer::isOurs(request) ? "" : wrongRequest(request);
        if (!problem.empty()) {
            wrong("request " + std::to_string(number) + " " + problem + "\n" + request.Head);
        }
        ++number;
    }
}

std::string Runner::wrongRequest(const Request& request) const {
    std::string marker;
    for (const auto& [name, value] : testsupport::fieldLines(request.Head)) {
        if (name == "X-Marker") {
            if (!marker.empty() && value.substr(0, value.find('-')) != marker.substr(0, marker.find('-'))) {
                return "has fields of two objects";
            }
            marker = value;
        }
    }
    const auto sent = Sends.find(marker);
    if (sent == Sends.end()) {
        return "is one that nobody has sent";
    }
    const std::vector<Snapshot>& sends = sent->second;
    const Snapshot& first = sends.front();
    if (request.Path != first.Path || request.Port != first.Port) {
        return "went to another place than that of its fields, " + first.Path;
    }
    if (!request.Trouble.empty()) {
        return "has broken content: " + request.Trouble;
    }
    const std::string credentials = testsupport::fieldValue(request.Head, "Authorization").value_or("");
    const auto owner = Logins.find(credentials);
    const bool nobody = first.Older && credentials == "Basic Og=="; // ":"
    if (!credentials.empty() && !nobody && (owner == Logins.end() || owner->second != first.Instance)) {
        return "has a login that is not its object's";
    }
    const auto any = [&](auto&& fits) { return std::any_of(sends.begin(), sends.end(), fits); };
    if (!any([&](const Snapshot& send) { return !send.Basic || credentials == send.Credentials; })) {
        return "lacks its login";
    }
    std::string jar;
    for (const std::string& cookie : cookiesOf(request.Head)) {
        if (cookie.starts_with("jar=")) {
            jar = cookie.substr(4);
        } else if (!any([&](const Snapshot& send) { return send.Cookies.contains(cookie); })) {
            return "has a cookie that is not its object's, " + cookie;
        }
    }
    if (!any([&](const Snapshot& send) { return !send.Jar || *send.Jar == jar; })) {
        return "should have the cookie jar=" + first.Jar.value_or("");
    }
    const auto hasMethod = [&](const Snapshot& send) {
        return send.Method ? request.Method == *send.Method
                           : request.Method == "GET" || request.Method == "PUT" || request.Method == "HEAD" ||
                                 request.Method == "STORE" + send.Instance;
    };
    if (!any(hasMethod)) {
        return "should have the method " + first.Method.value_or("GET, PUT, HEAD or one of its own");
    }
    if (request.Ended && !any([&](const Snapshot& send) { return send.Bodies.contains(request.Body); })) {
        return "ended well with " + shortened(request.Body) + ", but what was set is " +
               shortened(*sends.back().Bodies.begin());
    }
    return {};
}

} // namespace model
