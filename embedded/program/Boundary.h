// The two boundaries that a failure crosses between the host and a C++ program.
//
// From a callable of the program into the host: failures of the host's own family and the interrupt pass as they are;
// everything else travels as a CallbackFailure, which keeps the original. From the host to the program: that original
// comes out again, and what began in the host becomes a vantik::Failure or vantik::Interrupted.
#pragma once

#include "embedded/messages/HostFailure.h"
#include "vantik/Failure.h"

#include <exception>
#include <utility>

namespace vantik::detail {

// The host sees a user exception that is also a std::exception, so that its handlers treat it like a failure of its
// own.
class __attribute__((visibility("default"))) CallbackFailure : public HostException {
public:
    CallbackFailure(HostMessage id, std::exception_ptr original);
    ~CallbackFailure() noexcept override;
    const std::exception_ptr& original() const noexcept { return Original; }

    const boost::exception_detail::clone_base* clone() const override;
    void rethrow() const override;

private:
    std::exception_ptr Original;
};

// To be called from a catch clause.
[[noreturn]] void throwIntoHost();
[[noreturn]] void throwToProgram();

// A message with its text, as the program sees it.
Message messageFor(const resource_core::BaseMsgID& id);

// Runs a callable of the program for the host.
template <class Callable>
auto runCallable(Callable&& callable) -> decltype(callable()) {
    try {
        return std::forward<Callable>(callable)();
    } catch (...) {
        throwIntoHost();
    }
}

// Runs an operation of the host for the program. Never nested: the failure of a callable may be of any type, and passes
// one boundary unchanged.
template <class Operation>
auto runForProgram(Operation&& operation) -> decltype(operation()) {
    try {
        return std::forward<Operation>(operation)();
    } catch (...) {
        throwToProgram();
    }
}

} // namespace vantik::detail
