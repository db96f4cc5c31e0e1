// Calls into the host's content and progress objects: one row per method, one function that makes the call.
#pragma once

#include "host/ClassSystem.h"
#include "hostcalls/HostArray.h"

#include <span>

namespace netrove {

// On whose behalf a method is called: the `Internal` methods are hidden from the public client.
enum class HostClient { System, Public };

struct HostMethod {
    const char* Name;
    HostClient Client;
    int ResultCount;         // 0 or 1
    const char* MissingText; // InternalError's text if the object lacks the method
};

inline constexpr const char* kProviderClassName = "vantik.net.http.io.ContentProvider";
inline constexpr const char* kConsumerClassName = "vantik.net.http.io.ContentConsumer";

// clang-format off
inline constexpr HostMethod kProviderStart      {"startInternal",       HostClient::System, 0, "vantik.net.http.io.ContentProvider.startInternal not found"};
inline constexpr HostMethod kProviderGetData    {"getDataInternal",     HostClient::System, 1, "vantik.net.http.io.ContentProvider.getDataInternal not found"};
inline constexpr HostMethod kConsumerStart      {"startInternal",       HostClient::System, 1, "vantik.net.http.io.ContentConsumer.startInternal not found"};
inline constexpr HostMethod kConsumerPutData    {"putDataInternal",     HostClient::System, 1, "vantik.net.http.io.ContentConsumer.putDataInternal not found"};
inline constexpr HostMethod kConsumerClose      {"closeInternal",       HostClient::System, 0, "vantik.net.http.io.ContentConsumer.closeInternal not found"};
inline constexpr HostMethod kConsumerInterrupt  {"interruptInternal",   HostClient::System, 0, nullptr};
inline constexpr HostMethod kConsumerSavePayload{"savePayloadInternal", HostClient::System, 0, nullptr};
inline constexpr HostMethod kReporterUpdate     {"update",              HostClient::Public, 1, "vantik.net.http.internal.ProgressReporter.update not found"};
// clang-format on

// True if the method was found and run; its result, if it returned one, goes to `result`. Whatever the method raises
// passes through unchanged. The object is `arguments[0]`.
bool tryHostMethod(const HostMethod& method, vcos::InternedName className, std::span<vxArray_tag*> arguments,
                   HostArray& result);

// The same for a method that must exist: raises InternalError with `MissingText` if it does not. The result is null if
// the method returned none.
HostArray callHostMethod(const HostMethod& method, vcos::InternedName className, std::span<vxArray_tag*> arguments);

// True for null and for an array with no elements.
bool isNothing(const HostArray& array);

// New arrays for arguments.
HostArray makeUInt64Scalar(); // 0; write its value in place with uint64Of
std::uint64_t& uint64Of(vxArray_tag* scalar);
HostArray makeByteColumn(std::span<const char> bytes); // n rows, 1 column

} // namespace netrove
