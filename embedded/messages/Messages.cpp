#include "host/Messages.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/messages/MessageFiles.h"

#include <utility>

namespace resource_core {

BaseMsgID::BaseMsgID(std::vector<MsgArgument> arguments, std::string catalogue, std::string key)
    : Arguments(std::move(arguments)), Catalogue(std::move(catalogue)), Key(std::move(key)) {}

BaseMsgID::BaseMsgID(const BaseMsgID&) = default;
BaseMsgID::BaseMsgID(BaseMsgID&&) noexcept = default;
BaseMsgID& BaseMsgID::operator=(const BaseMsgID&) = default;
BaseMsgID& BaseMsgID::operator=(BaseMsgID&&) noexcept = default;
BaseMsgID::~BaseMsgID() = default;

std::string BaseMsgID::fullName() const {
    return Catalogue + ":" + Key;
}

} // namespace resource_core

namespace fl::i18n {

std::u16string MessageCatalog::get_message(const resource_core::BaseMsgID& id, const VkLocale& locale) {
    return vantik::detail::messageText(id, locale.name());
}

} // namespace fl::i18n

namespace foundation::core::except {

// The destructors are the key functions: type information has one home, so that every library catches the same types.
IException::~IException() noexcept = default;
IUserException::~IUserException() noexcept = default;
IInternalException::~IInternalException() noexcept = default;
IMsgIDException::~IMsgIDException() noexcept = default;

bad_alloc::~bad_alloc() noexcept = default;

const char* bad_alloc::what() const noexcept {
    return "Out of memory."; // the catalogue would need memory
}

const boost::exception_detail::clone_base* bad_alloc::clone() const {
    return new bad_alloc(*this);
}

void bad_alloc::rethrow() const {
    throw *this;
}

} // namespace foundation::core::except

namespace matrix::detail {

void do_legacy_vx_error(const foundation::core::except::IUserException&) {
    // This host has one error route, exceptions: the caller throws.
}

void error_maxlhs() {
    vantik::detail::raiseHostFailure("VANTIK:builtin", "TooManyOutputs", {});
}

void error_maxrhs() {
    vantik::detail::raiseHostFailure("VANTIK:builtin", "TooManyInputs", {});
}

void error_minrhs() {
    vantik::detail::raiseHostFailure("VANTIK:builtin", "NotEnoughInputs", {});
}

} // namespace matrix::detail

namespace vantik::detail {

void raiseHostFailure(std::string catalogue, std::string key, std::vector<resource_core::MsgArgument> arguments) {
    throw HostException(HostMessage(std::move(arguments), std::move(catalogue), std::move(key)));
}

} // namespace vantik::detail
