// Field lines and status lines as properties of any text.
#include "http/HttpSyntax.h"
#include "http/ResponseHead.h"
#include "tests/support/host/PropertyTexts.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using namespace netrove;

namespace {

using Field = std::pair<std::string, std::string>;

std::string withoutLeadingBlanks(std::string text) {
    while (!text.empty() && text.front() == ' ') {
        text.erase(0, 1);
    }
    return text;
}

rc::Gen<std::string> nameWithoutColon() {
    return rc::gen::map(propertytexts::anyText(), [](std::string text) {
        std::erase(text, ':');
        return text;
    });
}

RC_GTEST_PROP(FieldLineProperty, NameAndValueComeBack, ()) {
    const std::string name = *nameWithoutColon();
    const std::string value = *propertytexts::anyText();
    const Field expected(name, withoutLeadingBlanks(value));
    RC_ASSERT(splitFieldLine(name + ": " + value) == expected);
    RC_ASSERT(splitFieldLine(name + ":" + value) == expected);
}

RC_GTEST_PROP(FieldLineProperty, SplittingAgainChangesNothing, ()) {
    const Field once = splitFieldLine(*propertytexts::anyText());
    const std::string rebuilt = once.first + ": " + once.second;
    const Field twice = splitFieldLine(rebuilt);
    RC_ASSERT(twice == once);
    RC_ASSERT(twice.first + ": " + twice.second == rebuilt);
}

RC_GTEST_PROP(FieldLineProperty, LineWithoutAColonIsAllName, ()) {
    const std::string line = *nameWithoutColon();
    RC_ASSERT(splitFieldLine(line) == Field(line, ""));
}

// Behind the second blank, whatever stands there.
RC_GTEST_PROP(FieldLineProperty, ReasonIsWhatFollowsTwoBlanks, ()) {
    const std::string line = *propertytexts::anyText();
    std::string reason;
    int blanks = 0;
    for (const char character : line) {
        if (blanks >= 2) {
            reason += character;
        } else if (character == ' ') {
            ++blanks;
        }
    }
    RC_ASSERT(reasonPhraseOf(line) == reason);
}

// The first field of the name counts, the first line never does.
RC_GTEST_PROP(FieldLineProperty, ResponseFieldIsTheFirstOfItsName, ()) {
    using Lines = std::vector<std::string>;
    const std::vector<std::string> names{"X-A", "x-a", "X-a", "X-B", "", "X-A "};
    const auto line = rc::gen::apply([](const std::string& name, const std::string& behind) { return name + behind; },
                                     rc::gen::elementOf(names),
                                     rc::gen::element<std::string>("", ":", ": ", ":v", ":  w: x ", " :y"));
    ResponseHead head;
    head.ResponseHeaderLines = *rc::gen::container<Lines>(line);
    const std::string wanted = *rc::gen::elementOf(names);
    std::string expected;
    for (std::size_t i = head.ResponseHeaderLines.size(); i-- > 1;) { // from behind: the first is written last
        const std::string& text = head.ResponseHeaderLines[i];
        const std::size_t colon = text.find(':');
        std::string name = text.substr(0, colon);
        std::string sought = wanted;
        for (std::string* each : {&name, &sought}) {
            for (char& letter : *each) {
                letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
            }
        }
        if (name == sought) {
            expected = colon == std::string::npos ? "" : withoutLeadingBlanks(text.substr(colon + 1));
        }
    }
    RC_ASSERT(head.getResponseField(wanted) == expected);
}

} // namespace
