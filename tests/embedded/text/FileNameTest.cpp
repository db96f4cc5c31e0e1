#include "embedded/text/TextConversion.h"
#include "host/Text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

TEST(FileNames, AreCleanedUp) {
    const std::pair<std::u16string, std::u16string> rows[] = {
        {u"", u""},
        {u"   ", u""},
        {u"plain.txt", u"plain.txt"},
        {u"  /tmp/a b.txt\t ", u"/tmp/a b.txt"},
        {u"file:///tmp/a.txt", u"/tmp/a.txt"},
        {u"FILE:/tmp/a.txt", u"/tmp/a.txt"},
        {u"file:a.txt", u"a.txt"},
        {u"file://localhost/tmp/a.txt", u"/tmp/a.txt"},
        {u"file://LOCALHOST/tmp/a.txt", u"/tmp/a.txt"},
        {u"file://server/share/a.txt", u"//server/share/a.txt"},
        {u"file:///tmp/a%20b", u"/tmp/a%20b"},
        {u"files:a", u"files:a"},
        {u"file", u"file"},
        {u"~", u"/home/someone"},
        {u"~/a.txt", u"/home/someone/a.txt"},
        {u" file:~/a.txt", u"/home/someone/a.txt"},
        {u"~other/a.txt", u"~other/a.txt"},
        {u"a/~/b", u"a/~/b"},
        {u"\u00E9t\u00E9.txt", u"\u00E9t\u00E9.txt"},
        {std::u16string(u"a\0b", 3), u""},
        {std::u16string(u"~/\0", 3), u""},
    };
    for (const auto& [given, expected] : rows) {
        EXPECT_EQ(vantik::detail::cleanFileName(given, u"/home/someone"), expected);
    }
    EXPECT_EQ(vantik::detail::cleanFileName(u"~/a", u""), u"~/a") << "without a home folder";
}

TEST(FileNames, HomeFolderIsThatOfTheUser) {
    using fl::filesystem::detail::make_native_access_form_with_cleanup_i18n;
    const std::u16string expanded = make_native_access_form_with_cleanup_i18n(u" ~/x ");
    const char* home = std::getenv("HOME");
    if (home && *home) {
        EXPECT_EQ(expanded, fl::i18n::to_ustring(home) + u"/x");
    } else {
        EXPECT_TRUE(expanded.ends_with(u"/x"));
    }
    EXPECT_EQ(make_native_access_form_with_cleanup_i18n(u"/tmp/x"), u"/tmp/x");
}
