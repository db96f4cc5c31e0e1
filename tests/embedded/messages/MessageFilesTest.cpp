#include "embedded/messages/MessageFiles.h"

#include "embedded/messages/HostFailure.h"
#include "errors/MessageIdentifiers.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vantik::detail::HostMessage;
using vantik::detail::localeChain;
using vantik::detail::messageText;

namespace {

const HostMessage kInputs({}, "VANTIK:builtin", "TooManyInputs");

// A folder of message files that the catalogue looks into.
class MessageFiles : public testing::Test {
protected:
    MessageFiles() { setenv("VANTIK_MESSAGES_PATH", ("/nonexistent:" + Folder.path()).c_str(), 1); }
    ~MessageFiles() override { unsetenv("VANTIK_MESSAGES_PATH"); }
    void write(const char* name, const std::string& text) { testsupport::writeFile(Folder.file(name), text); }

    testsupport::TemporaryFolder Folder;
};

} // namespace

TEST(LocaleNames, BecomeChains) {
    EXPECT_THAT(localeChain("de_AT.UTF-8@euro"), ElementsAre("de_AT", "de"));
    EXPECT_THAT(localeChain("zh-Hant-TW"), ElementsAre("zh_Hant_TW", "zh_Hant", "zh"));
    EXPECT_THAT(localeChain("en"), ElementsAre("en"));
    EXPECT_THAT(localeChain("C"), ElementsAre("C"));
    for (const std::string& other :
         {std::string(), std::string("../../etc/passwd"), std::string("de/../x"), std::string(40, 'a')}) {
        EXPECT_THAT(localeChain(other), IsEmpty()) << other;
    }
}

TEST_F(MessageFiles, LanguageComesBeforeEnglish) {
    write("xx.txt", "VANTIK:webservices:UnknownHost Kein Rechner {0}\n"
                    "VANTIK:builtin:TooManyInputs Zu viele\n");
    write("xx_YY.txt", "VANTIK:builtin:TooManyInputs Gar zu viele\n");
    const VANTIK::webservices::UnknownHost host(u"h");
    EXPECT_EQ(messageText(host, "xx_YY.UTF-8"), u"Kein Rechner h");
    EXPECT_EQ(messageText(kInputs, "xx_YY"), u"Gar zu viele");
    EXPECT_EQ(messageText(kInputs, "xx"), u"Zu viele");
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:builtin", "TooManyOutputs"), "xx_YY"),
              u"Too many results are requested.");
    EXPECT_EQ(messageText(kInputs, "en"), u"Too many inputs.");
    EXPECT_EQ(fl::i18n::MessageCatalog::get_message(host, fl::i18n::VkLocale("xx")), u"Kein Rechner h");
}

TEST_F(MessageFiles, FileMayReplaceEnglishTexts) {
    write("en.txt", "VANTIK:builtin:TooManyInputs Fewer inputs, please.\n");
    EXPECT_EQ(messageText(kInputs, "qq"), u"Fewer inputs, please.");
}

TEST_F(MessageFiles, WhatCannotBeReadIsReportedOnceAndPassedOver) {
    const auto reported = [](const char* locale, const char16_t* text) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(messageText(kInputs, locale), text);
        return testing::internal::GetCapturedStderr();
    };
    write("xx.txt", "junk\nVANTIK:builtin:TooManyInputs Zu viele\n");
    EXPECT_THAT(reported("xx", u"Zu viele"), HasSubstr("xx.txt:1: \"junk\" is not a message name"));
    EXPECT_EQ(reported("xx", u"Zu viele"), "");
    write("yy.txt", "VANTIK:builtin:TooManyInputs Zu viele\n" + std::string(5U << 20U, '#'));
    EXPECT_THAT(reported("yy", u"Too many inputs."), HasSubstr("too large"));
    std::filesystem::create_directory(Folder.file("zz.txt"));
    reported("zz", u"Too many inputs.");
}

TEST(MessageText, IsTheNameAndTheArgumentsWhereThereIsNone) {
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:nowhere", "Nothing"), "en"), u"VANTIK:nowhere:Nothing");
    EXPECT_EQ(messageText(HostMessage({std::int64_t{12345}, std::string("narrow"), std::u16string(u"wide")},
                                      "VANTIK:nowhere", "Nothing"),
                          "en"),
              u"VANTIK:nowhere:Nothing 12345, narrow, wide");
    // A blank text is none.
    EXPECT_EQ(messageText(HostMessage({std::string(" ")}, "VANTIK:host", "Failure"), "en"), u"VANTIK:host:Failure  ");
    EXPECT_EQ(messageText(HostMessage({}, "VANTIK:host", "Failure"), "en"), u"VANTIK:host:Failure");
}
