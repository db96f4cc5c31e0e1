// Which type a file has, by its name.
#pragma once

#include <string>

namespace netrove {

// As the system's shared MIME database says; application/octet-stream for a name that it does not know, and where the
// database is missing. `fileName` is without folders.
std::string mediaTypeOf(const std::string& fileName);

} // namespace netrove
