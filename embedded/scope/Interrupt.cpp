#include "host/Interrupt.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/scope/InterruptOrigin.h"
#include "embedded/scope/Scope.h"

#include <string>

namespace Zentorak::System {

namespace {

std::string interruptText() {
    const vantik::detail::HostMessage id({}, "VANTIK:host", "Interrupted");
    return fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(id, fl::i18n::VkLocale::global()));
}

} // namespace

InterruptException::InterruptException(bool byProgram) : Exception(interruptText()) {
    *this << vantik::detail::RequestedByProgram(byProgram);
}

InterruptException::~InterruptException() noexcept = default;

const boost::exception_detail::clone_base* InterruptException::clone() const {
    return new InterruptException(*this);
}

void InterruptException::rethrow() const {
    throw *this;
}

} // namespace Zentorak::System

namespace utInterruptState {

void ThrowIfInterruptPending() {
    vantik::detail::Scope& scope = vantik::detail::Scope::current();
    if (scope.wantsToStop() && scope.Interrupt.take()) {
        scope.Interrupt.noteStopped();
        throw Zentorak::System::InterruptException(false);
    }
}

int InterruptDescriptor() noexcept {
    vantik::detail::Scope* const scope = vantik::detail::Scope::currentOrNull();
    return scope != nullptr ? scope->Interrupt.descriptor() : -1;
}

} // namespace utInterruptState
