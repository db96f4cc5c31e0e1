// Message identifiers, the message catalogue and the exception bases (libvkfl). A failure carries an identifier and
// arguments; the catalogue holds its text.
#pragma once

#include "host/HostApi.h"
#include "host/Text.h"

#include <boost/exception/exception.hpp>

#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace resource_core {

// One argument: a signed integer, narrow text or UTF-16 text.
using MsgArgument = std::variant<std::int64_t, std::string, std::u16string>;

// A message identifier with its arguments. `Key` is unique within `Catalogue`; the user sees "Catalogue:Key".
class VANTIK_HOST_API BaseMsgID {
public:
    BaseMsgID(std::vector<MsgArgument> arguments, std::string catalogue, std::string key);
    BaseMsgID(const BaseMsgID&);
    BaseMsgID(BaseMsgID&&) noexcept;
    BaseMsgID& operator=(const BaseMsgID&);
    BaseMsgID& operator=(BaseMsgID&&) noexcept;
    virtual ~BaseMsgID();

    const std::vector<MsgArgument>& arguments() const { return Arguments; }
    const std::string& catalogue() const { return Catalogue; }
    const std::string& key() const { return Key; }
    std::string fullName() const; // catalogue, a colon, key

private:
    std::vector<MsgArgument> Arguments;
    std::string Catalogue;
    std::string Key;
};

} // namespace resource_core

namespace fl::i18n {

class VANTIK_HOST_API MessageCatalog {
public:
    // The text of a message in a locale. For an identifier that the catalogue lacks: its full name followed by its
    // arguments, so that no failure is ever without a text.
    static std::u16string get_message(const resource_core::BaseMsgID& id, const VkLocale& locale);
};

} // namespace fl::i18n

namespace foundation::core::except {

// Root of the host's exceptions. `what` is the text in the default narrow encoding.
class VANTIK_HOST_API IException : public boost::exception_detail::clone_base {
public:
    ~IException() noexcept override;
    virtual const char* what() const noexcept = 0;
};

// Failures meant for the user.
class VANTIK_HOST_API IUserException : public IException {
public:
    ~IUserException() noexcept override;
    virtual const resource_core::BaseMsgID& msg_id() const noexcept = 0;
};

// Failures meant for the program: the interrupt, a text that is not an IRI.
class VANTIK_HOST_API IInternalException : public IException {
public:
    ~IInternalException() noexcept override;
};

// A user exception that carries a message identifier.
class VANTIK_HOST_API IMsgIDException : public IUserException {
public:
    ~IMsgIDException() noexcept override;
    virtual std::string get_error_id() const = 0; // the full identifier, "catalogue:key"
    virtual std::u16string GetUnicodeMessageTxt() const = 0;
};

// The exception class of the identifier `MsgID`, or of the interface `IInternalException`.
template <class MsgID, class Standard, class Extra>
class Exception : public IMsgIDException, public boost::exception, public Standard {
public:
    explicit Exception(MsgID id) : Id(std::move(id)), Text(renderNarrow(Id)) {}
    ~Exception() noexcept override = default;

    const char* what() const noexcept override { return Text.c_str(); }
    const resource_core::BaseMsgID& msg_id() const noexcept override { return Id; }
    std::string get_error_id() const override { return Id.fullName(); }
    std::u16string GetUnicodeMessageTxt() const override {
        return fl::i18n::MessageCatalog::get_message(Id, fl::i18n::VkLocale::global());
    }
    const boost::exception_detail::clone_base* clone() const override { return new Exception(*this); }
    void rethrow() const override { throw *this; }

private:
    static std::string renderNarrow(const resource_core::BaseMsgID& id) {
        return fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(id, fl::i18n::VkLocale::global()));
    }

    MsgID Id;
    std::string Text;
};

template <class Standard>
class VANTIK_HOST_API Exception<IInternalException, Standard, void>
    : public IInternalException, public boost::exception, public Standard {
public:
    explicit Exception(std::string text) : Text(std::move(text)) {}
    ~Exception() noexcept override = default;

    const char* what() const noexcept override { return Text.c_str(); }
    const boost::exception_detail::clone_base* clone() const override { return new Exception(*this); }
    void rethrow() const override { throw *this; }

private:
    std::string Text;
};

// Out of memory, as the host reports it.
class VANTIK_HOST_API bad_alloc : public IException, public boost::exception, public std::bad_alloc {
public:
    ~bad_alloc() noexcept override;
    const char* what() const noexcept override;
    const boost::exception_detail::clone_base* clone() const override;
    void rethrow() const override;
};

} // namespace foundation::core::except

namespace matrix::detail {

// Reports a user exception by the host's legacy error route, which usually does not return; where it does, the caller
// throws the exception itself.
VANTIK_HOST_API void do_legacy_vx_error(const foundation::core::except::IUserException& error);

// The host's standard argument-count errors of builtins.
[[noreturn]] VANTIK_HOST_API void error_maxlhs();
[[noreturn]] VANTIK_HOST_API void error_maxrhs();
[[noreturn]] VANTIK_HOST_API void error_minrhs();

namespace noninlined::vx_array_api {

// Shows a warning to the user and returns.
VANTIK_HOST_API void vxWarningMsgId(const resource_core::BaseMsgID& id);

} // namespace noninlined::vx_array_api

} // namespace matrix::detail
