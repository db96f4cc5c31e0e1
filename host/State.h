// The host's per-call state (libvkservices).
#pragma once

#include "host/HostApi.h"

namespace services::state {

// A scope object: while one lives, the host runs with the identity of the user for whom the request is sent. It is
// held during a send, and so around every call into a content provider. Construction may fail with a host exception;
// destruction never fails.
class VANTIK_HOST_API ImpersonationGuard {
public:
    ImpersonationGuard();
    ~ImpersonationGuard();
    ImpersonationGuard(const ImpersonationGuard&) = delete;
    ImpersonationGuard& operator=(const ImpersonationGuard&) = delete;
};

} // namespace services::state
