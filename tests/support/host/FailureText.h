// Any failure in one line, so that a table of tests can say what it expects.
#pragma once

#include "host/Messages.h"

#include <functional>
#include <string>

namespace testsupport {

// What an action fails with:
//   message exceptions             "VANTIK:webservices:StatusError[I:404, U:Not Found, U:http://h/]", with the kind
//                                  of each argument: I integer, N narrow, U UTF-16
//   failures of the transfer layer "HTTPDNSException[h]", "HTTPTimeoutException[text, 1500, option]",
//                                  "SSLException[text, url, file]", "HTTPStatusError[reason, url, 404]"
//   everything else                type and text: "std::runtime_error[text]"
//   no failure                     "nothing"
std::string failureText(const std::function<void()>& action);

// The same for a stored exception; "nothing" for none.
std::string failureText(const std::exception_ptr& failure);

// Identifier and arguments as above.
std::string identifierText(const resource_core::BaseMsgID& id);

// "VANTIK:webservices:InternalError[N:text]".
std::string internalError(const std::string& text);

} // namespace testsupport
