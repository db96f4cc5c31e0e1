// Where the tables of the message catalogue come from.
#pragma once

#include "embedded/messages/MessageTable.h"

#include <memory>
#include <string>
#include <vector>

namespace vantik::detail {

// The tables for a locale, the most specific one first; the last one is always the English table that is compiled in. A
// file that is there but cannot be used is reported once on standard error and otherwise ignored.
std::vector<std::shared_ptr<const MessageTable>> messageTables(const std::string& localeName);

// The names under which a locale is looked up: "de_AT" and "de" for "de_AT.UTF-8". Empty for what is not a locale.
std::vector<std::string> localeChain(const std::string& localeName);

// The text of a message in a locale ("de", "de_AT.UTF-8"): from the tables of the locale, of its language, then from
// the English one. Never empty.
std::u16string messageText(const resource_core::BaseMsgID& id, const std::string& localeName);

} // namespace vantik::detail
