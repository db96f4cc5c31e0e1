#include "client/response/ContentDisposition.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using netrove::fileNameOf;

constexpr std::nullopt_t kRefused = std::nullopt;

struct Row {
    std::string Field;
    std::optional<std::string> Name;
};

void check(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(fileNameOf(row.Field), row.Name) << row.Field;
    }
}

TEST(ContentDisposition, PlainNames) {
    check({
        {"attachment; filename=a.txt", "a.txt"},
        {"attachment; filename=\"a.txt\"", "a.txt"},
        {"inline; filename=\"a.txt\"", "a.txt"},
        {"ATTACHMENT;FileName = \"a.txt\" ", "a.txt"},
        {"attachment; foo=\"filename=x\"; filename=\"a;b.txt\"; size=3", "a;b.txt"},
        {"attachment; filename=\"a.txt\";", "a.txt"},
        {"attachment;; filename=a.txt", "a.txt"},
        {"attachment; filename=\"100%25.txt\"", "100%25.txt"}, // only the extended form is percent-encoded
        {"attachment; filename=two words.txt", "two words.txt"},
        {"attachment; filename=\"\xC3\xA9t\xC3\xA9.txt\"", "\xC3\xA9t\xC3\xA9.txt"}, // as most servers send it
        {"attachment; filename=\"\xE9t\xE9.txt\"", "\xC3\xA9t\xC3\xA9.txt"},         // as the RFC has it
        {"attachment; filename=\"=?utf-8?q?a?=\"", "=?utf-8?q?a?="},                 // mail only
        {"attachment", std::nullopt},
        {"attachment; name=a.txt", std::nullopt},
        {"", std::nullopt},
    });
}

TEST(ContentDisposition, ExtendedNameWinsInEitherOrder) {
    check({
        {"attachment; filename=\"plain.txt\"; filename*=UTF-8''r%C3%A9al.txt", "r\xC3\xA9"
                                                                               "al.txt"},
        {"attachment; filename*=utf-8'en'real.txt; filename=\"plain.txt\"", "real.txt"},
        {"attachment; FILENAME*=UTF-8''real.txt", "real.txt"},
    });
}

TEST(ContentDisposition, ExtendedNamesAreDecodedOrPassedOver) {
    check({
        {"attachment; filename*=UTF-8''na%C3%AFve.txt", "na\xC3\xAFve.txt"},
        {"attachment; filename*=iso-8859-1'en'%A3%20rates", "\xC2\xA3 rates"},
        {"attachment; filename*=UTF-8''%e2%82%ac%20rates", "\xE2\x82\xAC rates"},
        {"attachment; filename*=\"UTF-8''quoted.txt\"", "quoted.txt"}, // not valid, but meant
        {"attachment; filename*=UTF-8''bad%2; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%zz; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%-1; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%+1; filename=ok.txt", "ok.txt"},
        {"attachment; filename=ok.txt; filename*=UTF-8''bad%FF", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%C3; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''over%C0%AFlong; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=ebcdic''x.txt; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=''x.txt; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=x.txt; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8'x.txt; filename=ok.txt", "ok.txt"},
        {"attachment; filename*=UTF-8''bad%2", std::nullopt},
    });
}

TEST(ContentDisposition, OnlyTheLastSegmentIsKept) {
    check({
        {"attachment; filename=\"/etc/passwd\"", "passwd"},
        {"attachment; filename=\"../../a.txt\"", "a.txt"},
        {"attachment; filename=\"..\\\\..\\\\a.txt\"", "a.txt"},
        {"attachment; filename=..\\..\\a.txt", "a.txt"},
        {"attachment; filename=\"C:\\\\Windows\\\\a.txt\"", "a.txt"},
        {"attachment; filename=\"a/b\\\\c.txt\"", "c.txt"},
        {"attachment; filename*=UTF-8''..%2F..%2Fa.txt", "a.txt"},
        {"attachment; filename*=UTF-8''..%5C..%5Ca.txt", "a.txt"},
        {"attachment; filename=\"a/\"", kRefused},
        {"attachment; filename=\"a\\\\\"", kRefused},
    });
}

TEST(ContentDisposition, HostileNamesAreRefused) {
    check({
        {"attachment; filename=\"\"", kRefused},
        {"attachment; filename=", kRefused},
        {"attachment; filename=\".\"", kRefused},
        {"attachment; filename=\"..\"", kRefused},
        {"attachment; filename=\"../..\"", kRefused},
        {"attachment; filename=\"...\"", kRefused},
        {"attachment; filename=\". .\"", kRefused},
        {"attachment; filename=\"   \"", kRefused},
        {"attachment; filename*=UTF-8''a%00.txt", kRefused},
        {"attachment; filename*=UTF-8''a%0D%0Ab", kRefused},
        {"attachment; filename*=UTF-8''a%1B%5B2J", kRefused},
        {"attachment; filename*=UTF-8''a%7F", kRefused},
        {"attachment; filename=\"a\x1B[2J.txt\"", kRefused},
        {"attachment; filename=\"a\tb\"", kRefused},
        {"attachment; filename*=UTF-8''a%C2%85b", kRefused},             // C1
        {"attachment; filename=\"a\x9B.txt\"", kRefused},                // C1, as ISO-8859-1 has it
        {"attachment; filename*=UTF-8''txt.%E2%80%AEfdp.exe", kRefused}, // written from right to left
        {"attachment; filename*=UTF-8''a%E2%80%A8b", kRefused},          // line separator
        {"attachment; filename*=UTF-8''..; filename=ok.txt", kRefused},  // readable, but hostile
        {"attachment; filename=CON", kRefused},
        {"attachment; filename=nul.txt", kRefused},
        {"attachment; filename=\"Aux .tar.gz\"", kRefused},
        {"attachment; filename=prn:x", kRefused},
        {"attachment; filename=com1", kRefused},
        {"attachment; filename=LPT9.log", kRefused},
        {"attachment; filename*=UTF-8''com%C2%B9", kRefused},
        {"attachment; filename*=UTF-8''LPT%C2%B3.x", kRefused},
        {"attachment; filename=CONIN$", kRefused},
        {"attachment; filename=conout$.txt", kRefused},
        {"attachment; filename=\".nul\"", kRefused},
    });
}

TEST(ContentDisposition, HarmlessNamesStay) {
    check({
        {"attachment; filename=console.log", "console.log"},
        {"attachment; filename=com.txt", "com.txt"},
        {"attachment; filename=com10", "com10"},
        {"attachment; filename=null", "null"},
        {"attachment; filename=a..b", "a..b"},
        {"attachment; filename=\"it's \\\"5\\\" & more.txt\"", "it's \"5\" & more.txt"},
        {"attachment; filename=\".bashrc\"", "bashrc"}, // not hidden
        {"attachment; filename=\" ..a.txt \"", "a.txt"},
        {"attachment; filename*=UTF-8''%E6%96%87%E5%AD%97.txt", "\xE6\x96\x87\xE5\xAD\x97.txt"},
        {"attachment; filename*=UTF-8''%F0%9F%98%80.png", "\xF0\x9F\x98\x80.png"},
    });
}

TEST(ContentDisposition, RepeatedParameterMakesItInvalid) {
    check({
        {"attachment; filename=a.txt; filename=b.txt", kRefused},
        {"attachment; filename=a.txt; FILENAME=a.txt", kRefused},
        {"attachment; filename*=UTF-8''a; filename*=UTF-8''b; filename=c", kRefused},
        {"attachment; size=1; filename=a.txt; size=1", kRefused},
    });
}

TEST(ContentDisposition, QuotedPairsAreUndone) {
    check({
        {R"(attachment; filename="a\"b\.txt")", "a\"b.txt"},
        {R"(attachment; filename="\f\oo")", "foo"},
    });
}

TEST(ContentDisposition, WhatIsNotOfItsGrammarIsRefused) {
    check({
        {"filename=a.txt", kRefused},
        {"\"attachment\"; filename=a.txt", kRefused},
        {"; filename=a.txt", kRefused},
        {"attachment; filename=\"a.txt", kRefused},
        {"attachment; filename=\"a.txt\\", kRefused},
        {"attachment; filename=\"a.txt\" b", kRefused},
        {"attachment; filename=a\"b\".txt", kRefused},
        {"attachment; filename", kRefused},
        {"attachment; =a.txt", kRefused},
        {"attachment filename=a.txt", kRefused},
    });
}

TEST(ContentDisposition, LongNamesAreCutAtACharacter) {
    const auto nameOf = [](const std::string& name) { return fileNameOf("attachment; filename=\"" + name + "\""); };
    EXPECT_EQ(nameOf(std::string(200, 'a')), std::string(200, 'a'));
    EXPECT_EQ(nameOf(std::string(201, 'a')), std::string(200, 'a'));
    EXPECT_EQ(nameOf(std::string(199, 'a') + "\xC3\xA9"), std::string(199, 'a'));
    EXPECT_EQ(nameOf(std::string(198, 'a') + "\xC3\xA9z"), std::string(198, 'a') + "\xC3\xA9");
    EXPECT_EQ(nameOf(std::string(197, 'a') + "\xF0\x9F\x98\x80"), std::string(197, 'a'));
    EXPECT_EQ(nameOf(std::string(190, 'a') + "          b"), std::string(190, 'a')); // no blank at its end
}

} // namespace
