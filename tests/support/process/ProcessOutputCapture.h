// Catches what this process writes to its standard output in whatever way: std::cout, stdio (where libcurl puts content
// that it has no callback for), or the descriptor.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace testsupport {

class ProcessOutputCapture {
public:
    ProcessOutputCapture() : Caught(std::tmpfile()), Previous(::dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (Caught == nullptr || Previous < 0 || ::dup2(::fileno(Caught), STDOUT_FILENO) < 0) {
            throw std::runtime_error("standard output cannot be caught");
        }
    }
    // What was caught goes where it would have gone, since a test that fails writes its messages there too.
    ~ProcessOutputCapture() {
        const std::string caught = text();
        ::dup2(Previous, STDOUT_FILENO);
        ::close(Previous);
        std::fclose(Caught);
        std::fputs(caught.c_str(), stdout);
    }
    ProcessOutputCapture(const ProcessOutputCapture&) = delete;
    ProcessOutputCapture& operator=(const ProcessOutputCapture&) = delete;

    std::string text() const {
        std::fflush(stdout);
        std::string caught(static_cast<std::size_t>(::lseek(::fileno(Caught), 0, SEEK_END)), '\0');
        return ::pread(::fileno(Caught), caught.data(), caught.size(), 0) == static_cast<ssize_t>(caught.size())
                   ? caught
                   : "standard output cannot be read back";
    }

private:
    std::FILE* Caught;
    int Previous;
};

} // namespace testsupport
