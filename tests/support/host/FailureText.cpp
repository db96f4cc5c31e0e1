#include "tests/support/host/FailureText.h"

#include "errors/HTTPException.h"
#include "host/Text.h"

#include <boost/core/demangle.hpp>

#include <cstdint>
#include <exception>
#include <sstream>
#include <typeinfo>
#include <variant>

namespace testsupport {

namespace {

struct ArgumentText {
    std::string operator()(std::int64_t value) const { return "I:" + std::to_string(value); }
    std::string operator()(const std::string& value) const { return "N:" + value; }
    std::string operator()(const std::u16string& value) const { return "U:" + fl::i18n::to_string(value); }
};

std::string numberText(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

// The name of the object's own class, without the namespace of the transfer layer's failures.
std::string className(const std::exception& failure) {
    const std::string name = boost::core::demangle(typeid(failure).name());
    const std::string prefix = "webservices::";
    return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
}

std::string activeFailure() {
    try {
        throw;
    } catch (const foundation::core::except::IMsgIDException& failure) {
        return identifierText(failure.msg_id());
    } catch (const webservices::HTTPTimeoutException& failure) {
        return className(failure) + '[' + failure.what() + ", " + numberText(failure.TimeoutMilliseconds) + ", " +
               fl::i18n::to_string(failure.OptionName) + ']';
    } catch (const webservices::SSLException& failure) {
        return className(failure) + '[' + failure.what() + ", " + failure.URL + ", " + failure.CertificateFilename +
               ']';
    } catch (const webservices::HTTPStatusError& failure) {
        return className(failure) + '[' + fl::i18n::to_string(failure.Message) + ", " +
               fl::i18n::to_string(*failure.StatusURL) + ", " + std::to_string(failure.StatusCode) + ']';
    } catch (const std::exception& failure) {
        return className(failure) + '[' + failure.what() + ']';
    } catch (...) {
        return "unknown";
    }
}

} // namespace

std::string failureText(const std::function<void()>& action) {
    try {
        action();
    } catch (...) {
        return activeFailure();
    }
    return "nothing";
}

std::string failureText(const std::exception_ptr& failure) {
    return failureText([&] {
        if (failure) {
            std::rethrow_exception(failure);
        }
    });
}

std::string identifierText(const resource_core::BaseMsgID& id) {
    std::string text = id.fullName() + '[';
    for (std::size_t i = 0; i < id.arguments().size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::visit(ArgumentText(), id.arguments()[i]);
    }
    return text + ']';
}

std::string internalError(const std::string& text) {
    return "VANTIK:webservices:InternalError[N:" + text + ']';
}

} // namespace testsupport
