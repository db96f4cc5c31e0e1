// The host's interrupt state (libut): the user's request to stop what is running.
#pragma once

#include "host/HostApi.h"
#include "host/Messages.h"

#include <exception>

namespace Zentorak::System {

// Raised where a request to stop is seen. It is not an IUserException: no message identifier belongs to it.
class VANTIK_HOST_API InterruptException
    : public foundation::core::except::Exception<foundation::core::except::IInternalException, std::exception, void> {
public:
    // `byProgram` is true where a host object, not the user, asked to stop. Only the host needs to know it later.
    explicit InterruptException(bool byProgram);
    ~InterruptException() noexcept override;
    const boost::exception_detail::clone_base* clone() const override;
    void rethrow() const override;
};

} // namespace Zentorak::System

namespace utInterruptState {

// Returns, or clears the pending request of the current scope and raises InterruptException(false).
VANTIK_HOST_API void ThrowIfInterruptPending();

// A descriptor that becomes readable when a request is made, so that a wait for the network can end then; negative for
// none. It is asked for before each wait, and what is read or written there is the host's alone. The one operation that
// a host may lack: a request is then seen when the wait is over, a second later at most.
VANTIK_HOST_API __attribute__((weak)) int InterruptDescriptor() noexcept;

} // namespace utInterruptState
