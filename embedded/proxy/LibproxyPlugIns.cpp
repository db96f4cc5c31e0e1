#include "embedded/proxy/LibproxyPlugIns.h"

#include <algorithm>
#include <cstdlib>
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
        const fs::path folder = fs::path(VANTIK_LIBPROXY_FOLDER) / "libproxy" / VANTIK_LIBPROXY_VERSION / "modules";
        return std::getenv("PX_MODULE_PATH") != nullptr || readsMoreThanEnvironment(folder, "/etc/sysconfig/proxy");
    }();
    return answer;
}

} // namespace vantik::detail
