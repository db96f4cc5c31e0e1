// The transport over the network: one request through the connection object, in the order that its class requires.
#include "client/exchange/Challenges.h"
#include "client/exchange/Drain.h"
#include "client/exchange/FailureTranslation.h"
#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/text/Ascii.h"
#include "vantik/ContentCodings.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"
#include "vantik/Http.h"
#include "vantik/ProxySettings.h"

#include <netrove/transport.h>
#include <netrove/url.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <iostream>
#include <unordered_map>
#include <utility>

namespace netrove {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSystemStore = "default"; // as CertificateFilename: the system's certificates
constexpr std::size_t kLargestPiece = std::size_t{1} << 20;
constexpr std::size_t kUsualPiece = std::size_t{64} << 10;
constexpr std::size_t kMostInUse = std::size_t{512} << 10; // what the library asks for before it is done with any of it
constexpr std::size_t kMostProxies = 1000;                 // that are remembered

std::string textOf(const vantik::Array& value) {
    return value.textOr("");
}

// For the class an empty name means "do not verify", and a special one means the system's store.
std::string certificateName(const Tls& tls) {
    if (!*tls.verify) {
        return "";
    }
    if (tls.file.empty()) {
        return kSystemStore;
    }
    return tls.file == kSystemStore ? "./" + tls.file : tls.file;
}

vantik::Milliseconds milliseconds(Limit limit) {
    return limit == kUnlimited ? vantik::kNoLimit : vantik::Milliseconds(limit);
}

vantik::Array schemeNames(const std::vector<Scheme>& schemes) {
    std::vector<std::string> names;
    names.reserve(schemes.size());
    for (const Scheme scheme : schemes) {
        names.emplace_back(className(scheme));
    }
    return vantik::Array::enumeration(vantik::kAuthenticationSchemeClass, names);
}

// Negotiate needs no name: it takes the ticket of the user who runs the program.
bool isUsed(const Login& login) {
    const bool ticket = std::find(login.schemes.begin(), login.schemes.end(), Scheme::Negotiate) != login.schemes.end();
    return login.user && (!login.user->empty() || ticket);
}

// Runs a callable of the program. The host makes failures of its own of some exceptions; this one is raised in the end.
template <class Run>
auto kept(std::exception_ptr& escaped, Run run) {
    try {
        return run();
    } catch (...) {
        escaped = std::current_exception();
        throw;
    }
}

// A value for the connection object, made again only when what it is made of has changed: most requests of a client are
// alike.
template <class Source>
class Derived {
public:
    template <class Make>
    const vantik::Array& of(Source source, Make make) {
        if (!From || *From != source) {
            From.reset();
            Value = make(source);
            From = std::move(source);
        }
        return Value;
    }

private:
    std::optional<Source> From;
    vantik::Array Value;
};

// Content that is read while it is sent.
class Upload {
public:
    Upload(const Request& request, std::exception_ptr& escaped)
        : TheRequest(request), Escaped(escaped), Reader(request.body.open()), HasLength(request.body.length()) {}

    vantik::ContentProvider provider() {
        return {[this] { rewind(); },
                [this](std::uint64_t wanted) { return kept(Escaped, [&] { return read(wanted); }); }};
    }
    bool mustBeginAgain() const { return RewindAsked; }

private:
    // Within one request the library goes on with what it holds of the content, so a second reading from the start
    // would send it twice or in part. The request has to be made anew.
    void rewind() {
        if (Given != 0) {
            RewindAsked = true;
            fail(failure::kContentNotRewound, {"the server asks for it again"},
                 "the server asks for the content a second time, and it can be sent once only");
        }
    }

    vantik::Array read(std::uint64_t wanted) {
        const std::size_t room =
            std::max<std::size_t>(kUsualPiece, std::min<std::uint64_t>(wanted, kLargestPiece)); // 0 is the usual one
        vantik::Array& piece = nextPiece(room);
        const std::size_t count = Reader->read(piece.writableBytes());
        if (count > room) {
            failUsage("what reads the content returned more bytes than there was room for");
        }
        Given += count;
        if (TheRequest.progress && count != 0) {
            TheRequest.progress({.sent = Given, .toSend = TheRequest.body.length()});
        }
        return count == room ? piece : vantik::Array::bytes(piece.bytes().first(count));
    }

    // In turn: the library is done with the one that is next, so nothing is copied to write into it. Content of unknown
    // length is asked for piece by piece.
    vantik::Array& nextPiece(std::size_t room) {
        const std::size_t inUse = HasLength ? std::max<std::size_t>(kMostInUse / room, 1) : 1;
        if (Pieces.size() < inUse) {
            return Pieces.emplace_back(vantik::Array::bytes(std::string(room, '\0')));
        }
        return Pieces[std::exchange(Oldest, (Oldest + 1) % inUse)];
    }

    const Request& TheRequest;
    std::exception_ptr& Escaped;
    std::unique_ptr<BodyReader> Reader;
    const bool HasLength;
    std::vector<vantik::Array> Pieces;
    std::size_t Oldest = 0; // of Pieces
    std::uint64_t Given = 0;
    bool RewindAsked = false;
};

class NetworkTransport final : public Transport {
public:
    NetworkTransport(NetworkSettings settings, std::function<void(const std::string&, const std::string&)> onWarning)
        : Settings(settings) {
        Host.load("netrove");
        Host.onWarning([this, onWarning = std::move(onWarning)](const vantik::Message& message) {
            if (message.identifier() == vantik::kIncompleteContent) {
                CutOff = message; // a failure, once what has come is delivered
            } else if (onWarning) {
                onWarning(message.identifier(), message.Text);
            } else {
                std::cerr << "warning: " << message.Text << '\n';
            }
        });
    }

    void exchange(const Request& request, bool first, const HeadHandler& onHead) override {
        Known = {};
        Escaped = nullptr;
        CutOff.reset();
        Unread = false;
        Host.onInterruptCheck(request.poll ? [this, &request] { return asksToStop(request); }
                                           : std::function<bool()>());
        try {
            if (first || Settings.simple) {
                Connection = vantik::Object(); // before the next one: one at a time is open
                Told = {};
                Connection = Host.create(vantik::kHttpConnectionClass, {vantik::Array(!Settings.simple)});
            }
            perform(request, onHead);
        } catch (const vantik::Failure& failure) {
            if (Escaped) { // of a callable, whatever the host made of it
                Connection = vantik::Object();
                std::rethrow_exception(std::exchange(Escaped, nullptr));
            }
            settle();
            const Error error = translated(failure.message(), Known);
            throw error.with(Response{.status = Known.Status, .url = Known.Url}, Known.Sent);
        } catch (const Error& error) { // of one of our own, in the middle of the transfer
            settle();
            if (error.response().attempts != 0) {
                throw; // of another call, which a callable of the program has made
            }
            throw error.with(error.response(), Known.Sent);
        } catch (...) {
            Connection = vantik::Object();
            throw;
        }
    }

    void endAt(std::optional<Clock::time_point> time) override {
        End = time;
        Host.interruptAfter(time ? std::max<Clock::duration>(*time - Clock::now(), Clock::duration::zero())
                                 : std::chrono::nanoseconds::max());
    }
    void interrupt() noexcept override { Host.interrupt(); }
    void clearInterrupt() noexcept override { Host.clearInterrupt(); }
    // A close would leave the connection to the server half read until the next open. The end of the object closes it.
    void release() noexcept override {
        if (std::exchange(Unread, false)) {
            Connection = vantik::Object();
        }
    }

private:
    // The logins to use for one sending, with the schemes allowed for it.
    struct Logins {
        Login Server;
        Login Proxy;
    };

    void perform(const Request& request, const HeadHandler& onHead) {
        Known.Url = request.url;
        Logins logins = {request.login, {}};
        // libcurl would find out which scheme is asked for by sending all content for nothing, and then want it again.
        const bool streamed = request.body && !request.body.inMemory();
        for (bool again = false;; again = true) {
            Known.Status = 0;
            Known.Received = 0;
            std::optional<Upload> upload;
            if (streamed) {
                upload.emplace(request, Escaped);
            }
            try {
                prepare(request, logins, upload, streamed && !again);
                const Head head = readHead(request);
                if (streamed && !again && choosesScheme(request, head, logins)) {
                    deliver(request, drain());
                    close();
                    continue;
                }
                const Taker taker = kept(Escaped, [&] { return onHead(head); });
                // The older interface fails for the content of a redirect.
                if (!Settings.simple || head.redirectUrl.empty()) {
                    deliver(request, taker);
                }
                if (CutOff && !Stopped) {
                    throw vantik::Failure(*CutOff);
                }
            } catch (const Error&) {
                // Once: a kept connection that the server had closed may ask for it, or a login.
                if (!upload || !upload->mustBeginAgain() || again || !request.body.repeatable()) {
                    throw;
                }
                continue;
            }
            return close();
        }
    }

    // After a sending without any login: true if the one to use is known now.
    static bool choosesScheme(const Request& request, const Head& head, Logins& logins) {
        const bool server = head.status == 401 && isUsed(request.login);
        const bool proxy = head.status == 407 && isUsed(logins.Proxy);
        if (!server && !proxy) {
            return false;
        }
        Login& login = server ? logins.Server : logins.Proxy;
        const auto offered =
            offeredScheme(head.fields.all(server ? "WWW-Authenticate" : "Proxy-Authenticate"), login.schemes);
        if (!offered || !request.body.repeatable()) {
            return false;
        }
        login.schemes = {*offered};
        return true;
    }

    void prepare(const Request& request, Logins& logins, std::optional<Upload>& upload, bool withholdsLogin) {
        tell("Debug", Told.Debug, static_cast<std::int32_t>(Settings.debug));
        Connection.set("URL", request.url);
        const vantik::Array url = Connection.get("URL"); // the ASCII form, which the proxy look-up needs
        Known.Url = url.text();
        tell("VerifyServerName", Told.VerifyName, *request.tls.verifyName && *request.tls.verify);
        tell("Decode", Told.Decode, *request.decode);
        const std::array limits = {*request.limits.connect, *request.limits.response, *request.limits.data};
        Connection.set("TimeoutInMilliseconds", Timeouts.of(limits, [](const auto& limit) {
            return vantik::httpTimeouts({.Connect = milliseconds(limit[0]),
                                         .Response = milliseconds(limit[1]),
                                         .Data = milliseconds(limit[2])});
        }));
        const vantik::HttpProxy proxy = chooseProxy(request, url);
        // Without TLS, which a proxy may speak too, nobody asks for the system's certificates.
        if (Known.Url.starts_with("https:") || !proxy.Host.empty() || !request.tls.file.empty()) {
            tell("CertificateFilename", Told.Certificate, certificateName(request.tls));
        }
        if (logins.Proxy.user == std::nullopt) {
            logins.Proxy = request.proxy.login;
            if (!logins.Proxy.user) {
                logins.Proxy.user = proxy.Username;
                logins.Proxy.password = proxy.Password;
            }
        }
        const Login& server = usable(logins.Server, request, withholdsLogin);
        const Login& atProxy = usable(logins.Proxy, request, withholdsLogin && !tunnelled());
        tell("Username", Told.User, server.user.value_or(""));
        tell("Password", Told.Password, server.password);
        tell("ProxyUsername", Told.ProxyUser, atProxy.user.value_or(""));
        tell("ProxyPassword", Told.ProxyPassword, atProxy.password);
        // Without a host this is a direct connection. It is opened in the same way, because the object would otherwise
        // keep the proxy of the request before.
        invoke("openProxyConnection", ProxyPlace.of({proxy.Host, proxy.Port}, [](const auto& place) {
            return vantik::Array::structure(
                {{"Host", vantik::Array(place.first)}, {"Port", vantik::Array(double(place.second))}});
        }));
        // GET is what an object sends that has never been told; but it does not say so to a trace.
        if (Told.Method || request.method != "GET" || request.trace) {
            Connection.set("RequestMethod", request.method);
            Told.Method = true;
        }
        if (!Settings.simple) { // which allows every scheme anyway
            tellSchemes(Told.Schemes, server.schemes, false);
            tellSchemes(Told.ProxySchemes, atProxy.schemes, true);
        }
        setContent(request, upload);
        Fields fields = completeFields(request);
        if (!fields.empty()) {
            invoke("setFields", FieldRows.of(std::move(fields), [](const Fields& list) {
                std::vector<vantik::HttpField> rows;
                for (const Field& field : list) {
                    rows.push_back({field.name, field.value});
                }
                return vantik::httpFields(rows);
            }));
        }
    }

    template <class Value>
    void tell(const char* property, Value& told, Value value) {
        if (told != value) {
            Connection.set(property, vantik::Array(value));
            told = std::move(value);
        }
    }
    void tellSchemes(std::vector<Scheme>& told, const std::vector<Scheme>& schemes, bool proxy) {
        if (told != schemes) {
            Connection.call("setAuthenticationSchemes", {schemeNames(schemes), vantik::Array(proxy)}, 0);
            told = schemes;
        }
    }

    // The login for one sending: no name means no schemes, and a choice of schemes waits for the first answer.
    static const Login& usable(const Login& login, const Request& request, bool withhold) {
        static const Login none = {.user = "", .schemes = {}};
        if (!isUsed(login) || (withhold && login.schemes.size() > 1)) {
            if (isUsed(login) && !request.body.repeatable()) {
                fail(failure::kContentNotRewound, {"a choice of login schemes"},
                     "the content can be sent once only, so name the one scheme that the login uses");
            }
            return none;
        }
        return login;
    }

    vantik::HttpProxy chooseProxy(const Request& request, const vantik::Array& url) {
        const Proxy& wanted = request.proxy;
        vantik::HttpProxy proxy;
        ProxyReason = "as asked";
        if (!wanted.url.empty()) {
            proxy = vantik::readHttpProxy(wanted.url);
        } else if (wanted.automatic.value_or(true)) {
            proxy = automaticProxy(url);
            if (request.trace) {
                ProxyReason = reasonFor(vantik::proxyVariable(Known.Url), !proxy.Host.empty());
            }
        }
        if (!proxy.Host.empty()) {
            Known.Proxy = proxy.Host + ":" + std::to_string(proxy.Port);
        }
        return proxy;
    }

    vantik::HttpProxy automaticProxy(const vantik::Array& url) {
        if (!vantik::proxySettingsExist()) {
            return {};
        }
        if (!Settings.proxyOnce) {
            return lookUpProxy(url);
        }
        const UrlParts parts = splitUrl(Known.Url);
        const std::string origin = parts.Scheme + "://" + parts.Host + ":" + parts.Port;
        if (const auto found = ProxiesSeen.find(origin); found != ProxiesSeen.end()) {
            return found->second;
        }
        if (ProxiesSeen.size() >= kMostProxies) {
            ProxiesSeen.clear();
        }
        return ProxiesSeen.emplace(origin, lookUpProxy(url)).first->second;
    }

    vantik::HttpProxy lookUpProxy(const vantik::Array& url) {
        const vantik::Array found = Host.callBuiltin(vantik::kProxyLookup, std::span(&url, 1));
        vantik::HttpProxy proxy;
        proxy.Host = found.field("Host").text();
        proxy.Port = static_cast<std::uint16_t>(found.field("Port").number());
        if (!proxy.Host.empty()) {
            proxy.Username = found.field("Username").text();
            proxy.Password = found.field("Password").text();
        }
        return proxy;
    }

    // Why a proxy applies, or none, when nobody asked for either.
    static std::string reasonFor(const std::string& variable, bool used) {
        if (variable == "HTTP_PROXY") {
            return "HTTP_PROXY is not used, since the caller of a CGI program can set it";
        }
        return !variable.empty() ? variable : used ? "the system's settings" : "no setting names a proxy";
    }

    // Where there is a tunnel, the proxy's login is settled before any content is sent.
    bool tunnelled() const { return Known.Proxy.empty() || splitUrl(Known.Url).Scheme == "https"; }

    // True if the older interface makes the content from PostData and adds the length itself.
    bool sendsPostData(const Request& request) const {
        return Settings.simple && (request.method == "POST" || request.method == "PUT" || request.method == "PATCH");
    }

    void setContent(const Request& request, std::optional<Upload>& upload) {
        if (!request.body && !Told.Content) {
            return;
        }
        Told.Content = true;
        const std::string_view held = request.body.inMemory().value_or("");
        Connection.set("PostData", vantik::Array(sendsPostData(request) ? held : ""));
        Connection.set("Payload", vantik::Array::bytes(sendsPostData(request) ? "" : held));
        Connection.set("ProgressReporter", vantik::Array());
        Connection.set("Provider", vantik::Array());
        if (upload) {
            Connection.set("ProviderBufferSize", vantik::Array(Settings.uploadBuffer));
            Connection.set("Provider", makeProvider(Host, upload->provider()));
        } else if (!held.empty() && request.progress) {
            Connection.set("ProgressReporter", makeProgressReporter(Host, [this, &request](std::uint64_t bytes) {
                               if (Known.Status == 0) {
                                   kept(Escaped,
                                        [&] { request.progress({.sent = bytes, .toSend = request.body.length()}); });
                               }
                               return true;
                           }));
        }
    }

    Fields completeFields(const Request& request) const {
        Fields fields = request.fields;
        const auto addUnlessSet = [&](const char* name, const std::string& value) {
            if (!fields.contains(name)) {
                fields.add(name, value);
            }
        };
        addUnlessSet("User-Agent", "netrove/" NETROVE_VERSION);
        if (*request.compressed && *request.decode) {
            addUnlessSet("Accept-Encoding", vantik::contentCodings());
        }
        if (!request.login.bearer.empty()) {
            addUnlessSet("Authorization", "Bearer " + request.login.bearer);
        }
        if (!request.body) {
            return fields;
        }
        if (!request.body.contentType().empty()) {
            addUnlessSet("Content-Type", request.body.contentType());
        }
        const auto length = request.body.length();
        if (length && !sendsPostData(request) && !fields.contains("Transfer-Encoding")) {
            addUnlessSet("Content-Length", std::to_string(*length));
        }
        // An empty value keeps the request from waiting a second for servers that do not answer an expectation.
        addUnlessSet("Expect", "");
        return fields;
    }

    Head readHead(const Request& request) {
        if (request.trace) {
            note(request, (Known.Proxy.empty() ? "direct connection" : "through the proxy " + Known.Proxy) + " (" +
                              ProxyReason + ")");
        }
        try {
            // Sends first: the status line's version is that of the request as sent, and the class takes it before it
            // sends.
            Connection.get("ResponseCode");
        } catch (...) {
            traceSent(request);
            throw;
        }
        traceSent(request);
        const auto line = Connection.call("getStatusLine", std::span<const vantik::Array>(), 3);
        Head head{.url = Known.Url,
                  .version = textOf(line.at(0)),
                  .status = static_cast<int>(line.at(1).number()),
                  .reason = textOf(line.at(2)),
                  .proxy = Known.Proxy};
        Known.Sent = true;
        Known.Status = head.status;
        head.fields = fieldsOf(Connection.call("getResponseFields"));
        // A Location that was cut off may lead anywhere; and without a tunnel the head is the proxy's.
        if (CutOff && isTunnelRefused(*CutOff) && *request.checkStatus) {
            throw statusError(head.status, head.reason, Known)
                .with(ErrorKind::Proxy, translated(*CutOff, Known).what());
        }
        if (CutOff && (head.fields.contains("Location") || isTunnelRefused(*CutOff))) {
            throw vantik::Failure(*CutOff);
        }
        if (head.fields.contains("Location")) {
            head.redirectUrl = textOf(Connection.get("RedirectURL"));
        }
        if (request.trace) {
            request.trace({TraceLine::Kind::Received, head.version + " " + std::to_string(head.status) +
                                                          (head.reason.empty() ? "" : " ") + head.reason});
            traceFields(request, TraceLine::Kind::Received, head.fields);
        }
        return head;
    }

    // The host asks; what the program throws is raised in the end.
    bool asksToStop(const Request& request) {
        try {
            request.poll();
            return false;
        } catch (...) {
            Escaped = std::current_exception();
            return true;
        }
    }

    void deliver(const Request& request, const Taker& taker) {
        Stopped = false;
        Unread = !taker;
        if (!taker) {
            return;
        }
        Taking = &taker;
        if (!Consumer) {
            Consumer = makeConsumer(Host, {.write = [this](std::span<const std::byte> piece) { return take(piece); }});
        }
        if (!std::exchange(Told.Consumer, true)) {
            Connection.set("Consumer", Consumer.array());
        }
        Connection.call("copyContentToByteArray", {vantik::Array(false)});
        if (request.trace) {
            note(request, std::to_string(Known.Received) + " bytes of content came");
        }
    }

    vantik::Taken take(std::span<const std::byte> piece) {
        Known.Received += piece.size();
        Stopped = Unread = !kept(Escaped, [&] { return (*Taking)(piece); });
        return Stopped ? 0.0 : static_cast<double>(piece.size());
    }

    void traceSent(const Request& request) {
        if (!request.trace || !Connection.get("Sent").truth()) {
            return;
        }
        const auto line = Connection.call("getRequestLine", std::span<const vantik::Array>(), 3);
        request.trace(
            {TraceLine::Kind::Sent, textOf(line.at(0)) + " " + textOf(line.at(1)) + " " + textOf(line.at(2))});
        traceFields(request, TraceLine::Kind::Sent, sentFields());
    }

    Fields sentFields() { return fieldsOf(Connection.call("getRequestFields")); }

    static Fields fieldsOf(const vantik::Array& list) {
        Fields fields;
        for (vantik::HttpField& field : vantik::readHttpFields(list)) {
            fields.add(std::move(field.Name), std::move(field.Value));
        }
        return fields;
    }

    static void traceFields(const Request& request, TraceLine::Kind kind, const Fields& fields) {
        const std::vector<std::string>& more = request.redirects.secret;
        for (const Field& field : fields) {
            const bool secret = isSecretField(field.name) ||
                                std::any_of(more.begin(), more.end(),
                                            [&](const auto& name) { return equalsIgnoringCase(name, field.name); });
            request.trace({kind, field.name + ": " + (secret ? "***" : field.value)});
        }
    }

    static void note(const Request& request, const std::string& text) { request.trace({TraceLine::Kind::Note, text}); }

    void invoke(std::string_view method, const vantik::Array& argument) {
        Connection.call(method, std::span(&argument, 1), 0);
    }

    void close() { Connection.call("closeConnection", std::span<const vantik::Array>(), 0); }

    // What is known at the moment of a failure. The object goes: its provider refers to what unwinds.
    void settle() {
        Known.Sent = Known.Sent || (Connection && Connection.get("Sent").truth());
        Known.Tunnelling = Known.Sent && Known.Status == 0 && sentFields().contains("Proxy-Connection");
        Known.Interrupted = Host.wasInterrupted();
        Known.TotalTimeOver = Known.Interrupted && End && Clock::now() >= *End;
        Connection = vantik::Object();
    }

    // What the connection object has been told. A new one is as its class makes it, so most of it need not be told.
    struct Properties {
        std::int32_t Debug = 0;
        std::string Certificate = {};
        bool VerifyName = true;
        bool Decode = true;
        std::string User = {};
        std::string Password = {};
        std::string ProxyUser = {};
        std::string ProxyPassword = {};
        std::vector<Scheme> Schemes = {};
        std::vector<Scheme> ProxySchemes = {};
        bool Method = false;
        bool Content = false;
        bool Consumer = false;
    };

    NetworkSettings Settings;
    vantik::Host Host;
    vantik::Object Connection; // in the host; destroyed before it
    Properties Told;
    Derived<std::array<Limit, 3>> Timeouts;
    Derived<std::pair<std::string, std::uint16_t>> ProxyPlace;
    Derived<Fields> FieldRows;
    vantik::Object Consumer;                                        // of every connection; made for the first content
    const Taker* Taking = nullptr;                                  // what it passes the content to
    std::unordered_map<std::string, vantik::HttpProxy> ProxiesSeen; // by origin; some of them
    std::optional<Clock::time_point> End;
    Circumstances Known;
    std::string ProxyReason;               // for the trace
    std::optional<vantik::Message> CutOff; // the warning that the response is incomplete
    bool Stopped = false;                  // by the taker, before the end
    bool Unread = false;                   // there may be content that nobody has taken
    std::exception_ptr Escaped;            // what a callable of the program has raised
};

} // namespace

std::unique_ptr<Transport> networkTransport(NetworkSettings settings,
                                            std::function<void(const std::string&, const std::string&)> onWarning) {
    try {
        return std::make_unique<NetworkTransport>(settings, std::move(onWarning));
    } catch (const vantik::Failure& failure) {
        throw translated(failure.message(), {});
    }
}

} // namespace netrove
