#include "hostcalls/HostObjectCall.h"

#include "errors/InternalError.h"

#include <cstring>

namespace netrove {

using namespace matrix::detail::noninlined::vx_array_api;

bool tryHostMethod(const HostMethod& method, vcos::InternedName className, std::span<vxArray_tag*> arguments,
                   HostArray& result) {
    vxArray_tag* results[1] = {nullptr};
    vcos::COSClient* client = method.Client == HostClient::System ? getSystemClient() : COSGetPublicClient();
    const bool found = omCallMethod(className, vcos::internal::makeInterned(method.Name), client, method.ResultCount,
                                    results, static_cast<int>(arguments.size()), arguments.data(), false);
    result.reset(results[0]);
    return found;
}

HostArray callHostMethod(const HostMethod& method, vcos::InternedName className, std::span<vxArray_tag*> arguments) {
    HostArray result;
    if (!tryHostMethod(method, className, arguments, result)) {
        throwInternalError(method.MissingText);
    }
    return result;
}

bool isNothing(const HostArray& array) {
    return array == nullptr || vxIsEmpty(array.get());
}

HostArray makeUInt64Scalar() {
    return HostArray(vxCreateNumericMatrix(1, 1, vxUINT64_CLASS, vxREAL));
}

std::uint64_t& uint64Of(vxArray_tag* scalar) {
    return *static_cast<std::uint64_t*>(vxGetData(scalar));
}

HostArray makeByteColumn(std::span<const char> bytes) {
    HostArray array(vxCreateNumericMatrix(bytes.size(), 1, vxUINT8_CLASS, vxREAL));
    if (!bytes.empty()) {
        std::memcpy(vxGetData(array.get()), bytes.data(), bytes.size());
    }
    return array;
}

} // namespace netrove
