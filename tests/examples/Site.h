// What stands for https://example.org/ and the proxy in the copies of the examples that tests build.
#pragma once

#include <cstdlib>
#include <string>

inline std::string site() {
    return std::getenv("EXAMPLE_SITE");
}
