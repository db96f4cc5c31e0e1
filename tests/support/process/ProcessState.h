// What the system says of a process.
#pragma once

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/types.h>

namespace testsupport {

struct ProcessState {
    char State = 'X'; // 'T' stopped, 'Z' ended and not collected yet, 'X' not there any more
    pid_t Group = 0;

    bool hasEnded() const { return State == 'Z' || State == 'X'; }
};

inline ProcessState stateOf(const std::string& process) {
    std::ifstream file("/proc/" + process + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t name = text.rfind(')'); // which may hold blanks itself
    ProcessState state;
    if (name != std::string::npos) {
        std::istringstream fields(text.substr(name + 1));
        pid_t parent = 0;
        fields >> state.State >> parent >> state.Group;
    }
    return state;
}

} // namespace testsupport
