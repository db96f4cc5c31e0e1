#include "host/Messages.h"

#include "embedded/messages/HostFailure.h"
#include "embedded/messages/MessageFiles.h"
#include "embedded/messages/MessageTable.h"
#include "embedded/scope/Scope.h"
#include "errors/MessageIdentifiers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using resource_core::BaseMsgID;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vantik::detail::fillPattern;
using vantik::detail::HostException;
using vantik::detail::HostMessage;
using vantik::detail::localeChain;
using vantik::detail::MessageTable;
using vantik::detail::messageText;

namespace {

std::u16string english(const BaseMsgID& id) {
    return messageText(id, "en");
}

std::u16string filled(const std::string& pattern, const std::vector<resource_core::MsgArgument>& arguments) {
    const MessageTable table = MessageTable::parse("a:b " + pattern, "test");
    EXPECT_THAT(table.problems(), IsEmpty());
    const std::u16string* found = table.find("a:b");
    return found == nullptr ? std::u16string(u"<no pattern>") : fillPattern(*found, arguments);
}

// A folder of message files that the catalogue looks into.
class MessageFolder {
public:
    MessageFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "messages-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        Path = name;
        setenv("VANTIK_MESSAGES_PATH", ("/nonexistent:" + name).c_str(), 1);
    }
    ~MessageFolder() {
        unsetenv("VANTIK_MESSAGES_PATH");
        std::filesystem::remove_all(Path);
    }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(Path / name, std::ios::binary) << text;
    }
    void makeFolder(const std::string& name) const { std::filesystem::create_directory(Path / name); }

private:
    std::filesystem::path Path;
};

} // namespace

TEST(MessageTable, EnglishTableHasNoProblems) {
    EXPECT_THAT(MessageTable::english().problems(), IsEmpty());
}

TEST(MessageTable, EveryEnglishTextIsCompleteWithItsArguments) {
    const std::vector<std::string> names = MessageTable::english().names();
    ASSERT_GT(names.size(), 30U);
    const std::vector<resource_core::MsgArgument> arguments{std::string("first"), std::u16string(u"second"),
                                                            std::string("third"), std::string("fourth"),
                                                            std::string("fifth"), std::string("sixth")};
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::u16string text = fillPattern(*MessageTable::english().find(name), arguments);
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find_first_of(u"{}"), std::u16string::npos) << fl::i18n::to_string(text);
        EXPECT_EQ(text.find(u"  "), std::u16string::npos) << fl::i18n::to_string(text);
    }
}

TEST(MessageTable, EveryIdentifierOfTheClientShowsAllItsArguments) {
    namespace ws = VANTIK::webservices;
    const std::vector<BaseMsgID> identifiers{
        ws::InternalError("alpha"),
        ws::CopyContentToDataStreamError(u"alpha", u"beta"),
        ws::CopyContentToDataStreamError("alpha", std::string("beta")),
        ws::StatusError(404, u"alpha", u"beta"),
        ws::SSLConnectionNoFile("alpha", u"beta"),
        ws::SSLConnectionSystemFailure("alpha", u"beta"),
        ws::SSLConnectionFailure("alpha", u"beta", "gamma"),
        ws::CertificateFailedVerification("alpha", "beta"),
        ws::Timeout(u"alpha", "1.500", u"beta", u"gamma"),
        ws::MalformedURL(u"alpha"),
        ws::UnknownHost(u"alpha"),
        ws::FileNotFound(u"alpha"),
        ws::OperationTerminatedByConsumer(u"alpha"),
        ws::ConnectionFailed(u"alpha"),
        ws::ConnectionRefused(u"alpha", u"beta"),
        ws::DecodingError("alpha", "beta"),
        ws::DecodedContentTooLarge("alpha", "beta"),
        ws::RandomError("alpha"),
        ws::ExpectedProtocol("alpha", "beta", "http", "https"),
        ws::PartialFileWarning("7", "99", "alpha"),
        ws::EncodingFailure(u"alpha", "beta", "gamma"),
        ws::EmptyName("alpha"),
        ws::InvalidFilename("alpha"),
        ws::TimeoutReasonResponseHeader(),
        ws::TimeoutReasonStoppedSending(),
        ws::TimeoutReasonSystemLimit(),
        ws::TimeoutSystemTCP(),
        VANTIK::http::OnlyOneTransferAtATime(),
        VANTIK::type::PropSetClsMismatch("alpha"),
        VANTIK::legacy_two_part::UnableToConvert("alpha", "beta", u"gamma"),
        VANTIK::legacy_two_part::undefinedVarOrClass("alpha"),
    };
    for (const BaseMsgID& id : identifiers) {
        SCOPED_TRACE(id.fullName());
        ASSERT_NE(MessageTable::english().find(id.fullName()), nullptr);
        const std::string text = fl::i18n::to_string(english(id));
        for (const resource_core::MsgArgument& argument : id.arguments()) {
            if (const auto* number = std::get_if<std::int64_t>(&argument)) {
                EXPECT_THAT(text, HasSubstr(std::to_string(*number)));
            } else if (const auto* narrow = std::get_if<std::string>(&argument)) {
                EXPECT_THAT(text, HasSubstr(*narrow));
            } else {
                EXPECT_THAT(text, HasSubstr(fl::i18n::to_string(std::get<std::u16string>(argument))));
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
                ElementsAre("de.txt:4: \"nocolon\" is no message name of the form catalogue:key",
                            "de.txt:5: a:empty has no text",
                            "de.txt:6: a:open: bad pattern at character 1 (U_UNMATCHED_BRACES)",
                            "de.txt:7: a:named: arguments have numbers, not names",
                            "de.txt:8: a:number: arguments are text: only {0} and {0,select,...} are allowed",
                            "de.txt:9: a:good appears for the second time; the first one counts",
                            "de.txt:10: \"a:\" is no message name of the form catalogue:key",
                            "de.txt:11: \"a:b-c\" is no message name of the form catalogue:key"));
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

TEST(MessagePattern, ApostrophesAndBraces) {
    EXPECT_EQ(filled("it's the server's {0}", {std::string("fault")}), u"it's the server's fault");
    EXPECT_EQ(filled("a '{'{0}'}'", {std::string("x")}), u"a {x}");
    EXPECT_EQ(filled("{0}", {std::string("{1} '{'")}), u"{1} '{'"); // an argument is no pattern
}

TEST(MessagePattern, IntegersAreNotGrouped) {
    EXPECT_EQ(filled("{0}", {std::int64_t{1404}}), u"1404");
    EXPECT_EQ(filled("{0}", {std::numeric_limits<std::int64_t>::min()}), u"-9223372036854775808");
}

TEST(MessagePattern, MissingArgumentIsEmptyAndSuperfluousOneIsIgnored) {
    EXPECT_EQ(filled("[{0}][{2}]", {std::string("a")}), u"[a][]");
    EXPECT_EQ(filled("[{0}]", {std::string("a"), std::string("b")}), u"[a]");
}

TEST(MessagePattern, SelectChoosesByText) {
    const std::string pattern = "{0,select,on {is on}other {is {1}}}";
    EXPECT_EQ(filled(pattern, {std::string("on"), std::string("x")}), u"is on");
    EXPECT_EQ(filled(pattern, {std::string("off"), std::string("x")}), u"is x");
}

TEST(MessagePattern, DamagedTextOfAnArgumentIsShown) {
    EXPECT_EQ(filled("<{0}>", {std::string("a\xFFz")}), u"<a\uFFFDz>");
    EXPECT_EQ(filled("<{0}>", {std::u16string{u'a', char16_t(0xD800), u'z'}}), u"<a\uFFFDz>");
    EXPECT_EQ(filled("<{0}>", {std::u16string{char16_t(0xDC00), char16_t(0xD83D), char16_t(0xDE00)}}),
              u"<\uFFFD\U0001F600>");
}

TEST(MessagePattern, EndlessArgumentIsCut) {
    const std::u16string text = filled("{0}!", {std::u16string(3U << 20U, u'x')});
    EXPECT_EQ(text.size(), (1U << 20U) + 2);
    EXPECT_TRUE(text.ends_with(u"x\u2026!"));
}

TEST(MessagePattern, UnusablePatternGivesNothing) {
    EXPECT_EQ(fillPattern(u"{0", {}), u"");
    EXPECT_EQ(fillPattern(u"{x}", {}), u"");
}

TEST(Messages, UnknownIdentifierGivesNameAndArguments) {
    EXPECT_EQ(english(HostMessage({}, "VANTIK:nowhere", "Nothing")), u"VANTIK:nowhere:Nothing");
    EXPECT_EQ(english(HostMessage({std::int64_t{12345}, std::string("narrow"), std::u16string(u"wide")},
                                  "VANTIK:nowhere", "Nothing")),
              u"VANTIK:nowhere:Nothing 12345, narrow, wide");
}

TEST(Messages, BlankTextGivesNameInstead) {
    EXPECT_EQ(english(HostMessage({std::string(" ")}, "VANTIK:host", "Failure")), u"VANTIK:host:Failure  ");
    EXPECT_EQ(english(HostMessage({}, "VANTIK:host", "Failure")), u"VANTIK:host:Failure");
}

TEST(Messages, LocaleNamesBecomeChains) {
    EXPECT_THAT(localeChain("de_AT.UTF-8@euro"), ElementsAre("de_AT", "de"));
    EXPECT_THAT(localeChain("zh-Hant-TW"), ElementsAre("zh_Hant_TW", "zh_Hant", "zh"));
    EXPECT_THAT(localeChain("en"), ElementsAre("en"));
    EXPECT_THAT(localeChain(""), IsEmpty());
    EXPECT_THAT(localeChain("../../etc/passwd"), IsEmpty());
    EXPECT_THAT(localeChain("de/../x"), IsEmpty());
    EXPECT_THAT(localeChain(std::string(40, 'a')), IsEmpty());
    EXPECT_THAT(localeChain("C"), ElementsAre("C"));
}

TEST(Messages, LanguageFilesStandBeforeEnglish) {
    const MessageFolder folder;
    folder.write("xx.txt", "VANTIK:webservices:UnknownHost Kein Rechner {0}\n"
                           "VANTIK:builtin:TooManyInputs Zu viele\n");
    folder.write("xx_YY.txt", "VANTIK:builtin:TooManyInputs Gar zu viele\n");
    const VANTIK::webservices::UnknownHost host(u"h");
    const HostMessage inputs({}, "VANTIK:builtin", "TooManyInputs");
    const HostMessage outputs({}, "VANTIK:builtin", "TooManyOutputs");
    EXPECT_EQ(messageText(host, "xx_YY.UTF-8"), u"Kein Rechner h");
    EXPECT_EQ(messageText(inputs, "xx_YY"), u"Gar zu viele");
    EXPECT_EQ(messageText(inputs, "xx"), u"Zu viele");
    EXPECT_EQ(messageText(outputs, "xx_YY"), u"Too many results are requested.");
    EXPECT_EQ(messageText(inputs, "en"), u"Too many inputs.");
    EXPECT_EQ(fl::i18n::MessageCatalog::get_message(host, fl::i18n::VkLocale("xx")), u"Kein Rechner h");
}

TEST(Messages, FileMayReplaceEnglishTexts) {
    const MessageFolder folder;
    folder.write("en.txt", "VANTIK:builtin:TooManyInputs Fewer inputs, please.\n");
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:builtin", "TooManyInputs"), "qq"), u"Fewer inputs, please.");
}

TEST(Messages, BadLinesOfAFileAreToldOnceAndPassedOver) {
    const MessageFolder folder;
    folder.write("xx.txt", "junk\nVANTIK:builtin:TooManyInputs Zu viele\n");
    const HostMessage inputs({}, "VANTIK:builtin", "TooManyInputs");
    testing::internal::CaptureStderr();
    EXPECT_EQ(messageText(inputs, "xx"), u"Zu viele");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("xx.txt:1: \"junk\" is no message name"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(messageText(inputs, "xx"), u"Zu viele");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Messages, HugeFileIsRefused) {
    const MessageFolder folder;
    folder.write("xx.txt", "VANTIK:builtin:TooManyInputs Zu viele\n" + std::string(5U << 20U, '#'));
    testing::internal::CaptureStderr();
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:builtin", "TooManyInputs"), "xx"), u"Too many inputs.");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("too large"));
}

TEST(Messages, FolderInPlaceOfAFileIsPassedOver) {
    const MessageFolder folder;
    folder.makeFolder("xx.txt");
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:builtin", "TooManyInputs"), "xx"), u"Too many inputs.");
}

TEST(HostExceptions, CarryIdentifierArgumentsAndText) {
    try {
        vantik::detail::raiseHostFailure("VANTIK:legacy_two_part", "undefinedVarOrClass", {std::string("a.B")});
        FAIL();
    } catch (const foundation::core::except::IMsgIDException& failure) {
        EXPECT_EQ(failure.get_error_id(), "VANTIK:legacy_two_part:undefinedVarOrClass");
        EXPECT_STREQ(failure.what(), "The class \"a.B\" is not defined.");
        EXPECT_EQ(failure.GetUnicodeMessageTxt(), u"The class \"a.B\" is not defined.");
        ASSERT_EQ(failure.msg_id().arguments().size(), 1U);
        EXPECT_EQ(std::get<std::string>(failure.msg_id().arguments()[0]), "a.B");
    }
}

TEST(HostExceptions, CloneAndRethrowKeepTypeAndText) {
    const VANTIK::Failure<VANTIK::webservices::UnknownHost> failure(VANTIK::webservices::UnknownHost(u"nowhere"));
    const std::unique_ptr<const boost::exception_detail::clone_base> copy(failure.clone());
    try {
        copy->rethrow();
        FAIL();
    } catch (const VANTIK::Failure<VANTIK::webservices::UnknownHost>& thrown) {
        EXPECT_NE(&thrown, &failure);
        EXPECT_STREQ(thrown.what(), failure.what());
        EXPECT_EQ(thrown.get_error_id(), "VANTIK:webservices:UnknownHost");
    }
}

TEST(HostExceptions, DamagedArgumentDoesNotReplaceTheFailure) {
    const std::u16string half{char16_t(0xD800)};
    EXPECT_THROW(vantik::detail::raiseHostFailure("VANTIK:webservices", "MalformedURL", {half}), HostException);
}

TEST(HostExceptions, OutOfMemoryIsBothFamilies) {
    const foundation::core::except::bad_alloc failure;
    EXPECT_THROW(failure.rethrow(), std::bad_alloc);
    EXPECT_THROW(failure.rethrow(), foundation::core::except::IException);
    const std::unique_ptr<const boost::exception_detail::clone_base> copy(failure.clone());
    EXPECT_THROW(copy->rethrow(), foundation::core::except::bad_alloc);
    EXPECT_STREQ(static_cast<const foundation::core::except::IException&>(failure).what(), "Out of memory.");
}

TEST(HostExceptions, LegacyErrorRouteReturns) {
    const HostException failure(HostMessage({}, "VANTIK:host", "Failure"));
    EXPECT_NO_THROW(matrix::detail::do_legacy_vx_error(failure));
}

TEST(HostExceptions, ArgumentCountErrors) {
    const auto identifier = [](void (*raise)()) {
        try {
            raise();
        } catch (const HostException& failure) {
            return failure.get_error_id();
        }
        return std::string();
    };
    EXPECT_EQ(identifier(matrix::detail::error_maxlhs), "VANTIK:builtin:TooManyOutputs");
    EXPECT_EQ(identifier(matrix::detail::error_maxrhs), "VANTIK:builtin:TooManyInputs");
    EXPECT_EQ(identifier(matrix::detail::error_minrhs), "VANTIK:builtin:NotEnoughInputs");
}

class Warnings : public testing::Test {
protected:
    void warn() {
        matrix::detail::noninlined::vx_array_api::vxWarningMsgId(
            VANTIK::webservices::PartialFileWarning("3", "10", "closed early"));
    }
    static constexpr const char* kLine =
        "warning: The content is incomplete: 3 of 10 bytes were received. closed early\n";

    std::shared_ptr<vantik::detail::Scope> Home = std::make_shared<vantik::detail::Scope>();
    vantik::detail::ScopeEntry Entry{Home};
};

TEST_F(Warnings, GoToStandardErrorByDefault) {
    testing::internal::CaptureStderr();
    warn();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kLine);
}

TEST_F(Warnings, GoToTheHandlerAlone) {
    std::vector<std::string> seen;
    Home->Warnings.setHandler([&](const BaseMsgID& id) { seen.push_back(id.fullName()); });
    testing::internal::CaptureStderr();
    warn();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(seen, ElementsAre("VANTIK:webservices:PartialFileWarning"));
    Home->Warnings.setHandler({});
    testing::internal::CaptureStderr();
    warn();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kLine);
}

TEST_F(Warnings, FailingHandlerLosesNoWarning) {
    Home->Warnings.setHandler([](const BaseMsgID&) { throw 7; });
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(warn());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kLine);
}

TEST_F(Warnings, HandlerMayReplaceItself) {
    int calls = 0;
    Home->Warnings.setHandler([this, &calls](const BaseMsgID&) {
        Home->Warnings.setHandler([&calls](const BaseMsgID&) { calls += 10; });
        ++calls;
    });
    warn();
    warn();
    EXPECT_EQ(calls, 11);
}
