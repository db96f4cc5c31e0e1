#include "embedded/messages/MessageTable.h"

#include "embedded/messages/HostFailure.h"
#include "host/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using testing::ElementsAre;
using testing::IsEmpty;
using vantik::detail::fillPattern;
using vantik::detail::MessageTable;

using Arguments = std::vector<resource_core::MsgArgument>;

static std::u16string filled(const std::string& pattern, const Arguments& arguments) {
    const MessageTable table = MessageTable::parse("a:b " + pattern, "test");
    EXPECT_THAT(table.problems(), IsEmpty());
    const std::u16string* found = table.find("a:b");
    return found == nullptr ? std::u16string(u"<no pattern>") : fillPattern(*found, arguments);
}

TEST(MessageTable, EveryEnglishTextIsCompleteWithItsArguments) {
    EXPECT_THAT(MessageTable::english().problems(), IsEmpty());
    const std::vector<std::string> names = MessageTable::english().names();
    ASSERT_GT(names.size(), 30U);
    const Arguments arguments{std::string("first"),  std::u16string(u"second"), std::string("third"),
                              std::string("fourth"), std::string("fifth"),      std::string("sixth")};
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::u16string text = fillPattern(*MessageTable::english().find(name), arguments);
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find_first_of(u"{}"), std::u16string::npos) << fl::i18n::to_string(text);
        EXPECT_EQ(text.find(u"  "), std::u16string::npos) << fl::i18n::to_string(text);
    }
}

// The identifiers of the client, by the number of their arguments.
TEST(MessageTable, EnglishTextOfEveryClientIdentifierShowsAllItsArguments) {
    const std::pair<std::size_t, std::vector<std::string>> rows[] = {
        {0,
         {"webservices:TimeoutReasonResponseHeader", "webservices:TimeoutReasonStoppedSending",
          "webservices:TimeoutReasonSystemLimit", "webservices:TimeoutSystemTCP", "http:OnlyOneTransferAtATime"}},
        {1,
         {"webservices:InternalError", "webservices:MalformedURL", "webservices:UnknownHost",
          "webservices:FileNotFound", "webservices:OperationTerminatedByConsumer", "webservices:ConnectionFailed",
          "webservices:RandomError", "webservices:EmptyName", "webservices:InvalidFilename", "type:PropSetClsMismatch",
          "legacy_two_part:undefinedVarOrClass"}},
        {2,
         {"webservices:CopyContentToDataStreamError", "webservices:SSLConnectionNoFile",
          "webservices:SSLConnectionSystemFailure", "webservices:CertificateFailedVerification",
          "webservices:ConnectionRefused", "webservices:DecodingError", "webservices:DecodedContentTooLarge"}},
        {3,
         {"webservices:StatusError", "webservices:SSLConnectionFailure", "webservices:PartialFileWarning",
          "webservices:EncodingFailure", "legacy_two_part:UnableToConvert"}},
        {4, {"webservices:Timeout", "webservices:ExpectedProtocol"}},
    };
    for (const auto& [count, names] : rows) {
        for (const std::string& name : names) {
            const std::u16string* pattern = MessageTable::english().find("VANTIK:" + name);
            ASSERT_NE(pattern, nullptr) << name;
            Arguments arguments{std::string("alpha"), std::string("beta"), std::string("gamma"), std::string("delta")};
            arguments.resize(count);
            const std::string text = fl::i18n::to_string(fillPattern(*pattern, arguments));
            std::size_t shown = 0;
            for (const char* argument : {"alpha", "beta", "gamma", "delta"}) {
                EXPECT_EQ(text.find(argument) != std::string::npos, shown++ < count) << name << ": " << text;
            }
        }
    }
}

TEST(MessageTable, ProblemsNameSourceLineAndReason) {
    const MessageTable table = MessageTable::parse("# a comment\n"
                                                   "\n"
                                                   "a:good  text\n"
                                                   "nocolon text\n"
                                                   "a:empty   \t\n"
                                                   "a:open {0\n"
                                                   "a:named {name}\n"
                                                   "a:number {0,number}\n"
                                                   "a:good another\n"
                                                   "a: text\n"
                                                   "a:b-c text\n",
                                                   "de.txt");
    EXPECT_THAT(table.problems(),
                ElementsAre("de.txt:4: \"nocolon\" is not a message name of the form catalogue:key",
                            "de.txt:5: a:empty has no text",
                            "de.txt:6: a:open: bad pattern at character 1 (U_UNMATCHED_BRACES)",
                            "de.txt:7: a:named: arguments have numbers, not names",
                            "de.txt:8: a:number: arguments are text: only {0} and {0,select,...} are allowed",
                            "de.txt:9: a:good appears for the second time; the first one counts",
                            "de.txt:10: \"a:\" is not a message name of the form catalogue:key",
                            "de.txt:11: \"a:b-c\" is not a message name of the form catalogue:key"));
    EXPECT_THAT(table.names(), ElementsAre("a:good"));
    EXPECT_EQ(*table.find("a:good"), u"text");
}

TEST(MessageTable, FilesFromOtherSystemsAreRead) {
    const MessageTable table = MessageTable::parse("a:b first\r\nA:x:C\tsecond\r\na:last {0} \\\\ and\\nmore", "x");
    EXPECT_THAT(table.problems(), IsEmpty());
    EXPECT_EQ(*table.find("a:b"), u"first");
    EXPECT_EQ(*table.find("A:x:C"), u"second");
    EXPECT_EQ(*table.find("a:last"), u"{0} \\ and\nmore");
}

TEST(MessagePattern, IsFilledWithItsArguments) {
    const std::string a = "a";
    const char* select = "{0,select,on {is on}other {is {1}}}";
    const std::u16string loneSurrogates{char16_t(0xDC00), char16_t(0xD83D), char16_t(0xDE00)};
    for (const auto& [pattern, arguments, text] : std::vector<std::tuple<const char*, Arguments, std::u16string>>{
             {"it's the server's {0}", {std::string("fault")}, u"it's the server's fault"},
             {"a '{'{0}'}'", {a}, u"a {a}"},
             {"{0}", {std::string("{1} '{'")}, u"{1} '{'"}, // an argument is not a pattern
             {"{0}", {std::int64_t{1404}}, u"1404"},        // not grouped
             {"{0}", {std::numeric_limits<std::int64_t>::min()}, u"-9223372036854775808"},
             {"[{0}][{2}]", {a}, u"[a][]"},            // a missing argument is empty
             {"[{0}]", {a, std::string("b")}, u"[a]"}, // one too many is ignored
             {select, {std::string("on"), a}, u"is on"},
             {select, {std::string("off"), a}, u"is a"},
             {"<{0}>", {std::string("a\xFFz")}, u"<a\uFFFDz>"},
             {"<{0}>", {std::u16string{u'a', char16_t(0xD800), u'z'}}, u"<a\uFFFDz>"},
             {"<{0}>", {loneSurrogates}, u"<\uFFFD\U0001F600>"},
         }) {
        EXPECT_EQ(filled(pattern, arguments), text) << pattern;
    }
    EXPECT_EQ(fillPattern(u"{0", {}), u"") << "a pattern that cannot be used";
    EXPECT_EQ(fillPattern(u"{x}", {}), u"");
}

TEST(MessagePattern, EndlessArgumentIsCut) {
    const std::u16string text = filled("{0}!", {std::u16string(3U << 20U, u'x')});
    EXPECT_EQ(text.size(), (1U << 20U) + 2);
    EXPECT_TRUE(text.ends_with(u"x\u2026!"));
}
