#include "late/LibproxyCalls.h"

#include "late/LateLibrary.h"

#include <proxy.h>

#include <memory>

namespace netrove {

namespace {

struct FreeProxies {
    void operator()(char** proxies) const noexcept { px_proxy_factory_free_proxies(proxies); }
};

void* newReader() {
    return px_proxy_factory_new();
}

std::optional<std::vector<std::string>> proxies(void* reader, const std::string& url) {
    const std::unique_ptr<char*, FreeProxies> answer(
        px_proxy_factory_get_proxies(static_cast<pxProxyFactory*>(reader), url.c_str()));
    if (!answer) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    for (char** entry = answer.get(); *entry != nullptr; ++entry) {
        texts.emplace_back(*entry);
    }
    return texts;
}

} // namespace

NETROVE_LATE_CALLS(LibproxyCalls, newReader, proxies)

} // namespace netrove
