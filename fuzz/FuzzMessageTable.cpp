// A file of the message catalogue: what is accepted from it can be filled, with fewer arguments than it names or with
// more.
#include "embedded/messages/MessageTable.h"
#include "fuzz/FuzzInput.h"

#include <string>

using vantik::detail::fillPattern;
using vantik::detail::MessageTable;

namespace {

bool isWellFormed(const std::u16string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool lead = text[i] >= 0xD800 && text[i] <= 0xDBFF;
        const bool trail = text[i] >= 0xDC00 && text[i] <= 0xDFFF;
        const bool followed = i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
        if (trail || (lead && !followed)) {
            return false;
        }
        i += lead ? 1 : 0;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    const MessageTable table = MessageTable::parse(text, "file");
    require(table.names().size() + table.problems().size() <= linesOf(text).size(), "a line yields one thing");
    const std::vector<resource_core::MsgArgument> some{std::string("first"),
                                                       std::u16string(u"se\xD800"
                                                                      "cond"),
                                                       std::int64_t{-3}};
    for (const std::string& name : table.names()) {
        const std::u16string* pattern = table.find(name);
        require(pattern != nullptr && !pattern->empty(), "a name that is there has a pattern");
        require(isWellFormed(fillPattern(*pattern, {})), "a pattern without arguments yields text");
        require(isWellFormed(fillPattern(*pattern, some)), "a pattern with arguments yields text");
    }
    return 0;
}
