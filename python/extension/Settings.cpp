#include "python/extension/Settings.h"

#include "python/extension/Texts.h"

#include <netrove/response.h>
#include <pybind11/chrono.h>
#include <pybind11/functional.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace netrove::python {

class ProgressReports {
public:
    explicit ProgressReports(Held callable) : Callable(std::move(callable)) {}

    void take(const Progress& now) {
        const auto time = std::chrono::steady_clock::now();
        Latest = now;
        Told = false;
        if (time >= Next) {
            Next = time + kInterval;
            const py::gil_scoped_acquire gil;
            tell();
        }
    }
    void finish() {
        if (!Told) {
            tell();
        }
    }

private:
    static constexpr std::chrono::milliseconds kInterval{50};

    void tell() {
        Told = true;
        (*Callable)(Latest.sent, Latest.received, Latest.toSend, Latest.toReceive);
    }

    Held Callable;
    Progress Latest;
    bool Told = true;
    std::chrono::steady_clock::time_point Next{};
};

// What the calls of a client ask which cookies they send. Only the client's callable is kept for each of them, not a
// Python object of their own, which a thread that drops it would need the GIL for.
struct CookieSource {
    Held Begin; // gets the cookies of one call, and returns what is asked before each of its requests
};

class CookieJourney {
public:
    CookieJourney(const CookieSource& source, const py::object& given)
        : Begin(source.Begin), Given(given.is_none() ? nullptr : held(given)) {}

    // What is sent with a request for this URL, after that redirect (empty: the first), which has set this.
    std::string field(const std::string& url, const std::string& redirect, const std::vector<std::string>& set) {
        const py::gil_scoped_acquire gil;
        if (!Next) {
            Next = held((*Begin)(Given ? *Given : py::none()));
        }
        return py::cast<std::string>((*Next)(url, redirect, textsOf(set)));
    }

private:
    Held Begin;
    Held Given; // null: none
    Held Next;  // null before the first request
};

void Settings::finishProgress() const {
    if (Progress) {
        Progress->finish();
    }
}

namespace {

// Seconds; infinity for no limit. What is above zero stays so.
Limit limitOf(double seconds) {
    constexpr double longest = 1e12; // beyond any clock
    if (seconds > longest) {
        return kUnlimited;
    }
    return Limit(static_cast<std::int64_t>(std::ceil(seconds * 1000)));
}

// Properties that are written only.
template <class Set>
void setter(py::class_<Settings>& type, const char* name, Set set) {
    type.def_property(name, nullptr, std::move(set));
}

template <class Group, class Value>
void setting(py::class_<Settings>& type, const char* name, Group Request::*group, std::optional<Value> Group::*member) {
    setter(type, name, [=](Settings& own, Value value) { own.Asked.*group.*member = std::move(value); });
}

template <class Group>
void limit(py::class_<Settings>& type, const char* name, Group Request::*group, std::optional<Limit> Group::*member) {
    setter(type, name, [=](Settings& own, double seconds) { own.Asked.*group.*member = limitOf(seconds); });
}

template <class Value>
void own(py::class_<Settings>& type, const char* name, Value Request::*member) {
    setter(type, name, [=](Settings& self, Value value) { self.Asked.*member = std::move(value); });
}

void setLogin(Login& login, std::optional<std::string> user, std::string password, std::string bearer,
              const std::vector<std::string>& schemes) {
    constexpr std::pair<const char*, Scheme> known[] = {
        {"basic", Scheme::Basic}, {"digest", Scheme::Digest}, {"ntlm", Scheme::Ntlm}, {"negotiate", Scheme::Negotiate}};
    login = {.user = std::move(user), .password = std::move(password), .bearer = std::move(bearer)};
    if (!schemes.empty()) {
        login.schemes.clear();
    }
    for (const std::string& name : schemes) {
        const auto* row =
            std::find_if(std::begin(known), std::end(known), [&](auto& row) { return name == row.first; });
        if (row == std::end(known)) {
            throw py::value_error("there is no login scheme '" + name + "': basic, digest, ntlm, negotiate");
        }
        login.schemes.push_back(row->second);
    }
}

} // namespace

void defineSettings(py::module_& module) {
    py::class_<RateLimit, std::shared_ptr<RateLimit>>(module, "RateLimit")
        .def(py::init([](std::uint64_t total, std::uint64_t host) {
                 return std::make_shared<RateLimit>(RateLimit::Rates{.total = total, .host = host});
             }),
             py::arg("total") = 0, py::arg("host") = 0);

    py::class_<CookieSource>(module, "CookieSource").def(py::init([](py::object begin) {
        return CookieSource{held(std::move(begin))};
    }));

    py::class_<Settings> type(module, "Settings");
    type.def(py::init<>());
    type.def("__copy__", [](const Settings& self) { return self; });
    own(type, "url", &Request::url);
    own(type, "method", &Request::method);
    own(type, "body", &Request::body);
    type.def("field", [](Settings& self, std::string name, std::string value) {
        self.Asked.fields.add(std::move(name), std::move(value));
    });
    own(type, "resume", &Request::resume);
    own(type, "resume_unproven", &Request::resumeUnproven);
    own(type, "replace", &Request::replace);
    own(type, "keep_time", &Request::keepTime);
    own(type, "sha256", &Request::sha256);
    type.def("login", [](Settings& self, std::optional<std::string> user, std::string password, std::string bearer,
                         const std::vector<std::string>& schemes) {
        setLogin(self.Asked.login, std::move(user), std::move(password), std::move(bearer), schemes);
    });
    type.def("proxy_login", [](Settings& self, std::string user, std::string password) {
        setLogin(self.Asked.proxy.login, std::move(user), std::move(password), {}, {});
    });
    setter(type, "proxy", [](Settings& self, std::string url) { self.Asked.proxy.url = std::move(url); });
    setting(type, "system_proxy", &Request::proxy, &Proxy::automatic);
    limit(type, "connect", &Request::limits, &Limits::connect);
    limit(type, "response", &Request::limits, &Limits::response);
    limit(type, "data", &Request::limits, &Limits::data);
    limit(type, "attempt", &Request::limits, &Limits::attempt);
    limit(type, "total", &Request::limits, &Limits::total);
    setting(type, "memory", &Request::limits, &Limits::memory);
    setting(type, "content", &Request::limits, &Limits::content);
    setting(type, "verify", &Request::tls, &Tls::verify);
    setting(type, "verify_name", &Request::tls, &Tls::verifyName);
    setter(type, "authorities", [](Settings& self, std::string file) { self.Asked.tls.file = std::move(file); });
    setting(type, "redirects", &Request::redirects, &Redirects::most);
    setting(type, "downgrade", &Request::redirects, &Redirects::downgrade);
    setter(type, "secret",
           [](Settings& self, std::vector<std::string> names) { self.Asked.redirects.secret = std::move(names); });
    setting(type, "attempts", &Request::retry, &Retry::attempts);
    limit(type, "retry_wait", &Request::retry, &Retry::wait);
    limit(type, "retry_longest_wait", &Request::retry, &Retry::longestWait);
    setting(type, "retry_unsafe", &Request::retry, &Retry::unsafe);
    setting(type, "retry_statuses", &Request::retry, &Retry::statuses);
    setting(type, "retry_any", &Request::retry, &Retry::any);
    setter(type, "decode", [](Settings& self, bool value) { self.Asked.decode = value; });
    setter(type, "compressed", [](Settings& self, bool value) { self.Asked.compressed = value; });
    setter(type, "check_status", [](Settings& self, bool value) { self.Asked.checkStatus = value; });
    own(type, "rate", &Request::rate);
    setter(type, "progress", [](Settings& self, py::object callable) {
        const auto reports = std::make_shared<ProgressReports>(held(std::move(callable)));
        self.Progress = reports;
        self.Asked.progress = [reports](const Progress& now) { reports->take(now); };
    });
    // Without cookies to send nobody is asked before a redirect sets some.
    type.def("cookies", [](Settings& self, const CookieSource& source, const py::object& given, bool some) {
        const auto journey = std::make_shared<CookieJourney>(source, given);
        self.Asked.cookies = [journey, some](const std::string& url, const Response* redirect) {
            static const Response none;
            const Response& before = redirect == nullptr ? none : *redirect;
            const auto set = before.fields.all("Set-Cookie");
            return some || !set.empty() ? journey->field(url, before.url, set) : std::string();
        };
    });
    setter(type, "trace", [](Settings& self, py::object callable) {
        self.Asked.trace = [callable = held(std::move(callable))](const TraceLine& line) {
            const py::gil_scoped_acquire gil;
            constexpr const char* kinds[] = {"note", "sent", "received"};
            (*callable)(kinds[static_cast<int>(line.kind)], line.text);
        };
    });
}

} // namespace netrove::python
