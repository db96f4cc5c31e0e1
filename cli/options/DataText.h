// Data of forms and queries, as people type it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace netrove::cli {

// Letters, digits and "-._~" as they are, '+' for a blank, anything else as %XX.
std::string formEncoded(std::string_view text);

// A value of --data-urlencode: "CONTENT", "=CONTENT", "NAME=CONTENT", "@FILE", "NAME@FILE"; a name is encoded already.
// `read` returns what "@FILE" holds.
std::string encodedData(const std::string& text, const std::function<std::string(const std::string& atFile)>& read);

// Two parts joined with '&'; an empty one leaves the other.
std::string joinedData(std::string_view left, std::string_view right);

// The URL with more in its query, before its fragment.
std::string withQuery(const std::string& url, std::string_view query);

} // namespace netrove::cli
