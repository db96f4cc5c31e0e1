#include "tests/exchange/control/HostCallRecord.h"

#include "embedded/arrays/Array.h"
#include "host/ArrayApi.h"
#include "host/ClassSystem.h"

#include <algorithm>
#include <cstdint>
#include <dlfcn.h>
#include <stdexcept>
#include <utility>

namespace testsupport {

namespace {

namespace vx = matrix::detail::noninlined::vx_array_api;

HostCallRecord*& active() {
    static HostCallRecord* record = nullptr;
    return record;
}

std::string clientName(const vcos::COSClient* client) {
    if (client == getSystemClient()) {
        return "system ";
    }
    return client == COSGetPublicClient() ? "public " : "unknown client ";
}

std::string argumentText(const HostCallRecord& record, const vxArray_tag* argument) {
    if (argument == nullptr) {
        return "null";
    }
    const char* const className = vx::vxGetClassName(argument);
    if (vx::vxGetClassID(argument) == vxOBJECT_CLASS) {
        return record.shown(className);
    }
    std::string text = std::string(className) + ' ';
    const std::size_t* dimensions = vx::vxGetDimensions(argument);
    bool isScalar = true;
    for (std::size_t i = 0; i < vx::vxGetNumberOfDimensions(argument); ++i) {
        text += (i == 0 ? "" : "x") + std::to_string(dimensions[i]);
        isScalar = isScalar && dimensions[i] == 1;
    }
    if (isScalar && vx::vxGetClassID(argument) == vxUINT64_CLASS) {
        text += ": " + std::to_string(*static_cast<const std::uint64_t*>(vx::vxGetData(argument)));
    }
    return text;
}

} // namespace

HostCallRecord::HostCallRecord() {
    if (active() != nullptr) {
        throw std::logic_error("another record is active");
    }
    active() = this;
}

HostCallRecord::~HostCallRecord() {
    active() = nullptr;
}

HostCallRecord* HostCallRecord::current() noexcept {
    return active();
}

void HostCallRecord::name(const vantik::Object& object, const std::string& shown) {
    Names[object.className()] = shown;
}

const std::string& HostCallRecord::shown(const std::string& className) const {
    const auto found = Names.find(className);
    return found == Names.end() ? className : found->second;
}

std::vector<std::string> HostCallRecord::linesWithoutCounts() const {
    std::vector<std::string> lines = Lines;
    for (std::string& line : lines) {
        const std::size_t value = line.find(": ");
        if (value != std::string::npos) {
            line.erase(value, line.find(')', value) - value);
        }
    }
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
}

} // namespace testsupport

namespace {

// The function of the same name in the libraries behind this executable.
template <class Function>
Function* theHosts(Function* own) {
    Dl_info symbol{};
    if (::dladdr(reinterpret_cast<void*>(own), &symbol) == 0 || symbol.dli_sname == nullptr) {
        throw std::runtime_error("the executable does not export its functions");
    }
    void* const address = ::dlsym(RTLD_NEXT, symbol.dli_sname);
    if (address == nullptr) {
        throw std::runtime_error(std::string(symbol.dli_sname) + " is not in the host");
    }
    return reinterpret_cast<Function*>(address);
}

} // namespace

VANTIK_HOST_API bool omCallMethod(vcos::InternedName className, vcos::InternedName methodName, vcos::COSClient* client,
                                  int resultCount, vxArray_tag** results, int argumentCount, vxArray_tag** arguments,
                                  bool onlyStatic) {
    static auto* const original = theHosts(&omCallMethod);
    testsupport::HostCallRecord* const record = testsupport::HostCallRecord::current();
    if (record == nullptr) {
        return original(className, methodName, client, resultCount, results, argumentCount, arguments, onlyStatic);
    }
    std::string line = testsupport::clientName(client) + record->shown(className == nullptr ? "" : *className) + '.' +
                       *methodName + '(';
    for (int i = 0; i < argumentCount; ++i) {
        line += (i == 0 ? "" : ", ") + testsupport::argumentText(*record, arguments[i]);
    }
    line += ") -> " + std::to_string(resultCount) + (onlyStatic ? " static" : "");
    record->enter(std::move(line));
    const bool found =
        original(className, methodName, client, resultCount, results, argumentCount, arguments, onlyStatic);
    if (!found) {
        record->noteAbsent();
    }
    return found;
}
