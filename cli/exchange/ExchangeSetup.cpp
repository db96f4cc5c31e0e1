// The part of an exchange that comes before the response: see Exchange.h.
#include "cli/exchange/Exchange.h"
#include "cli/options/FieldText.h"
#include "cli/options/ProxyChoice.h"

#include <algorithm>
#include <utility>

namespace netrove::cli {

namespace {

constexpr const char* kSchemeClass = "vantik.net.http.AuthenticationScheme";
constexpr const char* kSystemStore = "default"; // as CertificateFilename: the system's certificates
const std::vector<std::string> kUsualSchemes = {"Basic", "Digest"};

vantik::Array schemeArray(const std::vector<std::string>& names) {
    return vantik::Array::enumeration(kSchemeClass, names);
}

bool hasField(const std::vector<Field>& fields, std::string_view name) {
    return std::any_of(fields.begin(), fields.end(),
                       [&](const Field& field) { return equalsIgnoringCase(field.Name, name); });
}

bool removes(const std::vector<std::string>& names, std::string_view name) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& removed) { return equalsIgnoringCase(removed, name); });
}

// For the class an empty name means "do not verify", and a special one means the system's store.
std::string certificateName(const Settings& settings) {
    if (!settings.VerifyPeer) {
        return "";
    }
    if (settings.CaFile.empty()) {
        return kSystemStore;
    }
    return settings.CaFile == kSystemStore ? "./" + settings.CaFile : settings.CaFile;
}

} // namespace

void Exchange::prepare(Request& request) {
    makeConnection();
    setBeforeOpen(request);
    request.Url = TheSession.Connection.get("URL").text(); // the ASCII form, which the proxy lookup needs
    openThroughProxy(request.Url);
    setAfterOpen(request);
}

// In the newer interface one object serves a whole chain of redirects, so that cookies set on the way are sent. In the
// older one an object keeps what it made of a body, which must not reach a request without a body.
void Exchange::makeConnection() {
    if (TheSession.Connection && !TheSettings.Simple) {
        return;
    }
    TheSession.Connection = vantik::Object();
    TheSession.Connection = TheSession.Host.create(vantik::kHttpConnectionClass, {vantik::Array(!TheSettings.Simple)});
}

void Exchange::setBeforeOpen(const Request& request) {
    const vantik::Object& connection = TheSession.Connection;
    connection.set("Debug", vantik::Array(static_cast<std::int32_t>(TheSettings.Debug)));
    connection.set("URL", request.Url);
    connection.set("CertificateFilename", certificateName(TheSettings));
    connection.set("VerifyServerName", TheSettings.VerifyName && TheSettings.VerifyPeer);
    connection.set("Decode", TheSettings.Decode);
    connection.set(
        "TimeoutInMilliseconds",
        vantik::Array::doubles({TheSettings.ConnectTimeout, TheSettings.ResponseTimeout, TheSettings.DataTimeout}));
    const bool known = request.Credentials && TheSettings.User.has_value();
    connection.set("Username", known ? *TheSettings.User : std::string());
    connection.set("Password", known ? TheSettings.Password.value_or("") : std::string());
}

void Exchange::openThroughProxy(const std::string& url) {
    const ProxyChoice proxy = chooseProxy(TheSession.Host, TheSettings.Proxy, url);
    const std::string user = TheSettings.ProxyUser.value_or(proxy.User);
    const std::string password = TheSettings.ProxyUser ? TheSettings.ProxyPassword.value_or("") : proxy.Password;
    TheSession.Connection.set("ProxyUsername", user);
    TheSession.Connection.set("ProxyPassword", password);
    // Without a host this is a direct connection. It is opened in the same way, because the object would otherwise keep
    // the proxy of the previous request.
    invoke("openProxyConnection", {vantik::Array::structure({{"Host", vantik::Array(proxy.Host)},
                                                             {"Port", vantik::Array(double(proxy.Port))}})});
    if (TheSettings.Simple) {
        return; // allows every scheme anyway
    }
    const bool wanted = !user.empty();
    invoke("setAuthenticationSchemes",
           {schemeArray(wanted ? TheSettings.ProxyAuth.value_or(kUsualSchemes) : std::vector<std::string>()),
            vantik::Array(true)});
}

void Exchange::setAfterOpen(const Request& request) {
    TheSession.Connection.set("RequestMethod", request.Method);
    if (!TheSettings.Simple) {
        const bool known = request.Credentials && TheSettings.User.has_value();
        invoke("setAuthenticationSchemes",
               {schemeArray(known ? TheSettings.Auth.value_or(kUsualSchemes) : std::vector<std::string>()),
                vantik::Array(false)});
    }
    setBody(request);
    const std::vector<Field> fields = fieldsFor(request);
    if (!fields.empty()) {
        std::vector<std::vector<vantik::Array>> rows;
        for (const Field& field : fields) {
            rows.push_back({vantik::Array(field.Name), vantik::Array(field.Value)});
        }
        invoke("setFields", {vantik::Array::structures({"Name", "Value"}, rows)});
    }
    for (const std::string& name : request.RemovedFields) {
        invoke("removeField", {vantik::Array(name)});
    }
}

// True if the older interface makes the body from PostData and adds the length itself.
bool Exchange::sendsPostData(const Request& request) const {
    return TheSettings.Simple && (request.Method == "POST" || request.Method == "PUT" || request.Method == "PATCH");
}

void Exchange::setBody(const Request& request) {
    const vantik::Object& connection = TheSession.Connection;
    const bool inMemory = request.Body && Body.has_value();
    connection.set("PostData", inMemory && sendsPostData(request) ? vantik::Array(*Body) : vantik::Array(""));
    connection.set("Payload", vantik::Array::bytes(inMemory && !sendsPostData(request) ? std::string_view(*Body)
                                                                                       : std::string_view()));
    if (request.Body && Source) {
        Source->beginRequest();
        connection.set("ProviderBufferSize", vantik::Array(TheSettings.BufferSize));
        connection.set("Provider", Provider);
    } else {
        connection.set("Provider", vantik::Array());
    }
}

std::optional<std::uint64_t> Exchange::bodyLength() const {
    if (TheSettings.Chunked) {
        return std::nullopt;
    }
    return Source ? Source->length() : std::optional<std::uint64_t>(Body ? Body->size() : 0);
}

std::vector<Field> Exchange::fieldsFor(const Request& request) const {
    std::vector<Field> fields = request.Fields;
    const auto addUnlessSet = [&](const char* name, std::string value) {
        if (!hasField(request.Fields, name) && !removes(request.RemovedFields, name)) {
            fields.push_back({name, std::move(value)});
        }
    };
    addUnlessSet("User-Agent", "netrove/" NETROVE_VERSION);
    if (!request.Body) {
        return fields;
    }
    if (TheSettings.BodyText) {
        addUnlessSet("Content-Type", "application/x-www-form-urlencoded");
    }
    if (const auto length = bodyLength(); length && !sendsPostData(request) && !hasField(fields, "Transfer-Encoding")) {
        addUnlessSet("Content-Length", std::to_string(*length));
    }
    // An empty value keeps the request from waiting a second for servers that do not answer an expectation.
    addUnlessSet("Expect", "");
    return fields;
}

} // namespace netrove::cli
