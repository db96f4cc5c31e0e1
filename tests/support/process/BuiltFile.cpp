#include "tests/support/process/BuiltFile.h"

#include <dlfcn.h>
#include <filesystem>

namespace testsupport {

std::string builtFile(const std::string& name) {
    static const std::filesystem::path folder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    return (folder / name).string();
}

bool isSanitized() {
    return dlsym(RTLD_DEFAULT, "__asan_init") != nullptr || dlsym(RTLD_DEFAULT, "__tsan_init") != nullptr;
}

} // namespace testsupport
