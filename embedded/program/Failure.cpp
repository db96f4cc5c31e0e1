#include "vantik/Failure.h"

#include "embedded/program/Boundary.h"
#include "embedded/scope/InterruptOrigin.h"
#include "embedded/text/TextConversion.h"
#include "host/Interrupt.h"
#include "host/Messages.h"

#include <new>
#include <type_traits>
#include <utility>

namespace vantik {

namespace {

// An empty `what()` would say nothing.
Message withText(Message message) {
    if (message.Text.empty()) {
        message.Text = message.identifier();
    }
    return message;
}

} // namespace

Failure::Failure(Message message) : Failure(withText(std::move(message)), 0) {}
Failure::Failure(Message message, int) : std::runtime_error(message.Text), Content(std::move(message)) {}
Failure::~Failure() = default;

Interrupted::Interrupted(Message message, bool byProgram) : Failure(std::move(message)), ByProgram(byProgram) {}
Interrupted::~Interrupted() = default;

namespace detail {

namespace {

constexpr const char* kUnknownException = "an exception that is not a std::exception";

// A message may quote text that is not valid UTF-16; the rest of it is still worth having.
std::string toUtf8(const std::u16string& text) {
    std::u16string valid;
    valid.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char16_t unit = text[index];
        const bool lead = unit >= 0xD800 && unit < 0xDC00;
        const bool trail = unit >= 0xDC00 && unit < 0xE000;
        if (lead && index + 1 < text.size() && text[index + 1] >= 0xDC00 && text[index + 1] < 0xE000) {
            valid.push_back(unit);
            valid.push_back(text[++index]);
        } else {
            valid.push_back(lead || trail ? u'\uFFFD' : unit);
        }
    }
    return encodeUtf8(valid);
}

MessageArgument programArgument(const resource_core::MsgArgument& argument) {
    return std::visit(
        [](const auto& value) -> MessageArgument {
            using Value = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Value, std::int64_t>) {
                return value;
            } else if constexpr (std::is_same_v<Value, std::string>) {
                return toUtf8(fl::i18n::to_ustring(value));
            } else {
                return toUtf8(value);
            }
        },
        argument);
}

std::vector<resource_core::MsgArgument> hostArguments(const std::vector<MessageArgument>& arguments) {
    std::vector<resource_core::MsgArgument> converted;
    for (const MessageArgument& argument : arguments) {
        if (const auto* number = std::get_if<std::int64_t>(&argument)) {
            converted.emplace_back(*number);
        } else {
            converted.emplace_back(decodeUtf8(std::get<std::string>(argument)));
        }
    }
    return converted;
}

Message messageFor(const resource_core::BaseMsgID& id, const std::u16string& text) {
    Message message{id.catalogue(), id.key(), {}, toUtf8(text)};
    for (const resource_core::MsgArgument& argument : id.arguments()) {
        message.Arguments.push_back(programArgument(argument));
    }
    return message;
}

// A failure without an identifier of its own.
Failure plainFailure(const char* what) {
    return Failure(messageFor(HostMessage({std::string(what)}, "VANTIK:host", "Failure")));
}

[[noreturn]] void throwCallbackFailure(const char* what) {
    throw CallbackFailure(HostMessage({std::string(what)}, "VANTIK:host", "CallbackFailed"), std::current_exception());
}

} // namespace

CallbackFailure::CallbackFailure(HostMessage id, std::exception_ptr original)
    : HostException(std::move(id)), Original(std::move(original)) {}
CallbackFailure::~CallbackFailure() noexcept = default;
const boost::exception_detail::clone_base* CallbackFailure::clone() const {
    return new CallbackFailure(*this);
}
void CallbackFailure::rethrow() const {
    throw *this;
}

Message messageFor(const resource_core::BaseMsgID& id) {
    return messageFor(id, fl::i18n::MessageCatalog::get_message(id, fl::i18n::VkLocale::global()));
}

void throwIntoHost() {
    try {
        throw;
    } catch (const foundation::core::except::IException&) {
        throw;
    } catch (const Interrupted& stop) {
        throw Zentorak::System::InterruptException(stop.byProgram());
    } catch (const Failure& failure) {
        const Message& message = failure.message();
        throw CallbackFailure(HostMessage(hostArguments(message.Arguments), message.Catalogue, message.Key),
                              std::current_exception());
    } catch (const std::exception& error) {
        throwCallbackFailure(error.what());
    } catch (...) {
        throwCallbackFailure(kUnknownException);
    }
}

void throwToProgram() {
    try {
        throw;
    } catch (const CallbackFailure& failure) {
        std::rethrow_exception(failure.original());
    } catch (const Zentorak::System::InterruptException& stop) {
        throw Interrupted(messageFor(HostMessage({}, "VANTIK:host", "Interrupted")), requestedByProgram(stop));
    } catch (const Failure&) {
        throw;
    } catch (const foundation::core::except::IMsgIDException& error) {
        throw Failure(messageFor(error.msg_id(), error.GetUnicodeMessageTxt()));
    } catch (const foundation::core::except::IUserException& error) {
        throw Failure(messageFor(error.msg_id()));
    } catch (const std::bad_alloc&) {
        throw Failure(messageFor(HostMessage({}, "VANTIK:host", "OutOfMemory")));
    } catch (const foundation::core::except::IException& error) {
        throw plainFailure(error.what());
    } catch (const std::exception& error) {
        throw plainFailure(error.what());
    } catch (...) {
        throw plainFailure(kUnknownException);
    }
}

} // namespace detail

} // namespace vantik
