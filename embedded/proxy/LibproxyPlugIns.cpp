#include "embedded/proxy/LibproxyPlugIns.h"

#include <proxy.h>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <system_error>

namespace vantik::detail {

namespace fs = std::filesystem;

bool readsMoreThanEnvironment(const fs::path& plugIns, const fs::path& systemFile) {
    std::error_code error;
    const fs::directory_iterator files(plugIns, error);
    if (error || fs::exists(systemFile, error) || error) {
        return true;
    }
    return std::any_of(begin(files), end(files), [](const fs::directory_entry& file) {
        return file.path().filename().native().starts_with("config_");
    });
}

bool libproxyReadsMoreThanEnvironment() {
    // libproxy looks once, too: when it is asked for the first time.
    static const bool answer = [] {
        Dl_info library{};
        if (std::getenv("PX_MODULE_PATH") != nullptr ||
            dladdr(reinterpret_cast<const void*>(&px_proxy_factory_new), &library) == 0) {
            return true;
        }
        const fs::path folder = fs::path(library.dli_fname).parent_path();
        return readsMoreThanEnvironment(folder / "libproxy" / VANTIK_LIBPROXY_VERSION / "modules",
                                        "/etc/sysconfig/proxy");
    }();
    return answer;
}

} // namespace vantik::detail
