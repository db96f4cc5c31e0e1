#include "embedded/services/Services.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/scope/Scope.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <curl/curl.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

using cppmicroservices::Framework;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using foundation::httpproxy::ProxySelector;

namespace vantik::detail {

namespace {

// libcurl's global state, for as long as anyone needs it.
class CurlGlobalState final : public LibCurlInitializer {
public:
    CurlGlobalState() {
        if (const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT); code != CURLE_OK) {
            raiseHostFailure("VANTIK:host", "LibraryNotUsable",
                             {std::string("libcurl"), std::string(curl_easy_strerror(code))});
        }
    }
    ~CurlGlobalState() override { curl_global_cleanup(); }
    CurlGlobalState(const CurlGlobalState&) = delete;
    CurlGlobalState& operator=(const CurlGlobalState&) = delete;
};

// What the process has once. It is never destroyed, only emptied, since a scope may end while the process does.
struct ProcessServices {
    std::mutex Guard;
    std::shared_ptr<LibCurlInitializer> Curl;              // null until the first use
    std::shared_ptr<Framework> Own;                        // null until the first use
    std::optional<std::shared_ptr<Framework>> Replacement; // what counts instead of `Own`
    bool Ended = false;                                    // the process ends; nothing starts again
};

ProcessServices& services() {
    static ProcessServices& instance = *new ProcessServices;
    return instance;
}

// Lets go of libcurl when the process ends. Scopes that still exist hold it themselves, so that it goes with the last
// of them.
struct AtExit {
    ~AtExit() {
        ProcessServices& process = services();
        const std::lock_guard lock(process.Guard);
        if (process.Own) {
            process.Own->Stop();
            process.Own->WaitForStop(std::chrono::milliseconds::zero());
        }
        process.Own.reset();
        process.Curl.reset();
        process.Ended = true;
    }
};

// Guarded by the caller.
void start(ProcessServices& process) {
    auto curl = std::make_shared<CurlGlobalState>();
    // Built after libcurl has started, and so gone before the TLS library's own clean-up.
    static const AtExit atExit;
    auto framework = makeEmptyFramework();
    cppmicroservices::BundleContext context = framework->GetBundleContext();
    // Registrations are dropped on purpose: these services stay as long as the framework.
    static_cast<void>(context.RegisterService<LibCurlInitializer>(curl));
    static_cast<void>(context.RegisterService<ProxySelector>(makeProxySelector()));
    process.Curl = std::move(curl);
    process.Own = std::move(framework);
}

} // namespace

std::shared_ptr<Framework> makeEmptyFramework() {
    auto framework = std::make_shared<Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    framework->Start();
    return framework;
}

void replaceFramework(std::shared_ptr<Framework> framework) {
    ProcessServices& process = services();
    const std::lock_guard lock(process.Guard);
    process.Replacement = std::move(framework);
}

void restoreFramework() {
    ProcessServices& process = services();
    const std::lock_guard lock(process.Guard);
    process.Replacement.reset();
}

} // namespace vantik::detail

namespace foundation::httpclient_core::libcurlinitializer {

LibCurlInitializer::~LibCurlInitializer() = default;

} // namespace foundation::httpclient_core::libcurlinitializer

namespace foundation::cppmicroservices {

std::shared_ptr<Framework> getFramework() {
    vantik::detail::ProcessServices& process = vantik::detail::services();
    const std::lock_guard lock(process.Guard);
    if (process.Replacement) {
        return *process.Replacement;
    }
    if (!process.Own && !process.Ended) {
        vantik::detail::start(process);
    }
    // A scope that looks for services may come to own libcurl handles, which must go before libcurl's global state.
    if (vantik::detail::Scope* scope = vantik::detail::Scope::currentOrNull(); scope != nullptr && process.Curl) {
        scope->keepAlive(process.Curl);
    }
    return process.Own;
}

} // namespace foundation::cppmicroservices
