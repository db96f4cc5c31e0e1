// Files that the build makes, found from where the running program is: one set of test objects serves several builds.
#pragma once

#include <string>

namespace testsupport {

// `name` is relative to the build folder: "bin/netrove", "lib/libnetrove.so".
std::string builtFile(const std::string& name);

// True where the library is built with AddressSanitizer or ThreadSanitizer, which take memory of their own.
bool isSanitized();

} // namespace testsupport
