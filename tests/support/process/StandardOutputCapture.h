// Catches what is written to standard output through std::cout, by the loaded module too: the process has one
// std::cout.
#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace testsupport {

class StandardOutputCapture {
public:
    StandardOutputCapture() : Previous(std::cout.rdbuf(Caught.rdbuf())) {}
    ~StandardOutputCapture() { std::cout.rdbuf(Previous); }
    StandardOutputCapture(const StandardOutputCapture&) = delete;
    StandardOutputCapture& operator=(const StandardOutputCapture&) = delete;

    std::string text() const { return Caught.str(); }

private:
    std::ostringstream Caught;
    std::streambuf* Previous;
};

} // namespace testsupport
