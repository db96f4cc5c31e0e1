// What is settled before anything is sent: settings that the call leaves out come from the client, and every value is
// looked at. libcurl and the class pass text on as it is, so a line break in it would add fields of its own.
#pragma once

#include <netrove/request.h>

#include <string>
#include <string_view>

namespace netrove {

enum class Use { Defaults, Collect, Stream, Save, Receive };

// Raises an Error of kind Usage, or Url, that names what is wrong; a secret is never repeated.
void checkRequest(const Request& request, Use use);

// Where `own` says nothing, what `defaults` says, and where neither does, the documented values. Afterwards the URL is
// absolute, user name and password have moved from it to the login, the method is set.
void complete(Request& own, const Request& defaults);

bool isAbsolute(std::string_view url); // "scheme://…"
// Printable ASCII. A tab between words is the only control character that a value may hold.
bool isFieldValue(std::string_view text);

// A reference as in Location or as a program gives it, against an absolute URL (RFC 3986, section 5); a missing
// fragment is inherited (RFC 9110, section 10.2.2). Empty where it cannot be read.
std::string resolvedUrl(std::string_view base, std::string_view reference);

} // namespace netrove
