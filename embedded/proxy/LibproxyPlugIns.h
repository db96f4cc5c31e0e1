// What libproxy would load before it could answer anything.
#pragma once

#include <filesystem>

namespace vantik::detail {

// False where it is certain that libproxy reads no settings but those of the environment: the machine has none of its
// plug-ins for desktops, nor the one file that it reads by itself. Then it need not be asked. Its plug-in for proxy
// scripts alone takes 10 ms to load, and each question a thread.
bool libproxyReadsMoreThanEnvironment();

// The same for a folder of plug-ins. One that is not there says nothing: another version of libproxy may be installed,
// which has its plug-ins elsewhere or none.
bool readsMoreThanEnvironment(const std::filesystem::path& plugIns, const std::filesystem::path& systemFile);

} // namespace vantik::detail
