// Records every call that the loaded module makes into a host object.
//
// The executable that links this stands in for the host's `omCallMethod` towards the module, and passes each call on.
#pragma once

#include "vantik/Object.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// One at a time, on the thread of the test.
class HostCallRecord {
public:
    HostCallRecord();
    ~HostCallRecord();
    HostCallRecord(const HostCallRecord&) = delete;
    HostCallRecord& operator=(const HostCallRecord&) = delete;

    // Shows the object, and its class, under this name.
    void name(const vantik::Object& object, const std::string& shown);

    // One line a call, in order: client, class and method, arguments with class and shape (and value, of a uint64
    // scalar), number of results wanted. " static" at the end of a call for static methods alone, " absent" of one for
    // which the host found no method.
    //     "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1: 16384) -> 1"
    const std::vector<std::string>& lines() const { return Lines; }
    // The same without the values, and with each run of equal lines once: for calls whose number is up to the network.
    std::vector<std::string> linesWithoutCounts() const;
    void clear() { Lines.clear(); }

    // For the function that stands in.
    static HostCallRecord* current() noexcept;
    const std::string& shown(const std::string& className) const;
    void enter(std::string line) { Lines.push_back(std::move(line)); }
    void noteAbsent() { Lines.back() += " absent"; }

private:
    std::map<std::string, std::string> Names; // by class
    std::vector<std::string> Lines;
};

} // namespace testsupport
