// The message catalogue: patterns by full name, one table for each language. The form of a table's file is described in
// messages/en.txt.
#pragma once

#include "host/Messages.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

class MessageTable {
public:
    // Never fails: a line that cannot be used is left out and reported in `problems`, each with source and line number.
    static MessageTable parse(std::string_view utf8, const std::string& source);

    // The pattern of a message, or null.
    const std::u16string* find(std::string_view fullName) const;
    std::vector<std::string> names() const;
    const std::vector<std::string>& problems() const { return Problems; }

    // The table that is compiled in.
    static const MessageTable& english();

private:
    std::map<std::string, std::u16string, std::less<>> Patterns;
    std::vector<std::string> Problems;
};

// A pattern with its arguments in place; empty where the pattern cannot be used.
std::u16string fillPattern(const std::u16string& pattern, const std::vector<resource_core::MsgArgument>& arguments);

// Replaces the text of a message that no table has: its full name and its arguments.
std::u16string textWithoutPattern(const resource_core::BaseMsgID& id);

} // namespace vantik::detail
