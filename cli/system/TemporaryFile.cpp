#include "cli/system/TemporaryFile.h"

#include "cli/failures/CliFailure.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace netrove::cli {

std::string temporaryFolder() {
    const char* const chosen = std::getenv("TMPDIR");
    if (chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
    return access("/var/tmp", W_OK | X_OK) == 0 ? "/var/tmp" : "/tmp";
}

int openTemporary() {
    const std::string folder = temporaryFolder();
    const int file = retried([&] { return open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600); });
    if (file >= 0) {
        return file;
    }
    std::string name = folder + "/netrove-XXXXXX"; // on a file system that knows only files with names
    const int named = retried([&] { return mkostemp(name.data(), O_CLOEXEC); });
    if (named < 0) {
        failSystem(failure::kFileNotWritten, folder, errno);
    }
    unlink(name.c_str());
    return named;
}

} // namespace netrove::cli
